// Injected failures of platform calls.
#include "pal/errhandlingapi.h"
#include "pal/processthreadsapi.h"
#include "pal/src/base/internal.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

namespace {

struct FaultRule
{
    DWORD dwError = 0;
    ULONG ulNth = 0;
    std::optional<std::u16string> arg;
    ULONG ulCalls = 0;
    ULONG ulHits = 0;
};

struct FaultTable
{
    std::mutex lock;
    std::map<std::string, FaultRule, std::less<>> rules;
};

// Never destroyed: the destructors of other static objects (a program's global module, which
// closes its handles) still pass the fault hook while the process exits.
FaultTable& Faults()
{
    static FaultTable* pTable = new FaultTable();
    return *pTable;
}
// Lets the common no-fault case skip the lock.
std::atomic<bool> g_fAnyFault{false};

// Counts the allocations of one allocator so that a test can make its nth one fail.
class CAllocationFault
{
public:
    // Restarts the count; nth 0 fails none.
    void Arm(ULONG nth, bool fThisThreadOnly)
    {
        m_ulCount = 0;
        m_dwThread = fThisThreadOnly ? GetCurrentThreadId() : 0;
        m_ulFailAt = nth;
    }
    ULONG Count() const { return m_ulCount; }
    // Counts this allocation; true when it is the one to fail.
    bool ShouldFail()
    {
        ULONG ulFailAt = m_ulFailAt.load(std::memory_order_relaxed);
        DWORD dwThread = m_dwThread.load(std::memory_order_relaxed);
        if (dwThread != 0 && dwThread != GetCurrentThreadId())
            return false;
        ULONG n = ++m_ulCount;
        return ulFailAt != 0 && n == ulFailAt;
    }

private:
    std::atomic<ULONG> m_ulFailAt{0};
    std::atomic<ULONG> m_ulCount{0};
    // The only thread whose allocations count; 0: every thread's.
    std::atomic<DWORD> m_dwThread{0};
};

// Constant-initialised: operator new may ask before any dynamic initialisation has run.
constinit CAllocationFault g_taskAllocFault;
constinit CAllocationFault g_newFault;

bool ParseNumber(const std::string& text, ULONG* pValue)
{
    char* pEnd = nullptr;
    errno = 0;
    unsigned long value = std::strtoul(text.c_str(), &pEnd, 0);
    if (text.empty() || text[0] == '-' || *pEnd != 0 || errno != 0 || value > 0xFFFFFFFFul)
        return false;
    *pValue = static_cast<ULONG>(value);
    return true;
}

} // namespace

namespace pal {

void InjectFault(const char* api, DWORD error, ULONG nth, const WCHAR* arg)
{
    std::lock_guard lock(Faults().lock);
    FaultRule rule;
    rule.dwError = error;
    rule.ulNth = nth;
    if (arg)
        rule.arg = std::u16string(arg);
    Faults().rules[api] = std::move(rule);
    g_fAnyFault = true;
}

void ClearFault(const char* api)
{
    std::lock_guard lock(Faults().lock);
    Faults().rules.erase(std::string(api));
    g_fAnyFault = !Faults().rules.empty();
}

bool InjectFaultsFromText(const std::string& text)
{
    struct Parsed
    {
        std::string api;
        DWORD dwError;
        ULONG ulNth;
        std::optional<std::u16string> arg;
    };
    std::vector<Parsed> rules;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find(';', start);
        if (end == std::string::npos)
            end = text.size();
        std::string rule = text.substr(start, end - start);
        start = end + 1;
        if (rule.empty())
            continue;
        size_t equals = rule.find('=');
        if (equals == 0 || equals == std::string::npos)
            return false;
        Parsed parsed{rule.substr(0, equals), 0, 0, std::nullopt};
        // ERROR, then NTH, then ARG, which is the rest and may hold commas itself.
        std::string rest = rule.substr(equals + 1);
        size_t comma = rest.find(',');
        if (!ParseNumber(rest.substr(0, comma), &parsed.dwError))
            return false;
        if (comma != std::string::npos) {
            rest.erase(0, comma + 1);
            comma = rest.find(',');
            if (!ParseNumber(rest.substr(0, comma), &parsed.ulNth))
                return false;
            if (comma != std::string::npos)
                parsed.arg = pal::detail::ToUtf16(rest.substr(comma + 1));
        }
        rules.push_back(std::move(parsed));
    }
    for (const Parsed& rule : rules)
        InjectFault(rule.api.c_str(), rule.dwError, rule.ulNth,
                    rule.arg ? rule.arg->c_str() : nullptr);
    return true;
}

void ClearFaults()
{
    std::lock_guard lock(Faults().lock);
    Faults().rules.clear();
    g_fAnyFault = false;
}

ULONG FaultCalls(const char* api)
{
    std::lock_guard lock(Faults().lock);
    auto it = Faults().rules.find(api);
    return it == Faults().rules.end() ? 0 : it->second.ulCalls;
}

ULONG FaultHits(const char* api)
{
    std::lock_guard lock(Faults().lock);
    auto it = Faults().rules.find(api);
    return it == Faults().rules.end() ? 0 : it->second.ulHits;
}

void FailTaskAllocAt(ULONG nth, bool fThisThreadOnly)
{
    g_taskAllocFault.Arm(nth, fThisThreadOnly);
}

ULONG TaskAllocations()
{
    return g_taskAllocFault.Count();
}

void FailNothrowNewAt(ULONG nth, bool fThisThreadOnly)
{
    g_newFault.Arm(nth, fThisThreadOnly);
}

ULONG NothrowNewAllocations()
{
    return g_newFault.Count();
}

} // namespace pal

namespace pal::detail {

bool ConsumeFault(const char* api, const WCHAR* arg, DWORD* pdwError)
{
    if (!g_fAnyFault.load(std::memory_order_acquire))
        return false;
    std::lock_guard lock(Faults().lock);
    auto it = Faults().rules.find(api);
    if (it == Faults().rules.end())
        return false;
    FaultRule& rule = it->second;
    if (rule.arg && (!arg || !EqualNoCase(*rule.arg, arg)))
        return false;
    ++rule.ulCalls;
    if (rule.ulNth != 0 && rule.ulCalls != rule.ulNth)
        return false;
    ++rule.ulHits;
    *pdwError = rule.dwError;
    return true;
}

bool ConsumeFault(const char* api, DWORD* pdwError)
{
    return ConsumeFault(api, nullptr, pdwError);
}

bool FailIfInjected(const char* api, const WCHAR* arg)
{
    DWORD dwError = 0;
    if (!ConsumeFault(api, arg, &dwError))
        return false;
    SetLastError(dwError);
    return true;
}

bool TaskAllocShouldFail()
{
    return g_taskAllocFault.ShouldFail();
}

bool NothrowNewShouldFail()
{
    return g_newFault.ShouldFail();
}

} // namespace pal::detail

namespace {

// A process of the machine started with ORVSIM_FAULTS injects its rules before its own code
// runs; the rules of a test process come from the test itself.
const bool g_fEnvironmentFaults = [] {
    const char* pszRules = std::getenv("ORVSIM_FAULTS");
    if (pszRules && !pal::InjectFaultsFromText(pszRules))
        std::fprintf(stderr, "orvsim: ignoring malformed ORVSIM_FAULTS \"%s\"\n", pszRules);
    return true;
}();

} // namespace
