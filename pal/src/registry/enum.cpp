// Enumerating subkeys and values, and the summary of a key.
#include "pal/src/registry/call.h"
#include "pal/src/registry/names.h"
#include "pal/src/registry/tree.h"

#include "pal/src/base/internal.h"

#include <algorithm>
#include <cstring>

using namespace pal::detail::registry;

namespace {

// Copies `text` and its terminator into a buffer of *pcch characters. ERROR_MORE_DATA when it
// does not fit; otherwise *pcch receives the length without the terminator.
LONG CopyName(std::u16string_view text, LPWSTR buffer, LPDWORD pcch)
{
    if (text.size() + 1 > *pcch)
        return ERROR_MORE_DATA;
    std::copy(text.begin(), text.end(), buffer);
    buffer[text.size()] = 0;
    *pcch = static_cast<DWORD>(text.size());
    return ERROR_SUCCESS;
}

// An optional class buffer: the length alone when there is no buffer.
LONG CopyClass(std::u16string_view text, LPWSTR lpClass, LPDWORD lpcchClass)
{
    if (!lpcchClass)
        return ERROR_SUCCESS;
    if (!lpClass) {
        *lpcchClass = static_cast<DWORD>(text.size());
        return ERROR_SUCCESS;
    }
    return CopyName(text, lpClass, lpcchClass);
}

} // namespace

LSTATUS WINAPI RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcchName,
                             LPDWORD lpReserved, LPWSTR lpClass, LPDWORD lpcchClass,
                             PFILETIME lpftLastWriteTime)
{
    return RunCall(false, [&](Connection& conn, ChangeList&) -> LONG {
        const KeyHandle* pHandle = nullptr;
        if (LONG status = EnterKey(conn, "RegEnumKeyExW", hKey, KEY_ENUMERATE_SUB_KEYS, &pHandle))
            return status;
        if (!lpName || !lpcchName || lpReserved || (lpClass && !lpcchClass))
            return ERROR_INVALID_PARAMETER;
        Statement s = conn.Prepare("SELECT name, class, last_write FROM keys WHERE parent = ?1"
                                   " ORDER BY fold LIMIT 1 OFFSET ?2");
        s.Bind(1, pHandle->llKeyId).Bind(2, dwIndex);
        if (!s.Step())
            return ERROR_NO_MORE_ITEMS;
        if (LONG status = CopyName(s.Text16(0), lpName, lpcchName))
            return status;
        if (LONG status = CopyClass(s.Text16(1), lpClass, lpcchClass))
            return status;
        if (lpftLastWriteTime)
            *lpftLastWriteTime = ToFileTime(static_cast<ULONGLONG>(s.Int64(2)));
        return ERROR_SUCCESS;
    });
}

LSTATUS WINAPI RegEnumValueW(HKEY hKey, DWORD dwIndex, LPWSTR lpValueName, LPDWORD lpcchValueName,
                             LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData)
{
    return RunCall(false, [&](Connection& conn, ChangeList&) -> LONG {
        const KeyHandle* pHandle = nullptr;
        if (LONG status = EnterKey(conn, "RegEnumValueW", hKey, KEY_QUERY_VALUE, &pHandle))
            return status;
        if (!lpValueName || !lpcchValueName || lpReserved || (lpData && !lpcbData))
            return ERROR_INVALID_PARAMETER;
        Statement s = conn.Prepare(
            "SELECT name, type, data FROM vals WHERE key = ?1 ORDER BY id LIMIT 1 OFFSET ?2");
        s.Bind(1, pHandle->llKeyId).Bind(2, dwIndex);
        if (!s.Step())
            return ERROR_NO_MORE_ITEMS;
        LONG status = CopyName(s.Text16(0), lpValueName, lpcchValueName);
        size_t cb = 0;
        const BYTE* pData = s.Blob(2, &cb);
        if (lpType)
            *lpType = static_cast<DWORD>(s.Int64(1));
        if (lpcbData) {
            if (lpData && *lpcbData < cb) {
                status = ERROR_MORE_DATA;
            } else if (lpData && cb) {
                std::memcpy(lpData, pData, cb);
            }
            *lpcbData = static_cast<DWORD>(cb);
        }
        return status;
    });
}

LSTATUS WINAPI RegQueryInfoKeyW(HKEY hKey, LPWSTR lpClass, LPDWORD lpcchClass, LPDWORD lpReserved,
                                LPDWORD lpcSubKeys, LPDWORD lpcbMaxSubKeyLen,
                                LPDWORD lpcbMaxClassLen, LPDWORD lpcValues,
                                LPDWORD lpcbMaxValueNameLen, LPDWORD lpcbMaxValueLen,
                                LPDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime)
{
    return RunCall(false, [&](Connection& conn, ChangeList&) -> LONG {
        const KeyHandle* pHandle = nullptr;
        if (LONG status = EnterKey(conn, "RegQueryInfoKeyW", hKey, KEY_QUERY_VALUE, &pHandle))
            return status;
        if (lpReserved || (lpClass && !lpcchClass))
            return ERROR_INVALID_PARAMETER;
        std::u16string className;
        ULONGLONG ullLastWrite = 0;
        {
            Statement s = conn.Prepare("SELECT class, last_write FROM keys WHERE id = ?1");
            s.Bind(1, pHandle->llKeyId);
            s.Step();
            className = s.Text16(0);
            ullLastWrite = static_cast<ULONGLONG>(s.Int64(1));
        }
        // Lengths are counted in UTF-16 units, as Windows counts them.
        DWORD cSubKeys = 0, cchMaxSubKey = 0, cchMaxClass = 0;
        {
            Statement s = conn.Prepare("SELECT name, class FROM keys WHERE parent = ?1");
            s.Bind(1, pHandle->llKeyId);
            while (s.Step()) {
                ++cSubKeys;
                cchMaxSubKey = std::max(cchMaxSubKey, DWORD(s.Text16(0).size()));
                cchMaxClass = std::max(cchMaxClass, DWORD(s.Text16(1).size()));
            }
        }
        DWORD cValues = 0, cchMaxValueName = 0, cbMaxValue = 0;
        {
            Statement s = conn.Prepare("SELECT name, length(data) FROM vals WHERE key = ?1");
            s.Bind(1, pHandle->llKeyId);
            while (s.Step()) {
                ++cValues;
                cchMaxValueName = std::max(cchMaxValueName, DWORD(s.Text16(0).size()));
                cbMaxValue = std::max(cbMaxValue, DWORD(s.Int64(1)));
            }
        }
        if (lpClass) {
            // Not ERROR_MORE_DATA as for the names: Windows answers a class that does not fit
            // with ERROR_INSUFFICIENT_BUFFER.
            if (className.size() + 1 > *lpcchClass) {
                *lpcchClass = static_cast<DWORD>(className.size());
                return ERROR_INSUFFICIENT_BUFFER;
            }
            CopyName(className, lpClass, lpcchClass);
        } else if (lpcchClass) {
            *lpcchClass = static_cast<DWORD>(className.size());
        }
        if (lpcSubKeys)
            *lpcSubKeys = cSubKeys;
        if (lpcbMaxSubKeyLen)
            *lpcbMaxSubKeyLen = cchMaxSubKey;
        if (lpcbMaxClassLen)
            *lpcbMaxClassLen = cchMaxClass;
        if (lpcValues)
            *lpcValues = cValues;
        if (lpcbMaxValueNameLen)
            *lpcbMaxValueNameLen = cchMaxValueName;
        if (lpcbMaxValueLen)
            *lpcbMaxValueLen = cbMaxValue;
        if (lpcbSecurityDescriptor)
            *lpcbSecurityDescriptor = 0;
        if (lpftLastWriteTime)
            *lpftLastWriteTime = ToFileTime(ullLastWrite);
        return ERROR_SUCCESS;
    });
}
