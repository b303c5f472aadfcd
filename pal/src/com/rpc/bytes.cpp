// The byte coding of a method's request and reply.
#include "pal/src/com/rpc/marshal.h"

#include <bit>
#include <cstring>

namespace pal::detail::rpc {

// Units and numbers are copied as they lie in memory.
static_assert(std::endian::native == std::endian::little);

namespace {
constexpr uint32_t kNull = 0xFFFFFFFF;
}

CWriter::~CWriter()
{
    for (auto& object : m_objects)
        object.second->Release();
}

void CWriter::PutU32(uint32_t dw)
{
    const auto* pb = reinterpret_cast<const uint8_t*>(&dw);
    m_bytes.insert(m_bytes.end(), pb, pb + sizeof(dw));
}

void CWriter::PutU64(uint64_t ull)
{
    const auto* pb = reinterpret_cast<const uint8_t*>(&ull);
    m_bytes.insert(m_bytes.end(), pb, pb + sizeof(ull));
}

void CWriter::PutGuid(REFGUID guid)
{
    const auto* pb = reinterpret_cast<const uint8_t*>(&guid);
    m_bytes.insert(m_bytes.end(), pb, pb + sizeof(GUID));
}

void CWriter::PutString(const WCHAR* psz)
{
    PutString(psz, psz ? static_cast<uint32_t>(std::char_traits<WCHAR>::length(psz)) : 0);
}

void CWriter::PutString(const WCHAR* psz, uint32_t cch)
{
    if (!psz) {
        PutU32(kNull);
        return;
    }
    PutU32(cch);
    const auto* pb = reinterpret_cast<const uint8_t*>(psz);
    m_bytes.insert(m_bytes.end(), pb, pb + size_t{cch} * sizeof(WCHAR));
}

void CWriter::PutBytes(const void* pb, uint32_t cb)
{
    if (!pb) {
        PutU32(kNull);
        return;
    }
    PutU32(cb);
    m_bytes.insert(m_bytes.end(), static_cast<const uint8_t*>(pb),
                   static_cast<const uint8_t*>(pb) + cb);
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
    return Take(pdw, sizeof(*pdw));
}

bool CReader::GetU64(uint64_t* pull)
{
    return Take(pull, sizeof(*pull));
}

bool CReader::GetGuid(GUID* pguid)
{
    return Take(pguid, sizeof(GUID));
}

bool CReader::TakeBlock(size_t cbUnit, const void** ppb, uint32_t* pc)
{
    *ppb = nullptr;
    *pc = 0;
    uint32_t c = 0;
    if (!GetU32(&c))
        return false;
    if (c == kNull)
        return true;
    if (Remaining() / cbUnit < c)
        return false;
    *ppb = m_bytes.data() + m_ich;
    *pc = c;
    m_ich += c * cbUnit;
    return true;
}

bool CReader::GetStringUnits(const void** ppUnits, uint32_t* pcch)
{
    return TakeBlock(sizeof(WCHAR), ppUnits, pcch);
}

bool CReader::GetBytes(const void** ppb, uint32_t* pcb)
{
    return TakeBlock(1, ppb, pcb);
}

bool CReader::GetString(std::u16string* pstr, bool* pfNull)
{
    const void* pUnits = nullptr;
    uint32_t cch = 0;
    if (!GetStringUnits(&pUnits, &cch))
        return false;
    *pfNull = pUnits == nullptr;
    pstr->resize(cch);
    if (cch)
        std::memcpy(pstr->data(), pUnits, size_t{cch} * sizeof(char16_t));
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
