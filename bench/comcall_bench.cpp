// One call of a VSS provider method across the machine's processes: FillInLunInfo on the test
// provider of the test COM server (tests/pal/com/program/comserver.cpp), carrying a fully
// populated LUN record in and the provider's rewrite of it back. Every call is timed on its own,
// so that the run reports the percentiles of one call (p50_us, p99_us, max_us) beside the mean.
#include "tests/pal/com/program/provider.h"
#include "tests/support/pipedchild.h"

#include "pal/objbase.h"
#include "pal/palcontrol.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// A machine root of the run's own, with COM joined, for the server and this process.
class CCallMachine
{
public:
    CCallMachine()
    {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "orvsim-comcall-bench-XXXXXX").string();
        if (mkdtemp(pattern.data()))
            m_root = pattern;
        setenv("ORVSIM_ROOT", m_root.c_str(), 1);
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    }
    ~CCallMachine()
    {
        CoUninitialize();
        std::error_code ec;
        std::filesystem::remove_all(m_root, ec);
    }
    CCallMachine(const CCallMachine&) = delete;
    CCallMachine& operator=(const CCallMachine&) = delete;

private:
    std::string m_root;
};

double Percentile(const std::vector<double>& sorted, double fraction)
{
    return sorted[static_cast<size_t>(fraction * static_cast<double>(sorted.size() - 1))];
}

// Times each call of `call` on the provider; the percentiles as counters.
template <class Call>
void MeasureCalls(benchmark::State& state, Call call)
{
    CCallMachine machine;
    orvtest::CPipedChild server(ORV_COMSERVER_EXE, {"serve"});
    IVssHardwareSnapshotProvider* pProvider = nullptr;
    if (server.Line() != "ready\n" ||
        FAILED(CoCreateInstance(orvtest::com::CLSID_TestProvider, nullptr, CLSCTX_LOCAL_SERVER,
                                IID_IVssHardwareSnapshotProvider,
                                reinterpret_cast<void**>(&pProvider)))) {
        state.SkipWithError("the test COM server does not serve its provider");
        return;
    }
    // The first calls start the server's workers.
    for (int i = 0; i < 100; ++i)
        call(pProvider);
    std::vector<double> samples;
    samples.reserve(static_cast<size_t>(state.max_iterations));
    for (auto _ : state) {
        Clock::time_point start = Clock::now();
        HRESULT hr = call(pProvider);
        std::chrono::duration<double> elapsed = Clock::now() - start;
        state.SetIterationTime(elapsed.count());
        samples.push_back(elapsed.count() * 1e6);
        if (FAILED(hr)) {
            state.SkipWithError("the call failed");
            break;
        }
    }
    pProvider->Release();
    if (samples.empty())
        return;
    std::sort(samples.begin(), samples.end());
    state.counters["p50_us"] = Percentile(samples, 0.50);
    state.counters["p99_us"] = Percentile(samples, 0.99);
    state.counters["max_us"] = samples.back();
}
void BM_FillInLunInfoAcrossProcesses(benchmark::State& state)
{
    orvtest::CLunRecord lun(orvtest::com::RewrittenLun(0));
    WCHAR szDevice[] = W("\\\\?\\mpio#disk&ven_orvane&prod_lun#1&7f6ac24&0&000000#{53f56307}");
    BOOL fSupported = FALSE;
    MeasureCalls(state, [&](IVssHardwareSnapshotProvider* pProvider) {
        HRESULT hr = pProvider->FillInLunInfo(szDevice, &lun.Get(), &fSupported);
        return SUCCEEDED(hr) && !fSupported ? E_UNEXPECTED : hr;
    });
}
BENCHMARK(BM_FillInLunInfoAcrossProcesses)
    ->UseManualTime()
    ->Iterations(20000)
    ->Unit(benchmark::kMicrosecond);

// The same crossing with no argument: what the transport alone costs.
void BM_EmptyCallAcrossProcesses(benchmark::State& state)
{
    VDS_LUN_INFORMATION none = {};
    MeasureCalls(state, [&](IVssHardwareSnapshotProvider* pProvider) {
        return pProvider->LocateLuns(0, &none);
    });
}
BENCHMARK(BM_EmptyCallAcrossProcesses)
    ->UseManualTime()
    ->Iterations(20000)
    ->Unit(benchmark::kMicrosecond);

} // namespace
