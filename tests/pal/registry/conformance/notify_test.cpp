// RegNotifyChangeKeyValue with an event, for changes made by this process.
#include "tests/pal/registry/registry_fixture.h"

#include <string>

namespace {

using orvtest::registry::kNotifyBoth;
using orvtest::registry::kNotifySilence;
using orvtest::registry::ScopedKey;
using RegistryNotifyTest = orvtest::registry::RegistryNotifyFixture<orvtest::ConformanceTest>;

TEST_F(RegistryNotifyTest, ChangesByThisProcessSignalBeforeTheCallReturns)
{
    // A handle of its own for each filter: a handle's later armings need not take a new one.
    ScopedKey lastSet, name, subtree;
    for (ScopedKey* key : {&lastSet, &name, &subtree})
        ASSERT_EQ(ERROR_SUCCESS, OpenKey(Base(), nullptr, key->Out(), KEY_NOTIFY));
    ASSERT_EQ(ERROR_SUCCESS, Arm(lastSet, FALSE, REG_NOTIFY_CHANGE_LAST_SET));
    EXPECT_FALSE(Signaled());
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), W("v"), 1));
    EXPECT_TRUE(Signaled()) << "value set";
    ASSERT_EQ(ERROR_SUCCESS, Arm(lastSet, FALSE, REG_NOTIFY_CHANGE_LAST_SET));
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteValueW(Base(), W("v")));
    EXPECT_TRUE(Signaled()) << "value deleted";
    ASSERT_EQ(ERROR_SUCCESS, Arm(name, FALSE, REG_NOTIFY_CHANGE_NAME));
    RegCloseKey(Create(W("Child")));
    EXPECT_TRUE(Signaled()) << "subkey created";
    ASSERT_EQ(ERROR_SUCCESS, Arm(name, FALSE, REG_NOTIFY_CHANGE_NAME));
    ASSERT_EQ(ERROR_SUCCESS, RegDeleteKeyW(Base(), W("Child")));
    EXPECT_TRUE(Signaled()) << "subkey deleted";

    ScopedKey deep(Create(W("A\\B\\C")));
    ASSERT_EQ(ERROR_SUCCESS, Arm(subtree, TRUE, REG_NOTIFY_CHANGE_LAST_SET));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(deep, W("v"), 1));
    EXPECT_TRUE(Signaled()) << "change below a subtree watch";

    ASSERT_EQ(ERROR_SUCCESS, Arm(HKEY_CLASSES_ROOT, TRUE, REG_NOTIFY_CHANGE_LAST_SET));
    ScopedKey thing;
    ASSERT_EQ(ERROR_SUCCESS,
              CreateKey(HKEY_LOCAL_MACHINE, W("Software\\Classes\\OrvTest\\Thing"), thing.Out()));
    ASSERT_EQ(ERROR_SUCCESS, SetString(thing, nullptr, W("thing")));
    EXPECT_TRUE(Signaled()) << "HKCR sees changes made through HKLM";

    ScopedKey second;
    ASSERT_EQ(ERROR_SUCCESS, OpenKey(Base(), nullptr, second.Out(), KEY_NOTIFY));
    ASSERT_EQ(ERROR_SUCCESS, Arm(Base(), FALSE, REG_NOTIFY_CHANGE_LAST_SET, 0));
    ASSERT_EQ(ERROR_SUCCESS, Arm(second, FALSE, REG_NOTIFY_CHANGE_LAST_SET, 1));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), W("v"), 1));
    EXPECT_TRUE(Signaled(0));
    EXPECT_TRUE(Signaled(1)) << "each arming signals its own event";
}

TEST_F(RegistryNotifyTest, UnmatchedUsedOrEndedWatchesStaySilent)
{
    ScopedKey k[7];
    for (int i = 0; i < 7; ++i)
        *k[i].Out() = Create((W("K") + orvtest::Wide(std::to_string(i))).c_str());

    ASSERT_EQ(ERROR_SUCCESS, Arm(k[0], FALSE, REG_NOTIFY_CHANGE_NAME, 0));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(k[0], W("v"), 1));

    ASSERT_EQ(ERROR_SUCCESS, Arm(k[1], FALSE, REG_NOTIFY_CHANGE_LAST_SET, 1));
    RegCloseKey(Create(W("Child"), k[1]));

    ScopedKey below(Create(W("A"), k[2]));
    ASSERT_EQ(ERROR_SUCCESS, Arm(k[2], FALSE, kNotifyBoth, 2));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(below, W("v"), 1));

    ScopedKey inside(Create(W("Watched"), k[3]));
    ScopedKey sibling(Create(W("WatchedToo"), k[3])); // shares the name's prefix, not the subtree
    ASSERT_EQ(ERROR_SUCCESS, Arm(inside, TRUE, kNotifyBoth, 3));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(sibling, W("v"), 1));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(k[3], W("v"), 1));
    RegCloseKey(Create(W("Other\\Deep"), k[3]));

    ASSERT_EQ(ERROR_SUCCESS, Arm(k[4], FALSE, REG_NOTIFY_CHANGE_LAST_SET, 4));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(k[4], W("v"), 1));
    ASSERT_TRUE(Signaled(4));
    ResetEvent(m_events[4]);
    ASSERT_EQ(ERROR_SUCCESS, SetDword(k[4], W("v"), 2)) << "the arming was used up";

    HKEY hClosed = Create(W("Closed"), k[5]);
    ASSERT_EQ(ERROR_SUCCESS, Arm(hClosed, TRUE, kNotifyBoth, 5));
    ASSERT_EQ(ERROR_SUCCESS, RegCloseKey(hClosed));
    EXPECT_TRUE(Signaled(5)) << "closing the handle signals and ends the watch";
    ResetEvent(m_events[5]);
    ScopedKey reopened(Create(W("Closed"), k[5]));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(reopened, W("v"), 1));

    HANDLE hAuto = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    ASSERT_EQ(ERROR_SUCCESS,
              RegNotifyChangeKeyValue(k[6], FALSE, REG_NOTIFY_CHANGE_LAST_SET, hAuto, TRUE));
    for (DWORD i = 0; i < 3; ++i)
        ASSERT_EQ(ERROR_SUCCESS, SetDword(k[6], W("v"), i));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hAuto, 0)) << "several changes, one signal";

    EXPECT_EQ(DWORD(WAIT_TIMEOUT), WaitForSingleObject(hAuto, kNotifySilence));
    CloseHandle(hAuto);
    for (int i = 0; i < 7; ++i)
        EXPECT_FALSE(Signaled(i)) << "watch " << i;

    ASSERT_EQ(ERROR_SUCCESS, Arm(k[4], FALSE, REG_NOTIFY_CHANGE_LAST_SET, 4));
    EXPECT_FALSE(Signaled(4)) << "changes before the arming do not count";
    ASSERT_EQ(ERROR_SUCCESS, SetDword(k[4], W("v"), 3));
    EXPECT_TRUE(Signaled(4));
}

TEST_F(RegistryNotifyTest, AnInvalidHandleIsRefused)
{
    EXPECT_WIN32(ERROR_INVALID_HANDLE,
                 RegNotifyChangeKeyValue(reinterpret_cast<HKEY>(0x4444), FALSE,
                                         REG_NOTIFY_CHANGE_NAME, m_events[0], TRUE));
}

} // namespace
