#include "store/eventsink.h"

#include "diag/config.h"
#include "diag/trace.h"

#include "pal/errhandlingapi.h"
#include "pal/handleapi.h"
#include "pal/ocidl.h"
#include "pal/synchapi.h"

namespace {

LPCWSTR ProgressName(LONG lProgress)
{
    switch (lProgress) {
    case PROG_POLICY_CHECK:
        return W("PROG_POLICY_CHECK");
    case PROG_KVX_SNAPCREATE:
        return W("PROG_KVX_SNAPCREATE");
    case PROG_KVX_SNAP_PREPARE:
        return W("PROG_KVX_SNAP_PREPARE");
    default:
        return W("???");
    }
}

void CloseEvent(HANDLE& h)
{
    if (h != nullptr) {
        CloseHandle(h);
        h = nullptr;
    }
}

} // namespace

CSnapshotEventSink::~CSnapshotEventSink()
{
    Disconnect();
}

HRESULT CSnapshotEventSink::Connect(IUnknown* pConnectableObject, LPCWSTR pszPrepareEventName,
                                    LPCWSTR pszCreateEventName)
{
    CTraceScope scope(W("CSnapshotEventSink::Connect"));
    CComPtr<IConnectionPointContainer> pCPC;
    HRESULT hr = pConnectableObject->QueryInterface(IID_IConnectionPointContainer,
                                                    reinterpret_cast<void**>(&pCPC));
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR,
              W("pConnectableObject->QueryInterface for IID_IConnectionPointContainer FAILED ")
                  W("[hr=0x%08x]\n"),
              hr);
        Cleanup();
        return hr;
    }
    CComPtr<IConnectionPoint> pCP;
    hr = pCPC->FindConnectionPoint(IID__ISnapShotEvents, &pCP);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("FindConnectionPoint FAILED [hr=0x%08x]\n"), hr);
        Cleanup();
        return hr;
    }
    CComPtr<IUnknown> pUnk;
    hr = QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&pUnk));
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("QueryInterface FAILED [hr=0x%08x]\n"), hr);
        Cleanup();
        return hr;
    }
    TRACE(TRACE_LEVEL_INFO, W("Sink object refcount=%d\n"), m_dwRef);
    TRACE(TRACE_LEVEL_INFO, W("pCP->Advise\n"));
    hr = pCP->Advise(pUnk, &m_dwCookie);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("Advise FAILED [hr=0x%08x]\n"), hr);
        Cleanup();
        return hr;
    }
    TRACE(TRACE_LEVEL_INFO, W("Sink object is connected!\n"));
    TRACE(TRACE_LEVEL_INFO, W("Sink object refcount=%d\n"), m_dwRef);
    m_hContinuePrepareEvent = OpenEventW(EVENT_ALL_ACCESS, FALSE, pszPrepareEventName);
    if (m_hContinuePrepareEvent != nullptr)
        m_hContinueCreateEvent = OpenEventW(EVENT_ALL_ACCESS, FALSE, pszCreateEventName);
    if (m_hContinuePrepareEvent == nullptr || m_hContinueCreateEvent == nullptr) {
        DWORD dwError = GetLastError();
        TRACE(TRACE_LEVEL_ERROR, W("OpenEvent FAILED [dwError=0x%08x]\n"), dwError);
        Cleanup();
        return HRESULT_FROM_WIN32(dwError);
    }
    m_pConnectableObject = pConnectableObject;
    m_pConnectableObject->AddRef();
    return S_OK;
}

HRESULT CSnapshotEventSink::Disconnect()
{
    CTraceScope scope(W("CSnapshotEventSink::Disconnect"));
    if (m_pConnectableObject == nullptr) {
        Cleanup();
        return S_OK;
    }
    HRESULT hr = S_OK;
    CComPtr<IConnectionPointContainer> pCPC;
    CComPtr<IConnectionPoint> pCP;
    hr = m_pConnectableObject->QueryInterface(IID_IConnectionPointContainer,
                                              reinterpret_cast<void**>(&pCPC));
    if (hr == CO_E_OBJNOTCONNECTED) {
        // The service has gone away and took its connections with it.
        hr = S_OK;
    } else if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("m_pConnectableObject->QueryInterface FAILED [hr=0x%08x]\n"),
              hr);
    } else {
        hr = pCPC->FindConnectionPoint(IID__ISnapShotEvents, &pCP);
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("pCPC->FindConnectionPoint FAILED [hr=0x%08x]\n"), hr);
        } else {
            hr = pCP->Unadvise(m_dwCookie);
            if (FAILED(hr))
                TRACE(TRACE_LEVEL_ERROR, W("pCP->Unadvise FAILED [hr=0x%08x]\n"), hr);
            else
                TRACE(TRACE_LEVEL_INFO, W("pCP->Unadvise succeeded\n"));
        }
    }
    pCP.Release();
    pCPC.Release();
    Cleanup();
    return hr;
}

void CSnapshotEventSink::Cancel()
{
    InterlockedExchange(&m_bCancel, 1);
}

void CSnapshotEventSink::Cleanup()
{
    CTraceScope scope(W("CSnapshotEventSink::Cleanup"));
    if (m_pConnectableObject != nullptr) {
        m_pConnectableObject->Release();
        m_pConnectableObject = nullptr;
    }
    CloseEvent(m_hContinuePrepareEvent);
    CloseEvent(m_hContinueCreateEvent);
    m_dwCookie = 0;
}

HRESULT CSnapshotEventSink::Handoff()
{
    if (!SetEvent(m_hContinuePrepareEvent)) {
        DWORD dwError = GetLastError();
        TRACE(TRACE_LEVEL_ERROR, W("SetEvent FAILED [dwError=0x%08x]\n"), dwError);
        return HRESULT_FROM_WIN32(dwError);
    }
    TRACE(TRACE_LEVEL_INFO, W("**** Calling WaitForSingleObject\n"));
    DWORD dwWait = WaitForSingleObject(m_hContinueCreateEvent, CConfig::GetMaxVssWait() * 1000);
    if (dwWait == WAIT_TIMEOUT) {
        TRACE(TRACE_LEVEL_ERROR, W("Timed out. Never received event for m_hContinueCreateEvent"));
        return E_UNEXPECTED;
    }
    if (dwWait != WAIT_OBJECT_0) {
        DWORD dwError = GetLastError();
        TRACE(TRACE_LEVEL_ERROR, W("WaitForSingleObject FAILED [dwError=0x%08x]\n"), dwError);
        return HRESULT_FROM_WIN32(dwError);
    }
    return InterlockedCompareExchange(&m_bCancel, 0, 0) ? E_UNEXPECTED : S_OK;
}

STDMETHODIMP CSnapshotEventSink::OnKVXSnapOpProgress(LPCWSTR pszSnapshotName,
                                                     LPCWSTR pszMachineName, LONG lProgress)
{
    CTraceScope scope(W("CSnapshotEventSink::OnKVXSnapOpProgress"));
    HRESULT hr = S_OK;
    if (lProgress == PROG_HANDOFF)
        hr = Handoff();
    TRACE(TRACE_LEVEL_INFO, W("Snapshot=%s, Machine=%s, Progress=%d[%s]\n"), pszSnapshotName,
          pszMachineName, lProgress, ProgressName(lProgress));
    return hr;
}

STDMETHODIMP CSnapshotEventSink::OnKVXSnapReady(ULONG_PTR, ULONG_PTR, ULONG_PTR)
{
    CTraceScope scope(W("CSnapshotEventSink::OnKVXSnapReady"));
    return Handoff();
}
