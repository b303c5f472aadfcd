// The time from StartServiceW to SERVICE_RUNNING of a service built on the service module
// (host_test_service): the process start, the dispatcher's connection, the module's COM
// security and class registration, as the emulated service control manager records them.
#include "pal/palcontrol.h"
#include "pal/synchapi.h"
#include "pal/winsvc.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

namespace {

DWORD State(SC_HANDLE hService)
{
    SERVICE_STATUS status{};
    return QueryServiceStatus(hService, &status) ? status.dwCurrentState : 0;
}

// Polls without sleeping: a sleep's granularity would dominate what is measured.
bool WaitForState(SC_HANDLE hService, DWORD dwState)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (State(hService) != dwState)
        if (std::chrono::steady_clock::now() > deadline)
            return false;
    return true;
}

void BM_StartToRunning(benchmark::State& state)
{
    std::string root = (std::filesystem::temp_directory_path() / "service_bench-XXXXXX").string();
    if (!mkdtemp(root.data())) {
        state.SkipWithError("no machine root");
        return;
    }
    setenv("ORVSIM_ROOT", root.c_str(), 1);
    SC_HANDLE hManager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    std::u16string image = pal::Utf8ToUtf16("\"" HOST_TEST_SERVICE_EXE "\" --no-autoshutdown");
    SC_HANDLE hService =
        CreateServiceW(hManager, u"OrvBenchSvc", u"Benchmark service", SERVICE_ALL_ACCESS,
                       SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                       image.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
    if (!hService) {
        state.SkipWithError("CreateServiceW failed");
        return;
    }
    for (auto _ : state) {
        if (!StartServiceW(hService, 0, nullptr) || !WaitForState(hService, SERVICE_RUNNING)) {
            state.SkipWithError("the service did not run");
            break;
        }
        state.PauseTiming();
        SERVICE_STATUS status{};
        ControlService(hService, SERVICE_CONTROL_STOP, &status);
        WaitForState(hService, SERVICE_STOPPED);
        // The process goes after its last report; the next start must not find it running.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        state.ResumeTiming();
    }
    DeleteService(hService);
    CloseServiceHandle(hService);
    CloseServiceHandle(hManager);
    std::error_code ec;
    std::filesystem::remove_all(root, ec);
}
BENCHMARK(BM_StartToRunning)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(20);

} // namespace
