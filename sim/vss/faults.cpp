// The fault rules of the simulated VSS: the coordinator's methods, writers' vetoes, VSS's calls
// of a provider, the hold of writes and the end of VSS's process, in the faults table of vss.db.
#include "faults.h"

#include "database.h"
#include "vsssim.h"

#include "pal/processthreadsapi.h"

#include <algorithm>
#include <iterator>

namespace vsssim {

const char* const kProviderMethods[] = {
    "AreLunsSupported",        "BeginPrepareSnapshot",
    "EndPrepareSnapshots",     "PreCommitSnapshots",
    "CommitSnapshots",         "PostCommitSnapshots",
    "GetTargetLuns",           "LocateLuns",
    "FillInLunInfo",           "OnLunStateChange",
    "PreFinalCommitSnapshots", "PostFinalCommitSnapshots",
    "AbortSnapshots",          "OnLunEmpty",
};
const size_t kProviderMethodCount = std::size(kProviderMethods);

namespace {

const char* const kCoordinatorMethods[] = {"RegisterProvider", "UnregisterProvider",
                                           "QueryProviders"};
const char* const kWriterEvents[] = {"Writer:PrepareForSnapshot", "Writer:Freeze", "Writer:Thaw"};

bool IsOneOf(const std::string& name, const char* const* begin, const char* const* end)
{
    return std::any_of(begin, end, [&](const char* p) { return name == p; });
}

bool IsProviderMethod(const std::string& name)
{
    return IsOneOf(name, kProviderMethods, kProviderMethods + kProviderMethodCount);
}

bool IsWriterEvent(const std::string& name)
{
    return IsOneOf(name, std::begin(kWriterEvents), std::end(kWriterEvents));
}

bool IsRuleName(const std::string& name)
{
    if (IsOneOf(name, std::begin(kCoordinatorMethods), std::end(kCoordinatorMethods)) ||
        IsWriterEvent(name) || name == "HoldWrites")
        return true;
    if (name.rfind("Call:", 0) == 0)
        return IsProviderMethod(name.substr(5));
    if (name.rfind("Kill:", 0) == 0)
        return IsProviderMethod(name.substr(5)) || IsWriterEvent(name.substr(5));
    return false;
}

} // namespace

HRESULT SetFault(const std::string& name, HRESULT hr, LONG lTimes)
{
    if (!IsRuleName(name) || lTimes == 0 || lTimes < kEveryCall)
        return E_INVALIDARG;
    return detail::WithState(nullptr, [&](detail::CDatabase& db) {
        db.Prepare("INSERT OR REPLACE INTO faults(method, code, remaining) VALUES (?1, ?2, ?3)")
            .Bind(1, name.c_str())
            .Bind(2, static_cast<LONGLONG>(hr))
            .Bind(3, lTimes)
            .Step();
        return S_OK;
    });
}

HRESULT ClearFaults()
{
    return detail::WithState(nullptr, [](detail::CDatabase& db) {
        db.Exec("DELETE FROM faults");
        return S_OK;
    });
}

HRESULT ListFaults(std::vector<FaultRule>* pRules)
{
    if (!pRules)
        return E_INVALIDARG;
    pRules->clear();
    return detail::WithState(nullptr, [&](detail::CDatabase& db) {
        detail::CStatement s =
            db.Prepare("SELECT method, code, remaining FROM faults ORDER BY method");
        while (s.Step()) {
            // The name is bound as text: its bytes are UTF-8.
            pRules->push_back(
                {s.Bytes(0), static_cast<HRESULT>(s.Int(1)), static_cast<LONG>(s.Int(2))});
        }
        return S_OK;
    });
}

} // namespace vsssim

namespace vsssim::detail {

void EndProcessIfInjected(const std::string& point)
{
    LONGLONG llCode = 0;
    bool fKill = false;
    WithState(nullptr, [&](CDatabase& db) {
        fKill = ConsumeFault(db, ("Kill:" + point).c_str(), &llCode);
        return S_OK;
    });
    // No destructor, no release and no unload: the provider learns of it from COM alone.
    if (fKill)
        ExitProcess(static_cast<UINT>(llCode));
}

HRESULT InjectedFault(const std::string& name)
{
    return WithState(name.c_str(), [](CDatabase&) { return S_OK; });
}

} // namespace vsssim::detail
