// Recovery of a transportable set: the LUN state changes VSS reports while it recovers the
// snapshot LUNs, the backup set of the recovered clones and its snapshot.
#include "core/lookups.h"
#include "core/pairarray.h"
#include "core/providercore.h"
#include "core/setname.h"
#include "diag/config.h"
#include "diag/trace.h"
#include "provider/strings.h"
#include "provider/taskmem.h"
#include "res/orvmsg.h"

#include "pal/vss.h"
#include "pal/winbase.h"

#include <memory>
#include <new>

namespace {

constexpr DWORD kBreakFlags = VSS_BREAKEX_FLAG_MASK_LUNS | VSS_BREAKEX_FLAG_MAKE_READ_WRITE |
                              VSS_BREAKEX_FLAG_REVERT_IDENTITY_ALL |
                              VSS_BREAKEX_FLAG_REVERT_IDENTITY_NONE;

} // namespace

HRESULT CProviderCore::OnLunStateChange(VDS_LUN_INFORMATION* pSnapshotLuns,
                                        VDS_LUN_INFORMATION* pSourceLuns, DWORD dwCount,
                                        DWORD dwFlags)
{
    // The first flag that holds decides, in this order.
    if (dwFlags & kBreakFlags)
        return VSS_E_UNSUPPORTED_CONTEXT;
    if (dwFlags & VSS_ONLUNSTATECHANGE_NOTIFY_READ_WRITE)
        return S_OK;
    if (dwFlags & VSS_ONLUNSTATECHANGE_NOTIFY_LUN_PRE_RECOVERY) {
        TRACE(TRACE_LEVEL_INFO, W("Adding disk to Backup Snapshot Set for TxF/Auto-Recovery.\n"));
        if (!m_fRecoveryEnabled || IsEqualGUID(m_guidSnapshotSetId, GUID_NULL)) {
            TRACE(TRACE_LEVEL_INFO,
                  W("DeferredRecovery: Not creating backup snapshot as configured\n"));
            return S_OK;
        }
        HRESULT hr = AddToBackupSnapshotSet(pSnapshotLuns, pSourceLuns, dwCount);
        if (FAILED(hr))
            TRACE(TRACE_LEVEL_ERROR, W("AddToBackupSnapshot FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }
    if (dwFlags & VSS_ONLUNSTATECHANGE_NOTIFY_LUN_POST_RECOVERY)
        return S_OK;
    if (dwFlags & VSS_ONLUNSTATECHANGE_DO_MASK_LUNS) {
        TRACE(TRACE_LEVEL_INFO, W("Unmapping %d luns\n"), dwCount);
        HRESULT hr = MaskTargetLun(pSnapshotLuns, pSourceLuns, dwCount);
        if (FAILED(hr))
            TRACE(TRACE_LEVEL_ERROR, W("m_pStore->UnmapTargetLun FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }
    return VSS_E_UNSUPPORTED_CONTEXT;
}

HRESULT CProviderCore::AddToBackupSnapshotSet(VDS_LUN_INFORMATION* pSnapshotLuns,
                                              VDS_LUN_INFORMATION* pSourceLuns, DWORD dwCount)
{
    CTraceScope scope(W("CProviderCore::AddToBackupSnapshotSet"));
    UNREFERENCED_PARAMETER(pSourceLuns);
    // A volume on a dynamic disk spans several LUNs.
    if (dwCount != 1) {
        TRACE(TRACE_LEVEL_ERROR,
              W("Dynamic Disk is not supported. Exiting AddToBackupSnapshotSet"));
        return ORVPROV_E_MULTILUN_VOLUME_NOT_SUPPORTED;
    }
    const VDS_LUN_INFORMATION& lun = pSnapshotLuns[0];
    CTaskMemPtr<WCHAR> szSerialNo(AnsiToUnicode(lun.m_szSerialNumber));
    CTaskMemPtr<WCHAR> szVendorId(AnsiToUnicode(lun.m_szVendorId));
    CTaskMemPtr<WCHAR> szProductId(AnsiToUnicode(lun.m_szProductId));
    CTaskMemPtr<WCHAR> szProductRevision(AnsiToUnicode(lun.m_szProductRevision));
    if (!szSerialNo || !szVendorId || !szProductId || !szProductRevision)
        return E_OUTOFMEMORY;

    CTargetLunInfo target;
    HRESULT hr = VerifyMappedTargetLun(szVendorId.Get(), szProductId.Get(), szProductRevision.Get(),
                                       szSerialNo.Get(), &target);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR,
              W("m_pStore->VerifyMappedLun FAILED or LUN is not supported [hr=0x%08x]\n"), hr);
        return ORVPROV_E_LUN_NOT_RECOGNIZED;
    }

    // The snapshot LUN is linked to its source entry by the source LUN path the map recorded
    // for it; its own serial number is the target LUN's.
    CSnapshotEntry* pSource = nullptr;
    for (m_lstSnapshots.MoveFirst(); m_lstSnapshots.HasCurrent(); m_lstSnapshots.MoveNext()) {
        CSnapshotEntry* pEntry = m_lstSnapshots.Current();
        if (!IsExactMatch(szVendorId.Get(), pEntry->SourceLunVendorId()) ||
            !IsExactMatch(szProductId.Get(), pEntry->SourceLunProductId()) ||
            !IsExactMatch(szProductRevision.Get(), pEntry->SourceLunProductRevision()) ||
            !IsExactMatch(target.SourceLunPath(), pEntry->SourcePath()))
            continue;
        if (IsRecoverySnapshot(pEntry->SnapshotAttr())) {
            pSource = pEntry;
            break;
        }
        TRACE(TRACE_LEVEL_ERROR,
              W("Snapshot for lun path %s does not support auto-recovery. Not added to backup set"),
              pEntry->SourcePath());
    }
    if (pSource == nullptr)
        return S_OK;

    std::unique_ptr<CSnapshotEntry> pCopy(new (std::nothrow) CSnapshotEntry);
    if (!pCopy || !pCopy->CopyFrom(*pSource))
        return E_OUTOFMEMORY;
    TRACE(TRACE_LEVEL_INFO, W("Adding lun %s for backup snapshot.\n"), target.SourceLunPath());
    CLCPair* pPair = FindLCPairByLunPath(m_lstLCPairs, target.SourceLunPath());
    if (pPair != nullptr) {
        TRACE(TRACE_LEVEL_INFO, W("Updating LCPair for %s with clone %s.\n"),
              target.SourceLunPath(), target.TargetLunPath1());
        // The clone is recorded before the copy joins the backup set, so that a clone that
        // cannot be recorded leaves both as they were.
        if (!pPair->SetClone(target.TargetLunPath1()))
            return E_OUTOFMEMORY;
    }
    m_lstBackupSnapshots.AddTail(pCopy.release());
    return S_OK;
}

HRESULT CProviderCore::PrepareBackupSnapshot(const GUID* pguidSnapshotSetId)
{
    CTraceScope scope(W("CProviderCore::PrepareBackupSnapshot"));
    if (!IsCurrentSet(pguidSnapshotSetId))
        return ORVPROV_E_INCONSISTENT_SNAPSHOTSETID;
    CSnapshotSetName setName(m_guidSnapshotSetId);
    setName.AppendBackupSuffix();

    LC_PAIR_ARRAY pairs;
    HRESULT hr = BuildPairArray(m_lstLCPairs, TRUE, &pairs);
    if (FAILED(hr))
        return hr;
    CPairArrayHolder holder(pairs);
    hr = m_pStore->PrepareSnapshot(setName.Get(), &m_lstBackupSnapshots, &pairs, 4);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("m_pStore->PrepareSnapshot FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }
    holder.Release();
    return hr;
}

HRESULT CProviderCore::PostFinalCommitSnapshots(const GUID* pguidSnapshotSetId)
{
    CTraceScope scope(W("CProviderCore::PostFinalCommitSnapshots"));
    HRESULT hr = S_OK;
    if (m_fRecoveryEnabled && !IsEqualGUID(m_guidSnapshotSetId, GUID_NULL)) {
        if (TraceIsOn(TRACE_LEVEL_INFO)) {
            TraceW(W("Committing Auto-Recovery creating Backup Snapshot\n"));
            TraceW(W("There are %d snapshot(s) in the set to be committed\n"),
                   m_lstSnapshots.GetCount());
        }
        hr = PrepareBackupSnapshot(pguidSnapshotSetId);
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("PrepareBackupSnapshot FAILED [hr=0x%08x]\n"), hr);
            return hr;
        }
        hr = m_pStore->CreateSnapshot();
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("m_pStore->CreateSnapshot FAILED [hr=0x%08x]\n"), hr);
            return hr;
        }
    }
    if (m_pStore != nullptr && CConfig::IsDatasetsEnabled()) {
        // Tagged under the id VSS names, which the front clears from the core only afterwards.
        CSnapshotSetName setName(*pguidSnapshotSetId);
        m_pStore->SetDatasetAttrib(setName.Get(), &m_lstSnapshots);
    }
    return hr;
}
