// An interface that crosses processes is described once, as the list of its methods and, for
// each method, the coder of each argument:
//
//     using EchoMethods = Interface<ITestEcho, &IID_ITestEcho,
//         Method<&ITestEcho::Echo, In<LPCWSTR>, Out<LPWSTR>>,
//         Method<&ITestEcho::WaitForObjects, In<LONG>, Out<LONG>>>;
//
// The method's number on the wire is its place in the list. From the same description a proxy
// method is one line (`return Call<&ITestEcho::Echo>(pszText, ppszEcho);`) and the stub's
// dispatch is the list itself (EchoMethods::Invoke).
//
// Argument coders: In<T> (a value: number, id, string, interface pointer), Out<T>, InOut<T> and
// InRef<T> (one T behind a reference pointer), InArray<T, i> and InOutArray<T, i> (T[n] where
// n is argument i). How one T travels is Coding<T>; a coder takes another as its last
// parameter where a type travels differently from its C++ type's coding (a BSTR is a WCHAR*).
//
// What the coders do, as COM's proxies and stubs do: a reference pointer that is null fails in
// the proxy with HRESULT_FROM_WIN32(RPC_X_NULL_REF_POINTER) and nothing is sent; a count that is
// negative or above kMaxArrayElements fails there with E_INVALIDARG. The stub allocates what it
// decodes with the task allocator and frees all of it once the reply is coded; a count read
// from the request is checked against the bytes left before anything is allocated for it, and
// must equal the count argument (RPC_E_INVALID_DATA). The object's [out] and [in,out]
// arguments come back whatever its HRESULT; the proxy writes a record back only when all of it
// decoded, freeing the task memory of the record it replaces.
#pragma once

#include "pal/src/com/rpc/marshal.h"

#include <cstring>
#include <tuple>
#include <type_traits>
#include <utility>

namespace pal::detail::rpc {

inline constexpr uint32_t kMaxArrayElements = 0x10000;
inline constexpr HRESULT kNullRefPointer = HRESULT_FROM_WIN32(RPC_X_NULL_REF_POINTER);

// How one value travels. Put codes it; Get decodes it into *p, allocating what it points to
// with the task allocator (on failure *p holds nothing to free) and answers S_OK,
// RPC_E_INVALID_DATA or E_OUTOFMEMORY; Free frees what it points to and clears it. kMinBytes is
// the fewest bytes a coded value takes.
template <class T>
struct Coding;

template <class T>
requires(std::is_integral_v<T> && (sizeof(T) == 4 || sizeof(T) == 8)) struct Coding<T>
{
    static constexpr size_t kMinBytes = sizeof(T);
    static void Put(CWriter& writer, T value)
    {
        if constexpr (sizeof(T) == 4)
            writer.PutU32(static_cast<uint32_t>(value));
        else
            writer.PutU64(static_cast<uint64_t>(value));
    }
    static HRESULT Get(CReader& reader, T* p)
    {
        std::conditional_t<sizeof(T) == 4, uint32_t, uint64_t> u = 0;
        bool fRead = false;
        if constexpr (sizeof(T) == 4)
            fRead = reader.GetU32(&u);
        else
            fRead = reader.GetU64(&u);
        *p = static_cast<T>(u);
        return fRead ? S_OK : RPC_E_INVALID_DATA;
    }
    static void Free(T&) {}
};

template <>
struct Coding<GUID>
{
    static constexpr size_t kMinBytes = sizeof(GUID);
    static void Put(CWriter& writer, const GUID& guid) { writer.PutGuid(guid); }
    static HRESULT Get(CReader& reader, GUID* p)
    {
        return reader.GetGuid(p) ? S_OK : RPC_E_INVALID_DATA;
    }
    static void Free(GUID&) {}
};

// A unique string: null stays null.
template <>
struct Coding<WCHAR*>
{
    static constexpr size_t kMinBytes = 4;
    static void Put(CWriter& writer, const WCHAR* psz) { writer.PutString(psz); }
    static HRESULT Get(CReader& reader, WCHAR** ppsz)
    {
        *ppsz = nullptr;
        const void* pUnits = nullptr;
        uint32_t cch = 0;
        if (!reader.GetStringUnits(&pUnits, &cch))
            return RPC_E_INVALID_DATA;
        if (!pUnits)
            return S_OK;
        auto* psz = static_cast<WCHAR*>(CoTaskMemAlloc((size_t{cch} + 1) * sizeof(WCHAR)));
        if (!psz)
            return E_OUTOFMEMORY;
        std::memcpy(psz, pUnits, size_t{cch} * sizeof(WCHAR));
        psz[cch] = 0;
        *ppsz = psz;
        return S_OK;
    }
    static void Free(WCHAR*& psz)
    {
        CoTaskMemFree(psz);
        psz = nullptr;
    }
};

template <>
struct Coding<const WCHAR*> : Coding<WCHAR*>
{
    static HRESULT Get(CReader& reader, const WCHAR** ppsz)
    {
        WCHAR* psz = nullptr;
        HRESULT hr = Coding<WCHAR*>::Get(reader, &psz);
        *ppsz = psz;
        return hr;
    }
    static void Free(const WCHAR*& psz)
    {
        CoTaskMemFree(const_cast<WCHAR*>(psz));
        psz = nullptr;
    }
};

// An interface pointer: the receiver gets a proxy holding its own reference; null stays null.
template <>
struct Coding<IUnknown*>
{
    static constexpr size_t kMinBytes = 0;
    static void Put(CWriter& writer, IUnknown* pUnk) { writer.PutObject(pUnk, IID_IUnknown); }
    static HRESULT Get(CReader& reader, IUnknown** ppUnk)
    {
        return reader.GetObject(IID_IUnknown, reinterpret_cast<void**>(ppUnk));
    }
    static void Free(IUnknown*& pUnk)
    {
        if (pUnk)
            pUnk->Release();
        pUnk = nullptr;
    }
};

enum : int
{
    kIn = 1,
    kOut = 2,
};

// What every stub slot shares: it is not copied, and has nothing to check against the others.
struct CSlot
{
    CSlot() = default;
    CSlot(const CSlot&) = delete;
    CSlot& operator=(const CSlot&) = delete;
    template <class Slots>
    HRESULT Check(Slots&) const
    {
        return S_OK;
    }
};

// [in] a value.
template <class T, class K = Coding<T>>
struct In
{
    using Param = T;
    template <class Args>
    static HRESULT Send(CWriter& writer, T value, const Args&)
    {
        K::Put(writer, value);
        return S_OK;
    }
    template <class Args>
    static HRESULT Receive(CReader&, T, const Args&)
    {
        return S_OK;
    }

    class Slot : public CSlot
    {
    public:
        ~Slot() { K::Free(m_value); }
        HRESULT Receive(CReader& reader) { return K::Get(reader, &m_value); }
        T Arg() const { return m_value; }
        void Send(CWriter&) const {}

    private:
        T m_value{};
    };
};

// One T behind a reference pointer, in, out or both.
template <int dir, class T, class K>
struct ByRef
{
    using Param = T*;
    template <class Args>
    static HRESULT Send(CWriter& writer, T* p, const Args&)
    {
        if (!p)
            return kNullRefPointer;
        if constexpr (dir == kOut)
            *p = T{};
        else
            K::Put(writer, *p);
        return S_OK;
    }
    template <class Args>
    static HRESULT Receive(CReader& reader, T* p, const Args&)
    {
        if constexpr ((dir & kOut) != 0) {
            T fresh{};
            if (HRESULT hr = K::Get(reader, &fresh); FAILED(hr))
                return hr;
            K::Free(*p);
            *p = fresh;
        }
        return S_OK;
    }

    class Slot : public CSlot
    {
    public:
        ~Slot() { K::Free(m_value); }
        HRESULT Receive(CReader& reader)
        {
            if constexpr ((dir & kIn) != 0)
                return K::Get(reader, &m_value);
            else
                return S_OK;
        }
        T* Arg() { return &m_value; }
        void Send(CWriter& writer) const
        {
            if constexpr ((dir & kOut) != 0)
                K::Put(writer, m_value);
        }

    private:
        T m_value{};
    };
};

template <class T, class K = Coding<T>>
using Out = ByRef<kOut, T, K>;
template <class T, class K = Coding<T>>
using InOut = ByRef<kIn | kOut, T, K>;
template <class T, class K = Coding<T>>
using InRef = ByRef<kIn, T, K>;

// A block of n T from the task allocator, zeroed, whose elements are freed with it.
template <class T, class K>
class CTaskArray
{
public:
    CTaskArray() = default;
    CTaskArray(const CTaskArray&) = delete;
    CTaskArray& operator=(const CTaskArray&) = delete;
    ~CTaskArray() { Reset(); }

    bool Allocate(uint32_t c)
    {
        m_p = static_cast<T*>(CoTaskMemAlloc(sizeof(T) * (c ? c : 1)));
        if (!m_p)
            return false;
        std::memset(static_cast<void*>(m_p), 0, sizeof(T) * (c ? c : 1));
        m_c = c;
        return true;
    }
    // Frees the elements and the block.
    void Reset()
    {
        for (uint32_t i = 0; i < m_c; ++i)
            K::Free(m_p[i]);
        CoTaskMemFree(m_p);
        m_p = nullptr;
        m_c = 0;
    }
    // Frees the block only: its elements went elsewhere.
    void Abandon()
    {
        CoTaskMemFree(m_p);
        m_p = nullptr;
        m_c = 0;
    }
    T* Get() const { return m_p; }
    uint32_t Count() const { return m_c; }

    // Reads a count and that many elements.
    HRESULT Receive(CReader& reader)
    {
        uint32_t c = 0;
        if (!reader.GetU32(&c) || c > kMaxArrayElements ||
            (K::kMinBytes && reader.Remaining() / K::kMinBytes < c))
            return RPC_E_INVALID_DATA;
        if (!Allocate(c))
            return E_OUTOFMEMORY;
        for (uint32_t i = 0; i < c; ++i)
            if (HRESULT hr = K::Get(reader, &m_p[i]); FAILED(hr))
                return hr;
        return S_OK;
    }

private:
    T* m_p = nullptr;
    uint32_t m_c = 0;
};

// T[n] behind a reference pointer, where n is argument iCount.
template <int dir, class T, size_t iCount, class K>
struct ArrayOf
{
    using Param = T*;
    template <class Args>
    static HRESULT Send(CWriter& writer, T* p, const Args& args)
    {
        auto count = std::get<iCount>(args);
        if constexpr (std::is_signed_v<decltype(count)>)
            if (count < 0)
                return E_INVALIDARG;
        if (static_cast<uint64_t>(count) > kMaxArrayElements)
            return E_INVALIDARG;
        if (!p)
            return kNullRefPointer;
        writer.PutU32(static_cast<uint32_t>(count));
        for (uint32_t i = 0; i < static_cast<uint32_t>(count); ++i)
            K::Put(writer, p[i]);
        return S_OK;
    }
    template <class Args>
    static HRESULT Receive(CReader& reader, T* p, const Args& args)
    {
        if constexpr ((dir & kOut) != 0) {
            CTaskArray<T, K> fresh;
            if (HRESULT hr = fresh.Receive(reader); FAILED(hr))
                return hr;
            if (fresh.Count() != static_cast<uint32_t>(std::get<iCount>(args)))
                return RPC_E_INVALID_DATA;
            for (uint32_t i = 0; i < fresh.Count(); ++i) {
                K::Free(p[i]);
                p[i] = fresh.Get()[i];
            }
            fresh.Abandon();
        }
        return S_OK;
    }

    class Slot : public CSlot
    {
    public:
        HRESULT Receive(CReader& reader) { return m_array.Receive(reader); }
        template <class Slots>
        HRESULT Check(Slots& slots) const
        {
            auto count = std::get<iCount>(slots).Arg();
            if constexpr (std::is_signed_v<decltype(count)>)
                if (count < 0)
                    return RPC_E_INVALID_DATA;
            return static_cast<uint64_t>(count) == m_array.Count() ? S_OK : RPC_E_INVALID_DATA;
        }
        T* Arg() const { return m_array.Get(); }
        void Send(CWriter& writer) const
        {
            if constexpr ((dir & kOut) != 0) {
                writer.PutU32(m_array.Count());
                for (uint32_t i = 0; i < m_array.Count(); ++i)
                    K::Put(writer, m_array.Get()[i]);
            }
        }

    private:
        CTaskArray<T, K> m_array;
    };
};

template <class T, size_t iCount, class K = Coding<T>>
using InArray = ArrayOf<kIn, T, iCount, K>;
template <class T, size_t iCount, class K = Coding<T>>
using InOutArray = ArrayOf<kIn | kOut, T, iCount, K>;

template <class F>
struct MemberTraits;
template <class R, class C, class... A>
struct MemberTraits<R (C::*)(A...)>
{
    using Params = std::tuple<A...>;
};

// Names a method as a type, for finding it in a list.
template <auto pmf>
struct MethodTag
{};

// One method: the member and the coders of its arguments, in order.
template <auto pmf, class... C>
struct Method
{
    static_assert(std::is_same_v<std::tuple<typename C::Param...>,
                                 typename MemberTraits<decltype(pmf)>::Params>,
                  "one coder per argument, of the argument's type");
    using Tag = MethodTag<pmf>;

    // The proxy's side: sends the [in] arguments, and takes the [out] ones back when the object
    // ran. Each argument goes to its own coder (the two packs expand together).
    template <class... P>
    static HRESULT Call(CRemote* pRemote, REFIID riid, uint16_t index, P... args)
    {
        const std::tuple<typename C::Param...> all(args...);
        CWriter request;
        HRESULT hr = S_OK;
        std::apply(
            [&](const auto&... arg) {
                (void)((SUCCEEDED(hr = C::Send(request, arg, all)) && ...));
            },
            all);
        if (FAILED(hr))
            return hr;
        CReader reply;
        HRESULT hrCall = RemoteCall(pRemote, riid, index, request, &reply);
        if (reply.Empty())
            return hrCall;
        std::apply(
            [&](const auto&... arg) {
                (void)((SUCCEEDED(hr = C::Receive(reply, arg, all)) && ...));
            },
            all);
        return FAILED(hr) ? hr : hrCall;
    }

    // The stub's side: decodes every argument into its slot, checks the counts, calls the
    // object and codes what goes back; the slots free everything as they go.
    template <class I>
    static HRESULT Invoke(I* pItf, CReader& request, CWriter& reply)
    {
        std::tuple<typename C::Slot...> slots;
        HRESULT hr = S_OK;
        std::apply(
            [&](auto&... slot) {
                (void)((SUCCEEDED(hr = slot.Receive(request)) && ...) &&
                       (SUCCEEDED(hr = slot.Check(slots)) && ...));
            },
            slots);
        if (SUCCEEDED(hr) && request.Remaining() != 0)
            hr = RPC_E_INVALID_DATA;
        if (FAILED(hr))
            return hr;
        HRESULT hrCall =
            std::apply([&](auto&... slot) { return (pItf->*pmf)(slot.Arg()...); }, slots);
        std::apply([&](auto&... slot) { (slot.Send(reply), ...); }, slots);
        return hrCall;
    }
};

// An interface: its IID and its methods in slot order after IUnknown's.
template <class I, const IID* piid, class... M>
struct Interface
{
    using Itf = I;
    static const IID& Iid() { return *piid; }

    template <auto pmf>
    static constexpr uint16_t IndexOf()
    {
        uint16_t i = 0;
        uint16_t found = 0xFFFF;
        ((std::is_same_v<MethodTag<pmf>, typename M::Tag> ? found = i++ : i++), ...);
        return found;
    }

    template <auto pmf, class... P>
    static HRESULT Call(CRemote* pRemote, P... args)
    {
        constexpr uint16_t index = IndexOf<pmf>();
        static_assert(index != 0xFFFF, "the method is not described");
        using M0 = std::tuple_element_t<index, std::tuple<M...>>;
        return M0::Call(pRemote, *piid, index, args...);
    }

    static HRESULT Invoke(IUnknown* pUnk, uint16_t method, CReader& request, CWriter& reply)
    {
        I* pItf = static_cast<I*>(pUnk);
        HRESULT hr = RPC_E_INVALID_DATA; // a method the interface does not have
        uint16_t i = 0;
        (void)((method == i++ ? (hr = M::Invoke(pItf, request, reply), true) : false) || ...);
        return hr;
    }

    template <class Proxy>
    static InterfaceMarshaler Marshaler()
    {
        return {piid, &CreateProxy<Proxy>, &Invoke};
    }
};

// The base of a proxy of the interface that Methods describes.
template <class Methods>
class CProxyOf : public CProxy<typename Methods::Itf>
{
public:
    using I = typename Methods::Itf;
    explicit CProxyOf(CRemote* pRemote) : CProxy<I>(pRemote, Methods::Iid()) {}

protected:
    template <auto pmf, class... P>
    HRESULT Call(P... args)
    {
        return Methods::template Call<pmf>(this->Remote(), args...);
    }
};

} // namespace pal::detail::rpc
