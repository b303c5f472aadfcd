#include "provider/lundump.h"

#include "diag/trace.h"

namespace {

// Bytes of an identifier, port or address, one character each, closing the line that the
// caller began.
void TraceBytes(const BYTE* pb, ULONG cb)
{
    for (ULONG i = 0; i < cb; ++i)
        TRACE(TRACE_LEVEL_INFO, W("%c"), pb[i]);
    TRACE(TRACE_LEVEL_INFO, W("\n"));
}

LPCSTR TextOrEmpty(LPCSTR psz)
{
    return psz ? psz : "";
}

void DumpIdentity(const VDS_LUN_INFORMATION& lun)
{
    const GUID& sig = lun.m_diskSignature;
    TRACE(TRACE_LEVEL_INFO, W("Version=%d\n"), lun.m_version);
    TRACE(TRACE_LEVEL_INFO, W("DiskSignature={%.8x-%.4x-%.4x-%.2x%.2x-%.2x%.2x%.2x%.2x%.2x%.2x}\n"),
          sig.Data1, sig.Data2, sig.Data3, sig.Data4[0], sig.Data4[1], sig.Data4[2], sig.Data4[3],
          sig.Data4[4], sig.Data4[5], sig.Data4[6], sig.Data4[7]);
    TRACE(TRACE_LEVEL_INFO, W("DeviceType=%d\n"), lun.m_DeviceType);
    TRACE(TRACE_LEVEL_INFO, W("DeviceTypeMod=%d\n"), lun.m_DeviceTypeModifier);
    TRACE(TRACE_LEVEL_INFO, W("CommandQueuing=%d\n"), lun.m_bCommandQueueing);
    TRACE(TRACE_LEVEL_INFO, W("BusType=%d\n"), static_cast<int>(lun.m_BusType));
    // The SCSI identity strings are narrow; they go out through the narrow trace unconverted.
    TRACEA(TRACE_LEVEL_INFO, "VendorId=%s\n", TextOrEmpty(lun.m_szVendorId));
    TRACEA(TRACE_LEVEL_INFO, "ProductId=%s\n", TextOrEmpty(lun.m_szProductId));
    TRACEA(TRACE_LEVEL_INFO, "ProductRevision=%s\n", TextOrEmpty(lun.m_szProductRevision));
    TRACEA(TRACE_LEVEL_INFO, "SerialNumber=%s\n", TextOrEmpty(lun.m_szSerialNumber));
}

void DumpIdentifiers(const VDS_STORAGE_DEVICE_ID_DESCRIPTOR& descriptor)
{
    TRACE(TRACE_LEVEL_INFO, W("Device-Identifer-Version=%u\n"), descriptor.m_version);
    if (!descriptor.m_rgIdentifiers)
        return;
    for (ULONG i = 0; i < descriptor.m_cIdentifiers; ++i) {
        const VDS_STORAGE_IDENTIFIER& id = descriptor.m_rgIdentifiers[i];
        TRACE(TRACE_LEVEL_INFO, W("Device-Identifer-CodeSet[%d]=%d\n"), i,
              static_cast<int>(id.m_CodeSet));
        TRACE(TRACE_LEVEL_INFO, W("Device-Identifier-Type[%d]=%d\n"), i,
              static_cast<int>(id.m_Type));
        if (id.m_cbIdentifier != 0 && id.m_rgbIdentifier) {
            TRACE(TRACE_LEVEL_INFO, W("Device-Identifier-Name[%d]="), i);
            TraceBytes(id.m_rgbIdentifier, id.m_cbIdentifier);
        }
    }
}

void DumpInterconnects(const VDS_LUN_INFORMATION& lun)
{
    if (!lun.m_rgInterconnects)
        return;
    for (ULONG i = 0; i < lun.m_cInterconnects; ++i) {
        const VDS_INTERCONNECT& ic = lun.m_rgInterconnects[i];
        TRACE(TRACE_LEVEL_INFO, W("Interconnect-Type[%d]=%d\n"), i,
              static_cast<int>(ic.m_addressType));
        if (ic.m_cbPort != 0 && ic.m_pbPort) {
            TRACE(TRACE_LEVEL_INFO, W("Interconnect-Port[%d]="), i);
            TraceBytes(ic.m_pbPort, ic.m_cbPort);
        }
        if (ic.m_cbAddress != 0 && ic.m_pbAddress) {
            TRACE(TRACE_LEVEL_INFO, W("Interconnect-Address[%d]="), i);
            TraceBytes(ic.m_pbAddress, ic.m_cbAddress);
        }
    }
}

} // namespace

void DumpLunInformation(const VDS_LUN_INFORMATION& lun, LPCWSTR pszLabel)
{
    if (!TraceIsOn(TRACE_LEVEL_INFO))
        return;
    if (pszLabel)
        TRACE(TRACE_LEVEL_INFO, W("LUN Information [0x%08p] (%s):\n"), &lun, pszLabel);
    else
        TRACE(TRACE_LEVEL_INFO, W("LUN Information [0x%08p]:\n"), &lun);
    CTraceIndent indent;
    DumpIdentity(lun);
    DumpIdentifiers(lun.m_deviceIdDescriptor);
    DumpInterconnects(lun);
}
