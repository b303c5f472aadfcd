// Connection points in the manner of ATL: a connection point that lives inside its container
// object, and the enumerators of connections and connection points.
#pragma once

#include "pal/atlcom.h"
#include "pal/ocidl.h"
#include "pal/synchapi.h"

// Sinks one connection point accepts; a further Advise fails with CONNECT_E_ADVISELIMIT.
#define PAL_CONNECTION_POINT_MAX 64

// The reference an enumerator's entry holds: a connection's sink, or the connection point.
inline IUnknown* PalEnumEntryUnknown(const CONNECTDATA& item)
{
    return item.pUnk;
}
inline IUnknown* PalEnumEntryUnknown(IConnectionPoint* pItem)
{
    return pItem;
}

// A snapshot enumerator of up to kMaxItems entries of type Item, served as Interface (whose
// Next hands out Item): each entry holds a reference, and each entry handed out gets one more.
template <class Interface, class Item, ULONG kMaxItems>
class CComEnumSnapshot : public CComObjectRootEx<CComMultiThreadModel>, public Interface
{
public:
    BEGIN_COM_MAP(CComEnumSnapshot)
    COM_INTERFACE_ENTRY(Interface)
    END_COM_MAP()

    ~CComEnumSnapshot()
    {
        for (ULONG i = 0; i < m_cItems; ++i)
            PalEnumEntryUnknown(m_rgItems[i])->Release();
    }

    // Copies the entries and adds a reference to each.
    void Init(const Item* rgItems, ULONG cItems, ULONG ulPosition)
    {
        for (ULONG i = 0; i < cItems && i < kMaxItems; ++i) {
            m_rgItems[i] = rgItems[i];
            PalEnumEntryUnknown(m_rgItems[i])->AddRef();
            m_cItems = i + 1;
        }
        m_ulPosition = ulPosition;
    }

    STDMETHODIMP Next(ULONG cItems, Item* rgItems, ULONG* pcFetched) override
    {
        if (!rgItems || (!pcFetched && cItems != 1))
            return E_POINTER;
        ULONG cFetched = 0;
        while (cFetched < cItems && m_ulPosition < m_cItems) {
            rgItems[cFetched] = m_rgItems[m_ulPosition++];
            PalEnumEntryUnknown(rgItems[cFetched])->AddRef();
            ++cFetched;
        }
        if (pcFetched)
            *pcFetched = cFetched;
        return cFetched == cItems ? S_OK : S_FALSE;
    }
    STDMETHODIMP Skip(ULONG cItems) override
    {
        ULONG cLeft = m_cItems - m_ulPosition;
        ULONG cSkipped = cItems < cLeft ? cItems : cLeft;
        m_ulPosition += cSkipped;
        return cSkipped == cItems ? S_OK : S_FALSE;
    }
    STDMETHODIMP Reset() override
    {
        m_ulPosition = 0;
        return S_OK;
    }
    STDMETHODIMP Clone(Interface** ppEnum) override
    {
        return Create(m_rgItems, m_cItems, m_ulPosition, ppEnum);
    }

    static HRESULT Create(const Item* rgItems, ULONG cItems, ULONG ulPosition, Interface** ppEnum)
    {
        if (!ppEnum)
            return E_POINTER;
        *ppEnum = nullptr;
        CComObject<CComEnumSnapshot>* p = nullptr;
        HRESULT hr = CComObject<CComEnumSnapshot>::CreateInstance(&p);
        if (FAILED(hr))
            return hr;
        p->Init(rgItems, cItems, ulPosition);
        p->AddRef();
        *ppEnum = p;
        return S_OK;
    }

private:
    Item m_rgItems[kMaxItems] = {};
    ULONG m_cItems = 0;
    ULONG m_ulPosition = 0;
};

// A snapshot enumerator of connections: each entry's pUnk holds a reference.
using CComEnumConnections =
    CComEnumSnapshot<IEnumConnections, CONNECTDATA, PAL_CONNECTION_POINT_MAX>;

// A snapshot enumerator of connection points; an object has few of them.
using CComEnumConnectionPoints = CComEnumSnapshot<IEnumConnectionPoints, IConnectionPoint*, 8>;

// The connection point of one outgoing interface, a member of its container object: its
// references are the container's, so that a client holding only the point keeps the container
// alive, as with ATL's IConnectionPointImpl. Free-threaded: sinks may be advised, unadvised
// and called from any thread.
class CComConnectionPoint : public IConnectionPoint
{
public:
    // pContainer is the object this point is a member of (not AddRef'd).
    CComConnectionPoint(IConnectionPointContainer* pContainer, REFIID iid)
        : m_pContainer(pContainer), m_iid(iid)
    {
        InitializeCriticalSection(&m_cs);
    }
    virtual ~CComConnectionPoint()
    {
        for (ULONG i = 0; i < PAL_CONNECTION_POINT_MAX; ++i)
            if (m_rgSinks[i])
                m_rgSinks[i]->Release();
        DeleteCriticalSection(&m_cs);
    }
    CComConnectionPoint(const CComConnectionPoint&) = delete;
    CComConnectionPoint& operator=(const CComConnectionPoint&) = delete;

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IConnectionPoint)) {
            AddRef();
            *ppv = static_cast<IConnectionPoint*>(this);
            return S_OK;
        }
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return m_pContainer->AddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return m_pContainer->Release(); }

    STDMETHODIMP GetConnectionInterface(IID* pIID) override
    {
        if (!pIID)
            return E_POINTER;
        *pIID = m_iid;
        return S_OK;
    }
    STDMETHODIMP GetConnectionPointContainer(IConnectionPointContainer** ppCPC) override
    {
        if (!ppCPC)
            return E_POINTER;
        m_pContainer->AddRef();
        *ppCPC = m_pContainer;
        return S_OK;
    }
    STDMETHODIMP Advise(IUnknown* pUnkSink, DWORD* pdwCookie) override
    {
        if (!pdwCookie)
            return E_POINTER;
        *pdwCookie = 0;
        if (!pUnkSink)
            return E_POINTER;
        IUnknown* pSink = nullptr;
        if (FAILED(pUnkSink->QueryInterface(m_iid, reinterpret_cast<void**>(&pSink))) || !pSink)
            return CONNECT_E_CANNOTCONNECT;
        EnterCriticalSection(&m_cs);
        for (ULONG i = 0; i < PAL_CONNECTION_POINT_MAX; ++i) {
            if (!m_rgSinks[i]) {
                m_rgSinks[i] = pSink;
                m_rgCookies[i] = *pdwCookie = m_dwNextCookie++;
                LeaveCriticalSection(&m_cs);
                return S_OK;
            }
        }
        LeaveCriticalSection(&m_cs);
        pSink->Release();
        return CONNECT_E_ADVISELIMIT;
    }
    STDMETHODIMP Unadvise(DWORD dwCookie) override
    {
        IUnknown* pSink = nullptr;
        EnterCriticalSection(&m_cs);
        for (ULONG i = 0; i < PAL_CONNECTION_POINT_MAX; ++i) {
            if (m_rgSinks[i] && m_rgCookies[i] == dwCookie) {
                pSink = m_rgSinks[i];
                m_rgSinks[i] = nullptr;
                m_rgCookies[i] = 0;
                break;
            }
        }
        LeaveCriticalSection(&m_cs);
        if (!pSink)
            return CONNECT_E_NOCONNECTION;
        // Outside the lock: the sink's last release may run code that calls back.
        pSink->Release();
        return S_OK;
    }
    STDMETHODIMP EnumConnections(IEnumConnections** ppEnum) override
    {
        if (!ppEnum)
            return E_POINTER;
        CONNECTDATA rgItems[PAL_CONNECTION_POINT_MAX];
        ULONG cItems = 0;
        EnterCriticalSection(&m_cs);
        for (ULONG i = 0; i < PAL_CONNECTION_POINT_MAX; ++i)
            if (m_rgSinks[i])
                rgItems[cItems++] = CONNECTDATA{m_rgSinks[i], m_rgCookies[i]};
        // The enumerator adds its own references while the lock keeps the sinks alive.
        HRESULT hr = CComEnumConnections::Create(rgItems, cItems, 0, ppEnum);
        LeaveCriticalSection(&m_cs);
        return hr;
    }

    // The advised sinks in cookie order, as the outgoing interface, each with a reference that
    // the caller releases; for calling them outside any lock. Returns their number.
    ULONG CopySinks(IUnknown* (&rgSinks)[PAL_CONNECTION_POINT_MAX])
    {
        CONNECTDATA rgItems[PAL_CONNECTION_POINT_MAX];
        ULONG c = 0;
        EnterCriticalSection(&m_cs);
        for (ULONG i = 0; i < PAL_CONNECTION_POINT_MAX; ++i) {
            if (m_rgSinks[i]) {
                m_rgSinks[i]->AddRef();
                rgItems[c++] = CONNECTDATA{m_rgSinks[i], m_rgCookies[i]};
            }
        }
        LeaveCriticalSection(&m_cs);
        // Slots are reused, so sort by cookie to call the sinks in the order they arrived.
        for (ULONG i = 1; i < c; ++i)
            for (ULONG j = i; j > 0 && rgItems[j].dwCookie < rgItems[j - 1].dwCookie; --j) {
                CONNECTDATA temp = rgItems[j];
                rgItems[j] = rgItems[j - 1];
                rgItems[j - 1] = temp;
            }
        for (ULONG i = 0; i < c; ++i)
            rgSinks[i] = rgItems[i].pUnk;
        return c;
    }

    // Removes every sink and hands over its reference, for the caller to release where no
    // lock of its own is held; returns their number.
    ULONG TakeAllSinks(IUnknown* (&rgSinks)[PAL_CONNECTION_POINT_MAX])
    {
        ULONG c = 0;
        EnterCriticalSection(&m_cs);
        for (ULONG i = 0; i < PAL_CONNECTION_POINT_MAX; ++i) {
            if (m_rgSinks[i]) {
                rgSinks[c++] = m_rgSinks[i];
                m_rgSinks[i] = nullptr;
                m_rgCookies[i] = 0;
            }
        }
        LeaveCriticalSection(&m_cs);
        return c;
    }

    // Drops every sink, as when the object is disconnected from its clients.
    void UnadviseAll()
    {
        IUnknown* rgSinks[PAL_CONNECTION_POINT_MAX];
        ULONG c = TakeAllSinks(rgSinks);
        for (ULONG i = 0; i < c; ++i)
            rgSinks[i]->Release();
    }

private:
    IConnectionPointContainer* m_pContainer;
    IID m_iid;
    CRITICAL_SECTION m_cs;
    IUnknown* m_rgSinks[PAL_CONNECTION_POINT_MAX] = {};
    DWORD m_rgCookies[PAL_CONNECTION_POINT_MAX] = {};
    DWORD m_dwNextCookie = 1;
};
