// The test provider that the test COM server serves (CLSID_TestProvider, with "serve journal"):
// the VSS provider interfaces and IOrvaneHardwareProvider. For each call it says one line on its
// standard output, Line(method, what it received...), and it rewrites the i-th [in,out] record
// it is given as RewrittenLun(i). The test describes what it sent with the same words.
#pragma once

#include "pal/oleauto.h"
#include "pal/vsprov.h"
#include "provider/orvprov.h"
#include "tests/support/lunbuilder.h"

#include <cstdio>
#include <string>
#include <type_traits>

namespace orvtest::com {

// {6A2F7C1B-8E40-4F32-AB5C-1D2E3F405164}
inline constexpr CLSID CLSID_TestProvider = {
    0x6A2F7C1B, 0x8E40, 0x4F32, {0xAB, 0x5C, 0x1D, 0x2E, 0x3F, 0x40, 0x51, 0x64}};

// Null apart from empty; bytes and other units than ASCII's in hex.
template <class C>
std::string Text(const C* p, size_t c)
{
    std::string text = p ? "'" : "null";
    for (size_t i = 0; p && i < c; ++i) {
        char sz[8];
        auto ch = static_cast<std::make_unsigned_t<C>>(p[i]);
        std::snprintf(sz, sizeof(sz), ch >= 0x20 && ch < 0x7F ? "%c" : "\\%x;", ch);
        text += sz;
    }
    return p ? text + "'" : text;
}
template <class C>
requires(std::is_same_v<C, char> || std::is_same_v<C, WCHAR>) std::string Text(const C* psz)
{
    return Text(psz, psz ? std::char_traits<C>::length(psz) : 0);
}
inline std::string BstrText(BSTR bstr)
{
    return Text(bstr, bstr ? SysStringLen(bstr) : 0);
}
inline std::string Text(const GUID& guid)
{
    return Text(reinterpret_cast<const BYTE*>(&guid), sizeof(guid));
}
inline std::string Text(long long ll)
{
    return std::to_string(ll);
}
inline std::string Text(const std::string& text)
{
    return text;
}
inline std::string Text(const VDS_LUN_INFORMATION& lun)
{
    const VDS_STORAGE_DEVICE_ID_DESCRIPTOR& ids = lun.m_deviceIdDescriptor;
    std::string text = "{";
    for (long long ll :
         {0LL + lun.m_version, 0LL + lun.m_DeviceType, 0LL + lun.m_DeviceTypeModifier,
          0LL + lun.m_bCommandQueueing, 0LL + lun.m_BusType})
        text += Text(ll) + " ";
    for (const char* psz :
         {lun.m_szVendorId, lun.m_szProductId, lun.m_szProductRevision, lun.m_szSerialNumber})
        text += Text(psz) + " ";
    text += Text(lun.m_diskSignature) + " " + Text(ids.m_version) + " [";
    for (ULONG i = 0; i < ids.m_cIdentifiers; ++i) {
        const VDS_STORAGE_IDENTIFIER& id = ids.m_rgIdentifiers[i];
        text += Text(id.m_CodeSet) + "/" + Text(id.m_Type) + "/" +
                Text(id.m_rgbIdentifier, id.m_cbIdentifier) + " ";
    }
    text += "] [";
    for (ULONG i = 0; i < lun.m_cInterconnects; ++i) {
        const VDS_INTERCONNECT& ic = lun.m_rgInterconnects[i];
        text += Text(ic.m_addressType) + "/" + Text(ic.m_pbPort, ic.m_cbPort) + "/" +
                Text(ic.m_pbAddress, ic.m_cbAddress) + " ";
    }
    return text + "]}";
}
template <class T>
std::string Texts(const T* p, long long c)
{
    std::string text;
    for (long long i = 0; i < c; ++i)
        text.append(i ? "," : "").append(Text(p[i]));
    return text;
}

template <class... A>
std::string Line(const char* pszMethod, const A&... args)
{
    std::string line = pszMethod;
    (line.append(" ").append(Text(args)), ...);
    return line;
}

// A record unlike any the test sends: every kind of field set, a null string, an empty one, an
// identifier with a NUL byte, an interconnect without a port.
inline CLunBuilder RewrittenLun(int i)
{
    return CLunBuilder::OrvaneLun(i ? "REWRITTEN001" : "REWRITTEN000")
        .DeviceType(0x1F, 0x02)
        .CommandQueueing(TRUE)
        .BusType(VDSBusTypeiScsi)
        .ProductId("")
        .ProductRevision(nullptr)
        .DiskSignature({0x12345678, 0x9ABC, static_cast<unsigned short>(i), {1, 2, 3}})
        .DescriptorVersion(7)
        .AddIdentifier(VDSStorageIdCodeSetBinary, VDSStorageIdTypeEUI64, std::string("\0\xFF", 2))
        .AddInterconnect(VDS_IA_FCPH, std::nullopt, "\x01\x02")
        .AddScsiInterconnect("/vol/vol1/lun_ss", "filer1:/vol/vol1/lun:snap");
}

} // namespace orvtest::com
