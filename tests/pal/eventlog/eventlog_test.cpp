// The event log of the platform layer: registration, reports with every field kept, the
// reader's filters, Windows' failures for handles and arguments, faults, and the database.
#include "pal/errhandlingapi.h"
#include "pal/handleapi.h"
#include "pal/processthreadsapi.h"
#include "pal/synchapi.h"
#include "tests/pal/eventlog/eventlog_testing.h"

#include <sqlite3.h>

#include <cctype>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

using orvtest::Wide;
using orvtest::eventlog::ReadAll;
using orvtest::eventlog::Report;
using orvtest::eventlog::ScopedSource;

using EventLogTest = orvtest::PalTest;

ULONGLONG FileTimeNow()
{
    auto since1970 = std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    return 116444736000000000ull + static_cast<ULONGLONG>(since1970.count() / 100);
}

// GetComputerNameW's rule, derived here from the host name independently.
std::u16string ExpectedComputerName()
{
    char host[256] = {};
    gethostname(host, sizeof(host) - 1);
    std::string name;
    for (const char* p = host; *p && *p != '.' && name.size() < 15; ++p)
        name.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(*p))));
    return Wide(name);
}

TEST_F(EventLogTest, ReportKeepsEveryFieldAsGiven)
{
    ScopedSource source(u"OrvTest");
    ASSERT_NE(nullptr, source.Get());
    // S-1-5-18, LocalSystem: revision 1, one sub-authority, authority 5, sub-authority 18.
    const BYTE sid[] = {1, 1, 0, 0, 0, 0, 0, 5, 18, 0, 0, 0};
    const BYTE data[] = {0x05, 0x00, 0x07, 0x80, 0xFF};
    LPCWSTR strings[] = {u"first", u"", u"caf\u00e9 \U0001F600"};
    ULONGLONG before = FileTimeNow();
    ASSERT_TRUE(ReportEventW(source, EVENTLOG_ERROR_TYPE, 7, 0xC0041105, const_cast<BYTE*>(sid), 3,
                             sizeof(data), strings, const_cast<BYTE*>(data)));
    ULONGLONG after = FileTimeNow();

    auto records = ReadAll();
    ASSERT_EQ(1u, records.size());
    const pal::EventLogRecord& r = records[0];
    EXPECT_EQ(1u, r.ullRecordNumber);
    EXPECT_EQ(u"OrvTest", r.source);
    EXPECT_EQ(ExpectedComputerName(), r.computer);
    EXPECT_EQ(pal::EventLogComputerName(), r.computer);
    EXPECT_EQ(WORD(EVENTLOG_ERROR_TYPE), r.wType);
    EXPECT_EQ(7, r.wCategory);
    EXPECT_EQ(0xC0041105u, r.dwEventId);
    EXPECT_EQ(std::vector<BYTE>(sid, sid + sizeof(sid)), r.userSid);
    EXPECT_EQ((std::vector<std::u16string>{u"first", u"", u"caf\u00e9 \U0001F600"}), r.strings);
    EXPECT_EQ(std::vector<BYTE>(data, data + sizeof(data)), r.data);
    EXPECT_EQ(GetCurrentProcessId(), r.dwProcessId);
    EXPECT_EQ(GetCurrentThreadId(), r.dwThreadId);
    EXPECT_LE(before, r.ullTimeGenerated);
    EXPECT_LE(r.ullTimeGenerated, r.ullTimeWritten);
    EXPECT_LE(r.ullTimeWritten, after);
}

TEST_F(EventLogTest, EveryEventTypeTheFullIdAndEmptyPartsAreKept)
{
    ScopedSource source(u"OrvTest");
    const WORD types[] = {EVENTLOG_SUCCESS,       EVENTLOG_ERROR_TYPE,
                          EVENTLOG_WARNING_TYPE,  EVENTLOG_INFORMATION_TYPE,
                          EVENTLOG_AUDIT_SUCCESS, EVENTLOG_AUDIT_FAILURE};
    const DWORD ids[] = {0x00000000, 0xFFFFFFFF, 0x8004110C, 0x40041000, 0x7FFFFFFF, 0xC0040301};
    for (size_t i = 0; i < ARRAYSIZE(types); ++i)
        ASSERT_TRUE(ReportEventW(source, types[i], static_cast<WORD>(0xFFFF - i), ids[i], nullptr,
                                 0, 0, nullptr, nullptr))
            << i;
    LPCWSTR strings[] = {u"a", nullptr};
    ASSERT_TRUE(ReportEventW(source, EVENTLOG_WARNING_TYPE, 0, 0x8004110C, nullptr, 2, 0, strings,
                             nullptr));
    auto records = ReadAll();
    ASSERT_EQ(ARRAYSIZE(types) + 1, records.size());
    for (size_t i = 0; i < ARRAYSIZE(types); ++i) {
        EXPECT_EQ(i + 1, records[i].ullRecordNumber);
        EXPECT_EQ(types[i], records[i].wType);
        EXPECT_EQ(static_cast<WORD>(0xFFFF - i), records[i].wCategory);
        EXPECT_EQ(ids[i], records[i].dwEventId);
        EXPECT_TRUE(records[i].strings.empty());
        EXPECT_TRUE(records[i].data.empty());
        EXPECT_TRUE(records[i].userSid.empty());
    }
    // Windows takes a null entry as an empty string.
    EXPECT_EQ((std::vector<std::u16string>{u"a", u""}), records.back().strings);
}

TEST_F(EventLogTest, OnlyTheLocalComputerIsServedAndASourceNameIsRequired)
{
    std::u16string name = pal::EventLogComputerName();
    std::u16string lower;
    for (char16_t c : name)
        lower.push_back(c >= u'A' && c <= u'Z' ? char16_t(c + 32) : c);
    std::u16string prefixed = u"\\\\" + name, prefixedLower = u"\\\\" + lower;
    const struct
    {
        LPCWSTR server;
        LPCWSTR source;
        DWORD dwError; // 0: registered
    } cases[] = {
        {nullptr, u"OrvTest", 0},
        {u"", u"OrvTest", 0},
        {name.c_str(), u"OrvTest", 0},
        {prefixed.c_str(), u"OrvTest", 0},
        {prefixedLower.c_str(), u"OrvTest", 0},
        {u"\\\\ELSEWHERE", u"OrvTest", RPC_S_SERVER_UNAVAILABLE},
        {u"ELSEWHERE", u"OrvTest", RPC_S_SERVER_UNAVAILABLE},
        {nullptr, nullptr, ERROR_INVALID_PARAMETER},
        {nullptr, u"", ERROR_INVALID_PARAMETER},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.server ? orvtest::Narrow(c.server) : "NULL");
        SetLastError(0);
        HANDLE h = RegisterEventSourceW(c.server, c.source);
        if (c.dwError == 0) {
            EXPECT_NE(nullptr, h);
            EXPECT_TRUE(DeregisterEventSource(h));
        } else {
            EXPECT_EQ(nullptr, h);
            EXPECT_WIN32(c.dwError, GetLastError());
        }
    }
}

TEST_F(EventLogTest, InvalidHandlesFailAsOnWindowsAndWriteNothing)
{
    HANDLE hClosed = RegisterEventSourceW(nullptr, u"OrvTest");
    ASSERT_NE(nullptr, hClosed);
    ASSERT_TRUE(DeregisterEventSource(hClosed));
    ScopedSource open(u"OrvTest");
    HANDLE hForged = reinterpret_cast<HANDLE>(reinterpret_cast<ULONG_PTR>(open.Get()) + 4);
    HANDLE hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    ASSERT_NE(nullptr, hEvent);
    struct Case
    {
        const char* name;
        HANDLE h;
    };
    const Case cases[] = {{"null", nullptr},
                          {"deregistered", hClosed},
                          {"never issued", hForged},
                          {"a kernel event", hEvent},
                          {"INVALID_HANDLE_VALUE", INVALID_HANDLE_VALUE}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_HANDLE, Report(c.h, 0x40041000));
        EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_HANDLE, DeregisterEventSource(c.h));
    }
    // An event source is no kernel object.
    EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_HANDLE, CloseHandle(open.Get()));
    EXPECT_TRUE(CloseHandle(hEvent));
    EXPECT_TRUE(ReadAll().empty());
    // The open handle still works.
    EXPECT_TRUE(Report(open, 0x40041000));
    EXPECT_EQ(1u, ReadAll().size());
}

TEST_F(EventLogTest, BadArgumentsFailBeforeAnythingIsWritten)
{
    ScopedSource source(u"OrvTest");
    std::u16string longest(31839, u'x');
    std::u16string tooLong(31840, u'x');
    LPCWSTR pLongest = longest.c_str();
    LPCWSTR pTooLong = tooLong.c_str();
    std::vector<BYTE> largest(61440, 0xAB);
    std::vector<BYTE> tooLarge(61441, 0xAB);
    BYTE badRevision[] = {2, 0, 0, 0, 0, 0, 0, 5};
    BYTE tooManySubAuthorities[8 + 4 * 16] = {1, 16};
    struct Case
    {
        const char* name;
        WORD wType;
        WORD wNumStrings;
        LPCWSTR* lpStrings;
        DWORD dwDataSize;
        BYTE* lpRawData;
        PSID lpUserSid;
        DWORD dwError; // 0: reported
    };
    const Case cases[] = {
        {"unknown type 3", 3, 0, nullptr, 0, nullptr, nullptr, ERROR_INVALID_PARAMETER},
        {"unknown type 0x20", 0x20, 0, nullptr, 0, nullptr, nullptr, ERROR_INVALID_PARAMETER},
        {"strings counted, none given", EVENTLOG_ERROR_TYPE, 1, nullptr, 0, nullptr, nullptr,
         ERROR_INVALID_PARAMETER},
        {"data counted, none given", EVENTLOG_ERROR_TYPE, 0, nullptr, 4, nullptr, nullptr,
         ERROR_INVALID_PARAMETER},
        {"string of 31840 characters", EVENTLOG_ERROR_TYPE, 1, &pTooLong, 0, nullptr, nullptr,
         ERROR_INVALID_PARAMETER},
        {"61441 bytes of data", EVENTLOG_ERROR_TYPE, 0, nullptr, 61441, tooLarge.data(), nullptr,
         RPC_S_INVALID_BOUND},
        {"SID of revision 2", EVENTLOG_ERROR_TYPE, 0, nullptr, 0, nullptr, badRevision,
         ERROR_INVALID_SID},
        {"SID of 16 sub-authorities", EVENTLOG_ERROR_TYPE, 0, nullptr, 0, nullptr,
         tooManySubAuthorities, ERROR_INVALID_SID},
        {"string of 31839 characters", EVENTLOG_ERROR_TYPE, 1, &pLongest, 0, nullptr, nullptr, 0},
        {"61440 bytes of data", EVENTLOG_ERROR_TYPE, 0, nullptr, 61440, largest.data(), nullptr, 0},
    };
    size_t cExpected = 0;
    for (const Case& c : cases) {
        SetLastError(0);
        BOOL fOk = ReportEventW(source, c.wType, 0, 0xC0040300, c.lpUserSid, c.wNumStrings,
                                c.dwDataSize, c.lpStrings, c.lpRawData);
        if (c.dwError == 0) {
            EXPECT_TRUE(fOk) << c.name;
            ++cExpected;
        } else {
            EXPECT_FALSE(fOk) << c.name;
            EXPECT_WIN32(c.dwError, GetLastError()) << c.name;
        }
        EXPECT_EQ(cExpected, ReadAll().size()) << c.name;
    }
    auto records = ReadAll();
    ASSERT_EQ(2u, records.size());
    EXPECT_EQ(std::vector<std::u16string>{longest}, records[0].strings);
    EXPECT_EQ(largest, records[1].data);
}

TEST_F(EventLogTest, ReaderFiltersBySourceTypeAndNewest)
{
    ScopedSource a(u"Orvhwsvc");
    ScopedSource b(u"Other");
    struct Write
    {
        HANDLE h;
        WORD wType;
    };
    // Records 1..8.
    const Write reports[] = {{a, EVENTLOG_INFORMATION_TYPE}, {b, EVENTLOG_ERROR_TYPE},
                             {a, EVENTLOG_ERROR_TYPE},       {a, EVENTLOG_WARNING_TYPE},
                             {b, EVENTLOG_INFORMATION_TYPE}, {a, EVENTLOG_SUCCESS},
                             {a, EVENTLOG_ERROR_TYPE},       {b, EVENTLOG_WARNING_TYPE}};
    for (const Write& r : reports)
        ASSERT_TRUE(ReportEventW(r.h, r.wType, 0, 1, nullptr, 0, 0, nullptr, nullptr));

    struct Case
    {
        const char* name;
        std::u16string source;
        std::vector<WORD> types;
        size_t cLast;
        std::vector<ULONGLONG> records;
    };
    const Case cases[] = {
        {"everything", u"", {}, 0, {1, 2, 3, 4, 5, 6, 7, 8}},
        {"one source, any case", u"ORVHWSVC", {}, 0, {1, 3, 4, 6, 7}},
        {"errors", u"", {EVENTLOG_ERROR_TYPE}, 0, {2, 3, 7}},
        {"information and success",
         u"",
         {EVENTLOG_INFORMATION_TYPE, EVENTLOG_SUCCESS},
         0,
         {1, 5, 6}},
        {"newest three", u"", {}, 3, {6, 7, 8}},
        {"newest two errors of one source", u"orvhwsvc", {EVENTLOG_ERROR_TYPE}, 2, {3, 7}},
        {"more than there are", u"Other", {}, 10, {2, 5, 8}},
        {"unknown source", u"Nobody", {}, 0, {}},
    };
    for (const Case& c : cases) {
        pal::EventLogQuery query;
        query.source = c.source;
        query.types = c.types;
        query.cLast = c.cLast;
        std::vector<ULONGLONG> numbers;
        for (const auto& r : ReadAll(query))
            numbers.push_back(r.ullRecordNumber);
        EXPECT_EQ(c.records, numbers) << c.name;
    }
}

TEST_F(EventLogTest, InjectedFaultsReachRegistrationAndReports)
{
    pal::InjectFault("RegisterEventSourceW", ERROR_ACCESS_DENIED, 0, u"orvhwsvc");
    EXPECT_CALL_ERROR(nullptr, ERROR_ACCESS_DENIED, RegisterEventSourceW(nullptr, u"Orvhwsvc"));
    ScopedSource other(u"Other");
    EXPECT_NE(nullptr, other.Get()) << "the rule names one source only";
    pal::ClearFault("RegisterEventSourceW");

    ScopedSource source(u"Orvhwsvc");
    ASSERT_NE(nullptr, source.Get());
    pal::InjectFault("ReportEventW", ERROR_DISK_FULL, 2);
    EXPECT_TRUE(Report(source, 1));
    EXPECT_CALL_ERROR(FALSE, ERROR_DISK_FULL, Report(source, 2));
    EXPECT_TRUE(Report(source, 3));
    pal::InjectFault("ReportEventW", ERROR_ACCESS_DENIED, 0, u"Other");
    EXPECT_FALSE(Report(other, 4));
    EXPECT_TRUE(Report(source, 5));
    EXPECT_EQ(1u, pal::FaultHits("ReportEventW"));

    std::vector<DWORD> ids;
    for (const auto& r : ReadAll())
        ids.push_back(r.dwEventId);
    EXPECT_EQ((std::vector<DWORD>{1, 3, 5}), ids);
}

TEST_F(EventLogTest, ReportsGoToTheCurrentMachineRoot)
{
    ScopedSource source(u"OrvTest");
    ASSERT_TRUE(Report(source, 1));
    std::filesystem::path other = MakeDir("other-machine");
    setenv("ORVSIM_ROOT", other.c_str(), 1);
    EXPECT_TRUE(ReadAll().empty());
    // A handle names a source, not a machine: it reports to whichever root is current.
    ASSERT_TRUE(Report(source, 2));
    ASSERT_EQ(1u, ReadAll().size());
    EXPECT_EQ(2u, ReadAll()[0].dwEventId);
    setenv("ORVSIM_ROOT", Root().c_str(), 1);
    ASSERT_EQ(1u, ReadAll().size());
    EXPECT_EQ(1u, ReadAll()[0].dwEventId);
}

// The on-disk layout that docs/ARCHITECTURE.md describes, read with SQLite itself.
TEST_F(EventLogTest, DatabaseHoldsTheDocumentedColumns)
{
    ScopedSource source(u"OrvTest");
    LPCWSTR strings[] = {u"ab", u"c"};
    BYTE data[] = {0x1B, 0x23, 0x04, 0x80};
    ASSERT_TRUE(
        ReportEventW(source, EVENTLOG_ERROR_TYPE, 0, 0xC004110E, nullptr, 2, 4, strings, data));
    sqlite3* pDb = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open_v2((Root() / "eventlog.db").c_str(), &pDb,
                                         SQLITE_OPEN_READONLY, nullptr));
    sqlite3_stmt* pStmt = nullptr;
    ASSERT_EQ(SQLITE_OK,
              sqlite3_prepare_v2(pDb,
                                 "SELECT record, source, computer, type, category, event_id,"
                                 " user_sid IS NULL, num_strings, strings, data, process_id,"
                                 " time_written >= time_generated FROM events",
                                 -1, &pStmt, nullptr));
    ASSERT_EQ(SQLITE_ROW, sqlite3_step(pStmt));
    EXPECT_EQ(1, sqlite3_column_int64(pStmt, 0));
    EXPECT_STREQ("OrvTest", reinterpret_cast<const char*>(sqlite3_column_text(pStmt, 1)));
    EXPECT_EQ(orvtest::Narrow(pal::EventLogComputerName()),
              reinterpret_cast<const char*>(sqlite3_column_text(pStmt, 2)));
    EXPECT_EQ(1, sqlite3_column_int64(pStmt, 3));
    EXPECT_EQ(0, sqlite3_column_int64(pStmt, 4));
    EXPECT_EQ(0xC004110Ell, sqlite3_column_int64(pStmt, 5)) << "the id is kept unsigned";
    EXPECT_EQ(1, sqlite3_column_int64(pStmt, 6));
    EXPECT_EQ(2, sqlite3_column_int64(pStmt, 7));
    const BYTE packed[] = {'a', 0, 'b', 0, 0, 0, 'c', 0, 0, 0};
    ASSERT_EQ(int(sizeof(packed)), sqlite3_column_bytes(pStmt, 8));
    EXPECT_EQ(0, std::memcmp(packed, sqlite3_column_blob(pStmt, 8), sizeof(packed)));
    ASSERT_EQ(4, sqlite3_column_bytes(pStmt, 9));
    EXPECT_EQ(0, std::memcmp(data, sqlite3_column_blob(pStmt, 9), 4));
    EXPECT_EQ(getpid(), sqlite3_column_int64(pStmt, 10));
    EXPECT_EQ(1, sqlite3_column_int64(pStmt, 11));
    EXPECT_EQ(SQLITE_DONE, sqlite3_step(pStmt));
    sqlite3_finalize(pStmt);
    sqlite3_close(pDb);
}

} // namespace
