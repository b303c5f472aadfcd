// CRegKey: a registry key handle that closes itself on scope exit, in the style of ATL's
// class of that name. Built only on the Reg* functions of pal/winreg.h; every member returns
// a Win32 error code.
//
// The typed reads are strict, because configuration read from the registry is untrusted:
//  - QueryDWORDValue succeeds only for a REG_DWORD value of exactly 4 bytes. A missing value,
//    another type or another size all fail with ERROR_INVALID_DATA; dwValue is then unchanged.
//    Other failures of the read (access denied, deleted key, ...) are returned as they are.
//  - QueryStringValue behaves as ATL documents it: *pnChars is the buffer's size in characters
//    on entry and, on success, the characters read including the terminator. Only REG_SZ and
//    REG_EXPAND_SZ values are read; another type fails with ERROR_INVALID_DATA, and so does
//    data of an odd length or without its terminator (the buffer is then left as an empty
//    string). Empty data (0 bytes) succeeds with an empty string and *pnChars 0. Data that does
//    not fit fails with ERROR_MORE_DATA and *pnChars 0, not the size needed; with a null
//    buffer, *pnChars receives the size needed in characters. Other failures of the read
//    (a missing value: ERROR_FILE_NOT_FOUND) are returned as they are, with *pnChars 0.
//  - SetStringValue writes the string with its terminator.
#pragma once

#include "pal/winreg.h"

class CRegKey
{
public:
    CRegKey() noexcept = default;
    explicit CRegKey(HKEY hKey) noexcept : m_hKey(hKey) {}
    CRegKey(CRegKey&& other) noexcept : m_hKey(other.Detach()) {}
    CRegKey& operator=(CRegKey&& other) noexcept;
    CRegKey(const CRegKey&) = delete;
    CRegKey& operator=(const CRegKey&) = delete;
    ~CRegKey() { Close(); }

    operator HKEY() const noexcept { return m_hKey; }

    // On success the key held before is closed and the new one held; on failure nothing
    // changes.
    LONG Open(HKEY hKeyParent, LPCWSTR lpszKeyName, REGSAM samDesired = KEY_READ | KEY_WRITE);
    // Creates the key (and missing keys above it) without class, non-volatile, with default
    // security, or opens it when it exists.
    LONG Create(HKEY hKeyParent, LPCWSTR lpszKeyName, REGSAM samDesired = KEY_READ | KEY_WRITE,
                LPDWORD lpdwDisposition = nullptr);
    LONG Close() noexcept;
    void Attach(HKEY hKey) noexcept;
    HKEY Detach() noexcept;

    LONG QueryDWORDValue(LPCWSTR pszValueName, DWORD& dwValue);
    LONG QueryStringValue(LPCWSTR pszValueName, LPWSTR pszValue, ULONG* pnChars);
    LONG SetDWORDValue(LPCWSTR pszValueName, DWORD dwValue);
    LONG SetStringValue(LPCWSTR pszValueName, LPCWSTR pszValue, DWORD dwType = REG_SZ);
    LONG DeleteValue(LPCWSTR lpszValue);
    // Deletes a subkey that has no subkeys of its own.
    LONG DeleteSubKey(LPCWSTR lpszSubKey);
    // Deletes a subkey and everything below it.
    LONG RecurseDeleteKey(LPCWSTR lpszKey);
    LONG NotifyChangeKeyValue(BOOL bWatchSubtree, DWORD dwNotifyFilter, HANDLE hEvent,
                              BOOL bAsync = TRUE);

    HKEY m_hKey = nullptr;
};
