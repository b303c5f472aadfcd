// Keys and the change log in the database.
#include "pal/src/registry/tree.h"

#include "pal/src/registry/names.h"

#include "pal/src/base/internal.h"

#include <chrono>

namespace pal::detail::registry {

namespace {

// The log keeps this many changes; a process whose watcher fell further behind signals all
// its notifications rather than miss one.
constexpr LONGLONG kChangesKept = 4096;
// Pruning runs on every Nth change so that most writes pay nothing for it.
constexpr LONGLONG kPruneEvery = 256;

} // namespace

bool KeyExists(Connection& conn, LONGLONG llKeyId)
{
    Statement s = conn.Prepare("SELECT 1 FROM keys WHERE id = ?1");
    s.Bind(1, llKeyId);
    return s.Step();
}

std::optional<KeyRow> FindSubKey(Connection& conn, LONGLONG llParent, std::u16string_view name)
{
    Statement s = conn.Prepare("SELECT id, volatile FROM keys WHERE parent = ?1 AND fold = ?2");
    s.Bind(1, llParent).Bind(2, ToUtf8(FoldName(name)));
    if (!s.Step())
        return std::nullopt;
    return KeyRow{s.Int64(0), s.Int64(1) != 0};
}

std::optional<KeyRow> WalkPath(Connection& conn, LONGLONG llStart,
                               const std::vector<std::u16string_view>& parts)
{
    KeyRow row = ReadKey(conn, llStart);
    for (auto part : parts) {
        auto next = FindSubKey(conn, row.llId, part);
        if (!next)
            return std::nullopt;
        row = *next;
    }
    return row;
}

KeyRow ReadKey(Connection& conn, LONGLONG llKeyId)
{
    Statement s = conn.Prepare("SELECT volatile FROM keys WHERE id = ?1");
    s.Bind(1, llKeyId);
    bool fVolatile = s.Step() && s.Int64(0) != 0;
    return KeyRow{llKeyId, fVolatile};
}

LONGLONG CreateSubKey(Connection& conn, LONGLONG llParent, std::u16string_view name,
                      std::u16string_view className, bool fVolatile)
{
    Statement s = conn.Prepare("INSERT INTO keys(parent, name, fold, class, volatile, last_write)"
                               " VALUES (?1, ?2, ?3, ?4, ?5, ?6) RETURNING id");
    s.Bind(1, llParent)
        .Bind(2, ToUtf8(name))
        .Bind(3, ToUtf8(FoldName(name)))
        .Bind(4, ToUtf8(className))
        .Bind(5, fVolatile ? 1 : 0)
        .Bind(6, static_cast<LONGLONG>(NowFileTime()));
    s.Step();
    LONGLONG id = s.Int64(0);
    TouchKey(conn, llParent);
    return id;
}

bool HasSubKeys(Connection& conn, LONGLONG llKeyId)
{
    Statement s = conn.Prepare("SELECT 1 FROM keys WHERE parent = ?1 LIMIT 1");
    s.Bind(1, llKeyId);
    return s.Step();
}

LONGLONG ParentOf(Connection& conn, LONGLONG llKeyId)
{
    Statement s = conn.Prepare("SELECT parent FROM keys WHERE id = ?1");
    s.Bind(1, llKeyId);
    return s.Step() ? s.Int64(0) : 0;
}

void DeleteKeyRow(Connection& conn, LONGLONG llKeyId)
{
    Statement s = conn.Prepare("DELETE FROM keys WHERE id = ?1");
    s.Bind(1, llKeyId);
    s.Step();
}

bool IsProtectedKey(const Connection& conn, LONGLONG llKeyId)
{
    return llKeyId == conn.HklmId() || llKeyId == conn.HkcuId() || llKeyId == conn.SoftwareId() ||
           llKeyId == conn.ClassesId();
}

void TouchKey(Connection& conn, LONGLONG llKeyId)
{
    Statement s = conn.Prepare("UPDATE keys SET last_write = ?2 WHERE id = ?1");
    s.Bind(1, llKeyId).Bind(2, static_cast<LONGLONG>(NowFileTime()));
    s.Step();
}

ULONGLONG NowFileTime()
{
    constexpr ULONGLONG kUnixEpochAsFileTime = 116444736000000000ull;
    auto since = std::chrono::system_clock::now().time_since_epoch();
    return kUnixEpochAsFileTime +
           static_cast<ULONGLONG>(
               std::chrono::duration_cast<std::chrono::nanoseconds>(since).count() / 100);
}

FILETIME ToFileTime(ULONGLONG ull)
{
    return FILETIME{static_cast<DWORD>(ull & 0xFFFFFFFFu), static_cast<DWORD>(ull >> 32)};
}

void RecordChange(Connection& conn, ChangeList& changes, std::u16string_view path, DWORD dwKind)
{
    std::string folded = FoldedPathUtf8(path);
    LONGLONG seq = 0;
    {
        Statement s = conn.Prepare("INSERT INTO changes(path, kind) VALUES (?1, ?2) RETURNING seq");
        s.Bind(1, folded).Bind(2, dwKind);
        s.Step();
        seq = s.Int64(0);
    }
    if (seq % kPruneEvery == 0) {
        Statement s = conn.Prepare("DELETE FROM changes WHERE seq <= ?1");
        s.Bind(1, seq - kChangesKept);
        s.Step();
    }
    changes.push_back(Change{seq, std::move(folded), dwKind});
}

LONGLONG LastChangeSeq(Connection& conn)
{
    Statement s = conn.Prepare("SELECT seq FROM sqlite_sequence WHERE name = 'changes'");
    return s.Step() ? s.Int64(0) : 0;
}

} // namespace pal::detail::registry
