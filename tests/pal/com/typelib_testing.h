// The type library tests' shared pieces: the program's library and what registrations wrote.
#pragma once

#include "pal/libloaderapi.h"
#include "pal/oleauto.h"
#include "pal/regkey.h"
#include "tests/support/checks.h"

namespace orvtest::typelib {

inline constexpr GUID LIBID_ORVPROVLib = {
    0x3BB85D3F, 0x2BA9, 0x4DC0, {0xAC, 0x81, 0x7F, 0x55, 0x52, 0x0F, 0x51, 0xE2}};
inline const WString kLibKey = W("TypeLib\\{3BB85D3F-2BA9-4DC0-AC81-7F55520F51E2}");
inline const WString kVersionKey = kLibKey + W("\\1.0");

// The program's own file, whose resource TYPELIB 1 LoadTypeLib reads.
inline WString ModulePath()
{
    WCHAR sz[MAX_PATH];
    DWORD cch = GetModuleFileNameW(nullptr, sz, MAX_PATH);
    return WString(sz, cch < MAX_PATH ? cch : 0);
}

// A string value (null: the default one) of HKEY_CLASSES_ROOT\key; "<missing>" without it.
inline WString ClassesValue(const WString& key, LPCWSTR name = nullptr)
{
    CRegKey regKey;
    WCHAR sz[MAX_PATH];
    ULONG cch = MAX_PATH;
    bool fRead = regKey.Open(HKEY_CLASSES_ROOT, key.c_str(), KEY_READ) == ERROR_SUCCESS &&
                 regKey.QueryStringValue(name, sz, &cch) == ERROR_SUCCESS;
    return fRead ? WString(sz) : W("<missing>");
}
inline bool ClassesKeyExists(const WString& key)
{
    return CRegKey().Open(HKEY_CLASSES_ROOT, key.c_str(), KEY_READ) == ERROR_SUCCESS;
}

// Removes a key's tree whatever a case left: on Windows the registry is the machine's.
struct CClassesKeyRemover
{
    WString m_key;
    ~CClassesKeyRemover() { RegDeleteTreeW(HKEY_CLASSES_ROOT, m_key.c_str()); }
};

} // namespace orvtest::typelib
