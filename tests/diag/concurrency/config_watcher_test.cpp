// The configuration watcher: changes under the key are re-read while the service runs.
#include "tests/diag/support/diagfixture.h"

namespace {

using orvtest::WaitUntil;
using ConfigWatcherTest = orvtest::ConfigTest;

TEST_F(ConfigWatcherTest, TraceMaskChangesTheRunningLogAtOnceAnUnchangedOneDoesNot)
{
    SetDate(3, 7);
    SetDword(W("TraceMask"), 3);
    ASSERT_HR(S_OK, CConfig::Initialize());
    EXPECT_EQ(3u, TraceGetLevel());
    TraceInit(3, TraceDir().c_str(), W("orvp"), 0);
    ASSERT_TRUE(IsFileOpenLocked());

    WaitForWatcher();
    SetDword(W("TraceMask"), 0);
    ASSERT_TRUE(WaitUntil([] { return TraceGetLevel() == 0; }));
    ASSERT_TRUE(WaitUntil([] { return CConfig::GetTraceMask() == 0; }));
    EXPECT_FALSE(IsFileOpenLocked());

    WaitForWatcher();
    SetDword(W("TraceMask"), 3);
    ASSERT_TRUE(WaitUntil([] { return TraceGetLevel() == 3; }));
    EXPECT_TRUE(IsFileOpenLocked());
    EXPECT_EQ(0u, SequenceLocked()) << "today's newest file is appended to";

    TraceClose(); // a level change would open it again
    WaitForWatcher();
    SetDword(W("TraceMask"), 3);
    SetDword(W("MaxVssWait"), 77);
    ASSERT_TRUE(WaitUntil([] { return CConfig::GetMaxVssWait() == 77; }));
    EXPECT_FALSE(IsFileOpenLocked());
}

TEST_F(ConfigWatcherTest, ChangesInSubkeysWakeTheWatcherAndTerminateJoinsIt)
{
    ASSERT_HR(S_OK, CConfig::Initialize());
    WaitForWatcher();
    {
        CRegKey sub;
        ASSERT_EQ(ERROR_SUCCESS,
                  sub.Create(HKEY_LOCAL_MACHINE, ORV_PARAMETERS_KEY W("\\Extra"), KEY_ALL_ACCESS));
        ASSERT_EQ(ERROR_SUCCESS, sub.SetDWORDValue(W("Anything"), 1));
    }
    EXPECT_TRUE(WaitUntil([this] { return CountInOutput("**** RegThread wakes up\n") >= 1; }));

    WaitForWatcher();
    EXPECT_HR(S_OK, CConfig::Terminate());
    EXPECT_EQ(1u, CountInOutput("**** RegThread exits\n"));
    EXPECT_EQ(0u, pal::ArmedRegistryNotifications()) << "the watched key was closed";
    SetDword(W("MaxVssWait"), 5);
    EXPECT_EQ(1200u, CConfig::GetMaxVssWait()) << "nothing reads the key any more";
}

TEST_F(ConfigWatcherTest, FailedArmingEndsTheWatcher)
{
    pal::InjectFault("RegNotifyChangeKeyValue", ERROR_ACCESS_DENIED);
    ASSERT_HR(S_OK, CConfig::Initialize());
    EXPECT_TRUE(WaitUntil([this] { return CountInOutput("**** RegThread exits\n") == 1; }));
    EXPECT_EQ(1u, CountInOutput("RegNotifyChangeKeyValue FAILED [dwError="));
}

} // namespace
