// RegNotifyChangeKeyValue within this process and from another one (the orvsim tool).
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

class RegistryNotifyTest : public orvtest::registry::RegistryTest
{
protected:
    void SetUp() override
    {
        RegistryTest::SetUp();
        for (HANDLE& h : m_events)
            ASSERT_NE(nullptr, h = CreateEventW(nullptr, TRUE, FALSE, nullptr));
    }
    void TearDown() override
    {
        for (HANDLE h : m_events)
            CloseHandle(h);
        RegistryTest::TearDown();
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

    HANDLE m_events[8] = {};
};

TEST_F(RegistryNotifyTest, ChangesByThisProcessSignalBeforeTheCallReturns)
{
    ASSERT_EQ(ERROR_SUCCESS, Arm(Base(), FALSE, REG_NOTIFY_CHANGE_LAST_SET));
    EXPECT_FALSE(Signaled());
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"v", 1));
    EXPECT_TRUE(Signaled()) << "value set";
    ASSERT_EQ(ERROR_SUCCESS, Arm(Base(), FALSE, REG_NOTIFY_CHANGE_LAST_SET));
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteValueW(Base(), u"v"));
    EXPECT_TRUE(Signaled()) << "value deleted";
    ASSERT_EQ(ERROR_SUCCESS, Arm(Base(), FALSE, REG_NOTIFY_CHANGE_NAME));
    RegCloseKey(Create(u"Child"));
    EXPECT_TRUE(Signaled()) << "subkey created";
    ASSERT_EQ(ERROR_SUCCESS, Arm(Base(), FALSE, REG_NOTIFY_CHANGE_NAME));
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteKeyW(Base(), u"Child"));
    EXPECT_TRUE(Signaled()) << "subkey deleted";

    ScopedKey deep(Create(u"A\\B\\C"));
    ASSERT_EQ(ERROR_SUCCESS, Arm(Base(), TRUE, REG_NOTIFY_CHANGE_LAST_SET));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(deep, u"v", 1));
    EXPECT_TRUE(Signaled()) << "change below a subtree watch";
    ScopedKey watched(Create(u"Gone\\Watched"));
    ASSERT_EQ(ERROR_SUCCESS, Arm(watched, FALSE, REG_NOTIFY_CHANGE_LAST_SET));
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteTreeW(Base(), u"Gone"));
    EXPECT_TRUE(Signaled()) << "the watched key deleted, whatever the filter";

    ASSERT_EQ(ERROR_SUCCESS, Arm(HKEY_CLASSES_ROOT, TRUE, REG_NOTIFY_CHANGE_LAST_SET));
    ScopedKey thing;
    ASSERT_EQ(ERROR_SUCCESS,
              CreateKey(HKEY_LOCAL_MACHINE, u"Software\\Classes\\Orv.Thing", thing.Out()));
    ASSERT_EQ(ERROR_SUCCESS, SetString(thing, nullptr, u"thing"));
    EXPECT_TRUE(Signaled()) << "HKCR sees changes made through HKLM";

    ScopedKey second;
    ASSERT_EQ(ERROR_SUCCESS, OpenKey(Base(), nullptr, second.Out(), KEY_NOTIFY));
    ASSERT_EQ(ERROR_SUCCESS, Arm(Base(), FALSE, REG_NOTIFY_CHANGE_LAST_SET, 0));
    ASSERT_EQ(ERROR_SUCCESS, Arm(second, FALSE, REG_NOTIFY_CHANGE_LAST_SET, 1));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"v", 1));
    EXPECT_TRUE(Signaled(0));
    EXPECT_TRUE(Signaled(1)) << "each arming signals its own event";
}

TEST_F(RegistryNotifyTest, UnmatchedUsedOrEndedWatchesStaySilent)
{
    ScopedKey k[7];
    for (int i = 0; i < 7; ++i)
        *k[i].Out() = Create((u"K" + orvtest::Wide(std::to_string(i))).c_str());

    ASSERT_EQ(ERROR_SUCCESS, Arm(k[0], FALSE, REG_NOTIFY_CHANGE_NAME, 0));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(k[0], u"v", 1));

    ASSERT_EQ(ERROR_SUCCESS, Arm(k[1], FALSE, REG_NOTIFY_CHANGE_LAST_SET, 1));
    RegCloseKey(Create(u"Child", k[1]));

    ScopedKey below(Create(u"A", k[2]));
    ASSERT_EQ(ERROR_SUCCESS, Arm(k[2], FALSE, kBoth, 2));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(below, u"v", 1));

    ScopedKey inside(Create(u"Watched", k[3]));
    ScopedKey sibling(Create(u"WatchedToo", k[3])); // shares the name's prefix, not the subtree
    ASSERT_EQ(ERROR_SUCCESS, Arm(inside, TRUE, kBoth, 3));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(sibling, u"v", 1));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(k[3], u"v", 1));
    RegCloseKey(Create(u"Other\\Deep", k[3]));

    ASSERT_EQ(ERROR_SUCCESS, Arm(k[4], FALSE, REG_NOTIFY_CHANGE_LAST_SET, 4));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(k[4], u"v", 1));
    ASSERT_TRUE(Signaled(4));
    ResetEvent(m_events[4]);
    ASSERT_EQ(ERROR_SUCCESS, SetDword(k[4], u"v", 2)) << "the arming was used up";

    HKEY hClosed = Create(u"Closed", k[5]);
    ASSERT_EQ(ERROR_SUCCESS, Arm(hClosed, TRUE, kBoth, 5));
    ASSERT_EQ(ERROR_SUCCESS, RegCloseKey(hClosed));
    EXPECT_TRUE(Signaled(5)) << "closing the handle signals and ends the watch";
    ResetEvent(m_events[5]);
    ScopedKey reopened(Create(u"Closed", k[5]));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(reopened, u"v", 1));

    HANDLE hAuto = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    ASSERT_EQ(ERROR_SUCCESS,
              RegNotifyChangeKeyValue(k[6], FALSE, REG_NOTIFY_CHANGE_LAST_SET, hAuto, TRUE));
    for (DWORD i = 0; i < 3; ++i)
        ASSERT_EQ(ERROR_SUCCESS, SetDword(k[6], u"v", i));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hAuto, 0)) << "several changes, one signal";

    ASSERT_EQ(ERROR_SUCCESS, Arm(k[0], TRUE, kBoth, 7));
    auto result = orvtest::registry::RunOrvsim(
        Root(), {"reg", "add", "HKLM\\Software\\OrvTest\\Loud", "/v", "x", "/d", "y", "/f"});
    ASSERT_EQ(0, result.exitCode) << result.err;

    EXPECT_EQ(DWORD(WAIT_TIMEOUT), WaitForSingleObject(hAuto, kSilence));
    CloseHandle(hAuto);
    for (int i = 0; i < 8; ++i)
        EXPECT_FALSE(Signaled(i)) << "watch " << i;

    ASSERT_EQ(ERROR_SUCCESS, Arm(k[4], FALSE, REG_NOTIFY_CHANGE_LAST_SET, 4));
    EXPECT_FALSE(Signaled(4)) << "changes before the arming do not count";
    ASSERT_EQ(ERROR_SUCCESS, SetDword(k[4], u"v", 3));
    EXPECT_TRUE(Signaled(4));
}

TEST_F(RegistryNotifyTest, InvalidArguments)
{
    EXPECT_WIN32(ERROR_INVALID_PARAMETER,
                 RegNotifyChangeKeyValue(Base(), FALSE, REG_NOTIFY_CHANGE_NAME, nullptr, TRUE));
    EXPECT_WIN32(ERROR_INVALID_PARAMETER,
                 RegNotifyChangeKeyValue(Base(), FALSE, 0, m_events[0], TRUE));
    EXPECT_WIN32(ERROR_INVALID_PARAMETER,
                 RegNotifyChangeKeyValue(Base(), FALSE, 0x40, m_events[0], TRUE));
    EXPECT_WIN32(ERROR_INVALID_HANDLE,
                 RegNotifyChangeKeyValue(reinterpret_cast<HKEY>(0x4444), FALSE,
                                         REG_NOTIFY_CHANGE_NAME, m_events[0], TRUE));
}

TEST_F(RegistryNotifyTest, ChangesByAnotherProcessSignal)
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
