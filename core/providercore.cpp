// The core's life, the LUN checks VSS makes before a set is built, and the set id.
#include "core/providercore.h"

#include "core/lookups.h"
#include "diag/config.h"
#include "diag/trace.h"
#include "provider/strings.h"
#include "provider/taskmem.h"
#include "res/orvmsg.h"
#include "store/tesserastore.h"

#include "pal/winbase.h"

#include <cstring>
#include <new>

namespace {

// The three answers of a LUN verification, freed on every exit path.
struct CVerifiedLun
{
    CTaskMemPtr<WCHAR> szLunPath;
    CTaskMemPtr<WCHAR> szFiler;
    CTaskMemPtr<WCHAR> szDrive;

    BOOL IsComplete() const { return szLunPath && szFiler && szDrive; }
};

HRESULT VerifyLun(IStoreSubsystem* pStore, LPWSTR* ppszSerialNo, CVerifiedLun& lun)
{
    LPWSTR pszLunPath = nullptr;
    LPWSTR pszFiler = nullptr;
    LPWSTR pszDrive = nullptr;
    HRESULT hr = pStore->VerifyLun(ppszSerialNo, 0, &pszLunPath, &pszFiler, &pszDrive);
    lun.szLunPath.Reset(pszLunPath);
    lun.szFiler.Reset(pszFiler);
    lun.szDrive.Reset(pszDrive);
    return hr;
}

} // namespace

CProviderCore::CProviderCore()
    : m_guidSnapshotSetId(GUID_NULL), m_fRecoveryEnabled(0), m_pStore(nullptr)
{
    CTraceScope scope(W("CProviderCore::CProviderCore"));
}

CProviderCore::~CProviderCore()
{
    CTraceScope scope(W("CProviderCore::~CProviderCore"));
    delete m_pStore;
    m_pStore = nullptr;
    m_lstLCPairs.Clear();
    m_lstTargetLunMap.Clear();
    m_lstBackupSnapshots.Clear();
    m_lstSnapshots.Clear();
}

HRESULT CProviderCore::Initialize()
{
    CTraceScope scope(W("CProviderCore::Initialize"));
    if (CConfig::GetStoreSubsystemType() == SS_TESSERA)
        TRACE(TRACE_LEVEL_INFO, W("Using SS_TESSERA\n"));
    else
        TRACE(TRACE_LEVEL_ERROR, W("Invalid StoreSubsystemType value, defaulting to SS_TESSERA\n"));

    m_pStore = new (std::nothrow) CTesseraStoreSubSystem;
    if (m_pStore == nullptr)
        return E_OUTOFMEMORY;
    HRESULT hr = m_pStore->Initialize();
    return FAILED(hr) ? hr : S_OK;
}

BOOL CProviderCore::IsCurrentSet(const GUID* pguidSnapshotSetId) const
{
    if (std::memcmp(pguidSnapshotSetId, &m_guidSnapshotSetId, sizeof(GUID)) == 0)
        return TRUE;
    TRACE(TRACE_LEVEL_ERROR, W("guidSnapshotSetId does not match m_guidSnapshotSetId\n"));
    return FALSE;
}

HRESULT CProviderCore::IsSourceLunSupported(LPCWSTR pszVendorId, LPCWSTR pszProductId,
                                            LPCWSTR pszProductRevision, LPCWSTR pszSerialNo,
                                            LONG* pfSupported, BOOLEAN* pfUnlockedCloneSupported)
{
    CTraceScope scope(W("CProviderCore::IsSourceLunSupported"));
    UNREFERENCED_PARAMETER(pszVendorId);
    UNREFERENCED_PARAMETER(pszProductId);
    UNREFERENCED_PARAMETER(pszProductRevision);

    CVerifiedLun lun;
    CTaskMemPtr<WCHAR> szSerialNo(DuplicateString(pszSerialNo));
    // Without a copy of the serial number the LUN is answered as not found.
    if (szSerialNo) {
        TRACE(TRACE_LEVEL_INFO, W("pszSourceSerialNumber=%s, len=%d\n"), szSerialNo.Get(),
              lstrlenW(szSerialNo.Get()));
        LPWSTR pszSerial = szSerialNo.Get();
        HRESULT hr = VerifyLun(m_pStore, &pszSerial, lun);
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("m_pStore->VerifyLun FAILED [hr=0x%08x]\n"), hr);
            return hr;
        }
    }
    if (lun.IsComplete()) {
        TRACE(TRACE_LEVEL_INFO, W("Getting Unlocked Clone support.\n"));
        HRESULT hr =
            m_pStore->IsUnlockedCloneSupported(lun.szFiler.Get(), pfUnlockedCloneSupported);
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("m_pStore->IsUnlockedCloneSupported FAILED [hr=0x%08x]\n"),
                  hr);
            return hr;
        }
        *pfSupported = 1;
    } else {
        *pfSupported = 0;
    }
    TRACE(TRACE_LEVEL_INFO, W("*pfSupported=%d and bIsUnlockedCloneSupported=%d\n"), *pfSupported,
          *pfUnlockedCloneSupported);
    return S_OK;
}

HRESULT CProviderCore::IsUnlockedCloneSupported(LPCWSTR pszSerialNo,
                                                BOOLEAN* pfUnlockedCloneSupported)
{
    CTraceScope scope(W("CProviderCore::IsUnlockedCloneSupported"));
    *pfUnlockedCloneSupported = FALSE;
    HRESULT hr = S_OK;
    CVerifiedLun lun;
    if (pszSerialNo != nullptr) {
        // The store takes the serial number by reference but does not change it.
        LPWSTR pszSerial = const_cast<LPWSTR>(pszSerialNo);
        hr = VerifyLun(m_pStore, &pszSerial, lun);
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("m_pStore->VerifyLun FAILED [hr=0x%08x]\n"), hr);
            return hr;
        }
    }
    if (lun.IsComplete()) {
        TRACE(TRACE_LEVEL_INFO, W("Getting Unlocked Clone support.\n"));
        hr = m_pStore->IsUnlockedCloneSupported(lun.szFiler.Get(), pfUnlockedCloneSupported);
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("m_pStore->IsUnlockedCloneSupported FAILED [hr=0x%08x]\n"),
                  hr);
            return hr;
        }
    }
    TRACE(TRACE_LEVEL_INFO, W("Verified bIsUnlockedCloneSupported=%d\n"),
          *pfUnlockedCloneSupported);
    return hr;
}

HRESULT CProviderCore::SetSnapshotSetId(const GUID* pguidSnapshotSetId)
{
    if (std::memcmp(pguidSnapshotSetId, &m_guidSnapshotSetId, sizeof(GUID)) == 0)
        return S_OK;
    ResetSnapshotSet();
    DisableRecovery();
    m_guidSnapshotSetId = *pguidSnapshotSetId;
    return S_OK;
}

void CProviderCore::ResetSnapshotSet()
{
    m_guidSnapshotSetId = GUID_NULL;
    m_lstSnapshots.Clear();
    m_lstBackupSnapshots.Clear();
    m_lstTargetLunMap.Clear();
    m_lstLCPairs.Clear();
}

HRESULT CProviderCore::FindSnapshotBySourceLun(LPCWSTR pszVendorId, LPCWSTR pszProductId,
                                               LPCWSTR pszProductRevision, LPCWSTR pszSerialNo,
                                               CSnapshotEntry* pEntry)
{
    CSnapshotEntry* pFound = FindSnapshotEntryBySourceLun(m_lstSnapshots, pszVendorId, pszProductId,
                                                          pszProductRevision, pszSerialNo);
    if (pFound == nullptr)
        return ORVPROV_E_LUN_NOT_RECOGNIZED;
    return pEntry->CopyFrom(*pFound) ? S_OK : E_OUTOFMEMORY;
}
