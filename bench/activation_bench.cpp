// COM's activation of the installed provider from another process: CoCreateInstance while its
// service is stopped, through the service's start, its class registration and the connection,
// to the proxy in the caller's hands.
#include "pal/objbase.h"
#include "pal/palcontrol.h"
#include "pal/winsvc.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>

extern char** environ;

namespace {

// {C7F1D659-6F48-45AA-93D2-D99414EA5190}
constexpr CLSID kClsidProvider = {
    0xC7F1D659, 0x6F48, 0x45AA, {0x93, 0xD2, 0xD9, 0x94, 0x14, 0xEA, 0x51, 0x90}};

bool Install(const std::string& exe)
{
    const char* argv[] = {exe.c_str(), "-r", "service", "-a", "LocalSystem", nullptr};
    pid_t pid = -1;
    int status = -1;
    return posix_spawn(&pid, exe.c_str(), nullptr, nullptr, const_cast<char**>(argv), environ) ==
               0 &&
           waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

DWORD State(SC_HANDLE hService)
{
    SERVICE_STATUS status{};
    return QueryServiceStatus(hService, &status) ? status.dwCurrentState : 0;
}

void BM_ActivationWithServiceStart(benchmark::State& state)
{
    std::string root =
        (std::filesystem::temp_directory_path() / "activation_bench-XXXXXX").string();
    if (!mkdtemp(root.data())) {
        state.SkipWithError("no machine root");
        return;
    }
    setenv("ORVSIM_ROOT", root.c_str(), 1);
    pal::CaptureDebugOutput(true);
    std::filesystem::create_directories(root + "/Program Files/Orvane");
    std::string exe = root + "/Program Files/Orvane/orvprov";
    std::filesystem::copy_file(ORVPROV_EXE, exe);
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    SC_HANDLE hManager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    SC_HANDLE hService = nullptr;
    if (!Install(exe) || !(hService = OpenServiceW(hManager, u"Orvhwsvc", SERVICE_QUERY_STATUS))) {
        state.SkipWithError("orvprov could not install its service");
        return;
    }
    for (auto _ : state) {
        IUnknown* pProvider = nullptr;
        if (FAILED(CoCreateInstance(kClsidProvider, nullptr, CLSCTX_LOCAL_SERVER, IID_IUnknown,
                                    reinterpret_cast<void**>(&pProvider)))) {
            state.SkipWithError("the activation failed");
            break;
        }
        state.PauseTiming();
        // The last release stops the service by itself.
        pProvider->Release();
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (State(hService) != SERVICE_STOPPED && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        // The process goes after its last report; the next activation must not find it.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        state.ResumeTiming();
    }
    CloseServiceHandle(hService);
    CloseServiceHandle(hManager);
    CoUninitialize();
    std::error_code ec;
    std::filesystem::remove_all(root, ec);
}
BENCHMARK(BM_ActivationWithServiceStart)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(20);

} // namespace
