// The smart interface pointer, in the manner of ATL's CComPtr.
#pragma once

#include "pal/comdef.h"
#include "pal/objbase.h"
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
