// Setting, reading and deleting values.
#include "pal/src/registry/call.h"
#include "pal/src/registry/names.h"
#include "pal/src/registry/tree.h"

#include "pal/src/base/internal.h"

#include <cstring>

using namespace pal::detail::registry;
using pal::detail::ToUtf8;

LSTATUS WINAPI RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD Reserved, DWORD dwType,
                              const BYTE* lpData, DWORD cbData)
{
    UNREFERENCED_PARAMETER(Reserved);
    return RunCall(true, [&](Connection& conn, ChangeList& changes) -> LONG {
        const KeyHandle* pHandle = nullptr;
        if (LONG status = EnterKey(conn, "RegSetValueExW", hKey, KEY_SET_VALUE, &pHandle))
            return status;
        std::u16string_view name = ValueName(lpValueName);
        if (name.size() > kMaxValueNameChars)
            return ERROR_INVALID_PARAMETER;
        if (!lpData && cbData != 0)
            return ERROR_NOACCESS;
        // A string whose count left out the terminator that follows it in memory gets it, as
        // Windows does. The bytes are read one at a time: a character that already ends
        // within the count (an odd count) needs no read past it.
        if ((dwType == REG_SZ || dwType == REG_EXPAND_SZ || dwType == REG_MULTI_SZ) &&
            cbData >= sizeof(WCHAR)) {
            size_t last = (cbData / sizeof(WCHAR) - 1) * sizeof(WCHAR);
            auto nonZero = [lpData](size_t at) { return lpData[at] || lpData[at + 1]; };
            if (nonZero(last) && !lpData[last + sizeof(WCHAR)] && !lpData[last + sizeof(WCHAR) + 1])
                cbData += sizeof(WCHAR);
        }
        {
            // An existing value keeps its name's spelling and its place in the enumeration.
            Statement s = conn.Prepare(
                "INSERT INTO vals(key, name, fold, type, data) VALUES (?1, ?2, ?3, ?4, ?5)"
                " ON CONFLICT(key, fold) DO UPDATE SET type = excluded.type, data = excluded.data");
            s.Bind(1, pHandle->llKeyId)
                .Bind(2, ToUtf8(name))
                .Bind(3, ToUtf8(FoldName(name)))
                .Bind(4, dwType)
                .BindBlob(5, lpData, cbData);
            s.Step();
        }
        TouchKey(conn, pHandle->llKeyId);
        RecordChange(conn, changes, pHandle->path, kChangeLastSet);
        return ERROR_SUCCESS;
    });
}

LSTATUS WINAPI RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType,
                                LPBYTE lpData, LPDWORD lpcbData)
{
    return RunCall(false, [&](Connection& conn, ChangeList&) -> LONG {
        const KeyHandle* pHandle = nullptr;
        if (LONG status = EnterKey(conn, "RegQueryValueExW", hKey, KEY_QUERY_VALUE, &pHandle))
            return status;
        if (lpReserved || (lpData && !lpcbData))
            return ERROR_INVALID_PARAMETER;
        Statement s = conn.Prepare("SELECT type, data FROM vals WHERE key = ?1 AND fold = ?2");
        s.Bind(1, pHandle->llKeyId).Bind(2, ToUtf8(FoldName(ValueName(lpValueName))));
        if (!s.Step())
            return ERROR_FILE_NOT_FOUND;
        size_t cb = 0;
        const BYTE* pData = s.Blob(1, &cb);
        if (lpType)
            *lpType = static_cast<DWORD>(s.Int64(0));
        if (!lpcbData)
            return ERROR_SUCCESS;
        if (lpData) {
            if (*lpcbData < cb) {
                *lpcbData = static_cast<DWORD>(cb);
                return ERROR_MORE_DATA;
            }
            if (cb)
                std::memcpy(lpData, pData, cb);
        }
        *lpcbData = static_cast<DWORD>(cb);
        return ERROR_SUCCESS;
    });
}

LSTATUS WINAPI RegDeleteValueW(HKEY hKey, LPCWSTR lpValueName)
{
    return RunCall(true, [&](Connection& conn, ChangeList& changes) -> LONG {
        const KeyHandle* pHandle = nullptr;
        if (LONG status = EnterKey(conn, "RegDeleteValueW", hKey, KEY_SET_VALUE, &pHandle))
            return status;
        {
            Statement s = conn.Prepare("DELETE FROM vals WHERE key = ?1 AND fold = ?2");
            s.Bind(1, pHandle->llKeyId).Bind(2, ToUtf8(FoldName(ValueName(lpValueName))));
            s.Step();
        }
        if (conn.Changes() == 0)
            return ERROR_FILE_NOT_FOUND;
        TouchKey(conn, pHandle->llKeyId);
        RecordChange(conn, changes, pHandle->path, kChangeLastSet);
        return ERROR_SUCCESS;
    });
}
