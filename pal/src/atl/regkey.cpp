// CRegKey, on the Reg* functions only.
#include "pal/regkey.h"

#include "pal/winerror.h"

namespace {

DWORD StringBytes(LPCWSTR psz)
{
    DWORD cch = 0;
    while (psz[cch])
        ++cch;
    return (cch + 1) * sizeof(WCHAR);
}

} // namespace

CRegKey& CRegKey::operator=(CRegKey&& other) noexcept
{
    if (this != &other) {
        Close();
        m_hKey = other.Detach();
    }
    return *this;
}

LONG CRegKey::Open(HKEY hKeyParent, LPCWSTR lpszKeyName, REGSAM samDesired)
{
    HKEY hKey = nullptr;
    LONG status = RegOpenKeyExW(hKeyParent, lpszKeyName, 0, samDesired, &hKey);
    if (status == ERROR_SUCCESS) {
        Close();
        m_hKey = hKey;
    }
    return status;
}

LONG CRegKey::Create(HKEY hKeyParent, LPCWSTR lpszKeyName, REGSAM samDesired,
                     LPDWORD lpdwDisposition)
{
    HKEY hKey = nullptr;
    DWORD dwDisposition = 0;
    LONG status = RegCreateKeyExW(hKeyParent, lpszKeyName, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                  samDesired, nullptr, &hKey, &dwDisposition);
    if (status == ERROR_SUCCESS) {
        Close();
        m_hKey = hKey;
        if (lpdwDisposition)
            *lpdwDisposition = dwDisposition;
    }
    return status;
}

LONG CRegKey::Close() noexcept
{
    if (!m_hKey)
        return ERROR_SUCCESS;
    LONG status = RegCloseKey(m_hKey);
    m_hKey = nullptr;
    return status;
}

void CRegKey::Attach(HKEY hKey) noexcept
{
    Close();
    m_hKey = hKey;
}

HKEY CRegKey::Detach() noexcept
{
    HKEY hKey = m_hKey;
    m_hKey = nullptr;
    return hKey;
}

LONG CRegKey::QueryDWORDValue(LPCWSTR pszValueName, DWORD& dwValue)
{
    DWORD dwType = REG_NONE;
    DWORD dwData = 0;
    DWORD cbData = sizeof(dwData);
    LONG status = RegQueryValueExW(m_hKey, pszValueName, nullptr, &dwType,
                                   reinterpret_cast<LPBYTE>(&dwData), &cbData);
    if (status == ERROR_FILE_NOT_FOUND || status == ERROR_MORE_DATA)
        return ERROR_INVALID_DATA;
    if (status != ERROR_SUCCESS)
        return status;
    if (dwType != REG_DWORD || cbData != sizeof(DWORD))
        return ERROR_INVALID_DATA;
    dwValue = dwData;
    return ERROR_SUCCESS;
}

LONG CRegKey::QueryStringValue(LPCWSTR pszValueName, LPWSTR pszValue, ULONG* pnChars)
{
    if (!pnChars)
        return ERROR_INVALID_PARAMETER;
    DWORD dwType = REG_NONE;
    ULONG cchBuffer = pszValue ? *pnChars : 0;
    DWORD cbData = cchBuffer * static_cast<DWORD>(sizeof(WCHAR));
    *pnChars = 0;
    LONG status = RegQueryValueExW(m_hKey, pszValueName, nullptr, &dwType,
                                   reinterpret_cast<LPBYTE>(pszValue), &cbData);
    if (status != ERROR_SUCCESS)
        return status;
    // Nothing unterminated is left for a careless caller.
    auto invalid = [&] {
        if (cchBuffer > 0)
            pszValue[0] = 0;
        return ERROR_INVALID_DATA;
    };
    if (dwType != REG_SZ && dwType != REG_EXPAND_SZ)
        return invalid();
    if (cchBuffer > 0) {
        if (cbData == 0)
            pszValue[0] = 0;
        else if (cbData % sizeof(WCHAR) != 0 || pszValue[cbData / sizeof(WCHAR) - 1] != 0)
            return invalid();
    }
    *pnChars = cbData / sizeof(WCHAR);
    return ERROR_SUCCESS;
}

LONG CRegKey::SetDWORDValue(LPCWSTR pszValueName, DWORD dwValue)
{
    return RegSetValueExW(m_hKey, pszValueName, 0, REG_DWORD,
                          reinterpret_cast<const BYTE*>(&dwValue), sizeof(dwValue));
}

LONG CRegKey::SetStringValue(LPCWSTR pszValueName, LPCWSTR pszValue, DWORD dwType)
{
    if (!pszValue)
        return ERROR_INVALID_PARAMETER;
    return RegSetValueExW(m_hKey, pszValueName, 0, dwType, reinterpret_cast<const BYTE*>(pszValue),
                          StringBytes(pszValue));
}

LONG CRegKey::DeleteValue(LPCWSTR lpszValue)
{
    return RegDeleteValueW(m_hKey, lpszValue);
}

LONG CRegKey::DeleteSubKey(LPCWSTR lpszSubKey)
{
    return RegDeleteKeyW(m_hKey, lpszSubKey);
}

LONG CRegKey::RecurseDeleteKey(LPCWSTR lpszKey)
{
    return RegDeleteTreeW(m_hKey, lpszKey);
}

LONG CRegKey::NotifyChangeKeyValue(BOOL bWatchSubtree, DWORD dwNotifyFilter, HANDLE hEvent,
                                   BOOL bAsync)
{
    return RegNotifyChangeKeyValue(m_hKey, bWatchSubtree, dwNotifyFilter, hEvent, bAsync);
}
