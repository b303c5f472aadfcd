// Building a snapshot set, preparing it, committing it and abandoning it.
#include "core/pairarray.h"
#include "core/providercore.h"
#include "core/setname.h"
#include "diag/trace.h"
#include "provider/strings.h"
#include "provider/taskmem.h"
#include "res/orvmsg.h"
#include "store/vdcache.h"

#include <memory>
#include <new>

HRESULT CProviderCore::AddSnapshot(const GUID* pguidSnapshotSetId, const GUID* pguidSnapshotId,
                                   LPCWSTR pszVendorId, LPCWSTR pszProductId,
                                   LPCWSTR pszProductRevision, LPCWSTR pszSerialNo,
                                   LPCWSTR pszDeviceName, LONG eSnapshotAttr)
{
    CTraceScope scope(W("CProviderCore::AddSnapshot"));
    if (!IsCurrentSet(pguidSnapshotSetId))
        return ORVPROV_E_INCONSISTENT_SNAPSHOTSETID;
    if (pszSerialNo == nullptr || *pszSerialNo == 0) {
        TRACE(TRACE_LEVEL_ERROR, W("pszSourceLunSerialNo is empty string\n"));
        return E_INVALIDARG;
    }

    LPWSTR pszLunPath = nullptr;
    LPWSTR pszFiler = nullptr;
    LPWSTR pszDrive = nullptr;
    // The store takes the serial number by reference but does not change it.
    LPWSTR pszSerial = const_cast<LPWSTR>(pszSerialNo);
    HRESULT hr = m_pStore->VerifyLun(&pszSerial, 0, &pszLunPath, &pszFiler, &pszDrive);
    CTaskMemPtr<WCHAR> szLunPath(pszLunPath);
    CTaskMemPtr<WCHAR> szFiler(pszFiler);
    CTaskMemPtr<WCHAR> szDrive(pszDrive);
    if (FAILED(hr) || !szLunPath || !szFiler || !szDrive) {
        TRACE(TRACE_LEVEL_ERROR,
              W("m_pStore->VerifyLun FAILED or LUN is not supported [hr=0x%08x]\n"), hr);
        return ORVPROV_E_LUN_NOT_RECOGNIZED;
    }

    std::unique_ptr<CSnapshotEntry> pEntry(new (std::nothrow) CSnapshotEntry);
    std::unique_ptr<CLCPair> pPair(new (std::nothrow) CLCPair);
    if (!pEntry || !pPair)
        return E_OUTOFMEMORY;
    if (!pPair->Set(pszFiler, pszLunPath, nullptr, pszDeviceName, eSnapshotAttr))
        return E_OUTOFMEMORY;
    pEntry->SetSnapshotId(*pguidSnapshotId);
    pEntry->SetFiler(DuplicateString(pszFiler));
    pEntry->SetSnapshotAttr(eSnapshotAttr);
    if (pEntry->Filer() == nullptr ||
        !pEntry->SetSourceLunInfo(pszVendorId, pszProductId, pszProductRevision, pszSerialNo,
                                  pszLunPath, pszDrive))
        return E_OUTOFMEMORY;

    CSnapshotEntry& entry = *pEntry;
    m_lstSnapshots.AddTail(pEntry.release());
    m_lstLCPairs.AddTail(pPair.release());
    if (TraceIsOn(TRACE_LEVEL_INFO)) {
        TraceW(W("Snapshot is successfully added to set\n"));
        TraceW(W("pszFiler=%s\n"), entry.Filer());
        TraceW(W("pszSourceLunVendorId=%s\n"), entry.SourceLunVendorId());
        TraceW(W("pszSourceLunProductId=%s\n"), entry.SourceLunProductId());
        TraceW(W("pszSourceLunProductRevision=%s\n"), entry.SourceLunProductRevision());
        TraceW(W("pszSourceSerialNo=%s\n"), entry.SourceSerialNo());
        TraceW(W("pszSourcePath=%s\n"), entry.SourcePath());
        TraceW(W("pszSourceDrive=%s\n"), entry.SourceDrive());
        TraceW(W("eSnapshotAttr=%d\n"), entry.SnapshotAttr());
    }
    return S_OK;
}

HRESULT CProviderCore::EndPrepareSnapshots(const GUID* pguidSnapshotSetId)
{
    CTraceScope scope(W("CProviderCore::EndPrepareSnapshots"));
    // The next verification must see the disks as they are after this set, whatever happens.
    SetVDCacheFalse();
    if (!IsCurrentSet(pguidSnapshotSetId))
        return ORVPROV_E_INCONSISTENT_SNAPSHOTSETID;

    CSnapshotSetName setName(m_guidSnapshotSetId);
    LC_PAIR_ARRAY pairs;
    HRESULT hr = BuildPairArray(m_lstLCPairs, FALSE, &pairs);
    if (FAILED(hr))
        return hr;
    CPairArrayHolder holder(pairs);

    for (m_lstSnapshots.MoveFirst(); m_lstSnapshots.HasCurrent(); m_lstSnapshots.MoveNext()) {
        if (IsRecoverySnapshot(m_lstSnapshots.Current()->SnapshotAttr())) {
            EnableRecovery();
            TRACE(TRACE_LEVEL_INFO, W("Enabled recovery in the provider.\n"));
            break;
        }
    }

    hr = m_pStore->PrepareSnapshot(setName.Get(), &m_lstSnapshots, &pairs, 2);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("m_pStore->PrepareSnapshot FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }
    holder.Release();
    return hr;
}

HRESULT CProviderCore::CommitSnapshots(const GUID* pguidSnapshotSetId)
{
    CTraceScope scope(W("CProviderCore::CommitSnapshots"));
    if (!IsCurrentSet(pguidSnapshotSetId))
        return ORVPROV_E_INCONSISTENT_SNAPSHOTSETID;
    TRACE(TRACE_LEVEL_INFO, W("There are %d snapshot(s) in the set to be committed\n"),
          m_lstSnapshots.GetCount());
    HRESULT hr = m_pStore->CreateSnapshot();
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("m_pStore->CreateSnapshot FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }
    return S_OK;
}

HRESULT CProviderCore::AbortSnapshots(const GUID* pguidSnapshotSetId)
{
    CTraceScope scope(W("CProviderCore::AbortSnapshots"));
    // The set being built is cancelled whatever id the caller names.
    UNREFERENCED_PARAMETER(pguidSnapshotSetId);
    if (m_pStore != nullptr) {
        CSnapshotSetName setName(m_guidSnapshotSetId);
        m_pStore->CancelSnapshot(setName.Get(), &m_lstSnapshots);
    }
    ResetSnapshotSet();
    return S_OK;
}
