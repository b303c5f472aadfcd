// CEventLog: registration of the event source and the reports of the message table's events.
#include "host/eventlog.h"

#include "diag/trace.h"
#include "pal/errhandlingapi.h"
#include "pal/eventlog.h"
#include "pal/regkey.h"
#include "pal/winbase.h"
#include "pal/winerror.h"

namespace {

// Holds a critical section for the life of a scope, so it is left on every path out,
// an exception's included.
class CCritSecLock
{
public:
    explicit CCritSecLock(CRITICAL_SECTION* pcs) : m_pcs(pcs) { EnterCriticalSection(m_pcs); }
    ~CCritSecLock() { LeaveCriticalSection(m_pcs); }
    CCritSecLock(const CCritSecLock&) = delete;
    CCritSecLock& operator=(const CCritSecLock&) = delete;

private:
    CRITICAL_SECTION* m_pcs;
};

// The event type that the severity bits (31-30) of a message id stand for.
WORD EventTypeFromId(DWORD dwEventId)
{
    switch (dwEventId >> 30) {
    case 0:
        return EVENTLOG_SUCCESS;
    case 1:
        return EVENTLOG_INFORMATION_TYPE;
    case 2:
        return EVENTLOG_WARNING_TYPE;
    default:
        return EVENTLOG_ERROR_TYPE;
    }
}

const WCHAR c_szSystemLogKey[] = W("System\\CurrentControlSet\\Services\\EventLog\\System\\");
const WCHAR c_szApplicationLogKey[] =
    W("System\\CurrentControlSet\\Services\\EventLog\\Application\\");
// Error, warning and information.
const DWORD c_dwTypesSupported =
    EVENTLOG_ERROR_TYPE | EVENTLOG_WARNING_TYPE | EVENTLOG_INFORMATION_TYPE;

} // namespace

CEventLog::CEventLog() : m_hEventSource(nullptr)
{
    InitializeCriticalSection(&m_csReport);
}

CEventLog::~CEventLog()
{
    CTraceScope scope(W("CEventLog::~CEventLog"));
    if (m_hEventSource != nullptr) {
        DeregisterEventSource(m_hEventSource);
        m_hEventSource = nullptr;
    }
    DeleteCriticalSection(&m_csReport);
}

HRESULT CEventLog::Initialize(LPCWSTR pszSourceName)
{
    CTraceScope scope(W("CEventLog::Initialize"));
    HANDLE hEventSource = RegisterEventSourceW(nullptr, pszSourceName);
    if (hEventSource == nullptr) {
        DWORD dwError = GetLastError();
        TRACE(TRACE_LEVEL_ERROR, W("RegisterEventSource FAILED [error=0x%08x]\n"), dwError);
        return HRESULT_FROM_WIN32(dwError);
    }
    // A second Initialize replaces the source rather than leak the first handle.
    if (m_hEventSource != nullptr)
        DeregisterEventSource(m_hEventSource);
    m_hEventSource = hEventSource;
    return S_OK;
}

HRESULT CEventLog::LogEx(DWORD dwEventId, WORD wNumStrings, LPCWSTR* ppszStrings, DWORD dwRawData)
{
    CTraceScope scope(W("CEventLog::LogEx"));
    // Signed on purpose: error ids read as negative numbers, as in the rest of the trace.
    TRACE(TRACE_LEVEL_INFO, W("dwEventId=%d\n"), dwEventId);

    WORD wType = EventTypeFromId(dwEventId);

    // The code's four bytes, least significant first, whatever the host's byte order; a zero
    // code (a success) is no data at all.
    BYTE rgbRawData[sizeof(DWORD)];
    DWORD cbRawData = 0;
    if (dwRawData != 0) {
        for (DWORD i = 0; i < sizeof(DWORD); ++i)
            rgbRawData[i] = static_cast<BYTE>(dwRawData >> (8 * i));
        cbRawData = sizeof(rgbRawData);
    }

    CCritSecLock lock(&m_csReport);
    if (!ReportEventW(m_hEventSource, wType, 0, dwEventId, nullptr, wNumStrings, cbRawData,
                      ppszStrings, cbRawData != 0 ? rgbRawData : nullptr)) {
        DWORD dwError = GetLastError();
        // Still under the report lock: the trace lock nests inside it, never the reverse.
        TRACE(TRACE_LEVEL_ERROR, W("ReportEvent FAILED [error=0x%08x]\n"), dwError);
        return HRESULT_FROM_WIN32(dwError);
    }
    return S_OK;
}

HRESULT CEventLog::Log(DWORD dwEventId, DWORD dwRawData)
{
    return LogEx(dwEventId, 0, nullptr, dwRawData);
}

HRESULT CEventLog::Log(DWORD dwEventId, LPCWSTR psz1, DWORD dwRawData)
{
    LPCWSTR rgpszStrings[] = {psz1};
    return LogEx(dwEventId, ARRAYSIZE(rgpszStrings), rgpszStrings, dwRawData);
}

HRESULT CEventLog::Log(DWORD dwEventId, LPCWSTR psz1, LPCWSTR psz2, DWORD dwRawData)
{
    LPCWSTR rgpszStrings[] = {psz1, psz2};
    return LogEx(dwEventId, ARRAYSIZE(rgpszStrings), rgpszStrings, dwRawData);
}

HRESULT CEventLog::Log(DWORD dwEventId, LPCWSTR psz1, LPCWSTR psz2, LPCWSTR psz3, DWORD dwRawData)
{
    LPCWSTR rgpszStrings[] = {psz1, psz2, psz3};
    return LogEx(dwEventId, ARRAYSIZE(rgpszStrings), rgpszStrings, dwRawData);
}

HRESULT CEventLog::Log(DWORD dwEventId, LPCWSTR psz1, LPCWSTR psz2, LPCWSTR psz3, LPCWSTR psz4,
                       DWORD dwRawData)
{
    LPCWSTR rgpszStrings[] = {psz1, psz2, psz3, psz4};
    return LogEx(dwEventId, ARRAYSIZE(rgpszStrings), rgpszStrings, dwRawData);
}

HRESULT CEventLog::AddEventLogRegistrySetting(LPCWSTR pszSourceName, LPCWSTR pszMessageFile,
                                              BOOL fSystemLog)
{
    CTraceScope scope(W("CEventLog::AddEventLogRegistrySetting"));

    // The log's key and the source's name, cut to the buffer as lstrcpyn cuts.
    WCHAR szKey[MAX_PATH];
    lstrcpynW(szKey, fSystemLog ? c_szSystemLogKey : c_szApplicationLogKey, ARRAYSIZE(szKey));
    int cchPrefix = lstrlenW(szKey);
    lstrcpynW(szKey + cchPrefix, pszSourceName, static_cast<int>(ARRAYSIZE(szKey)) - cchPrefix);

    CRegKey key;
    LONG lResult = key.Create(HKEY_LOCAL_MACHINE, szKey, KEY_WRITE);
    if (lResult != ERROR_SUCCESS) {
        TRACE(TRACE_LEVEL_ERROR, W("RegCreateKey FAILED [error=0x%08x]\n"), lResult);
        return HRESULT_FROM_WIN32(lResult);
    }
    lResult = key.SetStringValue(W("EventMessageFile"), pszMessageFile, REG_SZ);
    if (lResult != ERROR_SUCCESS) {
        TRACE(TRACE_LEVEL_ERROR, W("RegSetValueEx FAILED [error=0x%08x]\n"), lResult);
        return HRESULT_FROM_WIN32(lResult);
    }
    lResult = key.SetDWORDValue(W("TypesSupported"), c_dwTypesSupported);
    if (lResult != ERROR_SUCCESS) {
        TRACE(TRACE_LEVEL_ERROR, W("RegSetValueEx FAILED [error=0x%08x]\n"), lResult);
        return HRESULT_FROM_WIN32(lResult);
    }
    return S_OK;
}
