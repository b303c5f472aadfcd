// The key tree in the database: finding, creating and deleting keys, their last write times
// and the change log that notifications read. Every function runs inside a call's transaction
// and throws SqlError on a database failure.
#pragma once

#include "pal/src/registry/store.h"

#include <optional>
#include <string_view>
#include <vector>

namespace pal::detail::registry {

struct KeyRow
{
    LONGLONG llId;
    bool fVolatile;
};

bool KeyExists(Connection& conn, LONGLONG llKeyId);
std::optional<KeyRow> FindSubKey(Connection& conn, LONGLONG llParent, std::u16string_view name);
// Follows `parts` down from llStart; nullopt when a key on the way is missing.
std::optional<KeyRow> WalkPath(Connection& conn, LONGLONG llStart,
                               const std::vector<std::u16string_view>& parts);
KeyRow ReadKey(Connection& conn, LONGLONG llKeyId);
LONGLONG CreateSubKey(Connection& conn, LONGLONG llParent, std::u16string_view name,
                      std::u16string_view className, bool fVolatile);
bool HasSubKeys(Connection& conn, LONGLONG llKeyId);
// 0 for a root.
LONGLONG ParentOf(Connection& conn, LONGLONG llKeyId);
// Deletes the key, its subtree and their values.
void DeleteKeyRow(Connection& conn, LONGLONG llKeyId);
// The roots and the keys HKEY_CLASSES_ROOT depends on.
bool IsProtectedKey(const Connection& conn, LONGLONG llKeyId);

// Sets the key's last write time to now.
void TouchKey(Connection& conn, LONGLONG llKeyId);
// Now as a FILETIME count (100 ns units since 1601).
ULONGLONG NowFileTime();
FILETIME ToFileTime(ULONGLONG ull);

// Logs a change of the key at `path` (its canonical path) for the notifications of every
// process, and keeps it in `changes` for this process's own.
void RecordChange(Connection& conn, ChangeList& changes, std::u16string_view path, DWORD dwKind);
// The sequence number of the last change logged; 0 when none ever was.
LONGLONG LastChangeSeq(Connection& conn);

} // namespace pal::detail::registry
