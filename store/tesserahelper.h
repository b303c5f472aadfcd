// One snapshot creation split across the two VSS calls around the cut: PrepareSnapshot starts
// the service's creation and returns once the service waits at its cut point; CreateSnapshot
// lets it cut and collects the result. In synchronous mode the whole creation happens in
// CreateSnapshot.
#pragma once

#include "store/eventsink.h"
#include "store/tessera.h"

#include "pal/atlcom.h"

// The host drives of a snapshot set, as the adapter hands them to the helper.
struct DRIVE_NAMES
{
    ULONG Count;
    LPWSTR* Names;
};

class CTesseraHelper
{
public:
    explicit CTesseraHelper(DWORD dwAsync);
    ~CTesseraHelper();
    CTesseraHelper(const CTesseraHelper&) = delete;
    CTesseraHelper& operator=(const CTesseraHelper&) = delete;

    // On success the helper owns the pair array and its strings; on failure they stay the
    // caller's.
    HRESULT PrepareSnapshot(const DRIVE_NAMES* pDriveNames, LPCWSTR pszSnapshotName,
                            LC_PAIR_ARRAY* pLcPairs, DWORD dwCreationKind);
    HRESULT CreateSnapshot();
    HRESULT CancelSnapshot();
    void Cleanup();
    HRESULT Initialize();

private:
    DWORD m_dwAsync;
    ISnapShot* m_pSnapShot;
    AsyncIVSSSupport* m_pAsyncVssSupport;
    IVSSSupport* m_pVssSupport;
    CComObject<CSnapshotEventSink>* m_pSinkObject;
    DRIVE_LIST* m_pDriveList;
    LC_PAIR_ARRAY* m_pLcPairs;
    HANDLE m_hContinuePrepareEvent;
    HANDLE m_hContinueCreateEvent;
    LPWSTR m_pszSnapshotName;
    LPWSTR m_pszBackupSnapshotName;
};
