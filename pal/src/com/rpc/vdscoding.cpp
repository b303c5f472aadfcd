// The coding of VDS LUN records.
#include "pal/src/com/rpc/vdscoding.h"

#include <cstring>

namespace pal::detail::rpc {
namespace {

// Identifiers and interconnects: two numbers and at least one byte block's length.
constexpr size_t kMinPartBytes = 3 * 4;

void PutAnsi(CWriter& writer, const char* psz)
{
    writer.PutBytes(psz, psz ? static_cast<uint32_t>(std::strlen(psz)) : 0);
}

// A block of cb bytes (cbExtra more, zeroed) from the task allocator; null for a null block.
HRESULT GetBlock(CReader& reader, size_t cbExtra, BYTE** ppb, ULONG* pcb)
{
    const void* pb = nullptr;
    uint32_t cb = 0;
    if (!reader.GetBytes(&pb, &cb))
        return RPC_E_INVALID_DATA;
    if (!pb)
        return S_OK;
    // An empty block stays a block, apart from a null pointer.
    auto* pCopy = static_cast<BYTE*>(CoTaskMemAlloc((cb + cbExtra) ? cb + cbExtra : 1));
    if (!pCopy)
        return E_OUTOFMEMORY;
    std::memcpy(pCopy, pb, cb);
    std::memset(pCopy + cb, 0, cbExtra);
    *ppb = pCopy;
    if (pcb)
        *pcb = cb;
    return S_OK;
}

HRESULT GetAnsi(CReader& reader, char** ppsz)
{
    return GetBlock(reader, 1, reinterpret_cast<BYTE**>(ppsz), nullptr);
}

// Reads a count of parts and allocates them zeroed, so that Free can run at any point after.
template <class T>
HRESULT GetParts(CReader& reader, T** ppParts, ULONG* pc)
{
    uint32_t c = 0;
    if (!reader.GetU32(&c) || c > kMaxArrayElements || reader.Remaining() / kMinPartBytes < c)
        return RPC_E_INVALID_DATA;
    if (c == 0)
        return S_OK;
    *ppParts = static_cast<T*>(CoTaskMemAlloc(sizeof(T) * c));
    if (!*ppParts)
        return E_OUTOFMEMORY;
    std::memset(static_cast<void*>(*ppParts), 0, sizeof(T) * c);
    *pc = c;
    return S_OK;
}

HRESULT GetFields(CReader& reader, VDS_LUN_INFORMATION& lun)
{
    uint32_t adw[5] = {};
    for (uint32_t& dw : adw)
        if (!reader.GetU32(&dw))
            return RPC_E_INVALID_DATA;
    lun.m_version = adw[0];
    lun.m_DeviceType = static_cast<BYTE>(adw[1]);
    lun.m_DeviceTypeModifier = static_cast<BYTE>(adw[2]);
    lun.m_bCommandQueueing = static_cast<BOOL>(adw[3]);
    lun.m_BusType = static_cast<VDS_STORAGE_BUS_TYPE>(adw[4]);
    HRESULT hr = S_OK;
    for (char** ppsz :
         {&lun.m_szVendorId, &lun.m_szProductId, &lun.m_szProductRevision, &lun.m_szSerialNumber})
        if (FAILED(hr = GetAnsi(reader, ppsz)))
            return hr;
    if (!reader.GetGuid(&lun.m_diskSignature) || !reader.GetU32(&adw[0]))
        return RPC_E_INVALID_DATA;
    VDS_STORAGE_DEVICE_ID_DESCRIPTOR& descriptor = lun.m_deviceIdDescriptor;
    descriptor.m_version = adw[0];
    if (FAILED(hr = GetParts(reader, &descriptor.m_rgIdentifiers, &descriptor.m_cIdentifiers)))
        return hr;
    for (ULONG i = 0; i < descriptor.m_cIdentifiers; ++i) {
        VDS_STORAGE_IDENTIFIER& id = descriptor.m_rgIdentifiers[i];
        if (!reader.GetU32(&adw[0]) || !reader.GetU32(&adw[1]))
            return RPC_E_INVALID_DATA;
        id.m_CodeSet = static_cast<VDS_STORAGE_IDENTIFIER_CODE_SET>(adw[0]);
        id.m_Type = static_cast<VDS_STORAGE_IDENTIFIER_TYPE>(adw[1]);
        if (FAILED(hr = GetBlock(reader, 0, &id.m_rgbIdentifier, &id.m_cbIdentifier)))
            return hr;
    }
    if (FAILED(hr = GetParts(reader, &lun.m_rgInterconnects, &lun.m_cInterconnects)))
        return hr;
    for (ULONG i = 0; i < lun.m_cInterconnects; ++i) {
        VDS_INTERCONNECT& ic = lun.m_rgInterconnects[i];
        if (!reader.GetU32(&adw[0]))
            return RPC_E_INVALID_DATA;
        ic.m_addressType = static_cast<VDS_INTERCONNECT_ADDRESS_TYPE>(adw[0]);
        if (FAILED(hr = GetBlock(reader, 0, &ic.m_pbPort, &ic.m_cbPort)) ||
            FAILED(hr = GetBlock(reader, 0, &ic.m_pbAddress, &ic.m_cbAddress)))
            return hr;
    }
    return S_OK;
}

} // namespace

void Coding<VDS_LUN_INFORMATION>::Put(CWriter& writer, const VDS_LUN_INFORMATION& lun)
{
    writer.PutU32(lun.m_version);
    writer.PutU32(lun.m_DeviceType);
    writer.PutU32(lun.m_DeviceTypeModifier);
    writer.PutU32(static_cast<uint32_t>(lun.m_bCommandQueueing));
    writer.PutU32(static_cast<uint32_t>(lun.m_BusType));
    PutAnsi(writer, lun.m_szVendorId);
    PutAnsi(writer, lun.m_szProductId);
    PutAnsi(writer, lun.m_szProductRevision);
    PutAnsi(writer, lun.m_szSerialNumber);
    writer.PutGuid(lun.m_diskSignature);
    const VDS_STORAGE_DEVICE_ID_DESCRIPTOR& descriptor = lun.m_deviceIdDescriptor;
    writer.PutU32(descriptor.m_version);
    // Parts behind a null pointer travel as none.
    ULONG cIdentifiers = descriptor.m_rgIdentifiers ? descriptor.m_cIdentifiers : 0;
    writer.PutU32(cIdentifiers);
    for (ULONG i = 0; i < cIdentifiers; ++i) {
        const VDS_STORAGE_IDENTIFIER& id = descriptor.m_rgIdentifiers[i];
        writer.PutU32(static_cast<uint32_t>(id.m_CodeSet));
        writer.PutU32(static_cast<uint32_t>(id.m_Type));
        writer.PutBytes(id.m_rgbIdentifier, id.m_cbIdentifier);
    }
    ULONG cInterconnects = lun.m_rgInterconnects ? lun.m_cInterconnects : 0;
    writer.PutU32(cInterconnects);
    for (ULONG i = 0; i < cInterconnects; ++i) {
        const VDS_INTERCONNECT& ic = lun.m_rgInterconnects[i];
        writer.PutU32(static_cast<uint32_t>(ic.m_addressType));
        writer.PutBytes(ic.m_pbPort, ic.m_cbPort);
        writer.PutBytes(ic.m_pbAddress, ic.m_cbAddress);
    }
}

HRESULT Coding<VDS_LUN_INFORMATION>::Get(CReader& reader, VDS_LUN_INFORMATION* pLun)
{
    *pLun = {};
    HRESULT hr = GetFields(reader, *pLun);
    if (FAILED(hr))
        Free(*pLun);
    return hr;
}

void Coding<VDS_LUN_INFORMATION>::Free(VDS_LUN_INFORMATION& lun)
{
    for (char* psz :
         {lun.m_szVendorId, lun.m_szProductId, lun.m_szProductRevision, lun.m_szSerialNumber})
        CoTaskMemFree(psz);
    VDS_STORAGE_DEVICE_ID_DESCRIPTOR& descriptor = lun.m_deviceIdDescriptor;
    for (ULONG i = 0; descriptor.m_rgIdentifiers && i < descriptor.m_cIdentifiers; ++i)
        CoTaskMemFree(descriptor.m_rgIdentifiers[i].m_rgbIdentifier);
    CoTaskMemFree(descriptor.m_rgIdentifiers);
    for (ULONG i = 0; lun.m_rgInterconnects && i < lun.m_cInterconnects; ++i) {
        CoTaskMemFree(lun.m_rgInterconnects[i].m_pbPort);
        CoTaskMemFree(lun.m_rgInterconnects[i].m_pbAddress);
    }
    CoTaskMemFree(lun.m_rgInterconnects);
    lun = {};
}

} // namespace pal::detail::rpc
