#include "provider/interconnect.h"

#include "diag/trace.h"
#include "pal/combaseapi.h"
#include "pal/winbase.h"
#include "pal/winerror.h"
#include "provider/strings.h"
#include "provider/taskmem.h"

namespace {

// The address and port buffers belong to the record as much as the list does, so they go
// with it.
void FreeInterconnects(VDS_LUN_INFORMATION& lun)
{
    VDS_INTERCONNECT* rgInterconnects = lun.m_rgInterconnects;
    ULONG cInterconnects = lun.m_cInterconnects;
    lun.m_cInterconnects = 0;
    lun.m_rgInterconnects = nullptr;
    if (!rgInterconnects)
        return;
    for (ULONG i = 0; i < cInterconnects; ++i) {
        CoTaskMemFree(rgInterconnects[i].m_pbPort);
        CoTaskMemFree(rgInterconnects[i].m_pbAddress);
    }
    CoTaskMemFree(rgInterconnects);
}

} // namespace

HRESULT SetLunInterconnect(VDS_LUN_INFORMATION& lun, LPCWSTR pszPath1, LPCWSTR pszPath2)
{
    FreeInterconnects(lun);

    CTaskMemPtr<CHAR> szAddress(UnicodeToAnsi(pszPath1));
    CTaskMemPtr<CHAR> szPort(UnicodeToAnsi(pszPath2));
    CTaskMemPtr<VDS_INTERCONNECT> pInterconnect(
        static_cast<VDS_INTERCONNECT*>(CoTaskMemAlloc(sizeof(VDS_INTERCONNECT))));
    if (!szAddress || !szPort || !pInterconnect)
        return E_OUTOFMEMORY;

    pInterconnect->m_addressType = VDS_IA_SCSI;
    pInterconnect->m_cbAddress = static_cast<ULONG>(lstrlenA(szAddress.Get())) + 1;
    pInterconnect->m_pbAddress = reinterpret_cast<BYTE*>(szAddress.Detach());
    pInterconnect->m_cbPort = static_cast<ULONG>(lstrlenA(szPort.Get())) + 1;
    pInterconnect->m_pbPort = reinterpret_cast<BYTE*>(szPort.Detach());
    lun.m_rgInterconnects = pInterconnect.Detach();
    lun.m_cInterconnects = 1;
    return S_OK;
}

HRESULT FixInterconnectAddress(VDS_LUN_INFORMATION& lun, LPCWSTR pszPath1, LPCWSTR pszPath2)
{
    lun.m_diskSignature = GUID_NULL;
    if (lun.m_BusType == VDSBusTypeiScsi)
        lun.m_BusType = VDSBusTypeScsi;
    TRACE(TRACE_LEVEL_INFO, W("Fixing interconnect address\n"));
    return SetLunInterconnect(lun, pszPath1, pszPath2);
}

bool HasLunPaths(const VDS_LUN_INFORMATION& lun)
{
    return lun.m_cInterconnects == 1 && lun.m_rgInterconnects != nullptr &&
           lun.m_rgInterconnects[0].m_pbAddress != nullptr &&
           lun.m_rgInterconnects[0].m_pbPort != nullptr;
}

bool IsCompleteLun(const VDS_LUN_INFORMATION& lun)
{
    return lun.m_szVendorId != nullptr && lun.m_szProductId != nullptr &&
           lun.m_szProductRevision != nullptr && lun.m_szSerialNumber != nullptr &&
           HasLunPaths(lun);
}
