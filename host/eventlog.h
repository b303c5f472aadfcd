// CEventLog: the writer of the system's event log reports. Each report carries an id of the
// message table (res/orvmsg.mc, ids in res/orvmsg.h), up to four insertion strings and, for
// failures, the failing HRESULT as four bytes of raw data.
//
// Reports may come from any thread; one instance serialises its own with its report lock.
// A failed report is traced while that lock is held, so the trace lock is taken inside the
// report lock; the trace log never takes a report lock, and nothing else may nest them.
#pragma once

#include "pal/synchapi.h"
#include "pal/windef.h"

class CEventLog
{
public:
    // No source registered yet; the report lock is created.
    CEventLog();
    // Deregisters the source if one is registered, then deletes the lock.
    ~CEventLog();
    CEventLog(const CEventLog&) = delete;
    CEventLog& operator=(const CEventLog&) = delete;

    // Registers the event source `pszSourceName` on the local computer. Returns S_OK or the
    // registration's error as an HRESULT; a writer whose Initialize failed is deleted by its
    // creator.
    HRESULT Initialize(LPCWSTR pszSourceName);

    // Reports event `dwEventId` with `wNumStrings` insertion strings (`ppszStrings` may be
    // null when there are none) and, when `dwRawData` is not 0, its four bytes as raw data.
    // The event type follows the id's severity bits. Returns S_OK or the report's error as an
    // HRESULT; callers are free to ignore it.
    HRESULT LogEx(DWORD dwEventId, WORD wNumStrings, LPCWSTR* ppszStrings, DWORD dwRawData);

    // LogEx with the strings given, in order.
    HRESULT Log(DWORD dwEventId, DWORD dwRawData);
    HRESULT Log(DWORD dwEventId, LPCWSTR psz1, DWORD dwRawData);
    HRESULT Log(DWORD dwEventId, LPCWSTR psz1, LPCWSTR psz2, DWORD dwRawData);
    HRESULT Log(DWORD dwEventId, LPCWSTR psz1, LPCWSTR psz2, LPCWSTR psz3, DWORD dwRawData);
    HRESULT Log(DWORD dwEventId, LPCWSTR psz1, LPCWSTR psz2, LPCWSTR psz3, LPCWSTR psz4,
                DWORD dwRawData);

    // Writes the event source's registry entry under HKEY_LOCAL_MACHINE:
    // System\CurrentControlSet\Services\EventLog\(System|Application)\<source>, with the
    // REG_SZ value "EventMessageFile" (the file holding the message table) and the REG_DWORD
    // "TypesSupported" 7 (error, warning, information). Nothing in the system calls it yet:
    // which installation step registers the source is not settled.
    static HRESULT AddEventLogRegistrySetting(LPCWSTR pszSourceName, LPCWSTR pszMessageFile,
                                              BOOL fSystemLog);

private:
    HANDLE m_hEventSource;
    CRITICAL_SECTION m_csReport;
};
