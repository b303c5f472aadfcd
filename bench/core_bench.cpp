// The provider core's set life against the simulated storage service in this process (instant
// cut, trace level 0), for sets of 1, 8 and 64 LUNs spread over two filers: adding the LUNs and
// preparing, the commit, and learning and mapping the target LUNs; and the recognition of a
// mapped LUN among 1,000 in the target LUN map.
#include "bench/benchmachine.h"
#include "core/providercore.h"
#include "diag/trace.h"
#include "provider/hwprovider.h"
#include "sim/storage/storagesim.h"
#include "store/vdcache.h"
#include "tests/support/lunbuilder.h"

#include "pal/combaseapi.h"
#include "pal/palcontrol.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// The serial number of LUN i of the machines below.
std::string Serial(int i)
{
    char serial[16];
    std::snprintf(serial, sizeof(serial), "S%011d", i);
    return serial;
}

// A fresh machine of `count` LUNs, alternately on two filers, with the instant cut.
std::string Topology(int count)
{
    std::string filers[2];
    char buffer[160];
    for (int i = 0; i < count; i++) {
        std::snprintf(buffer, sizeof(buffer),
                      "%s{\"name\": \"l%d\", \"serial\": \"%s\", \"sizeMiB\": 1, "
                      "\"host\": {\"lun\": %d, \"mountPoints\": [\"C:\\\\m\\\\%d\\\\\"]}}",
                      filers[i % 2].empty() ? "" : ", ", i, Serial(i).c_str(), i % 256, i);
        filers[i % 2] += buffer;
    }
    std::string topology = R"({"cut": "instant", "filers": [)";
    for (int f = 0; f < 2; f++)
        topology += std::string(f ? ", " : "") + "{\"name\": \"verdane0" + std::to_string(f + 1) +
                    "\", \"volumes\": [{\"name\": \"v\", \"luns\": [" + filers[f] + "]}]}";
    return topology + "]}";
}

BenchMachine& Machine()
{
    static BenchMachine machine("orvsim-core-bench");
    return machine;
}

HRESULT StartMachine(int count)
{
    SetVDCacheFalse();
    return Machine().Start(Topology(count));
}

double Since(Clock::time_point start)
{
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

// Adds `count` LUNs to a new set and prepares it; then commits it (through the core, or for
// comparison straight through its store); then maps its target LUNs.
HRESULT BuildSet(CProviderCore& core, const GUID& set, int count, double* pUs,
                 bool fStoreCommit = false)
{
    auto start = Clock::now();
    core.SetSnapshotSetId(&set);
    for (int i = 0; i < count; i++) {
        GUID snapshot = set;
        snapshot.Data2 = static_cast<USHORT>(i);
        std::u16string serial = pal::Utf8ToUtf16(Serial(i));
        HRESULT hr = core.AddSnapshot(&set, &snapshot, u"ORVANE", u"LUN", u"9.1",
                                      reinterpret_cast<LPCWSTR>(serial.c_str()), u"\\\\.\\D", 0);
        if (FAILED(hr))
            return hr;
    }
    HRESULT hr = core.EndPrepareSnapshots(&set);
    pUs[0] = Since(start);
    start = Clock::now();
    if (SUCCEEDED(hr))
        hr = fStoreCommit ? core.Store()->CreateSnapshot() : core.CommitSnapshots(&set);
    pUs[1] = Since(start);
    // The instant cut records the snapshot once the creation has answered.
    while (storagesim::ActiveCreationCount() != 0)
        std::this_thread::yield();
    start = Clock::now();
    if (SUCCEEDED(hr))
        hr = core.BuildTargetLunsInfo();
    auto& entries = core.Snapshots();
    for (entries.MoveFirst(); SUCCEEDED(hr) && entries.HasCurrent(); entries.MoveNext()) {
        const CSnapshotEntry& e = *entries.Current();
        hr = core.MapTargetLun(e.TargetLunVendorId(), e.TargetLunProductId(),
                               e.TargetLunProductRevision(), e.TargetLunSerialNo(),
                               e.TargetLunPath(), e.TargetLunPath2(), u"UNKNOWN");
    }
    pUs[2] = Since(start);
    return hr;
}

// Deletes what the set left, so that every iteration starts from the same storage.
void DeleteSet(CProviderCore& core)
{
    std::vector<std::u16string> fields;
    auto& entries = core.Snapshots();
    for (entries.MoveFirst(); entries.HasCurrent(); entries.MoveNext())
        for (LPCWSTR psz : {entries.Current()->TargetLunPath(), entries.Current()->TargetLunPath2(),
                            entries.Current()->TargetLunSerialNo()})
            fields.emplace_back(reinterpret_cast<const char16_t*>(psz));
    for (size_t i = 0; i + 2 < fields.size(); i += 3)
        core.DeleteTargetLun(reinterpret_cast<LPCWSTR>(fields[i].c_str()),
                             reinterpret_cast<LPCWSTR>(fields[i + 1].c_str()),
                             reinterpret_cast<LPCWSTR>(fields[i + 2].c_str()));
}

void BM_SetLife(benchmark::State& state)
{
    const int count = static_cast<int>(state.range(0));
    CProviderCore core;
    if (FAILED(StartMachine(count)) || FAILED(core.Initialize())) {
        state.SkipWithError("the simulated service did not start");
        return;
    }
    double totals[3] = {};
    ULONG n = 0;
    for (auto _ : state) {
        GUID set = {++n, 0xbe, 0xcc, {1, 2, 3, 4, 5, 6, 7, 8}};
        double us[3] = {};
        if (HRESULT hr = BuildSet(core, set, count, us, state.range(1) != 0); FAILED(hr)) {
            char message[64];
            std::snprintf(message, sizeof(message), "the set failed: 0x%08x", unsigned(hr));
            state.SkipWithError(message);
            break;
        }
        state.SetIterationTime((us[0] + us[1] + us[2]) / 1e6);
        for (int i = 0; i < 3; i++)
            totals[i] += us[i];
        DeleteSet(core);
    }
    const char* names[] = {"add_prepare_us", "commit_us", "build_map_us"};
    for (int i = 0; i < 3; i++)
        state.counters[names[i]] = totals[i] / static_cast<double>(state.iterations());
    state.counters["commit_per_lun_us"] = totals[1] / state.iterations() / count;
}
// The second argument 1 commits through the store directly: the difference of the two commit
// times is the core's share of the commit.
BENCHMARK(BM_SetLife)
    ->ArgsProduct({{1, 8, 64}, {0, 1}})
    ->UseManualTime()
    ->Iterations(20)
    ->Unit(benchmark::kMillisecond);

// The last of 1,000 mapped target LUNs recognised: the map's refresh from the registry records
// and the identity lookup.
void BM_VerifyMappedTargetLun(benchmark::State& state)
{
    constexpr int kLuns = 1000;
    CProviderCore core;
    GUID set = {0x1000, 0xbe, 0xcc, {1, 2, 3, 4, 5, 6, 7, 8}};
    double us[3];
    if (FAILED(StartMachine(kLuns)) || FAILED(core.Initialize()) ||
        FAILED(BuildSet(core, set, kLuns, us))) {
        state.SkipWithError("the mapped set could not be made");
        return;
    }
    core.Snapshots().MoveFirst();
    for (int i = 1; i < kLuns; i++)
        core.Snapshots().MoveNext();
    std::u16string serial(
        reinterpret_cast<const char16_t*>(core.Snapshots().Current()->TargetLunSerialNo()));
    state.counters["map_records"] = core.TargetLunMap().GetCount();
    for (auto _ : state) {
        CTargetLunInfo info;
        if (core.VerifyMappedTargetLun(u"ORVANE", u"LUN", u"9.1",
                                       reinterpret_cast<LPCWSTR>(serial.c_str()), &info) != S_OK) {
            state.SkipWithError("the mapped LUN was not recognised");
            break;
        }
    }
}
BENCHMARK(BM_VerifyMappedTargetLun)->Iterations(50)->Unit(benchmark::kMicrosecond);

// The commit through the provider object (trace file suspended, two tick-count readings, a
// print) against the core's own, alternately on sets of one LUN: the difference is the front's
// share of the time VSS holds the host's writes.
void BM_CommitThroughTheFront(benchmark::State& state)
{
    if (FAILED(StartMachine(1))) {
        state.SkipWithError("the simulated service did not start");
        return;
    }
    COrvaneHardwareProvider::InitializeClass();
    CComPtr<IClassFactory> factory;
    CComPtr<IVssHardwareSnapshotProviderEx> hw;
    CComPtr<IVssProviderCreateSnapshotSet> set;
    CComPtr<IVssProviderNotifications> load;
    CComClassFactoryT<COrvaneHardwareProvider>::Create(&factory);
    factory->CreateInstance(nullptr, IID_IVssHardwareSnapshotProviderEx,
                            reinterpret_cast<void**>(&hw));
    hw->QueryInterface(IID_IVssProviderCreateSnapshotSet, reinterpret_cast<void**>(&set));
    hw->QueryInterface(IID_IVssProviderNotifications, reinterpret_cast<void**>(&load));
    CProviderCore core;
    if (FAILED(load->OnLoad(nullptr)) || FAILED(core.Initialize())) {
        state.SkipWithError("the provider did not load");
        return;
    }
    double totals[2] = {};
    ULONG n = 0;
    WCHAR szDevice[] = u"\\\\.\\D";
    VSS_PWSZ devices[] = {szDevice};
    for (auto _ : state) {
        const bool fFront = n % 2 == 0;
        GUID id = {++n, 0xf0, 0xcc, {1, 2, 3, 4, 5, 6, 7, 8}};
        HRESULT hr;
        if (fFront) {
            orvtest::CLunRecord lun(
                orvtest::CLunBuilder::OrvaneLun(Serial(0)).ProductRevision("9.1"));
            hr = hw->BeginPrepareSnapshot(id, id, 0, 1, devices, &lun.Get());
            if (SUCCEEDED(hr))
                hr = set->EndPrepareSnapshots(id);
        } else {
            core.SetSnapshotSetId(&id);
            std::u16string serial = pal::Utf8ToUtf16(Serial(0));
            hr = core.AddSnapshot(&id, &id, u"ORVANE", u"LUN", u"9.1",
                                  reinterpret_cast<LPCWSTR>(serial.c_str()), u"D", 0);
            if (SUCCEEDED(hr))
                hr = core.EndPrepareSnapshots(&id);
        }
        auto start = Clock::now();
        if (SUCCEEDED(hr))
            hr = fFront ? set->CommitSnapshots(id) : core.CommitSnapshots(&id);
        const double us = Since(start);
        if (FAILED(hr)) {
            state.SkipWithError("the commit failed");
            break;
        }
        state.SetIterationTime(us / 1e6);
        totals[fFront ? 0 : 1] += us;
        while (storagesim::ActiveCreationCount() != 0)
            std::this_thread::yield();
        fFront ? set->AbortSnapshots(id) : core.AbortSnapshots(&id);
    }
    // The front's own work, without the service's cut: a set id the core refuses at once.
    const GUID other = {0xdead, 0xf0, 0xcc, {1, 2, 3, 4, 5, 6, 7, 8}};
    constexpr int kCalls = 20000;
    double fastUs[2];
    for (int i = 0; i < 2; ++i) {
        auto start = Clock::now();
        for (int k = 0; k < kCalls; ++k)
            i == 0 ? set->CommitSnapshots(other) : core.CommitSnapshots(&other);
        fastUs[i] = Since(start) / kCalls;
    }
    state.counters["front_only_us"] = fastUs[0] - fastUs[1];
    const double half = static_cast<double>(state.iterations()) / 2;
    state.counters["front_us"] = totals[0] / half;
    state.counters["core_us"] = totals[1] / half;
    state.counters["front_share_us"] = (totals[0] - totals[1]) / half;
    set.Release();
    load.Release();
    hw.Release();
    COrvaneHardwareProvider::UninitializeClass();
}
BENCHMARK(BM_CommitThroughTheFront)
    ->UseManualTime()
    ->Iterations(400)
    ->Unit(benchmark::kMicrosecond);

} // namespace
