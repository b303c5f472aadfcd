// OLE Automation's interfaces: the COM error information objects (IErrorInfo,
// ICreateErrorInfo, ISupportErrorInfo) and type libraries (ITypeLib and its records).
#pragma once

#include "pal/unknwn.h"
#include "pal/wtypes.h"

// {1CF2B120-547D-101B-8E65-08002B2BC119}
inline constexpr IID IID_IErrorInfo = {
    0x1CF2B120, 0x547D, 0x101B, {0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B, 0xD1, 0x19}};
// {22F03340-547D-101B-8E65-08002B2BC119}
inline constexpr IID IID_ICreateErrorInfo = {
    0x22F03340, 0x547D, 0x101B, {0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B, 0xD1, 0x19}};
// {DF0B3D60-548F-101B-8E65-08002B2BD119}
inline constexpr IID IID_ISupportErrorInfo = {
    0xDF0B3D60, 0x548F, 0x101B, {0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B, 0xD1, 0x19}};

interface IErrorInfo : public IUnknown
{
    STDMETHOD(GetGUID)(GUID* pGUID) PURE;
    STDMETHOD(GetSource)(BSTR* pBstrSource) PURE;
    STDMETHOD(GetDescription)(BSTR* pBstrDescription) PURE;
    STDMETHOD(GetHelpFile)(BSTR* pBstrHelpFile) PURE;
    STDMETHOD(GetHelpContext)(DWORD* pdwHelpContext) PURE;

protected:
    ~IErrorInfo() = default;
};

interface ICreateErrorInfo : public IUnknown
{
    STDMETHOD(SetGUID)(REFGUID rguid) PURE;
    STDMETHOD(SetSource)(LPOLESTR szSource) PURE;
    STDMETHOD(SetDescription)(LPOLESTR szDescription) PURE;
    STDMETHOD(SetHelpFile)(LPOLESTR szHelpFile) PURE;
    STDMETHOD(SetHelpContext)(DWORD dwHelpContext) PURE;

protected:
    ~ICreateErrorInfo() = default;
};

interface ISupportErrorInfo : public IUnknown
{
    STDMETHOD(InterfaceSupportsErrorInfo)(REFIID riid) PURE;

protected:
    ~ISupportErrorInfo() = default;
};

// The calling thread's error object. GetErrorInfo hands over the thread's reference and clears
// it (S_FALSE and nullptr when there is none); SetErrorInfo replaces it (nullptr clears).
HRESULT WINAPI GetErrorInfo(ULONG dwReserved, IErrorInfo** pperrinfo);
HRESULT WINAPI SetErrorInfo(ULONG dwReserved, IErrorInfo* perrinfo);
// A new, empty error object; fills it through ICreateErrorInfo, read it through IErrorInfo.
HRESULT WINAPI CreateErrorInfo(ICreateErrorInfo** pperrinfo);

// ---- Type libraries ----
// {00020402-0000-0000-C000-000000000046}
inline constexpr IID IID_ITypeLib = {
    0x00020402, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

typedef LONG MEMBERID;

typedef enum tagSYSKIND
{
    SYS_WIN16 = 0,
    SYS_WIN32 = 1,
    SYS_MAC = 2,
    SYS_WIN64 = 3
} SYSKIND;

typedef enum tagLIBFLAGS
{
    LIBFLAG_FRESTRICTED = 0x1,
    LIBFLAG_FCONTROL = 0x2,
    LIBFLAG_FHIDDEN = 0x4,
    LIBFLAG_FHASDISKIMAGE = 0x8
} LIBFLAGS;

typedef enum tagTYPEKIND
{
    TKIND_ENUM = 0,
    TKIND_RECORD,
    TKIND_MODULE,
    TKIND_INTERFACE,
    TKIND_DISPATCH,
    TKIND_COCLASS,
    TKIND_ALIAS,
    TKIND_UNION,
    TKIND_MAX
} TYPEKIND;

// Only the flags that decide a registration (RegisterTypeLib).
typedef enum tagTYPEFLAGS
{
    TYPEFLAG_FDUAL = 0x40,
    TYPEFLAG_FOLEAUTOMATION = 0x100
} TYPEFLAGS;

typedef struct tagTLIBATTR
{
    GUID guid;
    LCID lcid;
    SYSKIND syskind;
    WORD wMajorVerNum;
    WORD wMinorVerNum;
    WORD wLibFlags;
} TLIBATTR, *LPTLIBATTR;
static_assert(sizeof(TLIBATTR) == 32 && offsetof(TLIBATTR, syskind) == 20 &&
              offsetof(TLIBATTR, wLibFlags) == 28);

// The type descriptions and the binding interface are not provided: the methods that would
// hand them out answer E_NOTIMPL.
interface ITypeInfo;
interface ITypeComp;

// A loaded type library (LoadTypeLib, oleauto.h), in the SDK's slot order. The pal's libraries
// answer their attributes, the number, kinds, names and help strings of their type
// descriptions, and nothing more: GetTypeInfo, GetTypeInfoOfGuid, GetTypeComp, IsName and
// FindName answer E_NOTIMPL (clearing the out pointer). GetDocumentation answers for the
// library (index -1) or a type description, as Windows does: a missing text is a null BSTR,
// TYPE_E_ELEMENTNOTFOUND for an index out of range, STG_E_INSUFFICIENTMEMORY when a BSTR
// cannot be allocated.
interface ITypeLib : public IUnknown
{
    STDMETHOD_(UINT, GetTypeInfoCount)() PURE;
    STDMETHOD(GetTypeInfo)(UINT index, ITypeInfo** ppTInfo) PURE;
    STDMETHOD(GetTypeInfoType)(UINT index, TYPEKIND* pTKind) PURE;
    STDMETHOD(GetTypeInfoOfGuid)(REFGUID guid, ITypeInfo** ppTinfo) PURE;
    STDMETHOD(GetLibAttr)(TLIBATTR** ppTLibAttr) PURE;
    STDMETHOD(GetTypeComp)(ITypeComp** ppTComp) PURE;
    STDMETHOD(GetDocumentation)
    (INT index, BSTR* pBstrName, BSTR* pBstrDocString, DWORD* pdwHelpContext,
     BSTR* pBstrHelpFile) PURE;
    STDMETHOD(IsName)(LPOLESTR szNameBuf, ULONG lHashVal, BOOL* pfName) PURE;
    STDMETHOD(FindName)
    (LPOLESTR szNameBuf, ULONG lHashVal, ITypeInfo** ppTInfo, MEMBERID* rgMemId,
     USHORT* pcFound) PURE;
    STDMETHOD_(void, ReleaseTLibAttr)(TLIBATTR* pTLibAttr) PURE;

protected:
    ~ITypeLib() = default;
};

// As the SDK's oaidl.h reaches oleauto.h (through ole2.h), so that its users have the BSTR
// functions.
#include "pal/oleauto.h"
