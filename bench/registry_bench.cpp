// The registry: one value read, one value written (each a SQLite transaction), and how long a
// change made by another process takes to signal a notification armed here.
#include "pal/palcontrol.h"
#include "pal/windows.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace {

constexpr const WCHAR* kKey = u"Software\\OrvBench";
constexpr const char* kWriterVariable = "ORV_REGISTRY_BENCH_WRITER";

ULONGLONG MonotonicNs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts); // the same clock in every process
    return ULONGLONG(ts.tv_sec) * 1000000000ull + ULONGLONG(ts.tv_nsec);
}

// The writer process: this program started again with kWriterVariable set. Each byte read on
// standard input sets a value; the time just after the call returned goes back on standard
// output. Runs before main, which belongs to the benchmark library.
const bool g_fWriter = [] {
    if (!std::getenv(kWriterVariable))
        return false;
    HKEY hKey = nullptr;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &hKey,
                        nullptr) != ERROR_SUCCESS)
        _exit(2);
    char command = 0;
    for (DWORD n = 0; read(0, &command, 1) == 1; ++n) {
        if (RegSetValueExW(hKey, u"Tick", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&n),
                           sizeof(n)) != ERROR_SUCCESS)
            _exit(3);
        ULONGLONG committed = MonotonicNs();
        if (write(1, &committed, sizeof(committed)) != sizeof(committed))
            _exit(4);
    }
    _exit(0);
}();

// A machine root of its own for the whole run.
class BenchRoot
{
public:
    BenchRoot()
    {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "orvsim-bench-XXXXXX").string();
        if (mkdtemp(pattern.data()))
            m_root = pattern;
        setenv("ORVSIM_ROOT", m_root.c_str(), 1);
    }
    ~BenchRoot()
    {
        std::error_code ec;
        std::filesystem::remove_all(m_root, ec);
    }

private:
    std::filesystem::path m_root;
};

HKEY OpenBenchKey()
{
    static BenchRoot root;
    HKEY hKey = nullptr;
    RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &hKey,
                    nullptr);
    return hKey;
}

void BM_RegQueryValueExW_Dword(benchmark::State& state)
{
    HKEY hKey = OpenBenchKey();
    DWORD value = 7;
    RegSetValueExW(hKey, u"Level", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value),
                   sizeof(value));
    for (auto _ : state) {
        DWORD read = 0, cb = sizeof(read), dwType = 0;
        LONG status = RegQueryValueExW(hKey, u"Level", nullptr, &dwType,
                                       reinterpret_cast<LPBYTE>(&read), &cb);
        benchmark::DoNotOptimize(status);
        benchmark::DoNotOptimize(read);
    }
    RegCloseKey(hKey);
}
BENCHMARK(BM_RegQueryValueExW_Dword);

void BM_RegQueryValueExW_String(benchmark::State& state)
{
    HKEY hKey = OpenBenchKey();
    std::u16string text(static_cast<size_t>(state.range(0)), u'x');
    RegSetValueExW(hKey, u"Text", 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                   static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR)));
    std::vector<BYTE> buffer((text.size() + 1) * sizeof(WCHAR));
    for (auto _ : state) {
        DWORD cb = static_cast<DWORD>(buffer.size());
        LONG status = RegQueryValueExW(hKey, u"Text", nullptr, nullptr, buffer.data(), &cb);
        benchmark::DoNotOptimize(status);
    }
    RegCloseKey(hKey);
}
BENCHMARK(BM_RegQueryValueExW_String)->Arg(16)->Arg(1024);

void BM_RegSetValueExW_Dword(benchmark::State& state)
{
    HKEY hKey = OpenBenchKey();
    DWORD value = 0;
    for (auto _ : state) {
        ++value;
        LONG status = RegSetValueExW(hKey, u"Counter", 0, REG_DWORD,
                                     reinterpret_cast<const BYTE*>(&value), sizeof(value));
        benchmark::DoNotOptimize(status);
    }
    RegCloseKey(hKey);
}
BENCHMARK(BM_RegSetValueExW_Dword);

// From the moment another process's RegSetValueExW returned to the moment the event armed here
// is signalled: the watcher thread's polling (every 50 ms) dominates.
void BM_CrossProcessNotifyDelay(benchmark::State& state)
{
    HKEY hKey = OpenBenchKey();
    int toChild[2], fromChild[2];
    if (pipe2(toChild, O_CLOEXEC) != 0 || pipe2(fromChild, O_CLOEXEC) != 0) {
        state.SkipWithError("pipe");
        return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, toChild[0], 0);
    posix_spawn_file_actions_adddup2(&actions, fromChild[1], 1);
    std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    std::string writer = std::string(kWriterVariable) + "=1";
    std::vector<char*> envp;
    for (char** e = environ; *e; ++e)
        envp.push_back(*e);
    envp.push_back(writer.data());
    envp.push_back(nullptr);
    char* argv[] = {self.data(), nullptr};
    pid_t pid = -1;
    posix_spawn(&pid, self.c_str(), &actions, nullptr, argv, envp.data());
    posix_spawn_file_actions_destroy(&actions);
    close(toChild[0]);
    close(fromChild[1]);

    HANDLE hEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    double totalMs = 0;
    // A change comes at any moment of the watcher's polling cycle, not right after the signal
    // that ended the previous iteration: a random pause (not measured) decorrelates them.
    std::mt19937 rng(12345);
    std::uniform_int_distribution<int> pauseUs(0, 60000);
    for (auto _ : state) {
        RegNotifyChangeKeyValue(hKey, TRUE, REG_NOTIFY_CHANGE_LAST_SET, hEvent, TRUE);
        std::this_thread::sleep_for(std::chrono::microseconds(pauseUs(rng)));
        char command = 1;
        ULONGLONG committed = 0;
        if (write(toChild[1], &command, 1) != 1 ||
            read(fromChild[0], &committed, sizeof(committed)) != sizeof(committed)) {
            state.SkipWithError("writer process");
            break;
        }
        if (WaitForSingleObject(hEvent, 5000) != WAIT_OBJECT_0) {
            state.SkipWithError("no notification within 5 s");
            break;
        }
        double delay = double(MonotonicNs() - committed) / 1e9;
        totalMs += delay * 1000;
        state.SetIterationTime(delay);
    }
    state.counters["mean_ms"] =
        benchmark::Counter(totalMs / double(state.iterations() ? state.iterations() : 1));
    close(toChild[1]);
    close(fromChild[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    CloseHandle(hEvent);
    RegCloseKey(hKey);
}
BENCHMARK(BM_CrossProcessNotifyDelay)
    ->UseManualTime()
    ->Iterations(40)
    ->Unit(benchmark::kMillisecond);

} // namespace
