// Type library registration under HKEY_CLASSES_ROOT: the keys Windows writes for a library and
// for its automation interfaces, and their removal.
#include "pal/atlbase.h"
#include "pal/objbase.h"
#include "pal/oleauto.h"
#include "pal/regkey.h"
#include "pal/src/base/internal.h"
#include "pal/src/com/runtime.h"
#include "pal/src/com/typelibdata.h"

#include <new>
#include <string>
#include <vector>

namespace {

using pal::detail::CTypeLibraryData;

// The automation marshaler, and the one of dispinterfaces that are not dual.
constexpr char16_t kAutomationProxy[] = u"{00020424-0000-0000-C000-000000000046}";
constexpr char16_t kDispatchProxy[] = u"{00020420-0000-0000-C000-000000000046}";

std::u16string Text(REFGUID guid)
{
    WCHAR sz[40];
    StringFromGUID2(guid, sz, 40);
    return sz;
}

std::u16string Hex(DWORD dw)
{
    std::u16string text;
    do {
        text.insert(text.begin(), u"0123456789abcdef"[dw & 0xF]);
        dw >>= 4;
    } while (dw != 0);
    return text;
}

// "TypeLib\{LIBID}\maj.min", the version in hexadecimal.
std::u16string VersionKey(REFGUID libid, WORD wMajor, WORD wMinor)
{
    return u"TypeLib\\" + Text(libid) + u"\\" + Hex(wMajor) + u"." + Hex(wMinor);
}

// "<lcid>\<platform>", or empty for a syskind that has no name.
std::u16string PathKey(LCID lcid, SYSKIND syskind)
{
    const char16_t* rgPlatform[] = {u"win16", u"win32", nullptr, u"win64"};
    if (unsigned(syskind) >= std::size(rgPlatform) || !rgPlatform[syskind])
        return {};
    return Hex(lcid) + u"\\" + rgPlatform[syskind];
}

// Windows registers dispinterfaces (dual ones included) and oleautomation interfaces only.
bool IsRegisteredInterface(const pal::detail::CTypeDescription& type)
{
    return type.m_kind == TKIND_DISPATCH ||
           (type.m_kind == TKIND_INTERFACE && (type.m_wFlags & TYPEFLAG_FOLEAUTOMATION));
}

// The directory of a registered path: without a trailing "\N" resource index and without the
// file name. Windows separates with '\'; the pal's paths use '/'.
std::u16string DirectoryOf(std::u16string path)
{
    size_t slash = path.find_last_of(u"\\/");
    if (slash != std::u16string::npos && slash + 1 < path.size() &&
        path.find_first_not_of(u"0123456789", slash + 1) == std::u16string::npos) {
        path.resize(slash);
        slash = path.find_last_of(u"\\/");
    }
    if (slash != std::u16string::npos)
        path.resize(slash);
    return path;
}

// Creates the subkey of hKey (with every key above it) and sets a string value of it.
LONG SetValue(HKEY hKey, const std::u16string& subKey, LPCWSTR pszName, const std::u16string& value)
{
    CRegKey key;
    LONG status = key.Create(hKey, subKey.c_str(), KEY_WRITE);
    return status != ERROR_SUCCESS ? status : key.SetStringValue(pszName, value.c_str());
}

LONG RegisterInterface(const CTypeLibraryData& lib, const pal::detail::CTypeDescription& type)
{
    std::u16string key = u"Interface\\" + Text(type.m_guid);
    const TLIBATTR& attr = lib.m_attr;
    std::u16string proxy = type.m_kind == TKIND_INTERFACE || (type.m_wFlags & TYPEFLAG_FDUAL)
                               ? kAutomationProxy
                               : kDispatchProxy;
    LONG status = SetValue(HKEY_CLASSES_ROOT, key, nullptr, type.m_name);
    for (const char16_t* pszProxy : {u"\\ProxyStubClsid", u"\\ProxyStubClsid32"}) {
        if (status == ERROR_SUCCESS)
            status = SetValue(HKEY_CLASSES_ROOT, key + pszProxy, nullptr, proxy);
    }
    if (status == ERROR_SUCCESS)
        status = SetValue(HKEY_CLASSES_ROOT, key + u"\\TypeLib", nullptr, Text(attr.guid));
    if (status == ERROR_SUCCESS)
        status = SetValue(HKEY_CLASSES_ROOT, key + u"\\TypeLib", u"Version",
                          Hex(attr.wMajorVerNum) + u"." + Hex(attr.wMinorVerNum));
    return status;
}

void UnregisterInterface(REFGUID iid)
{
    std::u16string key = u"Interface\\" + Text(iid);
    for (const char16_t* pszSubKey : {u"\\ProxyStubClsid", u"\\ProxyStubClsid32", u"\\TypeLib"})
        RegDeleteKeyW(HKEY_CLASSES_ROOT, (key + pszSubKey).c_str());
    RegDeleteKeyW(HKEY_CLASSES_ROOT, key.c_str());
}

// The default value of hKey's subkey, as a string.
LONG ReadDefault(HKEY hKey, const std::u16string& subKey, std::u16string* pValue)
{
    CRegKey key;
    std::vector<WCHAR> buffer(32768);
    ULONG cch = ULONG(buffer.size());
    LONG status = key.Open(hKey, subKey.c_str(), KEY_READ);
    if (status == ERROR_SUCCESS)
        status = key.QueryStringValue(nullptr, buffer.data(), &cch);
    if (status == ERROR_SUCCESS)
        *pValue = buffer.data();
    return status;
}

// True when the version key has no subkeys but FLAGS and HELPDIR, which then go with it.
bool OnlyFlagsAndHelpDirLeft(HKEY hKey)
{
    WCHAR szName[256];
    for (DWORD i = 0;; ++i) {
        DWORD cch = std::size(szName);
        if (RegEnumKeyExW(hKey, i, szName, &cch, nullptr, nullptr, nullptr, nullptr) !=
            ERROR_SUCCESS)
            return true;
        std::u16string_view name(szName, cch);
        if (!pal::detail::EqualNoCase(name, u"FLAGS") &&
            !pal::detail::EqualNoCase(name, u"HELPDIR"))
            return false;
    }
}

} // namespace

HRESULT WINAPI RegisterTypeLib(ITypeLib* ptlib, LPCOLESTR szFullPath, LPCOLESTR szHelpDir)
{
    const CTypeLibraryData* pLib = ptlib ? pal::detail::TypeLibraryDataOf(ptlib) : nullptr;
    if (!pLib || !szFullPath)
        return E_INVALIDARG;
    if (HRESULT hr = pal::detail::InjectedComFault("RegisterTypeLib", szFullPath); FAILED(hr))
        return hr;
    const TLIBATTR& attr = pLib->m_attr;
    std::u16string pathKey = PathKey(attr.lcid, attr.syskind);
    if (pathKey.empty())
        return E_INVALIDARG;
    try {
        CRegKey key;
        std::u16string versionKey = VersionKey(attr.guid, attr.wMajorVerNum, attr.wMinorVerNum);
        LONG status = key.Create(HKEY_CLASSES_ROOT, versionKey.c_str(), KEY_WRITE);
        const auto& title = pLib->m_doc ? pLib->m_doc : pLib->m_name;
        if (status == ERROR_SUCCESS && title)
            status = key.SetStringValue(nullptr, title->c_str());
        if (status == ERROR_SUCCESS)
            status = SetValue(key, pathKey, nullptr, szFullPath);
        if (status == ERROR_SUCCESS)
            status = SetValue(key, u"FLAGS", nullptr, Hex(attr.wLibFlags & ~LIBFLAG_FHASDISKIMAGE));
        // Without a help directory a new HELPDIR names the library's; an existing one stays.
        DWORD dwDisposition = 0;
        CRegKey helpDir;
        if (status == ERROR_SUCCESS)
            status = helpDir.Create(key, u"HELPDIR", KEY_WRITE, &dwDisposition);
        if (status == ERROR_SUCCESS && (szHelpDir || dwDisposition == REG_CREATED_NEW_KEY))
            status = helpDir.SetStringValue(nullptr, szHelpDir ? szHelpDir
                                                               : DirectoryOf(szFullPath).c_str());
        for (const auto& type : pLib->m_types) {
            if (status == ERROR_SUCCESS && IsRegisteredInterface(type))
                status = RegisterInterface(*pLib, type);
        }
        return status == ERROR_SUCCESS ? S_OK : TYPE_E_REGISTRYACCESS;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT WINAPI UnRegisterTypeLib(REFGUID libID, WORD wVerMajor, WORD wVerMinor, LCID lcid,
                                 SYSKIND syskind)
{
    try {
        std::u16string libKey = u"TypeLib\\" + Text(libID);
        if (HRESULT hr = pal::detail::InjectedComFault("UnRegisterTypeLib", libKey.c_str());
            FAILED(hr))
            return hr;
        std::u16string pathKey = PathKey(lcid, syskind);
        if (pathKey.empty())
            return E_INVALIDARG;
        CRegKey key;
        std::u16string versionKey = VersionKey(libID, wVerMajor, wVerMinor);
        std::u16string path;
        if (key.Open(HKEY_CLASSES_ROOT, versionKey.c_str(), KEY_READ | KEY_WRITE) !=
                ERROR_SUCCESS ||
            ReadDefault(key, pathKey, &path) != ERROR_SUCCESS)
            return TYPE_E_REGISTRYACCESS;
        // The library itself says which interfaces it registered.
        CComPtr<ITypeLib> ptlib;
        if (FAILED(LoadTypeLibEx(path.c_str(), REGKIND_NONE, &ptlib)))
            return TYPE_E_INVALIDSTATE;
        for (const auto& type : pal::detail::TypeLibraryDataOf(ptlib)->m_types) {
            if (IsRegisteredInterface(type))
                UnregisterInterface(type.m_guid);
        }
        // Each key goes only when nothing else is left below it.
        key.DeleteSubKey(pathKey.c_str());
        key.DeleteSubKey(Hex(lcid).c_str());
        if (OnlyFlagsAndHelpDirLeft(key)) {
            key.DeleteSubKey(u"FLAGS");
            key.DeleteSubKey(u"HELPDIR");
            key.Close();
            RegDeleteKeyW(HKEY_CLASSES_ROOT, versionKey.c_str());
            RegDeleteKeyW(HKEY_CLASSES_ROOT, libKey.c_str());
        }
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}
