// RegNotifyChangeKeyValue within this process and from another one (the orvsim tool).
#include "tests/pal/registry_testing.h"

#include <chrono>

namespace {

using orvtest::registry::ScopedKey;

// Long enough for a change to come from another process on a loaded machine.
constexpr DWORD kGenerous = 5000;
// Long enough for the watcher thread to have read the log several times: a notification that
// has not fired by then will not.
constexpr DWORD kSilence = 300;

class RegistryNotifyTest : public orvtest::registry::RegistryTest
{
protected:
    void SetUp() override
    {
        RegistryTest::SetUp();
        m_hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        ASSERT_NE(nullptr, m_hEvent);
    }
    void TearDown() override
    {
        CloseHandle(m_hEvent);
        RegistryTest::TearDown();
    }

    LONG Arm(HKEY hKey, BOOL bSubtree, DWORD dwFilter)
    {
        ResetEvent(m_hEvent);
        return RegNotifyChangeKeyValue(hKey, bSubtree, dwFilter, m_hEvent, TRUE);
    }
    bool SignaledNow() const { return WaitForSingleObject(m_hEvent, 0) == WAIT_OBJECT_0; }
    bool SignaledWithin(DWORD ms) const
    {
        return WaitForSingleObject(m_hEvent, ms) == WAIT_OBJECT_0;
    }

    HANDLE m_hEvent = nullptr;
};

constexpr DWORD kBoth = REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_LAST_SET;

TEST_F(RegistryNotifyTest, ValueChangeByThisProcessSignalsAtOnce)
{
    ASSERT_EQ(ERROR_SUCCESS, Arm(Base(), FALSE, REG_NOTIFY_CHANGE_LAST_SET));
    EXPECT_FALSE(SignaledNow());
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"v", 1));
    EXPECT_TRUE(SignaledNow()) << "signalled before RegSetValueExW returned";
}

TEST_F(RegistryNotifyTest, ValueDeletionSignals)
{
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"v", 1));
    ASSERT_EQ(ERROR_SUCCESS, Arm(Base(), FALSE, REG_NOTIFY_CHANGE_LAST_SET));
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteValueW(Base(), u"v"));
    EXPECT_TRUE(SignaledNow());
}

TEST_F(RegistryNotifyTest, SubkeyCreationAndDeletionSignalName)
{
    ASSERT_EQ(ERROR_SUCCESS, Arm(Base(), FALSE, REG_NOTIFY_CHANGE_NAME));
    RegCloseKey(Create(u"Child"));
    EXPECT_TRUE(SignaledNow());
    ASSERT_EQ(ERROR_SUCCESS, Arm(Base(), FALSE, REG_NOTIFY_CHANGE_NAME));
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteKeyW(Base(), u"Child"));
    EXPECT_TRUE(SignaledNow());
}

TEST_F(RegistryNotifyTest, NameFilterIgnoresValueChanges)
{
    ASSERT_EQ(ERROR_SUCCESS, Arm(Base(), FALSE, REG_NOTIFY_CHANGE_NAME));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"v", 1));
    EXPECT_FALSE(SignaledWithin(kSilence));
}

TEST_F(RegistryNotifyTest, LastSetFilterIgnoresNewSubkeys)
{
    ASSERT_EQ(ERROR_SUCCESS, Arm(Base(), FALSE, REG_NOTIFY_CHANGE_LAST_SET));
    RegCloseKey(Create(u"Child"));
    EXPECT_FALSE(SignaledWithin(kSilence));
}

TEST_F(RegistryNotifyTest, SubtreeWatchSeesChangesBelow)
{
    ScopedKey deep(Create(u"A\\B\\C"));
    ASSERT_EQ(ERROR_SUCCESS, Arm(Base(), TRUE, REG_NOTIFY_CHANGE_LAST_SET));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(deep, u"v", 1));
    EXPECT_TRUE(SignaledNow());
}

TEST_F(RegistryNotifyTest, KeyWatchIgnoresChangesBelow)
{
    ScopedKey child(Create(u"A"));
    ASSERT_EQ(ERROR_SUCCESS, Arm(Base(), FALSE, kBoth));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(child, u"v", 1));
    EXPECT_FALSE(SignaledWithin(kSilence));
}

TEST_F(RegistryNotifyTest, ChangesOutsideTheSubtreeStaySilent)
{
    ScopedKey watched(Create(u"Watched"));
    ScopedKey sibling(Create(u"WatchedToo")); // shares the name's prefix, not the subtree
    ASSERT_EQ(ERROR_SUCCESS, Arm(watched, TRUE, kBoth));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(sibling, u"v", 1));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"v", 1));
    RegCloseKey(Create(u"Other\\Deep"));
    EXPECT_FALSE(SignaledWithin(kSilence));
}

TEST_F(RegistryNotifyTest, SeveralChangesCollapseIntoOneSignal)
{
    HANDLE hAuto = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    ASSERT_EQ(ERROR_SUCCESS,
              RegNotifyChangeKeyValue(Base(), FALSE, REG_NOTIFY_CHANGE_LAST_SET, hAuto, TRUE));
    for (DWORD i = 0; i < 3; ++i)
        ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"v", i));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hAuto, 0));
    EXPECT_EQ(DWORD(WAIT_TIMEOUT), WaitForSingleObject(hAuto, kSilence));
    CloseHandle(hAuto);
}

TEST_F(RegistryNotifyTest, NextChangeNeedsRearming)
{
    ASSERT_EQ(ERROR_SUCCESS, Arm(Base(), FALSE, REG_NOTIFY_CHANGE_LAST_SET));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"v", 1));
    ASSERT_TRUE(SignaledNow());
    ResetEvent(m_hEvent);
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"v", 2));
    EXPECT_FALSE(SignaledWithin(kSilence)) << "the arming was used up";
    ASSERT_EQ(ERROR_SUCCESS, Arm(Base(), FALSE, REG_NOTIFY_CHANGE_LAST_SET));
    EXPECT_FALSE(SignaledNow()) << "changes before the arming do not count";
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"v", 3));
    EXPECT_TRUE(SignaledNow());
}

TEST_F(RegistryNotifyTest, ClosingTheHandleSignalsAndEndsTheWatch)
{
    HKEY hKey = Create(u"Closed");
    ASSERT_EQ(ERROR_SUCCESS, Arm(hKey, TRUE, kBoth));
    ASSERT_EQ(ERROR_SUCCESS, RegCloseKey(hKey));
    EXPECT_TRUE(SignaledNow());
    ResetEvent(m_hEvent);
    ScopedKey again(Create(u"Closed"));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(again, u"v", 1));
    EXPECT_FALSE(SignaledWithin(kSilence));
}

TEST_F(RegistryNotifyTest, DeletingTheWatchedKeySignals)
{
    ScopedKey watched(Create(u"Gone\\Watched"));
    ASSERT_EQ(ERROR_SUCCESS, Arm(watched, FALSE, REG_NOTIFY_CHANGE_LAST_SET));
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteTreeW(Base(), u"Gone"));
    EXPECT_TRUE(SignaledNow());
}

TEST_F(RegistryNotifyTest, EachArmingSignalsItsOwnEvent)
{
    ScopedKey second;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(Base(), nullptr, 0, KEY_NOTIFY, second.Out()));
    HANDLE hOther = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    ASSERT_EQ(ERROR_SUCCESS, Arm(Base(), FALSE, REG_NOTIFY_CHANGE_LAST_SET));
    ASSERT_EQ(ERROR_SUCCESS,
              RegNotifyChangeKeyValue(second, FALSE, REG_NOTIFY_CHANGE_LAST_SET, hOther, TRUE));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"v", 1));
    EXPECT_TRUE(SignaledNow());
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hOther, 0));
    CloseHandle(hOther);
}

TEST_F(RegistryNotifyTest, ClassesRootWatchSeesChangesMadeThroughLocalMachine)
{
    ASSERT_EQ(ERROR_SUCCESS, Arm(HKEY_CLASSES_ROOT, TRUE, REG_NOTIFY_CHANGE_LAST_SET));
    ScopedKey key;
    ASSERT_EQ(ERROR_SUCCESS,
              RegCreateKeyExW(HKEY_LOCAL_MACHINE, u"Software\\Classes\\Orv.Thing", 0, nullptr, 0,
                              KEY_ALL_ACCESS, nullptr, key.Out(), nullptr));
    ASSERT_EQ(ERROR_SUCCESS, SetString(key, nullptr, u"thing"));
    EXPECT_TRUE(SignaledNow());
}

TEST_F(RegistryNotifyTest, InvalidArguments)
{
    EXPECT_WIN32(ERROR_INVALID_PARAMETER,
                 RegNotifyChangeKeyValue(Base(), FALSE, REG_NOTIFY_CHANGE_NAME, nullptr, TRUE));
    EXPECT_WIN32(ERROR_INVALID_PARAMETER,
                 RegNotifyChangeKeyValue(Base(), FALSE, 0, m_hEvent, TRUE));
    EXPECT_WIN32(ERROR_INVALID_PARAMETER,
                 RegNotifyChangeKeyValue(Base(), FALSE, 0x40, m_hEvent, TRUE));
    EXPECT_WIN32(ERROR_INVALID_HANDLE,
                 RegNotifyChangeKeyValue(reinterpret_cast<HKEY>(0x4444), FALSE,
                                         REG_NOTIFY_CHANGE_NAME, m_hEvent, TRUE));
}

// ---- Another process ----

TEST_F(RegistryNotifyTest, ChangeByAnotherProcessSignalsWithinTheLimit)
{
    ASSERT_EQ(ERROR_SUCCESS, Arm(Base(), TRUE, kBoth));
    auto result =
        orvtest::registry::RunOrvsim(Root(), {"reg", "add", "HKLM\\Software\\OrvTest\\Remote", "/v",
                                              "Level", "/t", "REG_DWORD", "/d", "7", "/f"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    // The change committed when the tool exited; 250 ms is the promise, with room for load.
    auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(SignaledWithin(kGenerous));
    auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_LT(elapsed, std::chrono::milliseconds(1000));
    ScopedKey remote;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(Base(), u"Remote", 0, KEY_READ, remote.Out()));
    EXPECT_EQ(orvtest::registry::DwordBytes(7), GetBytes(remote, u"Level"));
}

TEST_F(RegistryNotifyTest, ChangeByAnotherProcessOutsideTheSubtreeStaysSilent)
{
    ScopedKey watched(Create(u"Quiet"));
    ASSERT_EQ(ERROR_SUCCESS, Arm(watched, TRUE, kBoth));
    auto result = orvtest::registry::RunOrvsim(
        Root(), {"reg", "add", "HKLM\\Software\\OrvTest\\Loud", "/v", "x", "/d", "y", "/f"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_FALSE(SignaledWithin(kSilence));
}

TEST_F(RegistryNotifyTest, DeletionByAnotherProcessSignals)
{
    ScopedKey watched(Create(u"Victim"));
    ASSERT_EQ(ERROR_SUCCESS, Arm(watched, FALSE, REG_NOTIFY_CHANGE_LAST_SET));
    auto result = orvtest::registry::RunOrvsim(
        Root(), {"reg", "delete", "HKLM\\Software\\OrvTest\\Victim", "/f"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_TRUE(SignaledWithin(kGenerous));
    EXPECT_WIN32(ERROR_KEY_DELETED, SetDword(watched, u"v", 1));
}

} // namespace
