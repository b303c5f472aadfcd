// The module's registrar: writes and removes the keys of the program's registry scripts under
// HKEY_CLASSES_ROOT, with %MODULE% standing for the executable's full path.
#include "host/servicemodule.h"

#include "diag/trace.h"
#include "pal/errhandlingapi.h"
#include "pal/libloaderapi.h"
#include "pal/winbase.h"
#include "pal/winreg.h"
#include "res/regscripts.h"

#include <string>

namespace {

using WString = std::basic_string<WCHAR>;

WString Expand(LPCWSTR pszData, LPCWSTR pszModule)
{
    WString text(pszData);
    const WString token(REG_SCRIPT_MODULE);
    for (size_t pos = text.find(token); pos != WString::npos;
         pos = text.find(token, pos + lstrlenW(pszModule)))
        text.replace(pos, token.size(), pszModule);
    return text;
}

LONG SetString(HKEY hKey, LPCWSTR pszName, LPCWSTR pszData, LPCWSTR pszModule)
{
    WString data = Expand(pszData, pszModule);
    return RegSetValueExW(hKey, pszName, 0, REG_SZ, reinterpret_cast<const BYTE*>(data.c_str()),
                          static_cast<DWORD>((data.size() + 1) * sizeof(WCHAR)));
}

LONG WriteKey(const REG_SCRIPT_KEY& key, LPCWSTR pszModule)
{
    if (key.rule == REG_SCRIPT_FORCEREMOVE) {
        LONG lRes = RegDeleteTreeW(HKEY_CLASSES_ROOT, key.pszPath);
        if (lRes != ERROR_SUCCESS && lRes != ERROR_FILE_NOT_FOUND)
            return lRes;
    }
    HKEY hKey = nullptr;
    LONG lRes = RegCreateKeyExW(HKEY_CLASSES_ROOT, key.pszPath, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                KEY_READ | KEY_WRITE, nullptr, &hKey, nullptr);
    if (lRes != ERROR_SUCCESS)
        return lRes;
    if (key.pszDefault)
        lRes = SetString(hKey, nullptr, key.pszDefault, pszModule);
    if (lRes == ERROR_SUCCESS && key.pszValueName)
        lRes = SetString(hKey, key.pszValueName, key.pszValueData, pszModule);
    RegCloseKey(hKey);
    return lRes;
}

// A key that is already gone, or that holds subkeys the script does not know (another
// server's), is left as it is.
void RemoveKey(const REG_SCRIPT_KEY& key)
{
    if (key.rule == REG_SCRIPT_NOREMOVE)
        return;
    if (key.rule == REG_SCRIPT_FORCEREMOVE) {
        RegDeleteTreeW(HKEY_CLASSES_ROOT, key.pszPath);
        return;
    }
    RegDeleteKeyW(HKEY_CLASSES_ROOT, key.pszPath);
}

} // namespace

HRESULT CServiceModule::UpdateRegistryFromResource(UINT nResID, BOOL bRegister)
{
    size_t cKeys = 0;
    const REG_SCRIPT_KEY* pKeys = FindRegistryScript(nResID, &cKeys);
    if (!pKeys)
        return HRESULT_FROM_WIN32(ERROR_RESOURCE_NAME_NOT_FOUND);
    if (!bRegister) {
        for (size_t i = cKeys; i-- > 0;)
            RemoveKey(pKeys[i]);
        return S_OK;
    }
    WCHAR szModule[MAX_PATH];
    DWORD cch = GetModuleFileNameW(m_hInst, szModule, MAX_PATH);
    if (cch == 0 || cch == MAX_PATH)
        return HRESULT_FROM_WIN32(cch == 0 ? GetLastError() : ERROR_INSUFFICIENT_BUFFER);
    // What was written before a failure stays, as the rest of the registration's steps do.
    for (size_t i = 0; i < cKeys; ++i) {
        LONG lRes = WriteKey(pKeys[i], szModule);
        if (lRes != ERROR_SUCCESS) {
            TRACE(TRACE_LEVEL_ERROR, W("Registry script %u: %s FAILED [ret=0x%08x]\n"), nResID,
                  pKeys[i].pszPath, lRes);
            return HRESULT_FROM_WIN32(lRes);
        }
    }
    return S_OK;
}
