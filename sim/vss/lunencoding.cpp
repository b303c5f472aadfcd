// The inventory's form of a LUN record: little-endian 32-bit numbers, byte strings as a
// presence byte, a length and the bytes. Decoding goes through the record builder, so a decoded
// record is made exactly as the records VSS hands out.
#include "lunencoding.h"

#include "lunbuilder.h"

#include <cstring>
#include <optional>

namespace vsssim {

namespace {

class CWriter
{
public:
    void Number(ULONG value)
    {
        for (int i = 0; i < 4; ++i)
            m_bytes.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
    }
    void Bytes(const void* pv, size_t cb)
    {
        m_bytes.push_back(pv ? 1 : 0);
        if (!pv)
            return;
        Number(static_cast<ULONG>(cb));
        m_bytes.append(static_cast<const char*>(pv), cb);
    }
    void Text(const char* psz) { Bytes(psz, psz ? std::strlen(psz) : 0); }
    std::string Take() { return std::move(m_bytes); }

private:
    std::string m_bytes;
};

struct CBadBytes
{};

class CReader
{
public:
    explicit CReader(const std::string& bytes) : m_bytes(bytes) {}
    ULONG Number()
    {
        Need(4);
        ULONG value = 0;
        for (int i = 0; i < 4; ++i)
            value |= static_cast<ULONG>(static_cast<BYTE>(m_bytes[m_pos + i])) << (8 * i);
        m_pos += 4;
        return value;
    }
    std::optional<std::string> Bytes()
    {
        Need(1);
        if (m_bytes[m_pos++] == 0)
            return std::nullopt;
        ULONG cb = Number();
        Need(cb);
        std::string value = m_bytes.substr(m_pos, cb);
        m_pos += cb;
        return value;
    }
    bool AtEnd() const { return m_pos == m_bytes.size(); }

private:
    void Need(size_t cb) const
    {
        if (m_bytes.size() - m_pos < cb)
            throw CBadBytes{};
    }
    const std::string& m_bytes;
    size_t m_pos = 0;
};

} // namespace

std::string EncodeLunInformation(const VDS_LUN_INFORMATION& lun)
{
    CWriter writer;
    writer.Number(lun.m_version);
    writer.Number(lun.m_DeviceType);
    writer.Number(lun.m_DeviceTypeModifier);
    writer.Number(static_cast<ULONG>(lun.m_bCommandQueueing));
    writer.Number(static_cast<ULONG>(lun.m_BusType));
    writer.Text(lun.m_szVendorId);
    writer.Text(lun.m_szProductId);
    writer.Text(lun.m_szProductRevision);
    writer.Text(lun.m_szSerialNumber);
    writer.Bytes(&lun.m_diskSignature, sizeof(GUID));
    const VDS_STORAGE_DEVICE_ID_DESCRIPTOR& descriptor = lun.m_deviceIdDescriptor;
    writer.Number(descriptor.m_version);
    ULONG cIdentifiers = descriptor.m_rgIdentifiers ? descriptor.m_cIdentifiers : 0;
    writer.Number(cIdentifiers);
    for (ULONG i = 0; i < cIdentifiers; ++i) {
        const VDS_STORAGE_IDENTIFIER& id = descriptor.m_rgIdentifiers[i];
        writer.Number(static_cast<ULONG>(id.m_CodeSet));
        writer.Number(static_cast<ULONG>(id.m_Type));
        writer.Bytes(id.m_rgbIdentifier, id.m_cbIdentifier);
    }
    ULONG cInterconnects = lun.m_rgInterconnects ? lun.m_cInterconnects : 0;
    writer.Number(cInterconnects);
    for (ULONG i = 0; i < cInterconnects; ++i) {
        const VDS_INTERCONNECT& ic = lun.m_rgInterconnects[i];
        writer.Number(static_cast<ULONG>(ic.m_addressType));
        writer.Bytes(ic.m_pbPort, ic.m_cbPort);
        writer.Bytes(ic.m_pbAddress, ic.m_cbAddress);
    }
    return writer.Take();
}

HRESULT DecodeLunInformation(const std::string& bytes, VDS_LUN_INFORMATION* pLun)
{
    std::memset(static_cast<void*>(pLun), 0, sizeof(*pLun));
    CLunBuilder builder;
    try {
        CReader reader(bytes);
        builder.Version(reader.Number());
        BYTE deviceType = static_cast<BYTE>(reader.Number());
        builder.DeviceType(deviceType, static_cast<BYTE>(reader.Number()));
        builder.CommandQueueing(static_cast<BOOL>(reader.Number()));
        builder.BusType(static_cast<VDS_STORAGE_BUS_TYPE>(reader.Number()));
        std::optional<std::string> texts[4];
        for (auto& text : texts)
            text = reader.Bytes();
        builder.VendorId(texts[0] ? texts[0]->c_str() : nullptr);
        builder.ProductId(texts[1] ? texts[1]->c_str() : nullptr);
        builder.ProductRevision(texts[2] ? texts[2]->c_str() : nullptr);
        builder.SerialNumber(texts[3] ? texts[3]->c_str() : nullptr);
        std::optional<std::string> signature = reader.Bytes();
        if (!signature || signature->size() != sizeof(GUID))
            return E_INVALIDARG;
        GUID guid;
        std::memcpy(&guid, signature->data(), sizeof(guid));
        builder.DiskSignature(guid);
        builder.DescriptorVersion(reader.Number());
        for (ULONG i = 0, c = reader.Number(); i < c; ++i) {
            auto codeSet = static_cast<VDS_STORAGE_IDENTIFIER_CODE_SET>(reader.Number());
            auto type = static_cast<VDS_STORAGE_IDENTIFIER_TYPE>(reader.Number());
            builder.AddIdentifier(codeSet, type, reader.Bytes().value_or(std::string()));
        }
        for (ULONG i = 0, c = reader.Number(); i < c; ++i) {
            auto addressType = static_cast<VDS_INTERCONNECT_ADDRESS_TYPE>(reader.Number());
            std::optional<std::string> port = reader.Bytes();
            builder.AddInterconnect(addressType, std::move(port), reader.Bytes());
        }
        if (!reader.AtEnd())
            return E_INVALIDARG;
    } catch (const CBadBytes&) {
        return E_INVALIDARG;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return builder.Build(*pLun) ? S_OK : E_OUTOFMEMORY;
}

HRESULT CopyLunInformation(const VDS_LUN_INFORMATION& source, VDS_LUN_INFORMATION* pCopy)
{
    try {
        return DecodeLunInformation(EncodeLunInformation(source), pCopy);
    } catch (const std::bad_alloc&) {
        std::memset(static_cast<void*>(pCopy), 0, sizeof(*pCopy));
        return E_OUTOFMEMORY;
    }
}

} // namespace vsssim
