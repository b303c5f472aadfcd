// VDS LUN records as VSS hands them to a provider, for the VSS simulation, tests and fuzz
// targets: every pointer in a built record (identity strings, device identifiers, interconnects
// with their port and address bytes) is a separate block of the COM task allocator, so the code
// under test can free or replace any of them, and FreeLunInformation frees whatever is left.
#pragma once

#include "pal/guiddef.h"
#include "pal/vds.h"
#include "pal/windef.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vsssim {

// Text as the provider stores it in interconnect bytes: the characters and their NUL.
std::string AnsiBytes(std::string_view text);

class CLunBuilder
{
public:
    // Version 1 and nothing else: no strings, no identifiers, no interconnects.
    CLunBuilder();

    // A typical LUN of the provider's storage systems, as an iSCSI initiator reports it: vendor
    // "ORVANE", product "LUN", revision "0.2", the given 12-character serial number, one ASCII
    // device identifier and one interconnect.
    static CLunBuilder OrvaneLun(std::string_view serialNumber = "C4nB1JQzK9aX");

    CLunBuilder& Version(ULONG version);
    CLunBuilder& DeviceType(BYTE deviceType, BYTE deviceTypeModifier);
    CLunBuilder& CommandQueueing(BOOL fCommandQueueing);
    CLunBuilder& BusType(VDS_STORAGE_BUS_TYPE busType);
    // A null pointer leaves the string absent.
    CLunBuilder& VendorId(const char* pszVendorId);
    CLunBuilder& ProductId(const char* pszProductId);
    CLunBuilder& ProductRevision(const char* pszProductRevision);
    CLunBuilder& SerialNumber(const char* pszSerialNumber);
    CLunBuilder& DiskSignature(const GUID& signature);
    CLunBuilder& DescriptorVersion(ULONG version);
    // Raw identifier bytes; empty gives a null pointer and a count of 0.
    CLunBuilder& AddIdentifier(VDS_STORAGE_IDENTIFIER_CODE_SET codeSet,
                               VDS_STORAGE_IDENTIFIER_TYPE type, std::string_view bytes);
    // Raw port and address bytes; nullopt gives a null pointer and a count of 0.
    CLunBuilder& AddInterconnect(VDS_INTERCONNECT_ADDRESS_TYPE addressType,
                                 std::optional<std::string> port,
                                 std::optional<std::string> address);
    // The provider's own location: address Path1 and port Path2, each with its NUL.
    CLunBuilder& AddScsiInterconnect(std::string_view path1, std::string_view path2);

    // Fills `lun` (whose previous contents are ignored, not freed). False when a task
    // allocation fails: then `lun` is all zero and nothing is leaked.
    bool Build(VDS_LUN_INFORMATION& lun) const;

private:
    struct Identifier
    {
        VDS_STORAGE_IDENTIFIER_CODE_SET codeSet;
        VDS_STORAGE_IDENTIFIER_TYPE type;
        std::string bytes;
    };
    struct Interconnect
    {
        VDS_INTERCONNECT_ADDRESS_TYPE addressType;
        std::optional<std::string> port;
        std::optional<std::string> address;
    };

    ULONG m_version = VER_VDS_LUN_INFORMATION;
    BYTE m_deviceType = 0;
    BYTE m_deviceTypeModifier = 0;
    BOOL m_fCommandQueueing = FALSE;
    VDS_STORAGE_BUS_TYPE m_busType = VDSBusTypeUnknown;
    std::optional<std::string> m_vendorId;
    std::optional<std::string> m_productId;
    std::optional<std::string> m_productRevision;
    std::optional<std::string> m_serialNumber;
    GUID m_diskSignature = GUID_NULL;
    ULONG m_descriptorVersion = 0;
    std::vector<Identifier> m_identifiers;
    std::vector<Interconnect> m_interconnects;
};

// Frees every block of a record with CoTaskMemFree and leaves the record all zero. Counts and
// pointers are trusted to agree, as they do in what VSS and the provider produce.
void FreeLunInformation(VDS_LUN_INFORMATION& lun);

// A record that frees itself; empty (all zero) until built.
class CLunRecord
{
public:
    CLunRecord();
    // Builds from `builder`; check Built() when allocations may fail.
    explicit CLunRecord(const CLunBuilder& builder);
    ~CLunRecord();
    CLunRecord(const CLunRecord&) = delete;
    CLunRecord& operator=(const CLunRecord&) = delete;

    bool Built() const { return m_fBuilt; }
    VDS_LUN_INFORMATION& Get() { return m_lun; }
    VDS_LUN_INFORMATION* operator->() { return &m_lun; }
    VDS_LUN_INFORMATION& operator*() { return m_lun; }

private:
    VDS_LUN_INFORMATION m_lun;
    bool m_fBuilt = false;
};

} // namespace vsssim
