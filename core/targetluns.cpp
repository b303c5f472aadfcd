// The target LUNs of a set: learning them from the store, mapping and recording them,
// recognising them when the host shows them, and unmapping them.
#include "core/lookups.h"
#include "core/providercore.h"
#include "core/setname.h"
#include "diag/trace.h"
#include "provider/interconnect.h"
#include "provider/lunpath.h"
#include "provider/strings.h"
#include "provider/taskmem.h"
#include "provider/vendor.h"
#include "res/orvmsg.h"

#include <memory>
#include <new>

namespace {

// One literal, so that the line can be found in the sources as it reads in the trace.
constexpr WCHAR kRefreshFailed[] =
    W("Refresh TargetLunMap cache failed. Exiting FillInLunInfo becuase buffer is empty\n");

// Fills every field of a new map record with copies of the arguments; false when a copy fails
// (the record frees what it was given).
bool FillMappedRecord(CTargetLunInfo& info, LPCWSTR pszVendorId, LPCWSTR pszProductId,
                      LPCWSTR pszProductRevision, LPCWSTR pszSerialNo, LPCWSTR pszLunPath1,
                      LPCWSTR pszLunPath2, LPCWSTR pszFiler, LPCWSTR pszSourceLunPath,
                      LPCWSTR pszDeviceId, LPCWSTR pszSnapshotName)
{
    info.SetVendorId(DuplicateString(pszVendorId));
    info.SetProductId(DuplicateString(pszProductId));
    info.SetProductRevision(DuplicateString(pszProductRevision));
    info.SetSerialNo(DuplicateString(pszSerialNo));
    info.SetTargetLunPath1(DuplicateString(pszLunPath1));
    info.SetTargetLunPath2(DuplicateString(pszLunPath2));
    info.SetFilerNameAndSourceLunPath(DuplicateString(pszFiler), DuplicateString(pszSourceLunPath));
    info.SetDeviceId(DuplicateString(pszDeviceId));
    info.SetSnapshotName(DuplicateString(pszSnapshotName));
    return info.VendorId() && info.ProductId() && info.ProductRevision() && info.SerialNo() &&
           info.TargetLunPath1() && info.TargetLunPath2() && info.FilerName() &&
           info.SourceLunPath() && info.DeviceId() && info.SnapshotName();
}

// The identity and paths of one snapshot LUN record, converted from ANSI.
struct CMaskedLun
{
    CTaskMemPtr<WCHAR> szVendorId;
    CTaskMemPtr<WCHAR> szProductId;
    CTaskMemPtr<WCHAR> szProductRevision;
    CTaskMemPtr<WCHAR> szSerialNo;
    CTaskMemPtr<WCHAR> szPath1;
    CTaskMemPtr<WCHAR> szPath2;
};

// Writes "Returned hr=..." with the operation's result however it ends.
class CReturnedTrace
{
public:
    explicit CReturnedTrace(const HRESULT& hr) : m_hr(hr) {}
    ~CReturnedTrace() { TRACE(TRACE_LEVEL_INFO, W("Returned hr=0x%08x\n"), m_hr); }
    CReturnedTrace(const CReturnedTrace&) = delete;
    CReturnedTrace& operator=(const CReturnedTrace&) = delete;

private:
    const HRESULT& m_hr;
};

} // namespace

HRESULT CProviderCore::BuildTargetLunsInfo()
{
    CTraceScope scope(W("CProviderCore::BuildTargetLunsInfo"));
    CSnapshotSetName setName(m_guidSnapshotSetId);
    HRESULT hr = S_OK;
    for (m_lstSnapshots.MoveFirst(); m_lstSnapshots.HasCurrent(); m_lstSnapshots.MoveNext()) {
        CSnapshotEntry& entry = *m_lstSnapshots.Current();
        std::unique_ptr<CTargetLunInfo> pTarget(new (std::nothrow) CTargetLunInfo);
        if (!pTarget)
            return E_OUTOFMEMORY;
        hr = m_pStore->GetTargetLunInfo(entry.Filer(), entry.SourcePath(), setName.Get(),
                                        entry.SnapshotAttr(), pTarget.get());
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("m_pStore->GetTargetLunPath FAILED [hr=0x%08x]\n"), hr);
            // Every later step of this set refuses to go on until a new set starts.
            m_guidSnapshotSetId = GUID_NULL;
            return hr;
        }
        entry.TakeTargetLunInfo(*pTarget);
    }
    return hr;
}

HRESULT CProviderCore::MapTargetLun(LPCWSTR pszVendorId, LPCWSTR pszProductId,
                                    LPCWSTR pszProductRevision, LPCWSTR pszSerialNo,
                                    LPCWSTR pszLunPath1, LPCWSTR pszLunPath2, LPCWSTR pszDeviceId)
{
    CTraceScope scope(W("CProviderCore::MapTargetLun"));
    TRACE(TRACE_LEVEL_INFO, W("pszLunPath1=%s\n"), pszLunPath1);
    TRACE(TRACE_LEVEL_INFO, W("pszLunPath2=%s\n"), pszLunPath2);

    LPWSTR pszFiler = nullptr;
    LPWSTR pszSourceLunPath = nullptr;
    LPWSTR pszSnapshotName = nullptr;
    HRESULT hr = CrackLunPath2(pszLunPath2, &pszFiler, &pszSourceLunPath, &pszSnapshotName);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("CrackLunPath2 FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }
    CTaskMemPtr<WCHAR> szFiler(pszFiler);
    CTaskMemPtr<WCHAR> szSourceLunPath(pszSourceLunPath);
    CTaskMemPtr<WCHAR> szSnapshotName(pszSnapshotName);
    if (TraceIsOn(TRACE_LEVEL_INFO)) {
        TraceW(W("pszFiler=%s\n"), pszFiler);
        TraceW(W("pszSourceLunPath=%s\n"), pszSourceLunPath);
        TraceW(W("pszSnapshotName=%s\n"), pszSnapshotName);
    }

    std::unique_ptr<CTargetLunInfo> pInfo(new (std::nothrow) CTargetLunInfo);
    // A copy that fails is answered before the store maps anything.
    if (!pInfo || !FillMappedRecord(*pInfo, pszVendorId, pszProductId, pszProductRevision,
                                    pszSerialNo, pszLunPath1, pszLunPath2, pszFiler,
                                    pszSourceLunPath, pszDeviceId, pszSnapshotName))
        return E_OUTOFMEMORY;
    if (TraceIsOn(TRACE_LEVEL_INFO)) {
        TraceW(W("pszTargetLunVendorId=%s\n"), pInfo->VendorId());
        TraceW(W("pszTargetLunProductId=%s\n"), pInfo->ProductId());
        TraceW(W("pszTargetLunProductRevision=%s\n"), pInfo->ProductRevision());
        TraceW(W("pszTargetLunSerialNo=%s\n"), pInfo->SerialNo());
        TraceW(W("pszTargetLunPath=%s\n"), pInfo->TargetLunPath1());
        TraceW(W("pszTargetLunPath2=%s\n"), pInfo->TargetLunPath2());
    }

    hr = m_pStore->MapTargetLun(pszSnapshotName, pInfo.get());
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("m_pStore->MapTargetLun FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }
    CTargetLunInfo& info = *pInfo;
    // The LUN is mapped from here on, so its record stays in the map even when it cannot be
    // persisted: this process still recognises it.
    m_lstTargetLunMap.AddTail(pInfo.release());
    hr = m_pStore->SaveMappedLunDetails(pszFiler, pszSourceLunPath, pszSnapshotName,
                                        info.SerialNo(), info.TargetLunPath1(),
                                        info.TargetLunPath2(), info.DeviceId());
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("m_pStore->SaveMappedLunDetails FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }
    return S_OK;
}

HRESULT CProviderCore::VerifyMappedTargetLun(LPCWSTR pszVendorId, LPCWSTR pszProductId,
                                             LPCWSTR pszProductRevision, LPCWSTR pszSerialNo,
                                             CTargetLunInfo* pInfo)
{
    CTraceScope scope(W("CProviderCore::VerifyMappedTargetLun"));
    UNREFERENCED_PARAMETER(pszVendorId);
    HRESULT hr = m_pStore->UpdateMappedTargetLuns(&m_lstTargetLunMap);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_INFO, kRefreshFailed);
        return hr;
    }
    CTargetLunInfo* pFound =
        FindTargetLunByIdentity(m_lstTargetLunMap, pszProductId, pszProductRevision, pszSerialNo);
    if (pFound == nullptr)
        return ORVPROV_E_LUN_NOT_RECOGNIZED;
    TRACE(TRACE_LEVEL_INFO, W("**** Found a match!\n"));
    TRACE(TRACE_LEVEL_INFO, W("LunPath=%s\n"), pFound->TargetLunPath1());
    if (!pInfo->CopyFrom(*pFound)) {
        TRACE(TRACE_LEVEL_ERROR, W("pInfo->CopyFrom FAILED\n"));
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

void CProviderCore::RemoveMappedTargetLun(LPCWSTR pszSerialNo)
{
    if (FindTargetLunBySerialNo(m_lstTargetLunMap, pszSerialNo) != nullptr)
        delete m_lstTargetLunMap.RemoveCurrent();
}

HRESULT CProviderCore::DeleteTargetLun(LPCWSTR pszLunPath1, LPCWSTR pszLunPath2,
                                       LPCWSTR pszSerialNo)
{
    CTraceScope scope(W("CProviderCore::DeleteTargetLun"));
    TRACE(TRACE_LEVEL_INFO, W("pszLunPath=%s\n"), pszLunPath1);
    TRACE(TRACE_LEVEL_INFO, W("pszLunPath2=%s\n"), pszLunPath2);
    HRESULT hr = m_pStore->DeleteTargetLun(pszLunPath1, pszLunPath2);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("m_pStore->DeleteTargetLun FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }
    hr = m_pStore->DeleteMappedLunDetails(pszSerialNo);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("m_pStore->DeleteMappedLunDetails FAILED [hr=0x%08x]\n"), hr);
        return hr;
    }
    RemoveMappedTargetLun(pszSerialNo);
    return S_OK;
}

HRESULT CProviderCore::MaskTargetLun(VDS_LUN_INFORMATION* pSnapshotLuns,
                                     VDS_LUN_INFORMATION* pSourceLuns, DWORD dwCount)
{
    CTraceScope scope(W("CProviderCore::MaskTargetLun"));
    UNREFERENCED_PARAMETER(pSourceLuns);
    HRESULT hr = S_OK;
    CReturnedTrace returned(hr);
    TRACE(TRACE_LEVEL_INFO, W("No. of luns: dwCount=%d\n"), dwCount);
    for (DWORD i = 0; i < dwCount; ++i) {
        TRACE(TRACE_LEVEL_INFO, W("LunIndex=%d\n"), i);
        const VDS_LUN_INFORMATION& record = pSnapshotLuns[i];
        if (!IsCompleteLun(record)) {
            TRACE(TRACE_LEVEL_ERROR, W("This LUN does not have complete information!\n"));
            TRACE(TRACE_LEVEL_ERROR, W("Skipping to the next LUN!\n"));
            continue;
        }
        CMaskedLun lun;
        lun.szVendorId.Reset(AnsiToUnicode(record.m_szVendorId));
        if (!lun.szVendorId)
            return hr = E_OUTOFMEMORY;
        if (!HasOrvaneVendorPrefix(lun.szVendorId.Get()))
            continue;
        lun.szProductId.Reset(AnsiToUnicode(record.m_szProductId));
        lun.szProductRevision.Reset(AnsiToUnicode(record.m_szProductRevision));
        lun.szSerialNo.Reset(AnsiToUnicode(record.m_szSerialNumber));
        lun.szPath1.Reset(AnsiToUnicode(LunPath1(record)));
        lun.szPath2.Reset(AnsiToUnicode(LunPath2(record)));
        if (!lun.szProductId || !lun.szProductRevision || !lun.szSerialNo || !lun.szPath1 ||
            !lun.szPath2)
            return hr = E_OUTOFMEMORY;
        if (TraceIsOn(TRACE_LEVEL_INFO)) {
            TraceW(W("Deleting (masking) target lun with the following info:\n"));
            TraceW(W("VendorId=%s\n"), lun.szVendorId.Get());
            TraceW(W("ProductId=%s\n"), lun.szProductId.Get());
            TraceW(W("ProductRevision=%s\n"), lun.szProductRevision.Get());
            TraceW(W("SerialNumber=%s\n"), lun.szSerialNo.Get());
            TraceW(W("PathPath1=%s\n"), lun.szPath1.Get());
            TraceW(W("PathPath2=%s\n"), lun.szPath2.Get());
        }
        hr = m_pStore->UnmapTargetLun(lun.szPath1.Get(), lun.szPath2.Get());
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("m_pStore->MaskTargetLun FAILED [hr=0x%08x]\n"), hr);
            return hr;
        }
        hr = m_pStore->DeleteMappedLunDetails(lun.szSerialNo.Get());
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("m_pStore->DeleteMappedLunDetails FAILED [hr=0x%08x]\n"),
                  hr);
            return hr;
        }
        RemoveMappedTargetLun(lun.szSerialNo.Get());
        TRACE(TRACE_LEVEL_INFO, W("Unmaping luns succeeded\n"));
    }
    return hr = S_OK;
}
