// Event sources and reports: RegisterEventSourceW, ReportEventW, DeregisterEventSource, and
// the reader of pal/paleventlog.h. The reports themselves are kept by store.cpp.
#include "pal/eventlog.h"
#include "pal/errhandlingapi.h"
#include "pal/processthreadsapi.h"
#include "pal/src/base/internal.h"
#include "pal/src/eventlog/store.h"
#include "pal/winerror.h"

#include <cctype>
#include <mutex>
#include <optional>
#include <unistd.h>
#include <unordered_map>

namespace {

// The Windows limits of one report (ReportEventW's documentation, Windows Vista and later).
constexpr size_t kMaxStringChars = 31839;
constexpr DWORD kMaxDataBytes = 61440;
// MAX_COMPUTERNAME_LENGTH
constexpr size_t kMaxComputerName = 15;
// A SID is its 8-byte header and up to 15 sub-authorities of 4 bytes.
constexpr BYTE kSidRevision = 1;
constexpr BYTE kSidMaxSubAuthorities = 15;

// Event source handles are not kernel handles: their low bits are 01, which the kernel handle
// table never gives out (so CloseHandle refuses them), and a value is never reused within the
// process, so a stale handle fails instead of reaching another source.
constexpr ULONG_PTR kHandleTag = 1;

struct SourceTable
{
    std::mutex lock;
    ULONG_PTR ulNext = 0x100;
    std::unordered_map<ULONG_PTR, std::u16string> sources;
};

SourceTable& Sources()
{
    static SourceTable table;
    return table;
}

// The source name of an open handle.
std::optional<std::u16string> LookupSource(HANDLE h)
{
    SourceTable& table = Sources();
    std::lock_guard lock(table.lock);
    auto it = table.sources.find(reinterpret_cast<ULONG_PTR>(h));
    if (it == table.sources.end())
        return std::nullopt;
    return it->second;
}

bool IsLocalServer(LPCWSTR lpUNCServerName)
{
    if (lpUNCServerName == nullptr || lpUNCServerName[0] == 0)
        return true;
    std::u16string_view name(lpUNCServerName);
    if (name.starts_with(u"\\\\"))
        name.remove_prefix(2);
    return pal::detail::EqualNoCase(name, pal::EventLogComputerName());
}

bool IsValidSid(const BYTE* pSid)
{
    return pSid[0] == kSidRevision && pSid[1] <= kSidMaxSubAuthorities;
}

size_t SidLength(const BYTE* pSid)
{
    return 8 + 4 * static_cast<size_t>(pSid[1]);
}

bool IsKnownEventType(WORD wType)
{
    switch (wType) {
    case EVENTLOG_SUCCESS:
    case EVENTLOG_ERROR_TYPE:
    case EVENTLOG_WARNING_TYPE:
    case EVENTLOG_INFORMATION_TYPE:
    case EVENTLOG_AUDIT_SUCCESS:
    case EVENTLOG_AUDIT_FAILURE:
        return true;
    default:
        return false;
    }
}

} // namespace

namespace pal {

std::u16string EventLogComputerName()
{
    static const std::u16string name = [] {
        char host[256] = {};
        if (gethostname(host, sizeof(host) - 1) != 0 || host[0] == 0)
            return std::u16string(u"LOCALHOST");
        std::string upper;
        for (const char* p = host; *p && *p != '.' && upper.size() < kMaxComputerName; ++p)
            upper.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(*p))));
        return detail::ToUtf16(upper);
    }();
    return name;
}

DWORD ReadEventLog(const EventLogQuery& query, std::vector<EventLogRecord>* pRecords)
{
    return detail::eventlog::QueryEvents(query, pRecords);
}

} // namespace pal

HANDLE WINAPI RegisterEventSourceW(LPCWSTR lpUNCServerName, LPCWSTR lpSourceName)
{
    if (pal::detail::FailIfInjected("RegisterEventSourceW", lpSourceName))
        return nullptr;
    if (!IsLocalServer(lpUNCServerName)) {
        SetLastError(RPC_S_SERVER_UNAVAILABLE);
        return nullptr;
    }
    if (lpSourceName == nullptr || lpSourceName[0] == 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    try {
        SourceTable& table = Sources();
        std::lock_guard lock(table.lock);
        ULONG_PTR value = (table.ulNext++ << 2) | kHandleTag;
        table.sources.emplace(value, std::u16string(lpSourceName));
        return reinterpret_cast<HANDLE>(value);
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
}

BOOL WINAPI DeregisterEventSource(HANDLE hEventLog)
{
    if (pal::detail::FailIfInjected("DeregisterEventSource"))
        return FALSE;
    SourceTable& table = Sources();
    std::lock_guard lock(table.lock);
    if (table.sources.erase(reinterpret_cast<ULONG_PTR>(hEventLog)) == 0) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return TRUE;
}

BOOL WINAPI ReportEventW(HANDLE hEventLog, WORD wType, WORD wCategory, DWORD dwEventID,
                         PSID lpUserSid, WORD wNumStrings, DWORD dwDataSize, LPCWSTR* lpStrings,
                         LPVOID lpRawData)
{
    try {
        // The source is looked up first so that a fault rule can name it.
        std::optional<std::u16string> source = LookupSource(hEventLog);
        if (pal::detail::FailIfInjected("ReportEventW", source ? source->c_str() : nullptr))
            return FALSE;
        if (!source) {
            SetLastError(ERROR_INVALID_HANDLE);
            return FALSE;
        }
        if (!IsKnownEventType(wType) || (wNumStrings != 0 && lpStrings == nullptr) ||
            (dwDataSize != 0 && lpRawData == nullptr)) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return FALSE;
        }
        if (dwDataSize > kMaxDataBytes) {
            SetLastError(RPC_S_INVALID_BOUND);
            return FALSE;
        }
        pal::EventLogRecord record;
        record.ullTimeGenerated = pal::detail::eventlog::FileTimeNow();
        record.source = std::move(*source);
        record.computer = pal::EventLogComputerName();
        record.wType = wType;
        record.wCategory = wCategory;
        record.dwEventId = dwEventID;
        if (lpUserSid != nullptr) {
            const BYTE* pSid = static_cast<const BYTE*>(lpUserSid);
            if (!IsValidSid(pSid)) {
                SetLastError(ERROR_INVALID_SID);
                return FALSE;
            }
            record.userSid.assign(pSid, pSid + SidLength(pSid));
        }
        for (WORD i = 0; i < wNumStrings; ++i) {
            // Windows takes a null entry as an empty string.
            std::u16string text = lpStrings[i] ? std::u16string(lpStrings[i]) : std::u16string();
            if (text.size() > kMaxStringChars) {
                SetLastError(ERROR_INVALID_PARAMETER);
                return FALSE;
            }
            record.strings.push_back(std::move(text));
        }
        const BYTE* pData = static_cast<const BYTE*>(lpRawData);
        if (dwDataSize != 0)
            record.data.assign(pData, pData + dwDataSize);
        record.dwProcessId = GetCurrentProcessId();
        record.dwThreadId = GetCurrentThreadId();
        DWORD dwError = pal::detail::eventlog::AppendEvent(record);
        if (dwError != ERROR_SUCCESS) {
            SetLastError(dwError);
            return FALSE;
        }
        return TRUE;
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return FALSE;
    }
}
