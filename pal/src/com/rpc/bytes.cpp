// The byte coding of a method's request and reply.
#include "pal/src/com/rpc/marshal.h"

#include <cstring>

namespace pal::detail::rpc {

CWriter::~CWriter()
{
    for (auto& object : m_objects)
        object.second->Release();
}

void CWriter::PutU32(uint32_t dw)
{
    for (int i = 0; i < 4; ++i)
        m_bytes.push_back(static_cast<uint8_t>(dw >> (8 * i)));
}

void CWriter::PutGuid(REFGUID guid)
{
    const auto* pb = reinterpret_cast<const uint8_t*>(&guid);
    m_bytes.insert(m_bytes.end(), pb, pb + sizeof(GUID));
}

void CWriter::PutString(const WCHAR* psz)
{
    if (!psz) {
        PutU32(0xFFFFFFFF);
        return;
    }
    std::u16string_view text(reinterpret_cast<const char16_t*>(psz));
    PutU32(static_cast<uint32_t>(text.size()));
    for (char16_t ch : text) {
        m_bytes.push_back(static_cast<uint8_t>(ch));
        m_bytes.push_back(static_cast<uint8_t>(ch >> 8));
    }
}

void CWriter::PutObject(IUnknown* pItf, REFIID riid)
{
    if (pItf)
        pItf->AddRef();
    m_objects.emplace_back(riid, pItf);
}

CReader::CReader(std::vector<uint8_t> bytes, std::vector<std::pair<IID, CRemote*>> objects)
    : m_bytes(std::move(bytes)), m_objects(std::move(objects))
{}

void CReader::Assign(std::vector<uint8_t> bytes, std::vector<std::pair<IID, CRemote*>> objects)
{
    m_bytes = std::move(bytes);
    m_ich = 0;
    m_objects = std::move(objects);
    m_iObject = 0;
}

CReader::~CReader()
{
    for (size_t i = m_iObject; i < m_objects.size(); ++i)
        if (m_objects[i].second)
            ReleaseRemote(m_objects[i].second);
}

bool CReader::Take(void* p, size_t cb)
{
    if (m_bytes.size() - m_ich < cb)
        return false;
    std::memcpy(p, m_bytes.data() + m_ich, cb);
    m_ich += cb;
    return true;
}

bool CReader::GetU32(uint32_t* pdw)
{
    uint8_t ab[4];
    if (!Take(ab, 4))
        return false;
    *pdw = ab[0] | (ab[1] << 8) | (ab[2] << 16) | (static_cast<uint32_t>(ab[3]) << 24);
    return true;
}

bool CReader::GetGuid(GUID* pguid)
{
    return Take(pguid, sizeof(GUID));
}

bool CReader::GetString(std::u16string* pstr, bool* pfNull)
{
    uint32_t cch = 0;
    if (!GetU32(&cch))
        return false;
    *pfNull = cch == 0xFFFFFFFF;
    pstr->clear();
    if (*pfNull)
        return true;
    if ((m_bytes.size() - m_ich) / 2 < cch)
        return false;
    for (uint32_t i = 0; i < cch; ++i, m_ich += 2)
        pstr->push_back(static_cast<char16_t>(m_bytes[m_ich] | (m_bytes[m_ich + 1] << 8)));
    return true;
}

HRESULT CReader::GetObject(REFIID riid, void** ppv)
{
    *ppv = nullptr;
    if (m_iObject >= m_objects.size())
        return RPC_E_INVALID_DATA;
    CRemote* pRemote = m_objects[m_iObject++].second;
    if (!pRemote)
        return S_OK;
    const InterfaceMarshaler* pMarshaler = FindInterfaceMarshaler(riid);
    HRESULT hr = pMarshaler ? pMarshaler->pfnCreateProxy(pRemote, ppv) : E_NOINTERFACE;
    ReleaseRemote(pRemote);
    return hr;
}

} // namespace pal::detail::rpc
