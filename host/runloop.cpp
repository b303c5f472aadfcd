// The server's run loop and its orderly end: class object registration, the wait for the
// shutdown event, the drain while clients still hold the module, and the two ways a stop
// begins (the control handler and the last unlock).
#include "host/servicemodule.h"

#include "diag/trace.h"
#include "pal/interlockedapi.h"
#include "pal/objbase.h"
#include "pal/processthreadsapi.h"
#include "pal/synchapi.h"

namespace {

// Each drain wait gives clients 10 seconds to let go of the module.
constexpr DWORD kDrainWaitMs = 10000;
constexpr DWORD kDrainWaits = 3;
// A system shutdown leaves no time for more than one.
constexpr DWORD kDrainWaitsAtSystemShutdown = 1;

} // namespace

HRESULT CServiceModule::Run()
{
    CTraceScope scope(W("CServiceModule::Run"));
    m_dwThreadID = GetCurrentThreadId();

    HRESULT hr = InitializeSecurity();
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("InitializeSecurity FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }

    TRACE(TRACE_LEVEL_INFO, W("Registering class object\n"));
    DWORD dwContext = m_fService ? (CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER)
                                 : static_cast<DWORD>(CLSCTX_LOCAL_SERVER);
    hr = RegisterClassObjects(dwContext, REGCLS_MULTIPLEUSE);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("RegisterClassObjects FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }

    TRACE(TRACE_LEVEL_INFO, W("Service is starting\n"));
    if (m_pEvent)
        m_pEvent->Log(m_dwStartEventId, 0);
    if (m_fService)
        SetServiceStatus(SERVICE_RUNNING);

    WaitForSingleObject(m_hEventShutdown, INFINITE);

    // The count is looked at before every wait, so a module released meanwhile ends the drain
    // at once; after the last allowed wait the server stops whoever still holds it.
    DWORD dwAllowedWaits = m_fSystemShutdown ? kDrainWaitsAtSystemShutdown : kDrainWaits;
    for (DWORD dwWaits = 0; GetLockCount() != 0 && dwWaits < dwAllowedWaits; ++dwWaits) {
        TRACE(TRACE_LEVEL_INFO, W("Waiting for module lock count to reach zero, dwLocks=%d\n"),
              GetLockCount());
        Sleep(kDrainWaitMs);
        if (m_fService)
            SetServiceStatus(SERVICE_STOP_PENDING);
    }

    TRACE(TRACE_LEVEL_INFO, W("Revoking class object\n"));
    RevokeClassObjects();
    return S_OK;
}

void CServiceModule::Shutdown(BOOL fSystemShutdown)
{
    CTraceScope scope(W("CServiceModule::Shutdown"));
    if (InterlockedCompareExchange(&m_lShutdownInProgress, 1, 0) != 0) {
        TRACE(TRACE_LEVEL_INFO, W("Shutdown is already in progress...\n"));
        return;
    }
    TRACE(TRACE_LEVEL_INFO, W("Starting to shutdown service...\n"));
    m_fSystemShutdown = fSystemShutdown;
    if (m_fService)
        SetServiceStatus(SERVICE_STOP_PENDING);
    TRACE(TRACE_LEVEL_INFO, W("Suspending class object\n"));
    CoSuspendClassObjects();
    SetEvent(m_hEventShutdown);
}

LONG CServiceModule::Unlock()
{
    LONG lCount = CComModule::Unlock();
    if (lCount != 0)
        return lCount;
    TRACE(TRACE_LEVEL_INFO, W("Module lock has reached zero!\n"));
    if (m_fAutoShutdown) {
        TRACE(TRACE_LEVEL_INFO, W("Starting to shutdown service!\n"));
        Shutdown(FALSE);
    }
    return 0;
}
