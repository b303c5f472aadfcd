// Class objects and asynchronous call factories (IClassFactory, ICallFactory), and the
// authentication services and capabilities of CoInitializeSecurity.
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

// One authentication service a server registers with CoInitializeSecurity; hr receives the
// outcome of its registration.
struct SOLE_AUTHENTICATION_SERVICE
{
    DWORD dwAuthnSvc;
    DWORD dwAuthzSvc;
    WCHAR* pPrincipalName;
    HRESULT hr;
};
using PSOLE_AUTHENTICATION_SERVICE = SOLE_AUTHENTICATION_SERVICE*;
static_assert(sizeof(SOLE_AUTHENTICATION_SERVICE) == 24);

// The capabilities of CoInitializeSecurity. EOAC_ACCESS_CONTROL: its first argument is an
// IAccessControl; EOAC_APPID: a pointer to the AppID whose registry settings apply.
enum EOLE_AUTHENTICATION_CAPABILITIES
{
    EOAC_NONE = 0x0,
    EOAC_MUTUAL_AUTH = 0x1,
    EOAC_STATIC_CLOAKING = 0x20,
    EOAC_DYNAMIC_CLOAKING = 0x40,
    EOAC_ANY_AUTHORITY = 0x80,
    EOAC_MAKE_FULLSIC = 0x100,
    EOAC_DEFAULT = 0x800,
    EOAC_SECURE_REFS = 0x2,
    EOAC_ACCESS_CONTROL = 0x4,
    EOAC_APPID = 0x8,
    EOAC_DYNAMIC = 0x10,
    EOAC_REQUIRE_FULLSIC = 0x200,
    EOAC_AUTO_IMPERSONATE = 0x400,
    EOAC_DISABLE_AAA = 0x1000,
    EOAC_NO_CUSTOM_MARSHAL = 0x2000,
};
