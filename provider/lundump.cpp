#include "provider/lundump.h"

#include "diag/trace.h"

// The lines under the header are one trace indentation step (4 columns) deeper than the
// header. The trace log offers that step only through CTraceScope, whose entered/exited lines
// would clutter every dump at level 4, so the step is written as part of each line.
#define DUMP_LINE(text) W("    " text)
#define DUMP_LINE_A(text) "    " text

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
    TRACE(TRACE_LEVEL_INFO, DUMP_LINE("Version=%d\n"), lun.m_version);
    TRACE(TRACE_LEVEL_INFO,
          DUMP_LINE("DiskSignature={%.8x-%.4x-%.4x-%.2x%.2x-%.2x%.2x%.2x%.2x%.2x%.2x}\n"),
          sig.Data1, sig.Data2, sig.Data3, sig.Data4[0], sig.Data4[1], sig.Data4[2], sig.Data4[3],
          sig.Data4[4], sig.Data4[5], sig.Data4[6], sig.Data4[7]);
    TRACE(TRACE_LEVEL_INFO, DUMP_LINE("DeviceType=%d\n"), lun.m_DeviceType);
    TRACE(TRACE_LEVEL_INFO, DUMP_LINE("DeviceTypeMod=%d\n"), lun.m_DeviceTypeModifier);
    TRACE(TRACE_LEVEL_INFO, DUMP_LINE("CommandQueuing=%d\n"), lun.m_bCommandQueueing);
    TRACE(TRACE_LEVEL_INFO, DUMP_LINE("BusType=%d\n"), static_cast<int>(lun.m_BusType));
    // The SCSI identity strings are narrow; they go out through the narrow trace unconverted.
    TRACEA(TRACE_LEVEL_INFO, DUMP_LINE_A("VendorId=%s\n"), TextOrEmpty(lun.m_szVendorId));
    TRACEA(TRACE_LEVEL_INFO, DUMP_LINE_A("ProductId=%s\n"), TextOrEmpty(lun.m_szProductId));
    TRACEA(TRACE_LEVEL_INFO, DUMP_LINE_A("ProductRevision=%s\n"),
           TextOrEmpty(lun.m_szProductRevision));
    TRACEA(TRACE_LEVEL_INFO, DUMP_LINE_A("SerialNumber=%s\n"), TextOrEmpty(lun.m_szSerialNumber));
}

void DumpIdentifiers(const VDS_STORAGE_DEVICE_ID_DESCRIPTOR& descriptor)
{
    TRACE(TRACE_LEVEL_INFO, DUMP_LINE("Device-Identifer-Version=%u\n"), descriptor.m_version);
    if (!descriptor.m_rgIdentifiers)
        return;
    for (ULONG i = 0; i < descriptor.m_cIdentifiers; ++i) {
        const VDS_STORAGE_IDENTIFIER& id = descriptor.m_rgIdentifiers[i];
        TRACE(TRACE_LEVEL_INFO, DUMP_LINE("Device-Identifer-CodeSet[%d]=%d\n"), i,
              static_cast<int>(id.m_CodeSet));
        TRACE(TRACE_LEVEL_INFO, DUMP_LINE("Device-Identifier-Type[%d]=%d\n"), i,
              static_cast<int>(id.m_Type));
        if (id.m_cbIdentifier != 0 && id.m_rgbIdentifier) {
            TRACE(TRACE_LEVEL_INFO, DUMP_LINE("Device-Identifier-Name[%d]="), i);
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
        TRACE(TRACE_LEVEL_INFO, DUMP_LINE("Interconnect-Type[%d]=%d\n"), i,
              static_cast<int>(ic.m_addressType));
        if (ic.m_cbPort != 0 && ic.m_pbPort) {
            TRACE(TRACE_LEVEL_INFO, DUMP_LINE("Interconnect-Port[%d]="), i);
            TraceBytes(ic.m_pbPort, ic.m_cbPort);
        }
        if (ic.m_cbAddress != 0 && ic.m_pbAddress) {
            TRACE(TRACE_LEVEL_INFO, DUMP_LINE("Interconnect-Address[%d]="), i);
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
    DumpIdentity(lun);
    DumpIdentifiers(lun.m_deviceIdDescriptor);
    DumpInterconnects(lun);
}
