// RegNotifyChangeKeyValue for changes made by another process (the orvsim tool), and where the
// pal and Wine part. The rest is checked on both platforms by conformance/notify_test.cpp.
#include "tests/pal/registry/registry_testing.h"

#include <chrono>

namespace {

using orvtest::registry::kNotifyBoth;
using orvtest::registry::kNotifySilence;
using orvtest::registry::ScopedKey;
using RegistryNotifyPalTest = orvtest::registry::RegistryNotifyFixture<orvtest::PalTest>;

// Long enough for a change to come from another process on a loaded machine.
constexpr DWORD kGenerous = 5000;

// Linux only: Windows documents no error for these and Wine accepts any filter (and reports a
// missing event as ERROR_INVALID_HANDLE).
TEST_F(RegistryNotifyPalTest, InvalidArguments)
{
    EXPECT_WIN32(ERROR_INVALID_PARAMETER,
                 RegNotifyChangeKeyValue(Base(), FALSE, REG_NOTIFY_CHANGE_NAME, nullptr, TRUE));
    EXPECT_WIN32(ERROR_INVALID_PARAMETER,
                 RegNotifyChangeKeyValue(Base(), FALSE, 0, m_events[0], TRUE));
    EXPECT_WIN32(ERROR_INVALID_PARAMETER,
                 RegNotifyChangeKeyValue(Base(), FALSE, 0x40, m_events[0], TRUE));
}

// Linux only: the pal ends such a watch with a signal; Wine does not signal it, and ATL
// documents that CRegKey::NotifyChangeKeyValue does not report a deleted key.
TEST_F(RegistryNotifyPalTest, DeletingTheWatchedKeySignals)
{
    ScopedKey watched(Create(u"Gone\\Watched"));
    ASSERT_EQ(ERROR_SUCCESS, Arm(watched, FALSE, REG_NOTIFY_CHANGE_LAST_SET));
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteTreeW(Base(), u"Gone"));
    EXPECT_TRUE(Signaled()) << "whatever the filter";
}

TEST_F(RegistryNotifyPalTest, ChangesByAnotherProcessSignalTheWatchesTheyMatch)
{
    ScopedKey victim(Create(u"Victim"));
    ASSERT_EQ(ERROR_SUCCESS, Arm(Base(), TRUE, kNotifyBoth, 0));
    ASSERT_EQ(ERROR_SUCCESS, Arm(victim, TRUE, kNotifyBoth, 1));
    auto result =
        orvtest::registry::RunOrvsim(Root(), {"reg", "add", "HKLM\\Software\\OrvTest\\Remote", "/v",
                                              "Level", "/t", "REG_DWORD", "/d", "7", "/f"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    // The change committed when the tool exited; 250 ms is the promise, with room for load.
    auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(Signaled(0, kGenerous));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1000));
    EXPECT_FALSE(Signaled(1, kNotifySilence)) << "a change outside the watched subtree";

    result = orvtest::registry::RunOrvsim(
        Root(), {"reg", "delete", "HKLM\\Software\\OrvTest\\Victim", "/f"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_TRUE(Signaled(1, kGenerous)) << "the watched key deleted";
    EXPECT_WIN32(ERROR_KEY_DELETED, SetDword(victim, u"v", 1));
}

} // namespace
