// Reference-counted COM objects in the manner of ATL: the free-threaded object root, the
// interface map, the object wrappers and a class factory.
//
//   class CSink : public CComObjectRootEx<CComMultiThreadModel>, public IMyEvents
//   {
//   public:
//       BEGIN_COM_MAP(CSink)
//           COM_INTERFACE_ENTRY(IMyEvents)
//       END_COM_MAP()
//       ...
//   };
//   CComObject<CSink>* pSink;  // CComObject<CSink>::CreateInstance gives reference count 0
//
// IUnknown is answered through the first entry of the map, which is therefore the object's
// identity.
#pragma once

#include "pal/atlbase.h"
#include "pal/interlockedapi.h"
#include "pal/objbase.h"

#include <new>

// ---- Module lock count ----
// Live objects of CComObject and LockServer locks of CComClassFactoryT, as ATL's module
// counts them; a server can stop when it falls to 0. Each returns the new count. With a module
// (_pAtlModule) they are its virtual Lock, Unlock and GetLockCount; without one, a count of the
// process, so that objects work in programs that have no module.
LONG WINAPI AtlModuleLock();
LONG WINAPI AtlModuleUnlock();
LONG WINAPI AtlModuleGetLockCount();

// ---- Object roots ----
class CComMultiThreadModel
{
public:
    static ULONG Increment(LONG volatile* p) { return static_cast<ULONG>(InterlockedIncrement(p)); }
    static ULONG Decrement(LONG volatile* p) { return static_cast<ULONG>(InterlockedDecrement(p)); }
};

// One entry of an interface map: the IID and how to reach that interface from the object.
struct PAL_COM_MAP_ENTRY
{
    const IID* piid;
    IUnknown* (*pfnCast)(void* pThis);
};

class CComObjectRootBase
{
public:
    // Second-phase construction and first-phase destruction, for the derived class to hide.
    HRESULT FinalConstruct() { return S_OK; }
    void FinalRelease() {}

    // QueryInterface through a map that ends with a null entry.
    static HRESULT InternalQueryInterface(void* pThis, const PAL_COM_MAP_ENTRY* pEntries,
                                          REFIID iid, void** ppv)
    {
        if (!ppv)
            return E_POINTER;
        *ppv = nullptr;
        if (IsEqualIID(iid, IID_IUnknown)) {
            IUnknown* pUnk = pEntries[0].pfnCast(pThis);
            pUnk->AddRef();
            *ppv = pUnk;
            return S_OK;
        }
        for (; pEntries->piid; ++pEntries) {
            if (IsEqualIID(*pEntries->piid, iid)) {
                IUnknown* pUnk = pEntries->pfnCast(pThis);
                pUnk->AddRef();
                *ppv = pUnk;
                return S_OK;
            }
        }
        return E_NOINTERFACE;
    }

protected:
    LONG volatile m_dwRef = 0;
};

template <class ThreadModel>
class CComObjectRootEx : public CComObjectRootBase
{
public:
    ULONG InternalAddRef() { return ThreadModel::Increment(&m_dwRef); }
    ULONG InternalRelease() { return ThreadModel::Decrement(&m_dwRef); }
};

// ---- Interface map ----
#define BEGIN_COM_MAP(x)                                                                           \
public:                                                                                            \
    using ComMapClass = x;                                                                         \
    IUnknown* GetUnknown()                                                                         \
    {                                                                                              \
        return GetComMapEntries()[0].pfnCast(static_cast<void*>(this));                            \
    }                                                                                              \
    HRESULT ComMapQueryInterface(REFIID iid, void** ppv)                                           \
    {                                                                                              \
        return InternalQueryInterface(static_cast<void*>(this), GetComMapEntries(), iid, ppv);     \
    }                                                                                              \
    static const PAL_COM_MAP_ENTRY* GetComMapEntries()                                             \
    {                                                                                              \
        static const PAL_COM_MAP_ENTRY kEntries[] = {
// The interface itf, named by its IID.
#define COM_INTERFACE_ENTRY(itf) COM_INTERFACE_ENTRY_IID(__uuidof(itf), itf)
#define COM_INTERFACE_ENTRY_IID(iid, itf)                                                          \
    {&(iid), [](void* pThis) -> IUnknown* {                                                        \
         return static_cast<itf*>(static_cast<ComMapClass*>(pThis));                               \
     }},
// The interface itf reached through the base via, where the class derives from itf twice.
#define COM_INTERFACE_ENTRY2(itf, via)                                                             \
    {&__uuidof(itf), [](void* pThis) -> IUnknown* {                                                \
         return static_cast<itf*>(static_cast<via*>(static_cast<ComMapClass*>(pThis)));            \
     }},
#define END_COM_MAP()                                                                              \
    {                                                                                              \
        nullptr, nullptr                                                                           \
    }                                                                                              \
    }                                                                                              \
    ;                                                                                              \
    return kEntries;                                                                               \
    }

// ---- Object wrappers ----
// Implements IUnknown for Base; fLockModule counts the object in the module lock count.
template <class Base, bool fLockModule>
class CComObjectImpl final : public Base
{
public:
    CComObjectImpl()
    {
        if (fLockModule)
            AtlModuleLock();
    }
    ~CComObjectImpl()
    {
        this->FinalRelease();
        if (fLockModule)
            AtlModuleUnlock();
    }
    CComObjectImpl(const CComObjectImpl&) = delete;
    CComObjectImpl& operator=(const CComObjectImpl&) = delete;

    STDMETHODIMP_(ULONG) AddRef() override { return this->InternalAddRef(); }
    STDMETHODIMP_(ULONG) Release() override
    {
        ULONG cRef = this->InternalRelease();
        if (cRef == 0)
            delete this;
        return cRef;
    }
    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override
    {
        return this->ComMapQueryInterface(iid, ppv);
    }

    // A new object with reference count 0 (the caller adds the first reference), after a
    // successful FinalConstruct; E_OUTOFMEMORY when it cannot be allocated.
    static HRESULT CreateInstance(CComObjectImpl** pp)
    {
        if (!pp)
            return E_POINTER;
        *pp = nullptr;
        auto* p = new (std::nothrow) CComObjectImpl();
        if (!p)
            return E_OUTOFMEMORY;
        HRESULT hr = p->FinalConstruct();
        if (FAILED(hr)) {
            delete p;
            return hr;
        }
        *pp = p;
        return S_OK;
    }
};

template <class Base>
using CComObject = CComObjectImpl<Base, true>;
// For objects that must not keep the server alive, such as class objects.
template <class Base>
using CComObjectNoLock = CComObjectImpl<Base, false>;

// ---- Class factory ----
// The IUnknown of a class object: it answers IClassFactory only, counts its own references and
// deletes itself on the last release. Derived class objects add CreateInstance and LockServer.
class CComClassFactoryRoot : public IClassFactory
{
public:
    CComClassFactoryRoot(const CComClassFactoryRoot&) = delete;
    CComClassFactoryRoot& operator=(const CComClassFactoryRoot&) = delete;

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IClassFactory)) {
            AddRef();
            *ppv = static_cast<IClassFactory*>(this);
            return S_OK;
        }
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override
    {
        return static_cast<ULONG>(InterlockedIncrement(&m_lRef));
    }
    STDMETHODIMP_(ULONG) Release() override
    {
        LONG lRef = InterlockedDecrement(&m_lRef);
        if (lRef == 0)
            delete this;
        return static_cast<ULONG>(lRef);
    }

protected:
    CComClassFactoryRoot() = default;
    // Virtual, so that the last Release deletes the derived class object.
    virtual ~CComClassFactoryRoot() = default;

    // A new object of TObject (CComObject<T> or CComObjectNoLock<T>) asked for riid; the object
    // goes again when it lacks riid.
    template <class TObject>
    static HRESULT CreateObject(REFIID riid, void** ppv)
    {
        TObject* p = nullptr;
        HRESULT hr = TObject::CreateInstance(&p);
        if (FAILED(hr))
            return hr;
        p->AddRef();
        hr = p->QueryInterface(riid, ppv);
        p->Release();
        return hr;
    }

private:
    LONG volatile m_lRef = 1;
};

// The class object of T: creates CComObject<T> objects; aggregation is not supported. Class
// objects do not count in the module lock count, so a registered class object alone does not
// keep a server running.
template <class T>
class CComClassFactoryT final : public CComClassFactoryRoot
{
public:
    STDMETHODIMP CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        *ppv = nullptr;
        if (pUnkOuter)
            return CLASS_E_NOAGGREGATION;
        return CreateObject<CComObject<T>>(riid, ppv);
    }
    STDMETHODIMP LockServer(BOOL fLock) override
    {
        if (fLock)
            AtlModuleLock();
        else
            AtlModuleUnlock();
        return S_OK;
    }

    // A new class object with one reference for the caller.
    static HRESULT Create(IClassFactory** ppFactory)
    {
        if (!ppFactory)
            return E_POINTER;
        *ppFactory = new (std::nothrow) CComClassFactoryT();
        return *ppFactory ? S_OK : E_OUTOFMEMORY;
    }
    // A new class object asked for riid: the object map's pfnGetClassObject (pv is not used).
    static HRESULT WINAPI GetClassObject(void* pv, REFIID riid, LPVOID* ppv)
    {
        UNREFERENCED_PARAMETER(pv);
        if (!ppv)
            return E_POINTER;
        *ppv = nullptr;
        IClassFactory* pFactory = nullptr;
        HRESULT hr = Create(&pFactory);
        if (FAILED(hr))
            return hr;
        hr = pFactory->QueryInterface(riid, ppv);
        pFactory->Release();
        return hr;
    }

private:
    CComClassFactoryT() = default;
    ~CComClassFactoryT() override = default;
};

// ---- Object map ----
// The classes a module serves (CComModule::Init), each through a CComClassFactoryT class object,
// and registers (CComModule::RegisterServer) through its static UpdateRegistry, which the class
// declares with DECLARE_NO_REGISTRY() or DECLARE_REGISTRY_RESOURCEID(id):
//   BEGIN_OBJECT_MAP(ObjectMap)
//       OBJECT_ENTRY(CLSID_Widget, CWidget)
//   END_OBJECT_MAP()
#define BEGIN_OBJECT_MAP(x) static _ATL_OBJMAP_ENTRY x[] = {
#define OBJECT_ENTRY(clsid, theClass)                                                              \
    {&clsid,                                                                                       \
     &theClass::UpdateRegistry,                                                                    \
     &CComClassFactoryT<theClass>::GetClassObject,                                                 \
     nullptr,                                                                                      \
     nullptr,                                                                                      \
     0},
#define END_OBJECT_MAP()                                                                           \
    {                                                                                              \
        nullptr, nullptr, nullptr, nullptr, nullptr, 0                                             \
    }                                                                                              \
    }                                                                                              \
    ;

// A class that writes nothing to the registry.
#define DECLARE_NO_REGISTRY()                                                                      \
    static HRESULT WINAPI UpdateRegistry(BOOL /*bRegister*/)                                       \
    {                                                                                              \
        return S_OK;                                                                               \
    }
// A class registered by the registry script resource x, through the process's module
// (CAtlModule::UpdateRegistryFromResource); E_UNEXPECTED without a module.
#define DECLARE_REGISTRY_RESOURCEID(x)                                                             \
    static HRESULT WINAPI UpdateRegistry(BOOL bRegister)                                           \
    {                                                                                              \
        return _pAtlModule ? _pAtlModule->UpdateRegistryFromResource(x, bRegister) : E_UNEXPECTED; \
    }
