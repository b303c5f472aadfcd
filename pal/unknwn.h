// IUnknown and the declaration macros of COM interfaces.
#pragma once

#include "pal/guiddef.h"
#include "pal/windef.h"
#include "pal/winerror.h"

// Interfaces are abstract structs whose virtual functions are declared in slot order, without a
// virtual destructor, so that their vtables have the COM layout.
#define interface struct
#define STDMETHOD(method) virtual HRESULT STDMETHODCALLTYPE method
#define STDMETHOD_(type, method) virtual type STDMETHODCALLTYPE method
#define STDMETHODIMP HRESULT STDMETHODCALLTYPE
#define STDMETHODIMP_(type) type STDMETHODCALLTYPE
#define PURE = 0

// {00000000-0000-0000-C000-000000000046}
inline constexpr IID IID_IUnknown = {
    0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

interface IUnknown
{
    STDMETHOD(QueryInterface)(REFIID riid, void** ppvObject) PURE;
    STDMETHOD_(ULONG, AddRef)() PURE;
    STDMETHOD_(ULONG, Release)() PURE;

protected:
    ~IUnknown() = default;
};
using LPUNKNOWN = IUnknown*;

template <typename T>
inline void** IID_PPV_ARGS_Helper(T** pp)
{
    return reinterpret_cast<void**>(pp);
}
