// Shared pieces of the type library tests: the program's library (res/orvprov.idl) as its
// registration names it, and reading what a registration wrote under HKEY_CLASSES_ROOT.
#pragma once

#include "pal/libloaderapi.h"
#include "pal/oleauto.h"
#include "pal/regkey.h"
#include "tests/support/checks.h"

namespace orvtest::typelib {

// ORVPROVLib 1.0: {3BB85D3F-2BA9-4DC0-AC81-7F55520F51E2}
inline constexpr GUID LIBID_ORVPROVLib = {
    0x3BB85D3F, 0x2BA9, 0x4DC0, {0xAC, 0x81, 0x7F, 0x55, 0x52, 0x0F, 0x51, 0xE2}};
inline const WString kLibKey = W("TypeLib\\{3BB85D3F-2BA9-4DC0-AC81-7F55520F51E2}");
inline const WString kVersionKey = kLibKey + W("\\1.0");

// The program's own file, from which LoadTypeLib reads its resource TYPELIB 1.
inline WString ModulePath()
{
    WCHAR sz[MAX_PATH];
    DWORD cch = GetModuleFileNameW(nullptr, sz, MAX_PATH);
    return WString(sz, cch < MAX_PATH ? cch : 0);
}

// The string value `name` (null: the default value) of HKEY_CLASSES_ROOT\key, "<missing>" when
// the key or the value is not there.
inline WString ClassesValue(const WString& key, LPCWSTR name = nullptr)
{
    CRegKey regKey;
    WCHAR sz[MAX_PATH];
    ULONG cch = MAX_PATH;
    if (regKey.Open(HKEY_CLASSES_ROOT, key.c_str(), KEY_READ) != ERROR_SUCCESS ||
        regKey.QueryStringValue(name, sz, &cch) != ERROR_SUCCESS)
        return W("<missing>");
    return sz;
}

inline bool ClassesKeyExists(const WString& key)
{
    CRegKey regKey;
    return regKey.Open(HKEY_CLASSES_ROOT, key.c_str(), KEY_READ) == ERROR_SUCCESS;
}

// Removes a library's keys whatever a case left behind: on Windows the registry is the machine's.
class CClassesKeyRemover
{
public:
    explicit CClassesKeyRemover(WString key) : m_key(std::move(key)) {}
    ~CClassesKeyRemover() { RegDeleteTreeW(HKEY_CLASSES_ROOT, m_key.c_str()); }

private:
    WString m_key;
};

} // namespace orvtest::typelib
