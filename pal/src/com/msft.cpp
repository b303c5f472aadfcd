// The MSFT type library format, read as far as the pal needs it: the header, the GUID, name and
// string tables and the base record of each type description. Every offset is checked against
// the bytes, so a damaged library is refused rather than read past its end.
#include "pal/src/com/typelibdata.h"

#include <cstdint>
#include <cstring>

namespace pal::detail {
namespace {

// The header's 32-bit words that are read: [0] "MSFT", [2] the LIBID's offset, [4] lcid,
// [5] syskind (low 4 bits) and flags, [6] version, [7] library flags, [8] number of type
// descriptions, [9] help string, [11] help context, [14] name, [15] help file. And of a type
// description's base record: [0] kind, [11] GUID, [12] flags, [13] name, [15] help string,
// [17] help context.
constexpr size_t kHeaderWords = 21;
constexpr size_t kTypeInfoWords = 25;
constexpr size_t kSegments = 15; // the segment directory's entries (offset, length, -1, 0x0F)

// The segments that are read.
enum Segment
{
    kTypeInfoTab = 0,
    kImpInfo = 1,
    kGuidTab = 5,
    kNameTab = 7,
    kStringTab = 8
};

class CMsftReader
{
public:
    CMsftReader(const BYTE* pData, size_t cbData) : m_pData(pData), m_cbData(cbData) {}

    // cWords 32-bit words at offset; false when they pass the end.
    bool Words(size_t offset, int32_t* pWords, size_t cWords) const
    {
        if (offset > m_cbData || (m_cbData - offset) / sizeof(int32_t) < cWords)
            return false;
        std::memcpy(pWords, m_pData + offset, cWords * sizeof(int32_t));
        return true;
    }
    // As Wine does, two segments' fixed marker tells a directory from garbage.
    bool ReadDirectory(size_t offset)
    {
        return Words(offset, &m_segments[0][0], kSegments * 4) &&
               m_segments[kTypeInfoTab][3] == 0x0F && m_segments[kImpInfo][3] == 0x0F;
    }
    // The cb bytes at offset of a segment; null when they leave the segment or the file.
    const BYTE* At(Segment segment, int32_t offset, size_t cb) const
    {
        int32_t segOffset = m_segments[segment][0];
        int32_t segLength = m_segments[segment][1];
        if (offset < 0 || segOffset < 0 || segLength < offset || size_t(segOffset) > m_cbData ||
            size_t(segLength) > m_cbData - size_t(segOffset) || size_t(segLength - offset) < cb)
            return nullptr;
        return m_pData + segOffset + offset;
    }

    // In the GUID, name and string tables a negative offset stands for "none".
    bool Guid(int32_t offset, GUID* pGuid) const
    {
        const BYTE* p = offset < 0 ? nullptr : At(kGuidTab, offset, sizeof(GUID));
        if (p)
            std::memcpy(pGuid, p, sizeof(GUID));
        return offset < 0 || p;
    }
    // A name: three words (the low byte of the third is its length), then its characters.
    bool Name(int32_t offset, std::optional<std::u16string>* pName) const
    {
        int32_t intro[3];
        const BYTE* p = offset < 0 ? nullptr : At(kNameTab, offset, sizeof(intro));
        if (p)
            std::memcpy(intro, p, sizeof(intro));
        return offset < 0 || (p && Text(kNameTab, offset, sizeof(intro), intro[2] & 0xFF, pName));
    }
    // A string: a 16-bit length, then its characters; an empty one counts as none.
    bool String(int32_t offset, std::optional<std::u16string>* pString) const
    {
        int16_t length = 0;
        const BYTE* p = offset < 0 ? nullptr : At(kStringTab, offset, sizeof(length));
        if (p)
            std::memcpy(&length, p, sizeof(length));
        return offset < 0 || (p && (length <= 0 || Text(kStringTab, offset, sizeof(length),
                                                        size_t(length), pString)));
    }

private:
    // The tables hold single-byte text; MIDL and widl write ASCII, taken here as Latin-1.
    bool Text(Segment segment, int32_t offset, size_t cbPrefix, size_t cch,
              std::optional<std::u16string>* pText) const
    {
        const BYTE* p = At(segment, offset, cbPrefix + cch);
        if (p)
            pText->emplace(p + cbPrefix, p + cbPrefix + cch);
        return p != nullptr;
    }

    const BYTE* m_pData;
    size_t m_cbData;
    int32_t m_segments[kSegments][4] = {};
};

} // namespace

bool ParseMsftTypeLib(const BYTE* pData, size_t cbData, CTypeLibraryData* pLib)
{
    CMsftReader reader(pData, cbData);
    int32_t h[kHeaderWords];
    if (!reader.Words(0, h, kHeaderWords) || h[0] != 0x5446534D /* "MSFT" */ || h[8] < 0 ||
        size_t(h[8]) > cbData / (kTypeInfoWords * 4))
        return false;
    // After the header: the help DLL's offset when flag 0x100 says there is one, then one
    // offset per type description, then the segment directory.
    if (!reader.ReadDirectory(kHeaderWords * 4 + ((h[5] & 0x100) ? 4 : 0) + size_t(h[8]) * 4))
        return false;

    TLIBATTR& attr = pLib->m_attr;
    attr.lcid = LCID(h[4]);
    attr.syskind = SYSKIND(h[5] & 0x0F);
    attr.wMajorVerNum = LOWORD(h[6]);
    attr.wMinorVerNum = HIWORD(h[6]);
    // Loading marks the library as read from a file, as Windows' loader does.
    attr.wLibFlags = WORD(h[7] | LIBFLAG_FHASDISKIMAGE);
    pLib->m_dwHelpContext = DWORD(h[11]);
    if (!reader.Guid(h[2], &attr.guid) || !reader.Name(h[14], &pLib->m_name) ||
        !reader.String(h[9], &pLib->m_doc) || !reader.String(h[15], &pLib->m_helpFile))
        return false;

    pLib->m_types.resize(size_t(h[8]));
    for (size_t i = 0; i < pLib->m_types.size(); ++i) {
        int32_t t[kTypeInfoWords];
        const BYTE* p = reader.At(kTypeInfoTab, int32_t(i * sizeof(t)), sizeof(t));
        if (!p)
            return false;
        std::memcpy(t, p, sizeof(t));
        CTypeDescription& type = pLib->m_types[i];
        std::optional<std::u16string> name;
        type.m_kind = TYPEKIND(t[0] & 0x0F);
        type.m_wFlags = WORD(t[12]);
        type.m_dwHelpContext = DWORD(t[17]);
        if (!reader.Guid(t[11], &type.m_guid) || !reader.Name(t[13], &name) ||
            !reader.String(t[15], &type.m_doc))
            return false;
        type.m_name = name.value_or(std::u16string());
    }
    return true;
}

} // namespace pal::detail
