// The hardware LUN operations: which LUNs the provider can snapshot, adding a LUN to the set
// with its recovery attribute, the target LUNs of the set, mapping, recognising and emptying
// them, and the LUN state changes of a recovery.
#include "core/setname.h"
#include "diag/config.h"
#include "diag/trace.h"
#include "provider/callguard.h"
#include "provider/hwprovider.h"
#include "provider/luninfo.h"
#include "provider/taskmem.h"
#include "res/orvmsg.h"
#include "store/vdcache.h"

#include "pal/combaseapi.h"
#include "pal/interlockedapi.h"

#include <memory>
#include <new>

namespace {

// The four identity strings of a record, converted to UTF-16, freed with the LUN.
struct CLunIdentity
{
    CTaskMemPtr<WCHAR> szVendorId;
    CTaskMemPtr<WCHAR> szProductId;
    CTaskMemPtr<WCHAR> szProductRevision;
    CTaskMemPtr<WCHAR> szSerialNo;

    // The vendor id and product id only; FALSE when the vendor id did not convert.
    BOOL ConvertVendor(const VDS_LUN_INFORMATION& lun)
    {
        szVendorId.Reset(AnsiToUnicode(lun.m_szVendorId));
        szProductId.Reset(AnsiToUnicode(lun.m_szProductId));
        return szVendorId.Get() != nullptr;
    }
    // The other two; FALSE when any of the four is missing.
    BOOL ConvertRest(const VDS_LUN_INFORMATION& lun)
    {
        szProductRevision.Reset(AnsiToUnicode(lun.m_szProductRevision));
        szSerialNo.Reset(AnsiToUnicode(lun.m_szSerialNumber));
        return szVendorId && szProductId && szProductRevision && szSerialNo;
    }
    BOOL Convert(const VDS_LUN_INFORMATION& lun)
    {
        BOOL fVendor = ConvertVendor(lun);
        return ConvertRest(lun) && fVendor;
    }
};

// Replaces an ANSI identity string of a record with the conversion of pszValue.
bool ReplaceAnsi(char*& pszField, LPCWSTR pszValue)
{
    LPSTR pszNew = UnicodeToAnsi(pszValue);
    if (pszNew == nullptr)
        return false;
    CoTaskMemFree(pszField);
    pszField = pszNew;
    return true;
}

void ReportContextNotSupported()
{
    if (COrvaneHardwareProvider::m_pEvent != nullptr)
        COrvaneHardwareProvider::m_pEvent->Log(ORVPROV_EVENT_CONTEXT_NOT_SUPPORTED,
                                               static_cast<DWORD>(VSS_E_UNSUPPORTED_CONTEXT));
}

} // namespace

STDMETHODIMP COrvaneHardwareProvider::AreLunsSupported(LONG lLunCount, LONG lContext,
                                                       VSS_PWSZ* rgwszDevices,
                                                       VDS_LUN_INFORMATION* pLunInformation,
                                                       BOOL* pbIsSupported)
{
    CTraceScope scope(W("COrvaneHardwareProvider::AreLunsSupported"));
    CCallGuard guard(CallGuardOp::AreLunsSupported, m_pEvent);
    if (m_pProvider == nullptr)
        return guard.SetResult(ORVPROV_E_UNEXPECTED_ERROR);
    TRACE(TRACE_LEVEL_INFO, W("lLunCount=%d\n"), lLunCount);
    TRACE(TRACE_LEVEL_INFO, W("lContext=0x%08x\n"), lContext);
    if (lLunCount != 1) {
        TRACE(TRACE_LEVEL_ERROR, W("Multi-lun volume is not supported\n"));
        return guard.SetResult(ORVPROV_E_MULTILUN_VOLUME_NOT_SUPPORTED);
    }
    if (!IsAutoRecoverySupported() && (lContext & VSS_VOLSNAP_ATTR_AUTORECOVER)) {
        TRACE(TRACE_LEVEL_ERROR, W("Auto-recovery is not supported\n"));
        *pbIsSupported = FALSE;
        ReportContextNotSupported();
        return guard.SetResult(VSS_E_UNSUPPORTED_CONTEXT);
    }
    *pbIsSupported = TRUE;
    BOOLEAN fUnlockedClone = 0;
    for (LONG i = 0; i < lLunCount; ++i) {
        VDS_LUN_INFORMATION& lun = pLunInformation[i];
        TRACE(TRACE_LEVEL_INFO, W("Device=%s\n"), rgwszDevices[i]);
        DumpLunInformation(lun);
        CLunIdentity id;
        if (!id.Convert(lun)) {
            TRACE(TRACE_LEVEL_ERROR, W("AnsiToUnicode FAILED\n"));
            return guard.SetResult(E_OUTOFMEMORY);
        }
        LONG fSupported = 0;
        HRESULT hr = m_pProvider->IsSourceLunSupported(
            id.szVendorId.Get(), id.szProductId.Get(), id.szProductRevision.Get(),
            id.szSerialNo.Get(), &fSupported, &fUnlockedClone);
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("m_pProvider->IsSourceLunSupported FAILED [hr=0x%08x]\n"),
                  hr);
            return guard.SetResult(hr);
        }
        if (!fSupported) {
            TRACE(TRACE_LEVEL_INFO, W("LunIndex=%d is not supported\n"), i);
            *pbIsSupported = FALSE;
            SetVDCacheFalse();
            break;
        }
        TRACE(TRACE_LEVEL_INFO, W("LunIndex=%d is a supported Lun\n"), i);
        if ((lContext & VSS_VOLSNAP_ATTR_AUTORECOVER) && !fUnlockedClone) {
            TRACE(TRACE_LEVEL_ERROR,
                  W("Auto-recovery is not supported for this lun by the Verdane Version\n"));
            *pbIsSupported = FALSE;
            ReportContextNotSupported();
            return guard.SetResult(VSS_E_UNSUPPORTED_CONTEXT);
        }
        if (lun.m_BusType == VDSBusTypeiScsi)
            lun.m_BusType = VDSBusTypeScsi;
    }
    TRACE(TRACE_LEVEL_INFO, W("fIsSupported=%d\n"), *pbIsSupported);
    return guard.SetResult(S_OK);
}

STDMETHODIMP COrvaneHardwareProvider::BeginPrepareSnapshot(VSS_ID SnapshotSetId, VSS_ID SnapshotId,
                                                           LONG lContext, LONG lLunCount,
                                                           VSS_PWSZ* rgDeviceNames,
                                                           VDS_LUN_INFORMATION* rgLunInformation)
{
    CTraceScope scope(W("COrvaneHardwareProvider::BeginPrepareSnapshot"));
    CCallGuard guard(CallGuardOp::BeginPrepareSnapshot, m_pEvent);
    if (m_pProvider == nullptr)
        return guard.SetResult(ORVPROV_E_UNEXPECTED_ERROR);
    if (TraceIsOn(TRACE_LEVEL_INFO)) {
        TraceW(W("SnapshotSetId={%.8x-%.4x-%.4x-%.2x%.2x-%.2x%.2x%.2x%.2x%.2x%.2x}\n"),
               GUID_FORMAT_ARGS(SnapshotSetId));
        TraceW(W("SnapshotId={%.8x-%.4x-%.4x-%.2x%.2x-%.2x%.2x%.2x%.2x%.2x%.2x}\n"),
               GUID_FORMAT_ARGS(SnapshotId));
        TraceW(W("lLunCount=%ld\n"), lLunCount);
        TraceW(W("lContext=%ld\n"), lContext);
    }
    BOOLEAN fUnlockedClone = 0;
    if (lLunCount != 1) {
        TRACE(TRACE_LEVEL_ERROR, W("Multi-lun volume is not supported\n"));
        return guard.SetResult(ORVPROV_E_MULTILUN_VOLUME_NOT_SUPPORTED);
    }
    const bool fTransportable = (lContext & VSS_VOLSNAP_ATTR_TRANSPORTABLE) != 0;
    const bool fAutoRecover = (lContext & VSS_VOLSNAP_ATTR_AUTORECOVER) != 0;
    const bool fTxfRecovery = (lContext & VSS_VOLSNAP_ATTR_TXF_RECOVERY) != 0;
    LONG eSnapshotAttr = SNAPSHOT_ATTR_NONE;
    const bool fAutoRecoverySupported = fAutoRecover && IsAutoRecoverySupported();
    if (fAutoRecoverySupported && fTransportable) {
        TRACE(
            TRACE_LEVEL_ERROR,
            W("Current context is for Transportable and auto-recovery. Provider will perform auto-recovery\n"));
        eSnapshotAttr = SNAPSHOT_ATTR_AUTO_RECOVERY;
    } else if (fAutoRecoverySupported) {
        TRACE(
            TRACE_LEVEL_ERROR,
            W("Current context is for auto-recovery but not transportable. Provider will not perform auto-recovery\n"));
    } else if (fTxfRecovery && fTransportable) {
        TRACE(
            TRACE_LEVEL_ERROR,
            W("Current context is for Transportable and Txf recovery. Provider will perform txf recovery\n"));
        if (CConfig::IsTxfRecoveryEnabled())
            eSnapshotAttr = SNAPSHOT_ATTR_TXF_RECOVERY;
        else
            TRACE(
                TRACE_LEVEL_ERROR,
                W("Current context is for Transportable and Txf recovery. But, TxF recovery is not enabled in the registry\n"));
    } else if (fAutoRecover) {
        TRACE(TRACE_LEVEL_ERROR, W("Auto-recovery is not supported\n"));
        ReportContextNotSupported();
        return guard.SetResult(VSS_E_UNSUPPORTED_CONTEXT);
    }

    m_pProvider->SetSnapshotSetId(&SnapshotSetId);
    for (LONG i = 0; i < lLunCount; ++i) {
        VDS_LUN_INFORMATION& lun = rgLunInformation[i];
        TRACE(TRACE_LEVEL_INFO, W("Device=%s\n"), rgDeviceNames[i]);
        DumpLunInformation(lun);
        CLunIdentity id;
        BOOL fConverted = id.Convert(lun);
        LPWSTR pszDevice = guard.Own(DuplicateString(rgDeviceNames[i]));
        if (!fConverted || pszDevice == nullptr)
            return guard.SetResult(E_OUTOFMEMORY);
        if (FAILED(m_pProvider->IsUnlockedCloneSupported(id.szSerialNo.Get(), &fUnlockedClone)))
            return guard.SetResult(VSS_E_UNEXPECTED_PROVIDER_ERROR);
        if (fAutoRecover && !fUnlockedClone) {
            TRACE(TRACE_LEVEL_ERROR,
                  W("Auto-recovery is not supported due to Unlocked Clone not supported for %s\n"),
                  rgDeviceNames[i]);
            ReportContextNotSupported();
            return guard.SetResult(VSS_E_UNSUPPORTED_CONTEXT);
        }
        if (fTxfRecovery && !fUnlockedClone) {
            TRACE(
                TRACE_LEVEL_ERROR,
                W("Unlocked Clone not supported for lun %s. So defaulting to Deferred Recovery for this Volume.\n"),
                rgDeviceNames[i]);
            eSnapshotAttr = SNAPSHOT_ATTR_NONE;
        }
        HRESULT hr = m_pProvider->AddSnapshot(&SnapshotSetId, &SnapshotId, id.szVendorId.Get(),
                                              id.szProductId.Get(), id.szProductRevision.Get(),
                                              id.szSerialNo.Get(), pszDevice, eSnapshotAttr);
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("m_pProvider->AddSnapshot FAILED [hr=0x%08x]\n"), hr);
            return guard.SetResult(hr);
        }
        WCHAR szSetId[SNAPSHOT_SET_NAME_CCH] = {};
        FormatGuidName(SnapshotSetId, szSetId);
        if (m_pEvent != nullptr)
            m_pEvent->Log(ORVPROV_EVENT_SOURCE_LUN_ADDED, id.szVendorId.Get(), id.szProductId.Get(),
                          id.szSerialNo.Get(), szSetId, 0);
        TRACE(TRACE_LEVEL_ERROR, W("m_pProvider->AddSnapshot succeeded\n"));
    }
    return guard.SetResult(S_OK);
}

STDMETHODIMP COrvaneHardwareProvider::GetTargetLuns(LONG lLunCount, VSS_PWSZ* rgDeviceNames,
                                                    VDS_LUN_INFORMATION* rgSourceLuns,
                                                    VDS_LUN_INFORMATION* rgDestinationLuns)
{
    CTraceScope scope(W("COrvaneHardwareProvider::GetTargetLuns"));
    CCallGuard guard(CallGuardOp::GetTargetLuns, m_pEvent);
    if (m_pProvider == nullptr)
        return guard.SetResult(ORVPROV_E_UNEXPECTED_ERROR);
    TRACE(TRACE_LEVEL_INFO, W("lLunCount=%d\n"), lLunCount);
    // Of the calls that arrive together for one set, exactly one builds; the others go on.
    if (InterlockedCompareExchange(&m_lTargetLunsInfoBuilt, 1, 0) == 0) {
        TRACE(TRACE_LEVEL_INFO, W("Building target lun info first...\n"));
        HRESULT hr = m_pProvider->BuildTargetLunsInfo();
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_WARNING, W("m_pProvider->BuildTargetLunsInfo FAILED [hr=0x%08x]\n"),
                  hr);
            InterlockedExchange(&m_lTargetLunsInfoBuilt, 0);
            return guard.SetResult(hr);
        }
    }
    for (LONG i = 0; i < lLunCount; ++i) {
        const VDS_LUN_INFORMATION& source = rgSourceLuns[i];
        VDS_LUN_INFORMATION& destination = rgDestinationLuns[i];
        TRACE(TRACE_LEVEL_INFO, W("LunIndex=%d, DeviceName=%s\n"), i, rgDeviceNames[i]);
        DumpLunInformation(source, W("Source"));
        CLunIdentity id;
        if (!id.Convert(source))
            return guard.SetResult(E_OUTOFMEMORY);
        std::unique_ptr<CSnapshotEntry> pEntry(new (std::nothrow) CSnapshotEntry);
        if (!pEntry)
            return guard.SetResult(E_OUTOFMEMORY);
        HRESULT hr = m_pProvider->FindSnapshotBySourceLun(id.szVendorId.Get(), id.szProductId.Get(),
                                                          id.szProductRevision.Get(),
                                                          id.szSerialNo.Get(), pEntry.get());
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_WARNING,
                  W("m_pProvider->FindSnapshotBySourceLun FAILED [hr=0x%08x]\n"), hr);
            TRACE(TRACE_LEVEL_WARNING,
                  W("Source Lun is NOT managed by provider, continue processing\n"));
            continue;
        }
        destination.m_diskSignature = GUID_NULL;
        if (!ReplaceAnsi(destination.m_szVendorId, pEntry->TargetLunVendorId()) ||
            !ReplaceAnsi(destination.m_szProductId, pEntry->TargetLunProductId()) ||
            !ReplaceAnsi(destination.m_szProductRevision, pEntry->TargetLunProductRevision()) ||
            !ReplaceAnsi(destination.m_szSerialNumber, pEntry->TargetLunSerialNo()))
            return guard.SetResult(E_OUTOFMEMORY);
        hr = SetLunInterconnect(destination, pEntry->TargetLunPath(), pEntry->TargetLunPath2());
        if (FAILED(hr))
            return guard.SetResult(hr);
        destination.m_deviceIdDescriptor.m_version = 0;
        destination.m_deviceIdDescriptor.m_cIdentifiers = 0;
        destination.m_version = source.m_version;
        destination.m_DeviceType = source.m_DeviceType;
        destination.m_DeviceTypeModifier = source.m_DeviceTypeModifier;
        destination.m_bCommandQueueing = source.m_bCommandQueueing;
        destination.m_BusType = source.m_BusType;
        DumpLunInformation(destination, W("Destination"));
    }
    return guard.SetResult(S_OK);
}

STDMETHODIMP COrvaneHardwareProvider::LocateLuns(LONG lLunCount, VDS_LUN_INFORMATION* rgSourceLuns)
{
    CTraceScope scope(W("COrvaneHardwareProvider::LocateLuns"));
    CCallGuard guard(CallGuardOp::LocateLuns, m_pEvent);
    if (m_pProvider == nullptr)
        return guard.SetResult(ORVPROV_E_UNEXPECTED_ERROR);
    TRACE(TRACE_LEVEL_INFO, W("lLunCount=%d\n"), lLunCount);
    for (LONG i = 0; i < lLunCount; ++i) {
        const VDS_LUN_INFORMATION& lun = rgSourceLuns[i];
        TRACE(TRACE_LEVEL_INFO, W("LunIndex=%d\n"), i);
        DumpLunInformation(lun, W("Destination - before processing"));
        if (!IsCompleteLun(lun)) {
            TRACE(TRACE_LEVEL_ERROR, W("This LUN does not have complete information!\n"));
            TRACE(TRACE_LEVEL_ERROR, W("Skipping to the next LUN!\n"));
            continue;
        }
        CTaskMemPtr<WCHAR> szVendorId(AnsiToUnicode(lun.m_szVendorId));
        if (!szVendorId)
            return guard.SetResult(E_OUTOFMEMORY);
        if (!HasOrvaneVendorPrefix(szVendorId.Get()))
            continue;
        CTaskMemPtr<WCHAR> szProductId(AnsiToUnicode(lun.m_szProductId));
        CTaskMemPtr<WCHAR> szProductRevision(AnsiToUnicode(lun.m_szProductRevision));
        CTaskMemPtr<WCHAR> szSerialNo(AnsiToUnicode(lun.m_szSerialNumber));
        CTaskMemPtr<WCHAR> szPath1(AnsiToUnicode(LunPath1(lun)));
        CTaskMemPtr<WCHAR> szPath2(AnsiToUnicode(LunPath2(lun)));
        if (!szProductId || !szProductRevision || !szSerialNo || !szPath1 || !szPath2)
            return guard.SetResult(E_OUTOFMEMORY);
        if (TraceIsOn(TRACE_LEVEL_INFO)) {
            TraceW(W("Mapping target lun with the following info:\n"));
            TraceW(W("VendorId=%s\n"), szVendorId.Get());
            TraceW(W("ProductId=%s\n"), szProductId.Get());
            TraceW(W("ProductRevision=%s\n"), szProductRevision.Get());
            TraceW(W("SerialNumber=%s\n"), szSerialNo.Get());
            TraceW(W("PathPath1=%s\n"), szPath1.Get());
            TraceW(W("PathPath2=%s\n"), szPath2.Get());
        }
        HRESULT hr =
            m_pProvider->MapTargetLun(szVendorId.Get(), szProductId.Get(), szProductRevision.Get(),
                                      szSerialNo.Get(), szPath1.Get(), szPath2.Get(), W("UNKNOWN"));
        if (FAILED(hr)) {
            TRACE(TRACE_LEVEL_ERROR, W("m_pProvider->MapTargetLun FAILED [hr=0x%08x]\n"), hr);
            return guard.SetResult(hr);
        }
        if (m_pEvent != nullptr)
            m_pEvent->Log(ORVPROV_EVENT_LUN_MAPPED, szVendorId.Get(), szProductId.Get(),
                          szSerialNo.Get(), 0);
        TRACE(TRACE_LEVEL_INFO, W("Mapping succeeded\n"));
    }
    return guard.SetResult(S_OK);
}

STDMETHODIMP COrvaneHardwareProvider::OnLunEmpty(VSS_PWSZ wszDeviceName,
                                                 VDS_LUN_INFORMATION* pInformation)
{
    CTraceScope scope(W("COrvaneHardwareProvider::OnLunEmpty"));
    CCallGuard guard(CallGuardOp::OnLunEmpty, m_pEvent, wszDeviceName);
    if (m_pProvider == nullptr)
        return guard.SetResult(ORVPROV_E_UNEXPECTED_ERROR);
    const VDS_LUN_INFORMATION& lun = *pInformation;
    TRACE(TRACE_LEVEL_INFO, W("DeviceName=%s\n"), wszDeviceName);
    DumpLunInformation(lun);
    if (!HasLunPaths(lun)) {
        TRACE(TRACE_LEVEL_ERROR, W("This LUN does not have interconnect info\n"));
        return guard.SetResult(ORVPROV_E_LUN_NOT_RECOGNIZED);
    }
    LPWSTR pszPath1 = guard.Own(AnsiToUnicode(LunPath1(lun)));
    if (pszPath1 == nullptr)
        return guard.SetResult(E_OUTOFMEMORY);
    LPWSTR pszPath2 = guard.Own(AnsiToUnicode(LunPath2(lun)));
    if (pszPath2 == nullptr)
        return guard.SetResult(E_OUTOFMEMORY);
    LPWSTR pszSerialNo = guard.Own(AnsiToUnicode(lun.m_szSerialNumber));
    if (pszSerialNo == nullptr)
        return guard.SetResult(E_OUTOFMEMORY);
    TRACE(TRACE_LEVEL_INFO, W("Deleting LUN with Path=%s, Path2=%s\n"), pszPath1, pszPath2);
    HRESULT hr = m_pProvider->DeleteTargetLun(pszPath1, pszPath2, pszSerialNo);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("m_pProvider->DeleteTargetLun FAILED [hr=0x%08x]\n"), hr);
        return guard.SetResult(hr);
    }
    // The event only names the LUN: without its strings it is dropped, the deletion stands.
    LPWSTR pszVendorId = guard.Own(AnsiToUnicode(lun.m_szVendorId));
    LPWSTR pszProductId = guard.Own(AnsiToUnicode(lun.m_szProductId));
    if (m_pEvent != nullptr && pszVendorId != nullptr && pszProductId != nullptr)
        m_pEvent->Log(ORVPROV_EVENT_LUN_DELETED, wszDeviceName, pszVendorId, pszProductId,
                      pszSerialNo, 0);
    return guard.SetResult(S_OK);
}

STDMETHODIMP COrvaneHardwareProvider::FillInLunInfo(VSS_PWSZ wszDeviceName,
                                                    VDS_LUN_INFORMATION* pLunInfo,
                                                    BOOL* pbIsSupported)
{
    CTraceScope scope(W("COrvaneHardwareProvider::FillInLunInfo"));
    CCallGuard guard(CallGuardOp::FillInLunInfo, m_pEvent, wszDeviceName);
    if (m_pProvider == nullptr)
        return guard.SetResult(ORVPROV_E_UNEXPECTED_ERROR);
    VDS_LUN_INFORMATION& lun = *pLunInfo;
    TRACE(TRACE_LEVEL_INFO, W("DeviceName=%s\n"), wszDeviceName);
    DumpLunInformation(lun, W("Destination - before processing"));
    CLunIdentity id;
    BOOL fVendor = id.ConvertVendor(lun);
    *pbIsSupported = FALSE;
    if (!fVendor)
        return guard.SetResult(E_OUTOFMEMORY);
    if (!IsOrvaneVendorId(id.szVendorId.Get())) {
        TRACE(TRACE_LEVEL_INFO, W("Lun Vendor ID NOT Supported. *pfIsSupported=%d\n"),
              *pbIsSupported);
        return guard.SetResult(S_OK);
    }
    if (!id.ConvertRest(lun))
        return guard.SetResult(E_OUTOFMEMORY);
    CTargetLunInfo info;
    HRESULT hr =
        m_pProvider->VerifyMappedTargetLun(id.szVendorId.Get(), id.szProductId.Get(),
                                           id.szProductRevision.Get(), id.szSerialNo.Get(), &info);
    if (SUCCEEDED(hr) && info.TargetLunPath1() != nullptr && info.TargetLunPath2() != nullptr) {
        if (FAILED(FixInterconnectAddress(lun, info.TargetLunPath1(), info.TargetLunPath2())))
            return guard.SetResult(E_OUTOFMEMORY);
        *pbIsSupported = TRUE;
    }
    DumpLunInformation(lun, W("Destination - after processing"));
    TRACE(TRACE_LEVEL_INFO, W("*pfIsSupported=%d\n"), *pbIsSupported);
    return guard.SetResult(S_OK);
}

STDMETHODIMP COrvaneHardwareProvider::OnLunStateChange(VDS_LUN_INFORMATION* pSnapshotLuns,
                                                       VDS_LUN_INFORMATION* pOriginalLuns,
                                                       DWORD dwCount, DWORD dwFlags)
{
    CTraceScope scope(W("COrvaneHardwareProvider::OnLunStateChange"));
    CCallGuard guard(CallGuardOp::OnLunStateChange, m_pEvent);
    if (m_pProvider == nullptr)
        return guard.SetResult(ORVPROV_E_UNEXPECTED_ERROR);
    VDS_LUN_INFORMATION& lun = pSnapshotLuns[0];
    DumpLunInformation(lun, W("Destination - before processing"));
    CLunIdentity id;
    BOOL fVendor = id.ConvertVendor(lun);
    if (!fVendor)
        return guard.SetResult(E_OUTOFMEMORY);
    if (!IsOrvaneVendorId(id.szVendorId.Get())) {
        TRACE(TRACE_LEVEL_INFO, W("Lun VendorID NOT Supported \n"));
        return guard.SetResult(S_OK);
    }
    if (!id.ConvertRest(lun))
        return guard.SetResult(E_OUTOFMEMORY);
    CTargetLunInfo info;
    if (SUCCEEDED(m_pProvider->VerifyMappedTargetLun(id.szVendorId.Get(), id.szProductId.Get(),
                                                     id.szProductRevision.Get(),
                                                     id.szSerialNo.Get(), &info)) &&
        FAILED(FixInterconnectAddress(lun, info.TargetLunPath1(), info.TargetLunPath2())))
        return guard.SetResult(E_OUTOFMEMORY);
    HRESULT hr = m_pProvider->OnLunStateChange(pSnapshotLuns, pOriginalLuns, dwCount, dwFlags);
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("m_pProvider->OnLunStateChange FAILED [hr=0x%08x]\n"), hr);
        return guard.SetResult(hr);
    }
    return guard.SetResult(S_OK);
}

STDMETHODIMP COrvaneHardwareProvider::ResyncLuns(VDS_LUN_INFORMATION* pSourceLuns,
                                                 VDS_LUN_INFORMATION* pTargetLuns, DWORD dwCount,
                                                 IVssAsync** ppAsync)
{
    CTraceScope scope(W("COrvaneHardwareProvider::ResyncLuns"));
    CCallGuard guard(CallGuardOp::ResyncLuns, m_pEvent);
    UNREFERENCED_PARAMETER(pSourceLuns);
    UNREFERENCED_PARAMETER(pTargetLuns);
    UNREFERENCED_PARAMETER(dwCount);
    UNREFERENCED_PARAMETER(ppAsync);
    TRACE(TRACE_LEVEL_ERROR, W("m_pProvider->ResyncLuns FAILED [hr=0x%08x]\n"), E_NOTIMPL);
    return guard.SetResult(E_NOTIMPL);
}

STDMETHODIMP COrvaneHardwareProvider::OnReuseLuns(VDS_LUN_INFORMATION* pSnapshotLuns,
                                                  VDS_LUN_INFORMATION* pOriginalLuns, DWORD dwCount)
{
    CTraceScope scope(W("COrvaneHardwareProvider::OnReuseLuns"));
    CCallGuard guard(CallGuardOp::OnReuseLuns, m_pEvent);
    UNREFERENCED_PARAMETER(pSnapshotLuns);
    UNREFERENCED_PARAMETER(pOriginalLuns);
    UNREFERENCED_PARAMETER(dwCount);
    TRACE(TRACE_LEVEL_ERROR, W("m_pProvider->OnReuseLuns FAILED [hr=0x%08x]\n"), E_NOTIMPL);
    return guard.SetResult(E_NOTIMPL);
}

STDMETHODIMP COrvaneHardwareProvider::GetProviderCapabilities(ULONGLONG* pllOriginalCapabilityMask)
{
    CTraceScope scope(W("COrvaneHardwareProvider::GetProviderCapabilities"));
    CCallGuard guard(CallGuardOp::GetProviderCapabilities, m_pEvent);
    UNREFERENCED_PARAMETER(pllOriginalCapabilityMask);
    TRACE(TRACE_LEVEL_ERROR, W("m_pProvider->GetProviderCapabilities FAILED [hr=0x%08x]\n"),
          E_NOTIMPL);
    return guard.SetResult(E_NOTIMPL);
}
