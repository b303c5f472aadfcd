// RegNotifyChangeKeyValue for changes made by another process (the orvsim tool), and where the
// pal and Wine part. The rest is checked on both platforms by conformance/notify_test.cpp.
#include "tests/pal/registry/registry_testing.h"

#include <chrono>

namespace {

using orvtest::registry::ScopedKey;

// Long enough for a change to come from another process on a loaded machine.
constexpr DWORD kGenerous = 5000;
// Long enough for the watcher thread to have read the log several times: a notification that
// has not fired by then will not.
constexpr DWORD kSilence = 300;
constexpr DWORD kBoth = REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_LAST_SET;

class RegistryNotifyPalTest : public orvtest::registry::RegistryTest
{
protected:
    void SetUp() override
    {
        RegistryFixture::SetUp();
        for (HANDLE& h : m_events)
            ASSERT_NE(nullptr, h = CreateEventW(nullptr, TRUE, FALSE, nullptr));
    }
    void TearDown() override
    {
        for (HANDLE h : m_events)
            CloseHandle(h);
        RegistryFixture::TearDown();
    }

    LONG Arm(HKEY hKey, BOOL bSubtree, DWORD dwFilter, int event = 0)
    {
        ResetEvent(m_events[event]);
        return RegNotifyChangeKeyValue(hKey, bSubtree, dwFilter, m_events[event], TRUE);
    }
    bool Signaled(int event = 0, DWORD ms = 0) const
    {
        return WaitForSingleObject(m_events[event], ms) == WAIT_OBJECT_0;
    }

    HANDLE m_events[2] = {};
};

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

TEST_F(RegistryNotifyPalTest, ChangesByAnotherProcessElsewhereStaySilent)
{
    ScopedKey watched(Create(u"Watched"));
    ASSERT_EQ(ERROR_SUCCESS, Arm(watched, TRUE, kBoth));
    auto result = orvtest::registry::RunOrvsim(
        Root(), {"reg", "add", "HKLM\\Software\\OrvTest\\Loud", "/v", "x", "/d", "y", "/f"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_FALSE(Signaled(0, kSilence));
}

TEST_F(RegistryNotifyPalTest, ChangesByAnotherProcessSignal)
{
    ScopedKey victim(Create(u"Victim"));
    ASSERT_EQ(ERROR_SUCCESS, Arm(Base(), TRUE, kBoth, 0));
    ASSERT_EQ(ERROR_SUCCESS, Arm(victim, FALSE, REG_NOTIFY_CHANGE_LAST_SET, 1));
    auto result =
        orvtest::registry::RunOrvsim(Root(), {"reg", "add", "HKLM\\Software\\OrvTest\\Remote", "/v",
                                              "Level", "/t", "REG_DWORD", "/d", "7", "/f"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    // The change committed when the tool exited; 250 ms is the promise, with room for load.
    auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(Signaled(0, kGenerous));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1000));
    ScopedKey remote;
    ASSERT_EQ(ERROR_SUCCESS, OpenKey(Base(), u"Remote", remote.Out()));
    EXPECT_EQ(orvtest::registry::DwordBytes(7), GetBytes(remote, u"Level"));

    EXPECT_FALSE(Signaled(1)) << "a change elsewhere";
    result = orvtest::registry::RunOrvsim(
        Root(), {"reg", "delete", "HKLM\\Software\\OrvTest\\Victim", "/f"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_TRUE(Signaled(1, kGenerous)) << "the watched key deleted";
    EXPECT_WIN32(ERROR_KEY_DELETED, SetDword(victim, u"v", 1));
}

} // namespace
