// The COM object that receives the storage service's creation events and holds the service's
// callback at its cut point until the commit (or an abort) releases it.
#pragma once

#include "store/tessera.h"

#include "pal/atlcom.h"

class CSnapshotEventSink : public CComObjectRootEx<CComMultiThreadModel>, public _ISnapShotEvents
{
public:
    BEGIN_COM_MAP(CSnapshotEventSink)
    COM_INTERFACE_ENTRY(_ISnapShotEvents)
    END_COM_MAP()

    CSnapshotEventSink() = default;
    ~CSnapshotEventSink();
    CSnapshotEventSink(const CSnapshotEventSink&) = delete;
    CSnapshotEventSink& operator=(const CSnapshotEventSink&) = delete;

    // Advises the sink on the service object and opens the helper's two events by name.
    HRESULT Connect(IUnknown* pConnectableObject, LPCWSTR pszPrepareEventName,
                    LPCWSTR pszCreateEventName);
    HRESULT Disconnect();
    // Makes a callback that is woken from now on answer E_UNEXPECTED.
    void Cancel();
    void Cleanup();

    STDMETHODIMP OnKVXSnapOpProgress(LPCWSTR pszSnapshotName, LPCWSTR pszMachineName,
                                     LONG lProgress) override;
    STDMETHODIMP OnKVXSnapReady(ULONG_PTR ulArg1, ULONG_PTR ulArg2, ULONG_PTR ulArg3) override;

private:
    HRESULT Handoff();

    // Written by the caller thread before it sets the create event, read by the callback after
    // its wait: the event orders the two.
    LONG volatile m_bCancel = 0;
    DWORD m_dwCookie = 0;
    IUnknown* m_pConnectableObject = nullptr;
    HANDLE m_hContinuePrepareEvent = nullptr;
    HANDLE m_hContinueCreateEvent = nullptr;
};
