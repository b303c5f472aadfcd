// The VDS LUN information record and its parts, as VSS hands them to a hardware provider
// (vdslun.h). Layouts are those of a 64-bit Windows build; every pointer inside a record is
// memory of the COM task allocator and belongs to the record.
#pragma once

#include "pal/guiddef.h"
#include "pal/windef.h"

#include <cstddef>

#define VER_VDS_LUN_INFORMATION 1

enum VDS_STORAGE_IDENTIFIER_CODE_SET : int
{
    VDSStorageIdCodeSetReserved = 0,
    VDSStorageIdCodeSetBinary = 1,
    VDSStorageIdCodeSetAscii = 2,
    VDSStorageIdCodeSetUtf8 = 3,
};

enum VDS_STORAGE_IDENTIFIER_TYPE : int
{
    VDSStorageIdTypeVendorSpecific = 0,
    VDSStorageIdTypeVendorId = 1,
    VDSStorageIdTypeEUI64 = 2,
    VDSStorageIdTypeFCPHName = 3,
    VDSStorageIdTypePortRelative = 4,
    VDSStorageIdTypeTargetPortGroup = 5,
    VDSStorageIdTypeLogicalUnitGroup = 6,
    VDSStorageIdTypeMD5LogicalUnitIdentifier = 7,
    VDSStorageIdTypeScsiNameString = 8,
};

enum VDS_STORAGE_BUS_TYPE : int
{
    VDSBusTypeUnknown = 0x0,
    VDSBusTypeScsi = 0x1,
    VDSBusTypeAtapi = 0x2,
    VDSBusTypeAta = 0x3,
    VDSBusType1394 = 0x4,
    VDSBusTypeSsa = 0x5,
    VDSBusTypeFibre = 0x6,
    VDSBusTypeUsb = 0x7,
    VDSBusTypeRAID = 0x8,
    VDSBusTypeiScsi = 0x9,
    VDSBusTypeSas = 0xa,
    VDSBusTypeSata = 0xb,
    VDSBusTypeSd = 0xc,
    VDSBusTypeMmc = 0xd,
    VDSBusTypeMax = 0xe,
    VDSBusTypeVirtual = 0xe,
    VDSBusTypeFileBackedVirtual = 0xf,
    VDSBusTypeSpaces = 0x10,
    VDSBusTypeNVMe = 0x11,
    VDSBusTypeScm = 0x12,
    VDSBusTypeUfs = 0x13,
    VDSBusTypeMaxReserved = 0x7f,
};

enum VDS_INTERCONNECT_ADDRESS_TYPE : int
{
    VDS_IA_UNKNOWN = 0,
    VDS_IA_FCFS = 1,
    VDS_IA_FCPH = 2,
    VDS_IA_FCPH3 = 3,
    VDS_IA_MAC = 4,
    VDS_IA_SCSI = 5,
};

struct VDS_STORAGE_IDENTIFIER
{
    VDS_STORAGE_IDENTIFIER_CODE_SET m_CodeSet;
    VDS_STORAGE_IDENTIFIER_TYPE m_Type;
    ULONG m_cbIdentifier;
    BYTE* m_rgbIdentifier;
};

struct VDS_STORAGE_DEVICE_ID_DESCRIPTOR
{
    ULONG m_version;
    ULONG m_cIdentifiers;
    VDS_STORAGE_IDENTIFIER* m_rgIdentifiers;
};

struct VDS_INTERCONNECT
{
    VDS_INTERCONNECT_ADDRESS_TYPE m_addressType;
    ULONG m_cbPort;
    BYTE* m_pbPort;
    ULONG m_cbAddress;
    BYTE* m_pbAddress;
};

struct VDS_LUN_INFORMATION
{
    ULONG m_version;
    BYTE m_DeviceType;
    BYTE m_DeviceTypeModifier;
    BOOL m_bCommandQueueing;
    VDS_STORAGE_BUS_TYPE m_BusType;
    char* m_szVendorId;
    char* m_szProductId;
    char* m_szProductRevision;
    char* m_szSerialNumber;
    GUID m_diskSignature;
    VDS_STORAGE_DEVICE_ID_DESCRIPTOR m_deviceIdDescriptor;
    ULONG m_cInterconnects;
    VDS_INTERCONNECT* m_rgInterconnects;
};

// The records cross the VSS interface unchanged, so they must match Windows byte for byte.
static_assert(sizeof(VDS_STORAGE_IDENTIFIER_CODE_SET) == 4);
static_assert(sizeof(VDS_STORAGE_IDENTIFIER_TYPE) == 4);
static_assert(sizeof(VDS_STORAGE_BUS_TYPE) == 4);
static_assert(sizeof(VDS_INTERCONNECT_ADDRESS_TYPE) == 4);

static_assert(sizeof(VDS_STORAGE_IDENTIFIER) == 24);
static_assert(offsetof(VDS_STORAGE_IDENTIFIER, m_CodeSet) == 0);
static_assert(offsetof(VDS_STORAGE_IDENTIFIER, m_Type) == 4);
static_assert(offsetof(VDS_STORAGE_IDENTIFIER, m_cbIdentifier) == 8);
static_assert(offsetof(VDS_STORAGE_IDENTIFIER, m_rgbIdentifier) == 16);

static_assert(sizeof(VDS_STORAGE_DEVICE_ID_DESCRIPTOR) == 16);
static_assert(offsetof(VDS_STORAGE_DEVICE_ID_DESCRIPTOR, m_version) == 0);
static_assert(offsetof(VDS_STORAGE_DEVICE_ID_DESCRIPTOR, m_cIdentifiers) == 4);
static_assert(offsetof(VDS_STORAGE_DEVICE_ID_DESCRIPTOR, m_rgIdentifiers) == 8);

static_assert(sizeof(VDS_INTERCONNECT) == 32);
static_assert(offsetof(VDS_INTERCONNECT, m_addressType) == 0);
static_assert(offsetof(VDS_INTERCONNECT, m_cbPort) == 4);
static_assert(offsetof(VDS_INTERCONNECT, m_pbPort) == 8);
static_assert(offsetof(VDS_INTERCONNECT, m_cbAddress) == 16);
static_assert(offsetof(VDS_INTERCONNECT, m_pbAddress) == 24);

static_assert(sizeof(VDS_LUN_INFORMATION) == 96);
static_assert(offsetof(VDS_LUN_INFORMATION, m_version) == 0);
static_assert(offsetof(VDS_LUN_INFORMATION, m_DeviceType) == 4);
static_assert(offsetof(VDS_LUN_INFORMATION, m_DeviceTypeModifier) == 5);
static_assert(offsetof(VDS_LUN_INFORMATION, m_bCommandQueueing) == 8);
static_assert(offsetof(VDS_LUN_INFORMATION, m_BusType) == 12);
static_assert(offsetof(VDS_LUN_INFORMATION, m_szVendorId) == 16);
static_assert(offsetof(VDS_LUN_INFORMATION, m_szProductId) == 24);
static_assert(offsetof(VDS_LUN_INFORMATION, m_szProductRevision) == 32);
static_assert(offsetof(VDS_LUN_INFORMATION, m_szSerialNumber) == 40);
static_assert(offsetof(VDS_LUN_INFORMATION, m_diskSignature) == 48);
static_assert(offsetof(VDS_LUN_INFORMATION, m_deviceIdDescriptor) == 64);
static_assert(offsetof(VDS_LUN_INFORMATION, m_cInterconnects) == 80);
static_assert(offsetof(VDS_LUN_INFORMATION, m_rgInterconnects) == 88);
