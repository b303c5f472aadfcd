// Class objects and asynchronous call factories: IClassFactory and ICallFactory.
#pragma once

#include "pal/unknwn.h"
#include "pal/uuidof.h"

// {00000001-0000-0000-C000-000000000046}
inline constexpr IID IID_IClassFactory = {
    0x00000001, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
// {1C733A30-2A1C-11CE-ADE5-00AA0044773D}
inline constexpr IID IID_ICallFactory = {
    0x1C733A30, 0x2A1C, 0x11CE, {0xAD, 0xE5, 0x00, 0xAA, 0x00, 0x44, 0x77, 0x3D}};

interface IClassFactory : public IUnknown
{
    // A new object of the class, aggregated in pUnkOuter when that is not null.
    STDMETHOD(CreateInstance)(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) PURE;
    // Keeps the server running while TRUE locks are outstanding.
    STDMETHOD(LockServer)(BOOL fLock) PURE;

protected:
    ~IClassFactory() = default;
};
using LPCLASSFACTORY = IClassFactory*;

interface ICallFactory : public IUnknown
{
    // A call object for the asynchronous form riid of one of the object's interfaces, asked
    // for riid2 (the asynchronous interface itself, IUnknown, ...).
    STDMETHOD(CreateCall)(REFIID riid, IUnknown* pCtrlUnk, REFIID riid2, IUnknown** ppv) PURE;

protected:
    ~ICallFactory() = default;
};

PAL_DEFINE_UUIDOF(IClassFactory, IID_IClassFactory);
PAL_DEFINE_UUIDOF(ICallFactory, IID_ICallFactory);
