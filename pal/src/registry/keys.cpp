// Opening, creating, closing and deleting keys.
#include "pal/src/registry/call.h"
#include "pal/src/registry/names.h"
#include "pal/src/registry/notify.h"
#include "pal/src/registry/tree.h"

#include "pal/src/base/internal.h"

using namespace pal::detail::registry;

namespace {

// The full path a call on lpSubKey under pParent is about, as the fault hook sees it. A path
// that does not parse is shown as given.
std::u16string TargetPath(const KeyHandle* pParent, const WCHAR* lpSubKey, LONG splitStatus,
                          const std::vector<std::u16string_view>& parts)
{
    if (!pParent)
        return {};
    if (splitStatus != ERROR_SUCCESS)
        return JoinPath(pParent->path, lpSubKey);
    return JoinPath(pParent->path, parts);
}

// What a call on lpSubKey under hKey is about: the parent's handle (null when hKey is not one),
// the subkey's parts (when split is ERROR_SUCCESS) and the full path the fault hook sees.
struct SubKeyTarget
{
    const KeyHandle* pParent;
    std::vector<std::u16string_view> parts;
    LONG split;
    std::u16string path;
};

SubKeyTarget ResolveSubKey(HKEY hKey, LPCWSTR lpSubKey)
{
    SubKeyTarget target{FindHandle(hKey), {}, ERROR_SUCCESS, {}};
    target.split = SplitSubKey(lpSubKey, &target.parts);
    target.path = TargetPath(target.pParent, lpSubKey, target.split, target.parts);
    return target;
}

std::u16string_view ParentPath(std::u16string_view path)
{
    size_t slash = path.rfind(u'\\');
    return slash == std::u16string_view::npos ? std::u16string_view() : path.substr(0, slash);
}

// Deletes the key at `path` and everything below it, logging the changes.
void DeleteSubtree(Connection& conn, ChangeList& changes, LONGLONG llKeyId,
                   std::u16string_view path)
{
    LONGLONG llParent = ParentOf(conn, llKeyId);
    DeleteKeyRow(conn, llKeyId);
    if (llParent)
        TouchKey(conn, llParent);
    RecordChange(conn, changes, ParentPath(path), kChangeName);
    RecordChange(conn, changes, path, kChangeDeleted);
}

LSTATUS DeleteKey(const char* api, HKEY hKey, LPCWSTR lpSubKey)
{
    return RunCall(true, [&](Connection& conn, ChangeList& changes) -> LONG {
        auto [pParent, parts, split, path] = ResolveSubKey(hKey, lpSubKey);
        LONG status = ERROR_SUCCESS;
        if (InjectedFault(api, pParent ? &path : nullptr, &status))
            return status;
        if ((status = CheckKey(conn, pParent, 0)) != ERROR_SUCCESS)
            return status;
        if (!lpSubKey)
            return ERROR_INVALID_PARAMETER;
        if (split != ERROR_SUCCESS)
            return split;
        auto row = WalkPath(conn, pParent->llKeyId, parts);
        if (!row)
            return ERROR_FILE_NOT_FOUND;
        // Windows refuses a key with subkeys with ERROR_ACCESS_DENIED too.
        if (IsProtectedKey(conn, row->llId) || HasSubKeys(conn, row->llId))
            return ERROR_ACCESS_DENIED;
        DeleteSubtree(conn, changes, row->llId, path);
        return ERROR_SUCCESS;
    });
}

} // namespace

LSTATUS WINAPI RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD ulOptions, REGSAM samDesired,
                             PHKEY phkResult)
{
    KeyHandle opened;
    bool fSameKey = false;
    return RunCall(
        false,
        [&](Connection& conn, ChangeList&) -> LONG {
            auto [pParent, parts, split, path] = ResolveSubKey(hKey, lpSubKey);
            LONG status = ERROR_SUCCESS;
            if (phkResult)
                *phkResult = nullptr;
            if (InjectedFault("RegOpenKeyExW", pParent ? &path : nullptr, &status))
                return status;
            if (!phkResult)
                return ERROR_INVALID_PARAMETER;
            if ((status = CheckKey(conn, pParent, 0)) != ERROR_SUCCESS)
                return status;
            if (split != ERROR_SUCCESS)
                return split;
            if ((ulOptions & ~DWORD(REG_OPTION_OPEN_LINK)) != 0)
                return ERROR_INVALID_PARAMETER;
            if (parts.empty() && pParent->fPredefined) {
                fSameKey = true;
                return ERROR_SUCCESS;
            }
            auto row = WalkPath(conn, pParent->llKeyId, parts);
            if (!row)
                return ERROR_FILE_NOT_FOUND;
            opened = KeyHandle{row->llId, MapKeyAccess(samDesired), std::move(path), false};
            return ERROR_SUCCESS;
        },
        [&] { *phkResult = fSameKey ? hKey : InsertHandle(std::move(opened)); });
}

LSTATUS WINAPI RegCreateKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD Reserved, LPWSTR lpClass,
                               DWORD dwOptions, REGSAM samDesired,
                               const LPSECURITY_ATTRIBUTES lpSecurityAttributes, PHKEY phkResult,
                               LPDWORD lpdwDisposition)
{
    UNREFERENCED_PARAMETER(Reserved);
    UNREFERENCED_PARAMETER(lpSecurityAttributes);
    constexpr DWORD kKnownOptions = REG_OPTION_VOLATILE | REG_OPTION_CREATE_LINK |
                                    REG_OPTION_BACKUP_RESTORE | REG_OPTION_OPEN_LINK |
                                    REG_OPTION_DONT_VIRTUALIZE;
    KeyHandle created;
    DWORD dwDisposition = REG_OPENED_EXISTING_KEY;
    return RunCall(
        true,
        [&](Connection& conn, ChangeList& changes) -> LONG {
            auto [pParent, parts, split, path] = ResolveSubKey(hKey, lpSubKey);
            LONG status = ERROR_SUCCESS;
            if (phkResult)
                *phkResult = nullptr;
            if (InjectedFault("RegCreateKeyExW", pParent ? &path : nullptr, &status))
                return status;
            if (!phkResult || !lpSubKey || (dwOptions & ~kKnownOptions) != 0)
                return ERROR_INVALID_PARAMETER;
            if (dwOptions & (REG_OPTION_CREATE_LINK | REG_OPTION_BACKUP_RESTORE))
                return ERROR_NOT_SUPPORTED;
            if ((status = CheckKey(conn, pParent, 0)) != ERROR_SUCCESS)
                return status;
            if (split != ERROR_SUCCESS)
                return split;
            const bool fVolatile = (dwOptions & REG_OPTION_VOLATILE) != 0;
            KeyRow row = ReadKey(conn, pParent->llKeyId);
            std::u16string current = pParent->path;
            for (size_t i = 0; i < parts.size(); ++i) {
                std::u16string parentPath = current;
                current = JoinPath(current, parts[i]);
                if (auto existing = FindSubKey(conn, row.llId, parts[i])) {
                    row = *existing;
                    continue;
                }
                if (row.fVolatile && !fVolatile)
                    return ERROR_CHILD_MUST_BE_VOLATILE;
                bool fLast = i + 1 == parts.size();
                std::u16string_view className =
                    fLast && lpClass ? std::u16string_view(lpClass) : std::u16string_view();
                row =
                    KeyRow{CreateSubKey(conn, row.llId, parts[i], className, fVolatile), fVolatile};
                // Below a new key every further one is new: the last one is created too.
                dwDisposition = REG_CREATED_NEW_KEY;
                RecordChange(conn, changes, parentPath, kChangeName);
            }
            created = KeyHandle{row.llId, MapKeyAccess(samDesired), std::move(path), false};
            return ERROR_SUCCESS;
        },
        [&] {
            *phkResult = InsertHandle(std::move(created));
            if (lpdwDisposition)
                *lpdwDisposition = dwDisposition;
        });
}

LSTATUS WINAPI RegCloseKey(HKEY hKey)
{
    {
        std::lock_guard lock(RegistryLock());
        const KeyHandle* pHandle = FindHandle(hKey);
        LONG status = ERROR_SUCCESS;
        if (InjectedFault("RegCloseKey", pHandle ? &pHandle->path : nullptr, &status))
            return status;
        if (IsPredefinedKey(hKey))
            return ERROR_SUCCESS;
        if (!EraseHandle(hKey))
            return ERROR_INVALID_HANDLE;
    }
    // As on Windows, closing the handle completes its pending notifications.
    EndNotifications(hKey);
    return ERROR_SUCCESS;
}

LSTATUS WINAPI RegDeleteKeyW(HKEY hKey, LPCWSTR lpSubKey)
{
    return DeleteKey("RegDeleteKeyW", hKey, lpSubKey);
}

LSTATUS WINAPI RegDeleteKeyExW(HKEY hKey, LPCWSTR lpSubKey, REGSAM samDesired, DWORD Reserved)
{
    UNREFERENCED_PARAMETER(samDesired); // only the WOW64 view bits, meaningless here
    UNREFERENCED_PARAMETER(Reserved);
    return DeleteKey("RegDeleteKeyExW", hKey, lpSubKey);
}

LSTATUS WINAPI RegDeleteTreeW(HKEY hKey, LPCWSTR lpSubKey)
{
    return RunCall(true, [&](Connection& conn, ChangeList& changes) -> LONG {
        auto [pParent, parts, split, path] = ResolveSubKey(hKey, lpSubKey);
        LONG status = ERROR_SUCCESS;
        if (InjectedFault("RegDeleteTreeW", pParent ? &path : nullptr, &status))
            return status;
        // Without a subkey the call works through hKey itself, which must allow it.
        REGSAM samNeeded = lpSubKey ? 0 : KEY_ENUMERATE_SUB_KEYS | KEY_QUERY_VALUE | KEY_SET_VALUE;
        if ((status = CheckKey(conn, pParent, samNeeded)) != ERROR_SUCCESS)
            return status;
        if (split != ERROR_SUCCESS)
            return split;
        auto row = WalkPath(conn, pParent->llKeyId, parts);
        if (!row)
            return ERROR_FILE_NOT_FOUND;
        if (lpSubKey) {
            if (IsProtectedKey(conn, row->llId))
                return ERROR_ACCESS_DENIED;
            DeleteSubtree(conn, changes, row->llId, path);
            return ERROR_SUCCESS;
        }
        // The key stays; its values and subkeys go.
        std::vector<std::pair<LONGLONG, std::u16string>> children;
        {
            Statement s = conn.Prepare("SELECT id, name FROM keys WHERE parent = ?1");
            s.Bind(1, row->llId);
            while (s.Step())
                children.emplace_back(s.Int64(0), s.Text16(1));
        }
        for (const auto& child : children)
            if (IsProtectedKey(conn, child.first))
                return ERROR_ACCESS_DENIED;
        {
            Statement s = conn.Prepare("DELETE FROM vals WHERE key = ?1");
            s.Bind(1, row->llId);
            s.Step();
        }
        if (conn.Changes() > 0)
            RecordChange(conn, changes, path, kChangeLastSet);
        for (const auto& [llChild, name] : children) {
            DeleteKeyRow(conn, llChild);
            RecordChange(conn, changes, JoinPath(path, name), kChangeDeleted);
        }
        if (!children.empty())
            RecordChange(conn, changes, path, kChangeName);
        TouchKey(conn, row->llId);
        return ERROR_SUCCESS;
    });
}
