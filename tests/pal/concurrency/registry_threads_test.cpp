// The registry used by several threads of one process: notifications across threads, a
// synchronous RegNotifyChangeKeyValue, concurrent writers and watchers.
#include "pal/src/registry_notify.h"
#include "tests/pal/registry_testing.h"

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace {

using orvtest::registry::DwordBytes;
using orvtest::registry::ScopedKey;
using RegistryThreadsTest = orvtest::registry::RegistryTest;

constexpr DWORD kGenerous = 5000;

// Waits (bounded) until `n` notifications are armed in this process.
bool WaitUntilArmed(size_t n)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (pal::detail::registry::ArmedNotificationCount() < n) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::yield();
    }
    return true;
}

TEST_F(RegistryThreadsTest, ChangeOnOneThreadWakesAWatcherOnAnother)
{
    HANDLE hArmed = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::atomic<DWORD> dwWait{WAIT_FAILED};
    std::thread watcher([&] {
        HANDLE hEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        HKEY hKey = nullptr;
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, orvtest::registry::kTestKey, 0, KEY_NOTIFY, &hKey);
        RegNotifyChangeKeyValue(hKey, TRUE, REG_NOTIFY_CHANGE_LAST_SET, hEvent, TRUE);
        SetEvent(hArmed);
        dwWait = WaitForSingleObject(hEvent, kGenerous);
        RegCloseKey(hKey);
        CloseHandle(hEvent);
    });
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hArmed, kGenerous));
    ScopedKey child(Create(u"FromMain"));
    ASSERT_EQ(ERROR_SUCCESS, SetDword(child, u"v", 1));
    watcher.join();
    EXPECT_EQ(WAIT_OBJECT_0, dwWait.load());
    CloseHandle(hArmed);
}

TEST_F(RegistryThreadsTest, SynchronousNotificationReturnsOnTheChange)
{
    ASSERT_EQ(0u, pal::detail::registry::ArmedNotificationCount());
    std::atomic<LONG> status{-1};
    std::thread watcher([&] {
        status = RegNotifyChangeKeyValue(Base(), FALSE, REG_NOTIFY_CHANGE_LAST_SET, nullptr, FALSE);
    });
    ASSERT_TRUE(WaitUntilArmed(1));
    EXPECT_EQ(-1, status.load()) << "still blocked";
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"v", 1));
    watcher.join();
    EXPECT_EQ(ERROR_SUCCESS, status.load());
}

TEST_F(RegistryThreadsTest, ConcurrentWritersUnderOneKeyLoseNothing)
{
    constexpr int kThreads = 4;
    constexpr DWORD kValues = 50;
    std::vector<std::thread> writers;
    for (int t = 0; t < kThreads; ++t)
        writers.emplace_back([t] {
            HKEY hKey = nullptr;
            RegCreateKeyExW(HKEY_LOCAL_MACHINE, u"Software\\OrvTest\\Shared", 0, nullptr, 0,
                            KEY_ALL_ACCESS, nullptr, &hKey, nullptr);
            for (DWORD i = 0; i < kValues; ++i) {
                std::u16string name = u"t" + orvtest::Wide(std::to_string(t)) + u"_" +
                                      orvtest::Wide(std::to_string(i));
                DWORD value = i * 10 + DWORD(t);
                RegSetValueExW(hKey, name.c_str(), 0, REG_DWORD,
                               reinterpret_cast<const BYTE*>(&value), sizeof(value));
            }
            RegCloseKey(hKey);
        });
    for (auto& w : writers)
        w.join();
    ScopedKey shared(Create(u"Shared"));
    DWORD cValues = 0;
    ASSERT_EQ(ERROR_SUCCESS,
              RegQueryInfoKeyW(shared, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               &cValues, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(DWORD(kThreads) * kValues, cValues);
    for (int t = 0; t < kThreads; ++t)
        for (DWORD i = 0; i < kValues; ++i) {
            std::u16string name =
                u"t" + orvtest::Wide(std::to_string(t)) + u"_" + orvtest::Wide(std::to_string(i));
            EXPECT_EQ(DwordBytes(i * 10 + DWORD(t)), GetBytes(shared, name.c_str()));
        }
}

TEST_F(RegistryThreadsTest, WatchersRearmingWhileWritersWrite)
{
    constexpr int kWatchers = 3;
    constexpr int kRounds = 5;
    std::atomic<bool> fStop{false};
    std::atomic<int> cSignals{0};
    std::vector<std::thread> watchers;
    for (int w = 0; w < kWatchers; ++w)
        watchers.emplace_back([&] {
            HANDLE hEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
            HKEY hKey = nullptr;
            RegOpenKeyExW(HKEY_LOCAL_MACHINE, orvtest::registry::kTestKey, 0, KEY_NOTIFY, &hKey);
            for (int r = 0; r < kRounds; ++r) {
                RegNotifyChangeKeyValue(hKey, TRUE, REG_NOTIFY_CHANGE_LAST_SET, hEvent, TRUE);
                if (WaitForSingleObject(hEvent, kGenerous) == WAIT_OBJECT_0)
                    ++cSignals;
            }
            RegCloseKey(hKey);
            CloseHandle(hEvent);
        });
    std::thread writer([&] {
        HKEY hKey = nullptr;
        RegCreateKeyExW(HKEY_LOCAL_MACHINE, u"Software\\OrvTest\\Busy", 0, nullptr, 0,
                        KEY_ALL_ACCESS, nullptr, &hKey, nullptr);
        for (DWORD i = 0; !fStop; ++i) {
            RegSetValueExW(hKey, u"counter", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&i),
                           sizeof(i));
            std::this_thread::yield();
        }
        RegCloseKey(hKey);
    });
    for (auto& w : watchers)
        w.join();
    fStop = true;
    writer.join();
    EXPECT_EQ(kWatchers * kRounds, cSignals.load());
}

} // namespace
