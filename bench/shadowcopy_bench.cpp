// A whole plain shadow copy of one LUN as VSS makes it through the installed provider, whose
// service COM starts in its own process: create, expose, delete, at trace level 0. Reports sets
// per second, the commit window as VSS measures it (from the hold of writes to their release)
// at p50 and p99, the share of the set's time spent in calls to the provider's process, and,
// beside it, the storage service's snapshot creation alone (the bare cut).
#include "sim/storage/storagesim.h"
#include "sim/vss/vsssim.h"
#include "store/tessera.h"

#include "pal/atlbase.h"
#include "pal/objbase.h"
#include "pal/palcontrol.h"
#include "pal/winreg.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <vector>

extern char** environ;

namespace {

constexpr LONG kPersistent =
    LONG{VSS_CTX_BACKUP} | VSS_VOLSNAP_ATTR_PERSISTENT | VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE;

// A machine root of the benchmark's own, with the storage initialised.
class CMachine
{
public:
    CMachine()
    {
        m_root = (std::filesystem::temp_directory_path() / "shadowcopy_bench-XXXXXX").string();
        if (!mkdtemp(m_root.data()))
            m_root.clear();
        setenv("ORVSIM_ROOT", m_root.c_str(), 1);
        pal::CaptureDebugOutput(true);
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    }
    ~CMachine()
    {
        CoUninitialize();
        std::error_code ec;
        std::filesystem::remove_all(m_root, ec);
    }
    CMachine(const CMachine&) = delete;
    CMachine& operator=(const CMachine&) = delete;

    bool Ready() const { return !m_root.empty(); }

    // orvprov installed as a service, its trace at level 0.
    bool InstallProvider()
    {
        std::filesystem::create_directories(m_root + "/Program Files/Orvane");
        const std::string exe = m_root + "/Program Files/Orvane/orvprov";
        std::filesystem::copy_file(ORVPROV_EXE, exe);
        const char* argv[] = {exe.c_str(), "-r", "service", "-a", "LocalSystem", nullptr};
        pid_t pid = -1;
        int status = -1;
        if (posix_spawn(&pid, exe.c_str(), nullptr, nullptr, const_cast<char**>(argv), environ) !=
                0 ||
            waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
            return false;
        HKEY hKey = nullptr;
        const DWORD dwLevel = 0;
        if (RegCreateKeyExW(HKEY_LOCAL_MACHINE,
                            u"System\\CurrentControlSet\\Services\\Orvhwsvc\\Parameters", 0,
                            nullptr, 0, KEY_SET_VALUE, nullptr, &hKey, nullptr) != ERROR_SUCCESS)
            return false;
        LSTATUS ls = RegSetValueExW(hKey, u"TraceMask", 0, REG_DWORD,
                                    reinterpret_cast<const BYTE*>(&dwLevel), sizeof(dwLevel));
        RegCloseKey(hKey);
        return ls == ERROR_SUCCESS;
    }

private:
    std::string m_root;
};

double Percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[static_cast<size_t>(p * static_cast<double>(values.size() - 1))];
}

void BM_PlainShadowCopyOfOneLun(benchmark::State& state)
{
    CMachine machine;
    if (!machine.Ready() || FAILED(storagesim::InitializeState("", "")) ||
        !machine.InstallProvider()) {
        state.SkipWithError("the machine could not be set up");
        return;
    }
    std::vector<double> holdMs;
    double setNs = 0, providerNs = 0;
    for (auto _ : state) {
        VSS_ID setId = GUID_NULL;
        std::vector<VSS_ID> ids;
        std::u16string exposed;
        if (FAILED(vsssim::CreateShadowCopySet({u"E:"}, kPersistent, &setId, &ids)) ||
            FAILED(vsssim::ExposeShadowCopy(ids[0], u"X:", &exposed)) ||
            FAILED(vsssim::DeleteShadowCopy(ids[0]))) {
            state.SkipWithError("the shadow copy failed");
            break;
        }
        const vsssim::SetMeasures measures = vsssim::LastSetMeasures();
        holdMs.push_back(static_cast<double>(measures.llHoldNs) / 1e6);
        setNs += static_cast<double>(measures.llSetNs);
        providerNs += static_cast<double>(measures.llProviderNs);
    }
    state.counters["sets_per_s"] =
        benchmark::Counter(static_cast<double>(holdMs.size()), benchmark::Counter::kIsRate);
    state.counters["commit_window_p50_ms"] = Percentile(holdMs, 0.50);
    state.counters["commit_window_p99_ms"] = Percentile(holdMs, 0.99);
    state.counters["provider_share_pct"] = setNs > 0 ? 100.0 * providerNs / setNs : 0;
}
BENCHMARK(BM_PlainShadowCopyOfOneLun)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(50);

// The storage service's own creation of a snapshot of E:'s LUN, served in this process: the
// cut that the commit window wraps.
void BM_BareStorageCut(benchmark::State& state)
{
    CMachine machine;
    storagesim::CStorageService service;
    std::string filer, path;
    CComPtr<IVSSSupport> pSnapShot;
    if (!machine.Ready() || FAILED(storagesim::InitializeState("", "")) ||
        FAILED(service.Start()) || FAILED(storagesim::FindLunByDrive("E:\\", &filer, &path)) ||
        FAILED(pSnapShot.CoCreateInstance(CLSID_VSSSupport, nullptr, CLSCTX_LOCAL_SERVER))) {
        state.SkipWithError("the storage service could not be set up");
        return;
    }
    std::u16string drive = u"E:\\", wfiler = pal::Utf8ToUtf16(filer),
                   wpath = pal::Utf8ToUtf16(path), name = u"bench";
    DRIVE_ENTRY entry{drive.data(), 0};
    DRIVE_LIST drives{0, 0, 1, &entry};
    LUN_LOCATION lun{wfiler.data(), wpath.data()};
    std::vector<double> cutMs;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        HRESULT hr = pSnapShot->CreateSnapShot(&drives, name.c_str());
        cutMs.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                .count());
        state.PauseTiming();
        if (FAILED(hr) || FAILED(pSnapShot->DeleteSnapShot(&lun, name.c_str()))) {
            state.SkipWithError("the snapshot failed");
            break;
        }
        state.ResumeTiming();
    }
    state.counters["cut_p50_ms"] = Percentile(cutMs, 0.50);
    state.counters["cut_p99_ms"] = Percentile(cutMs, 0.99);
    pSnapShot.Release();
    service.Stop();
}
BENCHMARK(BM_BareStorageCut)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(200);

} // namespace
