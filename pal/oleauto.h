// OLE Automation's functions: BSTRs, and loading and registering type libraries.
#pragma once

#include "pal/oaidl.h"
#include "pal/windef.h"
#include "pal/wtypes.h"

BSTR WINAPI SysAllocString(const OLECHAR* psz);
BSTR WINAPI SysAllocStringLen(const OLECHAR* strIn, UINT ui);
void WINAPI SysFreeString(BSTR bstrString);
UINT WINAPI SysStringLen(BSTR pbstr);
UINT WINAPI SysStringByteLen(BSTR bstr);

// ---- Type libraries ----
// What LoadTypeLibEx does after loading: REGKIND_DEFAULT registers a library named without a
// full path (one that begins with "\\", a drive letter and ':', or, for the pal's own paths,
// '/').
typedef enum tagREGKIND
{
    REGKIND_DEFAULT,
    REGKIND_REGISTER,
    REGKIND_NONE
} REGKIND;

// Loads a type library. szFile names the program's own file (GetModuleFileNameW(NULL)), whose
// library is the resource TYPELIB 1 that the program registered (palresource.h), or with
// "\N" appended resource TYPELIB N; any other name is a .tlb file, read whole. Only the MSFT
// format that MIDL and widl write is read; the library answers as pal/oaidl.h's ITypeLib says.
// E_INVALIDARG for a null argument; TYPE_E_CANTLOADLIBRARY for a file or resource that is
// missing or holds no library it can read; E_OUTOFMEMORY.
HRESULT WINAPI LoadTypeLib(LPCOLESTR szFile, ITypeLib** pptlib);
HRESULT WINAPI LoadTypeLibEx(LPCOLESTR szFile, REGKIND regkind, ITypeLib** pptlib);
// Writes under HKEY_CLASSES_ROOT what Windows writes for a library: TypeLib\{LIBID}\maj.min
// (both in hexadecimal) = its help string, or its name when it has none; below it
// "<lcid>\<syskind>" (lcid in hexadecimal, win16, win32 or win64) = szFullPath, FLAGS = its
// flags in hexadecimal (LIBFLAG_FHASDISKIMAGE, which loading adds, is not one of them) and
// HELPDIR = szHelpDir, or, when szHelpDir is null and the key is new, the directory of
// szFullPath ('\' or '/' separated, without a trailing "\N"). Each dispinterface and each
// oleautomation or dual interface gets Interface\{IID} = its name, with ProxyStubClsid and
// ProxyStubClsid32 (the automation marshaler {00020424-...}, {00020420-...} for a
// dispinterface that is not dual) and TypeLib = {LIBID} with Version = "maj.min"; coclasses
// and other interfaces get nothing. ptlib must come from LoadTypeLib(Ex).
// E_INVALIDARG for a null argument, a library of another implementation or an unknown
// syskind; TYPE_E_REGISTRYACCESS when the registry refuses a key or value (what was written
// before stays); E_OUTOFMEMORY. mingw-w64 declares the two strings without const.
HRESULT WINAPI RegisterTypeLib(ITypeLib* ptlib, LPCOLESTR szFullPath, LPCOLESTR szHelpDir);
// Removes what RegisterTypeLib wrote for that version, lcid and syskind: it loads the library
// from the registered path to find its interfaces' keys, deletes the path key and the lcid key
// when it is empty, and FLAGS, HELPDIR, the version key and TypeLib\{LIBID} when nothing else
// is left below them. E_INVALIDARG for an unknown syskind; TYPE_E_REGISTRYACCESS when that
// version, lcid and syskind are not registered (Wine answers E_INVALIDARG); TYPE_E_INVALIDSTATE
// when the registered path holds no library (nothing is removed then).
HRESULT WINAPI UnRegisterTypeLib(REFGUID libID, WORD wVerMajor, WORD wVerMinor, LCID lcid,
                                 SYSKIND syskind);
