// Threads: detached pthreads behind waitable thread objects, and thread and process ids.
#include "pal/errhandlingapi.h"
#include "pal/processthreadsapi.h"
#include "pal/src/base/internal.h"
#include "pal/src/sync/handletable.h"
#include "pal/winerror.h"

#include <atomic>
#include <condition_variable>
#include <pthread.h>
#include <unistd.h>

namespace {

using pal::detail::KernelLock;

constexpr DWORD kThreadSuspendResume = 0x0002;
constexpr DWORD kThreadQueryLimitedInformation = 0x0800;
constexpr DWORD kThreadAllAccess =
    pal::detail::kStandardRightsRequired | pal::detail::kSynchronize | 0xFFFF;

// Ids are handed out once and never reused, so they stay unique among live threads.
std::atomic<DWORD> g_dwNextThreadId{1};
thread_local DWORD t_dwThreadId = 0;

class ThreadObject : public pal::detail::KernelObject
{
public:
    ThreadObject(LPTHREAD_START_ROUTINE pfnStart, LPVOID pParameter, DWORD dwThreadId,
                 bool fSuspended)
        : m_pfnStart(pfnStart), m_pParameter(pParameter), m_dwThreadId(dwThreadId),
          m_cSuspend(fSuspended ? 1 : 0)
    {}

    // The thread handle is signalled once the thread function has returned.
    bool IsSignaledLocked() const override { return m_fExited; }

    const pal::detail::AccessMapping& Mapping() const override
    {
        static const pal::detail::AccessMapping mapping = {0x00020000 | 0x0048, 0x00020000 | 0x0037,
                                                           0x00020000 | pal::detail::kSynchronize |
                                                               kThreadQueryLimitedInformation,
                                                           kThreadAllAccess};
        return mapping;
    }

    DWORD ExitCodeLocked() const { return m_fExited ? m_dwExitCode : DWORD(STILL_ACTIVE); }

    DWORD ResumeLocked()
    {
        DWORD cPrevious = m_cSuspend;
        if (m_cSuspend != 0 && --m_cSuspend == 0)
            m_resumed.notify_all();
        return cPrevious;
    }

    void Run()
    {
        t_dwThreadId = m_dwThreadId;
        {
            std::unique_lock lock(KernelLock());
            m_resumed.wait(lock, [this] { return m_cSuspend == 0; });
        }
        DWORD dwExitCode = m_pfnStart(m_pParameter);
        std::lock_guard lock(KernelLock());
        m_dwExitCode = dwExitCode;
        m_fExited = true;
        pal::detail::NotifyWaitersLocked();
    }

private:
    const LPTHREAD_START_ROUTINE m_pfnStart;
    const LPVOID m_pParameter;
    const DWORD m_dwThreadId;
    // Guarded by KernelLock().
    DWORD m_cSuspend;
    std::condition_variable m_resumed;
    bool m_fExited = false;
    DWORD m_dwExitCode = 0;
};

void* ThreadMain(void* pv)
{
    // The thread's own reference keeps its object alive while it runs, whatever the handles.
    auto* pHolder = static_cast<std::shared_ptr<ThreadObject>*>(pv);
    std::shared_ptr<ThreadObject> pThread = std::move(*pHolder);
    delete pHolder;
    pThread->Run();
    return nullptr;
}

// Applies a requested stack size when it is larger than the default, which already exceeds
// what the Windows default of one megabyte commits at first.
void ApplyStackSize(pthread_attr_t* pAttr, SIZE_T dwStackSize)
{
    size_t cbDefault = 0;
    if (dwStackSize == 0 || pthread_attr_getstacksize(pAttr, &cbDefault) != 0 ||
        dwStackSize <= cbDefault)
        return;
    long cbPage = sysconf(_SC_PAGESIZE);
    size_t cbPageSize = cbPage > 0 ? static_cast<size_t>(cbPage) : 4096;
    size_t cb = (dwStackSize + cbPageSize - 1) / cbPageSize * cbPageSize;
    pthread_attr_setstacksize(pAttr, cb);
}

} // namespace

HANDLE WINAPI CreateThread(LPSECURITY_ATTRIBUTES lpThreadAttributes, SIZE_T dwStackSize,
                           LPTHREAD_START_ROUTINE lpStartAddress, LPVOID lpParameter,
                           DWORD dwCreationFlags, LPDWORD lpThreadId)
{
    (void)lpThreadAttributes;
    if (pal::detail::FailIfInjected("CreateThread"))
        return nullptr;
    if (!lpStartAddress) {
        // Windows would start the thread and let it fault at address zero.
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    DWORD dwThreadId = g_dwNextThreadId.fetch_add(1);
    auto pThread = std::make_shared<ThreadObject>(lpStartAddress, lpParameter, dwThreadId,
                                                  (dwCreationFlags & CREATE_SUSPENDED) != 0);
    HANDLE hThread = pal::detail::InsertHandle(pThread, kThreadAllAccess);
    if (!hThread)
        return nullptr;

    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    ApplyStackSize(&attr, dwStackSize);
    auto* pHolder = new std::shared_ptr<ThreadObject>(std::move(pThread));
    pthread_t thread;
    int rc = pthread_create(&thread, &attr, ThreadMain, pHolder);
    pthread_attr_destroy(&attr);
    if (rc != 0) {
        delete pHolder;
        pal::detail::CloseKernelHandle(hThread);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    if (lpThreadId)
        *lpThreadId = dwThreadId;
    return hThread;
}

BOOL WINAPI GetExitCodeThread(HANDLE hThread, LPDWORD lpExitCode)
{
    if (hThread == pal::detail::CurrentThreadPseudoHandle()) {
        if (!lpExitCode) {
            SetLastError(ERROR_NOACCESS);
            return FALSE;
        }
        *lpExitCode = STILL_ACTIVE;
        return TRUE;
    }
    auto pThread =
        pal::detail::ReferenceHandleAs<ThreadObject>(hThread, kThreadQueryLimitedInformation);
    if (!pThread)
        return FALSE;
    if (!lpExitCode) {
        SetLastError(ERROR_NOACCESS);
        return FALSE;
    }
    std::lock_guard lock(KernelLock());
    *lpExitCode = pThread->ExitCodeLocked();
    return TRUE;
}

DWORD WINAPI ResumeThread(HANDLE hThread)
{
    // The calling thread is running, hence not suspended.
    if (hThread == pal::detail::CurrentThreadPseudoHandle())
        return 0;
    auto pThread = pal::detail::ReferenceHandleAs<ThreadObject>(hThread, kThreadSuspendResume);
    if (!pThread)
        return static_cast<DWORD>(-1);
    std::lock_guard lock(KernelLock());
    return pThread->ResumeLocked();
}

DWORD WINAPI GetCurrentThreadId()
{
    // Threads this layer did not start (the main thread, std::thread) get theirs on first use.
    if (t_dwThreadId == 0)
        t_dwThreadId = g_dwNextThreadId.fetch_add(1);
    return t_dwThreadId;
}

DWORD WINAPI GetCurrentProcessId()
{
    return static_cast<DWORD>(getpid());
}
