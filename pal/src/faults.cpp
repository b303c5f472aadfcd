// Injected failures of platform calls.
#include "internal.h"
#include "pal/errhandlingapi.h"
#include "pal/processthreadsapi.h"

#include <atomic>
#include <map>
#include <mutex>
#include <optional>

namespace {

struct FaultRule
{
    DWORD dwError = 0;
    ULONG ulNth = 0;
    std::optional<std::u16string> arg;
    ULONG ulCalls = 0;
    ULONG ulHits = 0;
};

std::mutex g_faultLock;
std::map<std::string, FaultRule, std::less<>> g_faults;
// Lets the common no-fault case skip the lock.
std::atomic<bool> g_fAnyFault{false};

std::atomic<ULONG> g_ulTaskAllocFailAt{0};
std::atomic<ULONG> g_ulTaskAllocs{0};
std::atomic<ULONG> g_ulNewFailAt{0};
std::atomic<ULONG> g_ulNews{0};
// The only thread whose allocations count; 0: every thread's.
std::atomic<DWORD> g_dwTaskAllocThread{0};
std::atomic<DWORD> g_dwNewThread{0};

bool CountsOnThisThread(const std::atomic<DWORD>& thread)
{
    DWORD dwThread = thread.load(std::memory_order_relaxed);
    return dwThread == 0 || dwThread == GetCurrentThreadId();
}

char16_t FoldCase(char16_t c)
{
    return (c >= u'a' && c <= u'z') ? char16_t(c - 32) : c;
}

bool EqualNoCase(std::u16string_view a, std::u16string_view b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (FoldCase(a[i]) != FoldCase(b[i]))
            return false;
    return true;
}

} // namespace

namespace pal {

void InjectFault(const char* api, DWORD error, ULONG nth, const WCHAR* arg)
{
    std::lock_guard lock(g_faultLock);
    FaultRule rule;
    rule.dwError = error;
    rule.ulNth = nth;
    if (arg)
        rule.arg = std::u16string(arg);
    g_faults[api] = std::move(rule);
    g_fAnyFault = true;
}

void ClearFault(const char* api)
{
    std::lock_guard lock(g_faultLock);
    g_faults.erase(std::string(api));
    g_fAnyFault = !g_faults.empty();
}

void ClearFaults()
{
    std::lock_guard lock(g_faultLock);
    g_faults.clear();
    g_fAnyFault = false;
}

ULONG FaultCalls(const char* api)
{
    std::lock_guard lock(g_faultLock);
    auto it = g_faults.find(api);
    return it == g_faults.end() ? 0 : it->second.ulCalls;
}

ULONG FaultHits(const char* api)
{
    std::lock_guard lock(g_faultLock);
    auto it = g_faults.find(api);
    return it == g_faults.end() ? 0 : it->second.ulHits;
}

void FailTaskAllocAt(ULONG nth, bool fThisThreadOnly)
{
    g_ulTaskAllocs = 0;
    g_dwTaskAllocThread = fThisThreadOnly ? GetCurrentThreadId() : 0;
    g_ulTaskAllocFailAt = nth;
}

ULONG TaskAllocations()
{
    return g_ulTaskAllocs;
}

void FailNothrowNewAt(ULONG nth, bool fThisThreadOnly)
{
    g_ulNews = 0;
    g_dwNewThread = fThisThreadOnly ? GetCurrentThreadId() : 0;
    g_ulNewFailAt = nth;
}

ULONG NothrowNewAllocations()
{
    return g_ulNews;
}

} // namespace pal

namespace pal::detail {

bool ConsumeFault(const char* api, const WCHAR* arg, DWORD* pdwError)
{
    if (!g_fAnyFault.load(std::memory_order_acquire))
        return false;
    std::lock_guard lock(g_faultLock);
    auto it = g_faults.find(api);
    if (it == g_faults.end())
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
    if (!CountsOnThisThread(g_dwTaskAllocThread))
        return false;
    ULONG n = ++g_ulTaskAllocs;
    ULONG failAt = g_ulTaskAllocFailAt.load();
    return failAt != 0 && n == failAt;
}

bool NothrowNewShouldFail()
{
    ULONG failAt = g_ulNewFailAt.load(std::memory_order_relaxed);
    if (!CountsOnThisThread(g_dwNewThread))
        return false;
    ULONG n = ++g_ulNews;
    return failAt != 0 && n == failAt;
}

} // namespace pal::detail
