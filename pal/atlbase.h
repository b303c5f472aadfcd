// The smart interface pointer and the COM server module, in the manner of ATL's CComPtr,
// CAtlModule and CComModule.
#pragma once

#include "pal/comdef.h"
#include "pal/objbase.h"
#include "pal/synchapi.h"
#include "pal/uuidof.h"

#include <memory>
#include <utility>

// Holds one reference to an interface and releases it on every exit path.
template <class T>
class CComPtr
{
public:
    CComPtr() noexcept : p(nullptr) {}
    CComPtr(T* lp) noexcept : p(lp)
    {
        if (p)
            p->AddRef();
    }
    CComPtr(const CComPtr& that) noexcept : CComPtr(that.p) {}
    CComPtr(CComPtr&& that) noexcept : p(that.p) { that.p = nullptr; }
    ~CComPtr() { Release(); }

    T* operator=(T* lp) noexcept
    {
        if (lp)
            lp->AddRef();
        T* pOld = p;
        p = lp;
        if (pOld)
            pOld->Release();
        return p;
    }
    T* operator=(const CComPtr& that) noexcept { return *this = that.p; }
    T* operator=(CComPtr&& that) noexcept
    {
        if (this != std::addressof(that)) {
            T* pOld = p;
            p = that.p;
            that.p = nullptr;
            if (pOld)
                pOld->Release();
        }
        return p;
    }

    operator T*() const noexcept { return p; }
    T& operator*() const noexcept { return *p; }
    T* operator->() const noexcept { return p; }
    bool operator!() const noexcept { return p == nullptr; }
    // For an out parameter. What the pointer held is released first, so that reusing it for a
    // second call cannot leak (ATL asserts that it is empty instead).
    T** operator&() noexcept
    {
        Release();
        return &p;
    }

    void Release() noexcept
    {
        T* pTemp = p;
        if (pTemp) {
            p = nullptr;
            pTemp->Release();
        }
    }
    // Takes over a reference the caller owns.
    void Attach(T* lp) noexcept
    {
        T* pOld = p;
        p = lp;
        if (pOld)
            pOld->Release();
    }
    // Hands the reference to the caller.
    T* Detach() noexcept { return std::exchange(p, nullptr); }
    HRESULT CopyTo(T** ppT) const noexcept
    {
        if (!ppT)
            return E_POINTER;
        *ppT = p;
        if (p)
            p->AddRef();
        return S_OK;
    }
    template <class Q>
    HRESULT QueryInterface(Q** pp) const noexcept
    {
        if (!pp)
            return E_POINTER;
        *pp = nullptr;
        if (!p)
            return E_POINTER;
        return p->QueryInterface(__uuidof(Q), reinterpret_cast<void**>(pp));
    }
    HRESULT CoCreateInstance(REFCLSID rclsid, LPUNKNOWN pUnkOuter = nullptr,
                             DWORD dwClsContext = CLSCTX_ALL) noexcept
    {
        Release();
        return ::CoCreateInstance(rclsid, pUnkOuter, dwClsContext, __uuidof(T),
                                  reinterpret_cast<void**>(&p));
    }

    // The checked call: calls a method of T through the pointer the way the wrappers of
    // #import do. A failure raises _com_error with the HRESULT and the error object that the
    // method left for this thread; an empty pointer raises E_POINTER. The caller catches it.
    //   hr = pHyperV.Invoke(&IHyperVSupport::IsHyperVRoleEnabled, &fEnabled);
    template <class... TParams, class... TArgs>
    HRESULT Invoke(HRESULT (STDMETHODCALLTYPE T::*pfnMethod)(TParams...), TArgs&&... args) const
    {
        if (!p)
            _com_issue_error(E_POINTER);
        HRESULT hr = (p->*pfnMethod)(std::forward<TArgs>(args)...);
        if (FAILED(hr))
            _com_issue_errorex(hr, p, __uuidof(T));
        return hr;
    }

    T* p;
};

// ---- The module ----
// A COM server's module, as ATL's: the process has one (a global object of a class derived from
// CComModule), which counts what keeps the server running and publishes the classes of its
// object map (BEGIN_OBJECT_MAP in atlcom.h).
//
//   class CServiceModule : public CComModule
//   {
//   public:
//       LONG Unlock() override;  // e.g. stops the server when the count falls to 0
//   };
//   CServiceModule _Module;
//   ...
//   _Module.Init(ObjectMap, hInstance);
//   _Module.RegisterClassObjects(CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER, REGCLS_MULTIPLEUSE);

// Makes the object of an entry's class (pv is the entry's pfnCreateInstance), asked for riid.
typedef HRESULT(WINAPI _ATL_CREATORFUNC)(void* pv, REFIID riid, LPVOID* ppv);

// One class of an object map.
struct _ATL_OBJMAP_ENTRY
{
    const CLSID* pclsid;                                // NULL ends the map
    HRESULT(WINAPI* pfnUpdateRegistry)(BOOL bRegister); // the class's UpdateRegistry
    _ATL_CREATORFUNC* pfnGetClassObject;                // the class object; NULL: none
    _ATL_CREATORFUNC* pfnCreateInstance;                // passed to pfnGetClassObject as pv
    IUnknown* pCF;    // a class object the module holds; Term releases it
    DWORD dwRegister; // the registration of the class object, 0 while there is none

    // Publishes the entry's class object with CoRegisterClassObject (S_OK for an entry without
    // one or already registered), and revokes it again (S_OK when it is not registered).
    HRESULT WINAPI RegisterClassObject(DWORD dwClsContext, DWORD dwFlags);
    HRESULT WINAPI RevokeClassObject();
};

class CAtlModule;
// The process's module: the last one constructed, until it is destroyed; NULL while there is
// none (the objects of CComObject then count in a lock count of the process,
// AtlModuleGetLockCount).
extern CAtlModule* _pAtlModule;

class CAtlModule
{
public:
    CAtlModule() noexcept;
    virtual ~CAtlModule();
    CAtlModule(const CAtlModule&) = delete;
    CAtlModule& operator=(const CAtlModule&) = delete;

    // The lock count: live CComObject objects and LockServer(TRUE) locks, which every object
    // takes through these, so that an override in a derived module is what they reach. Each
    // returns the new count.
    virtual LONG Lock();
    virtual LONG Unlock();
    virtual LONG GetLockCount();

    // Registers (bRegister TRUE) or unregisters what the registry script resource nResID
    // describes; each class's UpdateRegistry of DECLARE_REGISTRY_RESOURCEID calls it. ATL runs
    // the script through its registrar. The subset has none, so this answers E_NOTIMPL, and a
    // module whose classes register from their resources overrides it and writes their keys
    // itself.
    virtual HRESULT UpdateRegistryFromResource(UINT nResID, BOOL bRegister);

    LONG volatile m_nLockCnt = 0;
    GUID m_libid{}; // the type library of the module, as Init was given it
};

class CComModule : public CAtlModule
{
public:
    CComModule() noexcept = default;
    ~CComModule() override;

    // Takes the object map, the module's instance (also the one its resources are read from)
    // and optionally its type library. Fails with HRESULT_FROM_WIN32 of the error of
    // InitializeCriticalSectionAndSpinCount, leaving the module as it was.
    HRESULT Init(_ATL_OBJMAP_ENTRY* p, HINSTANCE h, const GUID* plibid = NULL);
    // Releases the class objects the map holds (pCF) and forgets the map; nothing to do for a
    // module that is not initialised. The destructor calls it.
    void Term();
    // Registers the class object of every entry of the map not registered yet. On a failure it
    // revokes every registration of the map and returns the failure, so that the server serves
    // all of its classes or none.
    HRESULT RegisterClassObjects(DWORD dwClsContext, DWORD dwFlags);
    // Revokes every registered class object of the map; the first failure stops it.
    HRESULT RevokeClassObjects();

    // The server's registration, as ATL's: every class of the map (or only the one of pCLSID)
    // through its UpdateRegistry(TRUE), stopping at the first failure, then, when asked and
    // all succeeded, the type library. Returns the first failure.
    HRESULT RegisterServer(BOOL bRegTypeLib = FALSE, const CLSID* pCLSID = NULL);
    // Every class (or the one of pCLSID) through UpdateRegistry(FALSE), then, when asked, the
    // type library. A failure does not stop the others, so that as much as possible goes;
    // the first one is returned.
    HRESULT UnregisterServer(BOOL bUnRegTypeLib, const CLSID* pCLSID = NULL);
    // The module file's type library (m_hInst's, as GetModuleFileNameW names it, with
    // lpszIndex "\\N" appended for resource TYPELIB N): loaded with LoadTypeLib and registered
    // with RegisterTypeLib under that path, the module's directory (with its trailing
    // separator) as help directory; unregistered through its GetLibAttr and
    // UnRegisterTypeLib. The loading's or the registration's result.
    HRESULT RegisterTypeLib(LPCWSTR lpszIndex = NULL);
    HRESULT UnRegisterTypeLib(LPCWSTR lpszIndex = NULL);

    _ATL_OBJMAP_ENTRY* m_pObjMap = nullptr;
    HINSTANCE m_hInst = nullptr;
    HINSTANCE m_hInstResource = nullptr;

private:
    CRITICAL_SECTION m_csObjMap{}; // guards the map's registrations
    bool m_fInitialized = false;
};
