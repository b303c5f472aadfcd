// The registry's SQLite store: one connection per process to <machine root>/registry.db, the
// statements run on it and the transactions that group them. The schema is described in
// docs/ARCHITECTURE.md ("Registry").
#pragma once

#include "pal/src/base/sqlitedb.h"

#include "pal/windef.h"
#include "pal/winerror.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace pal::detail::registry {

// A failing statement inside a call throws SqlError; the call returns it as a Win32 error.
LONG Win32FromSqlite(int rc);

using Statement = SqlStatement;

// The registry database, its schema ensured.
class Connection : public SqlConnection
{
public:
    static std::unique_ptr<Connection> Open(const std::string& path);

    LONGLONG HklmId() const { return m_llHklm; }
    LONGLONG HkcuId() const { return m_llHkcu; }
    LONGLONG ClassesId() const { return m_llClasses; }
    LONGLONG SoftwareId() const { return m_llSoftware; }

private:
    explicit Connection(const std::string& path) : SqlConnection(path) {}
    void EnsureSchema();

    LONGLONG m_llHklm = 0;
    LONGLONG m_llHkcu = 0;
    LONGLONG m_llSoftware = 0;
    LONGLONG m_llClasses = 0;
};

using Transaction = SqlTransaction;

// ---- The process's registry session ----
// Guards the connection, the handle table and the session generation.
std::mutex& RegistryLock();
// With RegistryLock() held: the connection for the machine root. With fFollowRoot, a change of
// $ORVSIM_ROOT since the last call closes the old database and forgets every handle and
// notification of it (each test has a root of its own). Throws SqlError.
Connection& CurrentConnection(bool fFollowRoot);
// With RegistryLock() held: the connection if one is open, without looking at $ORVSIM_ROOT.
Connection* OpenConnection();
// Counts connections opened, so that a notification armed on an old root is recognised.
ULONGLONG CurrentGeneration();

// ---- Changes, for notification ----
enum ChangeKind : DWORD
{
    kChangeName = 0x1,      // a subkey of the key was added or deleted
    kChangeLastSet = 0x4,   // a value of the key was set or deleted
    kChangeDeleted = 0x100, // the key itself (and its subtree) was deleted
};
struct Change
{
    LONGLONG llSeq;
    std::string path; // folded full path, UTF-8
    DWORD dwKind;
};
using ChangeList = std::vector<Change>;
// Signals this process's notifications matched by changes just committed (notify module).
void PublishChanges(const ChangeList& changes);

} // namespace pal::detail::registry
