// The marshaling of COM interfaces between the machine's processes: the byte coding of a
// method's arguments, the proxies that stand for a remote object, and the table of interface
// marshalers (what a proxy/stub DLL registers on Windows).
#pragma once

#include "pal/interlockedapi.h"
#include "pal/objbase.h"

#include <cstdint>
#include <new>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace pal::detail::rpc {

// A method's request or reply as the pal codes it: little-endian numbers, GUIDs as 16 bytes,
// strings as a UTF-16 length and units, byte blocks as a length and bytes (a length of
// 0xFFFFFFFF is a null pointer, kept apart from an empty block), and interface pointers set
// aside as objects.
class CWriter
{
public:
    CWriter() = default;
    CWriter(const CWriter&) = delete;
    CWriter& operator=(const CWriter&) = delete;
    ~CWriter();

    void PutU32(uint32_t dw);
    void PutU64(uint64_t ull);
    void PutGuid(REFGUID guid);
    // A null string is kept apart from an empty one.
    void PutString(const WCHAR* psz);
    // cch units from psz (a BSTR's, which may hold nulls).
    void PutString(const WCHAR* psz, uint32_t cch);
    void PutBytes(const void* pb, uint32_t cb);
    // Takes a reference of its own on pItf, asked as riid.
    void PutObject(IUnknown* pItf, REFIID riid);

    const std::vector<uint8_t>& Bytes() const { return m_bytes; }
    // Hands the objects over with their references.
    std::vector<std::pair<IID, IUnknown*>> TakeObjects() { return std::move(m_objects); }

private:
    std::vector<uint8_t> m_bytes;
    std::vector<std::pair<IID, IUnknown*>> m_objects;
};

class CRemote;

class CReader
{
public:
    CReader() = default;
    CReader(std::vector<uint8_t> bytes, std::vector<std::pair<IID, CRemote*>> objects);
    CReader(const CReader&) = delete;
    CReader& operator=(const CReader&) = delete;
    ~CReader();

    // Takes a reply as it arrived (the objects with their references).
    void Assign(std::vector<uint8_t> bytes, std::vector<std::pair<IID, CRemote*>> objects);

    // Each fails (false) once the bytes run out or do not read as asked.
    bool GetU32(uint32_t* pdw);
    bool GetU64(uint64_t* pull);
    bool GetGuid(GUID* pguid);
    bool GetString(std::u16string* pstr, bool* pfNull);
    // The units of the next string where they lie in the bytes (unaligned; *ppUnits null for
    // a null string), for a caller that copies them into memory of its own.
    bool GetStringUnits(const void** ppUnits, uint32_t* pcch);
    // The next byte block where it lies (*ppb null for a null pointer).
    bool GetBytes(const void** ppb, uint32_t* pcb);
    // What is left to read: a count read from the bytes is checked against it before anything
    // is allocated for it.
    size_t Remaining() const { return m_bytes.size() - m_ich; }
    // Whether the reply carries anything: an object that ran answers its [out] arguments.
    bool Empty() const { return m_bytes.empty() && m_objects.empty(); }
    // The next object of the reply as a proxy of riid (null when the server sent none).
    HRESULT GetObject(REFIID riid, void** ppv);

private:
    bool Take(void* p, size_t cb);
    bool TakeBlock(size_t cbUnit, const void** ppb, uint32_t* pc);

    std::vector<uint8_t> m_bytes;
    size_t m_ich = 0;
    std::vector<std::pair<IID, CRemote*>> m_objects;
    size_t m_iObject = 0;
};

// One capability of a remote object, counted; the last release drops it on the RPC thread.
void AddRefRemote(CRemote* pRemote);
void ReleaseRemote(CRemote* pRemote);

// Calls one method of a remote interface: the method's HRESULT, or RPC_E_DISCONNECTED when its
// server is gone. pReply gets the reply only when the call reached the object.
// The request's objects go with it (their references too).
HRESULT RemoteCall(CRemote* pRemote, REFIID riid, uint16_t method, CWriter& request,
                   CReader* pReply);
// Asks the remote object for another interface: its proxy, with a capability of its own.
HRESULT RemoteQueryInterface(CRemote* pRemote, REFIID riid, void** ppv);

struct InterfaceMarshaler
{
    const IID* piid;
    // A proxy of the interface over pRemote (the proxy adds a reference of its own).
    HRESULT (*pfnCreateProxy)(CRemote* pRemote, void** ppv);
    // Decodes a request, calls the object's method and codes its reply; the method's HRESULT.
    HRESULT (*pfnInvoke)(IUnknown* pItf, uint16_t method, CReader& request, CWriter& reply);
};

// Adds an interface's marshaler (kept for the life of the process); a later one of the same
// IID replaces the earlier.
void RegisterInterfaceMarshaler(const InterfaceMarshaler& marshaler);
const InterfaceMarshaler* FindInterfaceMarshaler(REFIID riid);

// The marshalers of the VSS provider interfaces (vssmarshal.cpp), which the table holds from
// the start: a static registration in the pal's archive would be dropped by the linker from a
// program that never names it.
std::span<const InterfaceMarshaler> VssMarshalers();

// Registers a marshaler from a static object's constructor.
struct CMarshalerRegistration
{
    explicit CMarshalerRegistration(const InterfaceMarshaler& marshaler)
    {
        RegisterInterfaceMarshaler(marshaler);
    }
};

// The IUnknown of a proxy of interface I: its own count, one capability, other interfaces
// asked of the server.
template <class I>
class CProxy : public I
{
public:
    explicit CProxy(CRemote* pRemote, REFIID riid) : m_pRemote(pRemote), m_iid(riid)
    {
        AddRefRemote(pRemote);
    }
    virtual ~CProxy() { ReleaseRemote(m_pRemote); }

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, m_iid)) {
            AddRef();
            *ppv = static_cast<I*>(this);
            return S_OK;
        }
        return RemoteQueryInterface(m_pRemote, riid, ppv);
    }
    STDMETHODIMP_(ULONG) AddRef() override { return InterlockedIncrement(&m_lRefs); }
    STDMETHODIMP_(ULONG) Release() override
    {
        LONG lRefs = InterlockedDecrement(&m_lRefs);
        if (lRefs == 0)
            delete this;
        return static_cast<ULONG>(lRefs);
    }

protected:
    CRemote* Remote() const { return m_pRemote; }
    const IID& Iid() const { return m_iid; }

private:
    CRemote* m_pRemote;
    IID m_iid;
    LONG m_lRefs = 1;
};

// Creates a proxy class P (a CProxy) over pRemote, for an InterfaceMarshaler.
template <class P>
HRESULT CreateProxy(CRemote* pRemote, void** ppv)
{
    P* pProxy = new (std::nothrow) P(pRemote);
    if (!pProxy)
        return E_OUTOFMEMORY;
    *ppv = pProxy;
    return S_OK;
}

} // namespace pal::detail::rpc
