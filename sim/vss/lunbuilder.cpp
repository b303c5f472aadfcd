#include "sim/vss/lunbuilder.h"

#include "pal/combaseapi.h"

#include <cstring>

namespace vsssim {

namespace {

// A task-allocated copy of `bytes` with room for at least one byte, so that even an empty
// string has a block of its own.
BYTE* CopyBytes(const std::string& bytes)
{
    BYTE* pb = static_cast<BYTE*>(CoTaskMemAlloc(bytes.empty() ? 1 : bytes.size()));
    if (pb && !bytes.empty())
        std::memcpy(pb, bytes.data(), bytes.size());
    return pb;
}

// A task-allocated NUL-terminated copy, or null (and success) when absent.
bool CopyText(const std::optional<std::string>& text, char** ppsz)
{
    *ppsz = nullptr;
    if (!text)
        return true;
    *ppsz = static_cast<char*>(CoTaskMemAlloc(text->size() + 1));
    if (!*ppsz)
        return false;
    std::memcpy(*ppsz, text->c_str(), text->size() + 1);
    return true;
}

template <typename T>
T* AllocateZeroed(size_t count)
{
    T* p = static_cast<T*>(CoTaskMemAlloc(count * sizeof(T)));
    if (p)
        std::memset(static_cast<void*>(p), 0, count * sizeof(T));
    return p;
}

} // namespace

std::string AnsiBytes(std::string_view text)
{
    std::string bytes(text);
    bytes.push_back('\0');
    return bytes;
}

CLunBuilder::CLunBuilder() = default;

CLunBuilder CLunBuilder::OrvaneLun(std::string_view serialNumber)
{
    std::string serial(serialNumber);
    CLunBuilder builder;
    builder.DeviceType(0, 0)
        .CommandQueueing(TRUE)
        .BusType(VDSBusTypeiScsi)
        .VendorId("ORVANE")
        .ProductId("LUN")
        .ProductRevision("0.2")
        .SerialNumber(serial.c_str())
        .DiskSignature(
            {0x6b1f2c3d, 0x4e5f, 0x7081, {0x92, 0xa3, 0xb4, 0xc5, 0xd6, 0xe7, 0xf8, 0x09}})
        .DescriptorVersion(1)
        .AddIdentifier(VDSStorageIdCodeSetAscii, VDSStorageIdTypeVendorId, "ORVANE  LUN " + serial)
        .AddInterconnect(VDS_IA_UNKNOWN, AnsiBytes("iqn.1992-08.com.orvane:sn.4055"),
                         AnsiBytes("192.0.2.15:3260"));
    return builder;
}

CLunBuilder& CLunBuilder::Version(ULONG version)
{
    m_version = version;
    return *this;
}

CLunBuilder& CLunBuilder::DeviceType(BYTE deviceType, BYTE deviceTypeModifier)
{
    m_deviceType = deviceType;
    m_deviceTypeModifier = deviceTypeModifier;
    return *this;
}

CLunBuilder& CLunBuilder::CommandQueueing(BOOL fCommandQueueing)
{
    m_fCommandQueueing = fCommandQueueing;
    return *this;
}

CLunBuilder& CLunBuilder::BusType(VDS_STORAGE_BUS_TYPE busType)
{
    m_busType = busType;
    return *this;
}

static std::optional<std::string> Optional(const char* psz)
{
    return psz ? std::optional<std::string>(psz) : std::nullopt;
}

CLunBuilder& CLunBuilder::VendorId(const char* pszVendorId)
{
    m_vendorId = Optional(pszVendorId);
    return *this;
}

CLunBuilder& CLunBuilder::ProductId(const char* pszProductId)
{
    m_productId = Optional(pszProductId);
    return *this;
}

CLunBuilder& CLunBuilder::ProductRevision(const char* pszProductRevision)
{
    m_productRevision = Optional(pszProductRevision);
    return *this;
}

CLunBuilder& CLunBuilder::SerialNumber(const char* pszSerialNumber)
{
    m_serialNumber = Optional(pszSerialNumber);
    return *this;
}

CLunBuilder& CLunBuilder::DiskSignature(const GUID& signature)
{
    m_diskSignature = signature;
    return *this;
}

CLunBuilder& CLunBuilder::DescriptorVersion(ULONG version)
{
    m_descriptorVersion = version;
    return *this;
}

CLunBuilder& CLunBuilder::AddIdentifier(VDS_STORAGE_IDENTIFIER_CODE_SET codeSet,
                                        VDS_STORAGE_IDENTIFIER_TYPE type, std::string_view bytes)
{
    m_identifiers.push_back({codeSet, type, std::string(bytes)});
    return *this;
}

CLunBuilder& CLunBuilder::AddInterconnect(VDS_INTERCONNECT_ADDRESS_TYPE addressType,
                                          std::optional<std::string> port,
                                          std::optional<std::string> address)
{
    m_interconnects.push_back({addressType, std::move(port), std::move(address)});
    return *this;
}

CLunBuilder& CLunBuilder::AddScsiInterconnect(std::string_view path1, std::string_view path2)
{
    return AddInterconnect(VDS_IA_SCSI, AnsiBytes(path2), AnsiBytes(path1));
}

bool CLunBuilder::Build(VDS_LUN_INFORMATION& out) const
{
    // Built in a local record whose counts always match what has been allocated so far, so
    // that a failure at any point can be undone by FreeLunInformation.
    VDS_LUN_INFORMATION lun;
    std::memset(static_cast<void*>(&lun), 0, sizeof(lun));
    std::memset(static_cast<void*>(&out), 0, sizeof(out));
    lun.m_version = m_version;
    lun.m_DeviceType = m_deviceType;
    lun.m_DeviceTypeModifier = m_deviceTypeModifier;
    lun.m_bCommandQueueing = m_fCommandQueueing;
    lun.m_BusType = m_busType;
    lun.m_diskSignature = m_diskSignature;
    lun.m_deviceIdDescriptor.m_version = m_descriptorVersion;

    bool fOk = CopyText(m_vendorId, &lun.m_szVendorId) &&
               CopyText(m_productId, &lun.m_szProductId) &&
               CopyText(m_productRevision, &lun.m_szProductRevision) &&
               CopyText(m_serialNumber, &lun.m_szSerialNumber);

    if (fOk && !m_identifiers.empty()) {
        lun.m_deviceIdDescriptor.m_rgIdentifiers =
            AllocateZeroed<VDS_STORAGE_IDENTIFIER>(m_identifiers.size());
        fOk = lun.m_deviceIdDescriptor.m_rgIdentifiers != nullptr;
        if (fOk)
            lun.m_deviceIdDescriptor.m_cIdentifiers = static_cast<ULONG>(m_identifiers.size());
        for (size_t i = 0; fOk && i < m_identifiers.size(); ++i) {
            VDS_STORAGE_IDENTIFIER& id = lun.m_deviceIdDescriptor.m_rgIdentifiers[i];
            id.m_CodeSet = m_identifiers[i].codeSet;
            id.m_Type = m_identifiers[i].type;
            if (m_identifiers[i].bytes.empty())
                continue;
            id.m_rgbIdentifier = CopyBytes(m_identifiers[i].bytes);
            fOk = id.m_rgbIdentifier != nullptr;
            if (fOk)
                id.m_cbIdentifier = static_cast<ULONG>(m_identifiers[i].bytes.size());
        }
    }

    if (fOk && !m_interconnects.empty()) {
        lun.m_rgInterconnects = AllocateZeroed<VDS_INTERCONNECT>(m_interconnects.size());
        fOk = lun.m_rgInterconnects != nullptr;
        if (fOk)
            lun.m_cInterconnects = static_cast<ULONG>(m_interconnects.size());
        for (size_t i = 0; fOk && i < m_interconnects.size(); ++i) {
            VDS_INTERCONNECT& ic = lun.m_rgInterconnects[i];
            const Interconnect& wanted = m_interconnects[i];
            ic.m_addressType = wanted.addressType;
            if (wanted.port) {
                ic.m_pbPort = CopyBytes(*wanted.port);
                fOk = ic.m_pbPort != nullptr;
                if (fOk)
                    ic.m_cbPort = static_cast<ULONG>(wanted.port->size());
            }
            if (fOk && wanted.address) {
                ic.m_pbAddress = CopyBytes(*wanted.address);
                fOk = ic.m_pbAddress != nullptr;
                if (fOk)
                    ic.m_cbAddress = static_cast<ULONG>(wanted.address->size());
            }
        }
    }

    if (!fOk) {
        FreeLunInformation(lun);
        return false;
    }
    out = lun;
    return true;
}

void FreeLunInformation(VDS_LUN_INFORMATION& lun)
{
    CoTaskMemFree(lun.m_szVendorId);
    CoTaskMemFree(lun.m_szProductId);
    CoTaskMemFree(lun.m_szProductRevision);
    CoTaskMemFree(lun.m_szSerialNumber);
    VDS_STORAGE_DEVICE_ID_DESCRIPTOR& descriptor = lun.m_deviceIdDescriptor;
    if (descriptor.m_rgIdentifiers) {
        for (ULONG i = 0; i < descriptor.m_cIdentifiers; ++i)
            CoTaskMemFree(descriptor.m_rgIdentifiers[i].m_rgbIdentifier);
        CoTaskMemFree(descriptor.m_rgIdentifiers);
    }
    if (lun.m_rgInterconnects) {
        for (ULONG i = 0; i < lun.m_cInterconnects; ++i) {
            CoTaskMemFree(lun.m_rgInterconnects[i].m_pbPort);
            CoTaskMemFree(lun.m_rgInterconnects[i].m_pbAddress);
        }
        CoTaskMemFree(lun.m_rgInterconnects);
    }
    std::memset(static_cast<void*>(&lun), 0, sizeof(lun));
}

CLunRecord::CLunRecord()
{
    std::memset(static_cast<void*>(&m_lun), 0, sizeof(m_lun));
}

CLunRecord::CLunRecord(const CLunBuilder& builder)
{
    m_fBuilt = builder.Build(m_lun);
}

CLunRecord::~CLunRecord()
{
    FreeLunInformation(m_lun);
}

} // namespace vsssim
