// Critical sections: a recursive pthread mutex placed in the structure's opaque storage.
//
// Nothing here touches other state of the layer but the fault hook, which reads only a
// constant-initialised flag until a test injects a fault, so a critical section that a static
// initialiser sets up before main (the trace lock) works whatever the order of initialisation.
#include "pal/src/base/internal.h"
#include "pal/synchapi.h"

#include <new>
#include <pthread.h>

namespace {

static_assert(sizeof(pthread_mutex_t) <= sizeof(CRITICAL_SECTION::opaque),
              "the lock must fit the opaque storage of CRITICAL_SECTION");
static_assert(alignof(pthread_mutex_t) <= alignof(CRITICAL_SECTION),
              "the opaque storage must be aligned for the lock");

pthread_mutex_t* Lock(LPCRITICAL_SECTION lpCriticalSection)
{
    return std::launder(reinterpret_cast<pthread_mutex_t*>(lpCriticalSection->opaque));
}

} // namespace

void WINAPI InitializeCriticalSection(LPCRITICAL_SECTION lpCriticalSection)
{
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    // Windows lets the owner enter again; it must leave as many times.
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    auto* pMutex = new (lpCriticalSection->opaque) pthread_mutex_t;
    pthread_mutex_init(pMutex, &attr);
    pthread_mutexattr_destroy(&attr);
}

BOOL WINAPI InitializeCriticalSectionAndSpinCount(LPCRITICAL_SECTION lpCriticalSection,
                                                  DWORD dwSpinCount)
{
    // The spin count is a tuning hint; the mutex spins as it sees fit.
    (void)dwSpinCount;
    if (pal::detail::FailIfInjected("InitializeCriticalSectionAndSpinCount"))
        return FALSE;
    InitializeCriticalSection(lpCriticalSection);
    return TRUE;
}

void WINAPI EnterCriticalSection(LPCRITICAL_SECTION lpCriticalSection)
{
    pthread_mutex_lock(Lock(lpCriticalSection));
}

BOOL WINAPI TryEnterCriticalSection(LPCRITICAL_SECTION lpCriticalSection)
{
    return pthread_mutex_trylock(Lock(lpCriticalSection)) == 0 ? TRUE : FALSE;
}

void WINAPI LeaveCriticalSection(LPCRITICAL_SECTION lpCriticalSection)
{
    pthread_mutex_unlock(Lock(lpCriticalSection));
}

void WINAPI DeleteCriticalSection(LPCRITICAL_SECTION lpCriticalSection)
{
    pthread_mutex_destroy(Lock(lpCriticalSection));
}
