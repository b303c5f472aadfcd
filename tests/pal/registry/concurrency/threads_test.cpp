// The registry used by several threads of one process: a synchronous RegNotifyChangeKeyValue,
// concurrent writers, and watchers on other threads woken by a writer.
#include "pal/src/registry/notify.h"
#include "tests/pal/registry/registry_testing.h"

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

using orvtest::registry::kTestKey;
using orvtest::registry::ScopedKey;
using RegistryThreadsTest = orvtest::registry::RegistryTest;

constexpr DWORD kGenerous = 5000;

// Arms a watch for value changes in the subtree of the test key on a handle of its own, then
// calls `wait` with the event and closes both.
template <class Wait>
void WatchTestKey(Wait wait)
{
    HANDLE hEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    HKEY hKey = nullptr;
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, kTestKey, 0, KEY_NOTIFY, &hKey);
    wait(hKey, hEvent);
    RegCloseKey(hKey);
    CloseHandle(hEvent);
}

LONG Arm(HKEY hKey, HANDLE hEvent)
{
    return RegNotifyChangeKeyValue(hKey, TRUE, REG_NOTIFY_CHANGE_LAST_SET, hEvent, TRUE);
}

TEST_F(RegistryThreadsTest, SynchronousNotificationReturnsOnTheChange)
{
    ASSERT_EQ(0u, pal::detail::registry::ArmedNotificationCount());
    std::atomic<LONG> status{-1};
    std::thread watcher([&] {
        status = RegNotifyChangeKeyValue(Base(), FALSE, REG_NOTIFY_CHANGE_LAST_SET, nullptr, FALSE);
    });
    ASSERT_TRUE(
        orvtest::WaitUntil([] { return pal::detail::registry::ArmedNotificationCount() == 1; }));
    EXPECT_EQ(-1, status.load()) << "still blocked";
    ASSERT_EQ(ERROR_SUCCESS, SetDword(Base(), u"v", 1));
    watcher.join();
    EXPECT_EQ(ERROR_SUCCESS, status.load());
}

TEST_F(RegistryThreadsTest, ConcurrentWritersUnderOneKeyLoseNothing)
{
    constexpr int kThreads = 4;
    constexpr DWORD kValues = 50;
    auto name = [](int t, DWORD i) {
        return orvtest::Wide("t" + std::to_string(t) + "_" + std::to_string(i));
    };
    std::vector<std::thread> writers;
    for (int t = 0; t < kThreads; ++t)
        writers.emplace_back([t, name] {
            HKEY hKey = nullptr;
            CreateKey(HKEY_LOCAL_MACHINE, u"Software\\OrvTest\\Shared", &hKey);
            for (DWORD i = 0; i < kValues; ++i)
                SetDword(hKey, name(t, i).c_str(), i * 10 + DWORD(t));
            RegCloseKey(hKey);
        });
    for (auto& w : writers)
        w.join();
    ScopedKey shared(Create(u"Shared"));
    EXPECT_EQ(DWORD(kThreads) * kValues, orvtest::registry::QueryInfo(shared).cValues);
    for (int t = 0; t < kThreads; ++t)
        for (DWORD i = 0; i < kValues; ++i)
            EXPECT_EQ(orvtest::registry::DwordBytes(i * 10 + DWORD(t)),
                      GetBytes(shared, name(t, i).c_str()));
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
            WatchTestKey([&](HKEY hKey, HANDLE hEvent) {
                for (int r = 0; r < kRounds; ++r) {
                    Arm(hKey, hEvent);
                    if (WaitForSingleObject(hEvent, kGenerous) == WAIT_OBJECT_0)
                        ++cSignals;
                }
            });
        });
    std::thread writer([&] {
        HKEY hKey = nullptr;
        CreateKey(HKEY_LOCAL_MACHINE, u"Software\\OrvTest\\Busy", &hKey);
        for (DWORD i = 0; !fStop; ++i) {
            SetDword(hKey, u"counter", i);
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
