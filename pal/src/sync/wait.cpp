// Waits on kernel objects, and CloseHandle.
#include "pal/errhandlingapi.h"
#include "pal/handleapi.h"
#include "pal/src/base/internal.h"
#include "pal/src/sync/handletable.h"
#include "pal/synchapi.h"
#include "pal/winerror.h"

#include <array>
#include <vector>

namespace {

using pal::detail::KernelObject;
using pal::detail::KernelObjectPtr;
using Steady = std::chrono::steady_clock;

// What the pseudo handles of the current process and thread stand for in a wait: neither ends
// while the caller is still waiting, so a wait on them only times out.
class NeverSignaledObject : public KernelObject
{};

DWORD FailWait(DWORD dwError)
{
    SetLastError(dwError);
    return WAIT_FAILED;
}

// Index of the first signalled object (any) or 0 when all are signalled (all), after consuming
// the signals that satisfy the wait; -1 when the wait is not satisfied. Caller holds the lock.
int TrySatisfyLocked(KernelObject* const* objects, DWORD nCount, bool fWaitAll)
{
    if (fWaitAll) {
        for (DWORD i = 0; i < nCount; ++i)
            if (!objects[i]->IsSignaledLocked())
                return -1;
        for (DWORD i = 0; i < nCount; ++i)
            objects[i]->ConsumeSignalLocked();
        return 0;
    }
    for (DWORD i = 0; i < nCount; ++i) {
        if (objects[i]->IsSignaledLocked()) {
            objects[i]->ConsumeSignalLocked();
            return static_cast<int>(i);
        }
    }
    return -1;
}

DWORD WaitForObjects(DWORD nCount, const HANDLE* lpHandles, bool fWaitAll, DWORD dwMilliseconds)
{
    // Never destroyed: a detached thread may still be waiting while the process exits.
    static NeverSignaledObject& s_neverSignaled = *new NeverSignaledObject;
    // Only a wait that may have to sleep for a while needs the clock.
    std::optional<Steady::time_point> deadline;
    if (dwMilliseconds != 0 && dwMilliseconds != INFINITE)
        deadline = Steady::now() + pal::detail::RealDuration(dwMilliseconds);

    // Plain pointers serve while the lock is held; a wait that sleeps takes references first,
    // because a handle may be closed while the lock is released.
    std::array<KernelObject*, MAXIMUM_WAIT_OBJECTS> objects;
    std::vector<KernelObjectPtr> references;
    std::unique_lock lock(pal::detail::KernelLock());
    for (DWORD i = 0; i < nCount; ++i) {
        if (pal::detail::IsPseudoHandle(lpHandles[i])) {
            objects[i] = &s_neverSignaled;
            continue;
        }
        DWORD dwError = 0;
        objects[i] = pal::detail::LookupHandleLocked(lpHandles[i], SYNCHRONIZE, &dwError);
        if (!objects[i]) {
            lock.unlock();
            return FailWait(dwError);
        }
    }
    if (fWaitAll) {
        // Waiting for all of one object twice cannot be satisfied atomically.
        for (DWORD i = 0; i < nCount; ++i)
            for (DWORD j = i + 1; j < nCount; ++j)
                if (objects[i] == objects[j]) {
                    lock.unlock();
                    return FailWait(ERROR_INVALID_PARAMETER);
                }
    }

    for (;;) {
        int index = TrySatisfyLocked(objects.data(), nCount, fWaitAll);
        if (index >= 0)
            return WAIT_OBJECT_0 + static_cast<DWORD>(index);
        if (dwMilliseconds == 0 || (deadline && Steady::now() >= *deadline))
            return WAIT_TIMEOUT;
        if (references.empty()) {
            for (DWORD i = 0; i < nCount; ++i)
                if (objects[i] != &s_neverSignaled)
                    references.push_back(objects[i]->shared_from_this());
            references.push_back(nullptr); // marks the references as taken
        }
        pal::detail::SleepUntilNotifiedLocked(lock, deadline);
    }
    // The references are dropped after the lock is released: `lock` is destroyed first.
}

} // namespace

DWORD WINAPI WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds)
{
    if (pal::detail::FailIfInjected("WaitForSingleObject"))
        return WAIT_FAILED;
    return WaitForObjects(1, &hHandle, false, dwMilliseconds);
}

DWORD WINAPI WaitForMultipleObjects(DWORD nCount, const HANDLE* lpHandles, BOOL bWaitAll,
                                    DWORD dwMilliseconds)
{
    if (pal::detail::FailIfInjected("WaitForMultipleObjects"))
        return WAIT_FAILED;
    if (nCount == 0 || nCount > MAXIMUM_WAIT_OBJECTS)
        return FailWait(ERROR_INVALID_PARAMETER);
    if (!lpHandles)
        return FailWait(ERROR_NOACCESS);
    return WaitForObjects(nCount, lpHandles, bWaitAll != FALSE, dwMilliseconds);
}

BOOL WINAPI CloseHandle(HANDLE hObject)
{
    return pal::detail::CloseKernelHandle(hObject);
}
