// The storage service client's two measured paths, against the simulated service in this
// process: the commit's hand-off (releasing the held callback until the creation's result is
// back) and a cached LUN verification among 10,000 virtual disks.
#include "bench/benchmachine.h"
#include "diag/config.h"
#include "diag/trace.h"
#include "provider/strings.h"
#include "sim/storage/storagesim.h"
#include "store/tesserahelper.h"
#include "store/vdcache.h"

#include "pal/combaseapi.h"
#include "pal/palcontrol.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

BenchMachine& Machine()
{
    static BenchMachine machine("orvsim-store-bench");
    return machine;
}

void ReportPercentiles(benchmark::State& state, std::vector<double>& samplesUs)
{
    if (samplesUs.empty())
        return;
    std::sort(samplesUs.begin(), samplesUs.end());
    state.counters["p50_us"] = samplesUs[samplesUs.size() / 2];
    state.counters["p99_us"] =
        samplesUs[std::min(samplesUs.size() - 1, samplesUs.size() * 99 / 100)];
}

// The commit of one asynchronous creation: CreateSnapshot sets the event the held callback waits
// on and blocks in Finish_CreateSnapShot1 until the service has cut the snapshot.
void CommitHandoff(benchmark::State& state, storagesim::Cut cut)
{
    if (FAILED(Machine().Start(""))) {
        state.SkipWithError("the simulated service did not start");
        return;
    }
    // With the instant cut the service answers as soon as it has the LUNs' data in hand and
    // records the snapshot afterwards: what is measured is the client's hand-off and the call's
    // completion, not the simulated storage's own writes.
    storagesim::SetCut(cut);
    std::vector<double> samples;
    ULONG n = 0;
    for (auto _ : state) {
        CTesseraHelper helper(1);
        std::u16string name = u"bench" + pal::Utf8ToUtf16(std::to_string(n++));
        std::u16string drive = u"E:\\";
        LPWSTR names[] = {reinterpret_cast<LPWSTR>(drive.data())};
        DRIVE_NAMES driveNames{1, names};
        LC_PAIR_ARRAY pairs{1, static_cast<LC_PAIR*>(CoTaskMemAlloc(sizeof(LC_PAIR)))};
        pairs.Pairs[0] = LC_PAIR{DuplicateString(u"verdane01"), DuplicateString(u"/vol/vol1/lun1"),
                                 DuplicateString(u""), DuplicateString(u"E:\\"), 0};
        if (FAILED(helper.PrepareSnapshot(&driveNames, reinterpret_cast<LPCWSTR>(name.c_str()),
                                          &pairs, 2))) {
            state.SkipWithError("PrepareSnapshot failed");
            break;
        }
        auto start = std::chrono::steady_clock::now();
        HRESULT hr = helper.CreateSnapshot();
        auto end = std::chrono::steady_clock::now();
        if (hr != S_OK) {
            state.SkipWithError("CreateSnapshot failed");
            break;
        }
        double seconds = std::chrono::duration<double>(end - start).count();
        state.SetIterationTime(seconds);
        samples.push_back(seconds * 1e6);
    }
    ReportPercentiles(state, samples);
}
void BM_CommitHandoff(benchmark::State& state)
{
    CommitHandoff(state, storagesim::Cut::kInstant);
}
void BM_CommitHandoffCopyingCut(benchmark::State& state)
{
    CommitHandoff(state, storagesim::Cut::kCopy);
}
BENCHMARK(BM_CommitHandoff)->UseManualTime()->Iterations(300)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CommitHandoffCopyingCut)
    ->UseManualTime()
    ->Iterations(300)
    ->Unit(benchmark::kMicrosecond);

std::string ManyDisksTopology(int count)
{
    std::string luns;
    char buffer[160];
    for (int i = 0; i < count; i++) {
        std::snprintf(buffer, sizeof(buffer),
                      "%s{\"name\": \"l%d\", \"serial\": \"S%011d\", \"sizeMiB\": 1, "
                      "\"host\": {\"lun\": %d, \"mountPoints\": [\"C:\\\\m\\\\%d\\\\\"]}}",
                      i ? ", " : "", i, i, i % 256, i);
        luns += buffer;
    }
    return R"({"filers": [{"name": "fa", "volumes": [{"name": "v", "luns": [)" + luns + "]}]}]}";
}

// A verification answered from the cache: the last of 10,000 disks, found by serial number.
void BM_CachedVerifyLun(benchmark::State& state)
{
    if (FAILED(Machine().Start(ManyDisksTopology(10000)))) {
        state.SkipWithError("the simulated service did not start");
        return;
    }
    SetVDCacheFalse();
    std::vector<double> samples;
    char serial[16];
    std::snprintf(serial, sizeof(serial), "S%011d", 9999);
    std::u16string wide = pal::Utf8ToUtf16(serial);
    for (auto _ : state) {
        LPWSTR pszSerial = DuplicateString(reinterpret_cast<LPCWSTR>(wide.c_str()));
        LPWSTR pszPath = nullptr, pszFiler = nullptr, pszDrive = nullptr;
        auto start = std::chrono::steady_clock::now();
        HRESULT hr = VerifyLun(&pszSerial, 0, &pszPath, &pszFiler, &pszDrive);
        auto end = std::chrono::steady_clock::now();
        if (FAILED(hr) || pszDrive == nullptr) {
            state.SkipWithError("VerifyLun failed");
            break;
        }
        double seconds = std::chrono::duration<double>(end - start).count();
        state.SetIterationTime(seconds);
        samples.push_back(seconds * 1e6);
        for (LPWSTR psz : {pszSerial, pszPath, pszFiler, pszDrive})
            CoTaskMemFree(psz);
    }
    // The first call filled the cache; the rest are the cached lookups measured.
    if (!samples.empty())
        samples.erase(samples.begin());
    ReportPercentiles(state, samples);
    SetVDCacheFalse();
}
BENCHMARK(BM_CachedVerifyLun)->UseManualTime()->Iterations(1000)->Unit(benchmark::kMicrosecond);

} // namespace
