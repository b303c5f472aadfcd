// CEventLog: registration, the event type from the severity bits, the raw data of a code, the
// insertion strings of each Log overload, the traces, failures by injected faults, and the
// registry entry of the event source.
#include "diag/trace.h"
#include "host/eventlog.h"
#include "pal/eventlog.h"
#include "pal/paleventlog.h"
#include "pal/regkey.h"
#include "res/orvmsg.h"
#include "tests/support/paltest.h"
#include "tests/support/tracetext.h"

#include <cstring>
#include <memory>

namespace {

using orvtest::TakeTraceText;

class EventLogWriterTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        orvtest::PalTest::SetUp();
        TraceInit(TRACE_LEVEL_VERBOSE, nullptr, nullptr, 0);
    }
    void TearDown() override
    {
        TraceClose();
        TraceInit(TRACE_LEVEL_VERBOSE, nullptr, nullptr, 0);
        orvtest::PalTest::TearDown();
    }

    // A writer of source "Orvhwsvc", its initialisation's trace taken.
    std::unique_ptr<CEventLog> NewWriter()
    {
        auto pWriter = std::make_unique<CEventLog>();
        EXPECT_HR(S_OK, pWriter->Initialize(W("Orvhwsvc")));
        TakeTraceText();
        return pWriter;
    }

    static std::vector<pal::EventLogRecord> Events()
    {
        std::vector<pal::EventLogRecord> records;
        EXPECT_EQ(DWORD(ERROR_SUCCESS), pal::ReadEventLog({}, &records));
        return records;
    }
};

TEST_F(EventLogWriterTest, InitializeRegistersTheSourceDestructionDeregistersIt)
{
    auto pWriter = std::make_unique<CEventLog>();
    EXPECT_HR(S_OK, pWriter->Initialize(W("Orvhwsvc")));
    EXPECT_EQ("CEventLog::Initialize() entered\n"
              "CEventLog::Initialize() exited\n",
              TakeTraceText());
    EXPECT_HR(S_OK, pWriter->Log(ORVPROV_EVENT_SERVICE_STARTED, 0));
    auto events = Events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ(u"Orvhwsvc", events[0].source);
    TakeTraceText();
    pal::InjectFault("DeregisterEventSource", ERROR_INVALID_HANDLE, 1000);
    pWriter.reset();
    EXPECT_EQ(1u, pal::FaultCalls("DeregisterEventSource"));
    EXPECT_EQ(0u, pal::FaultHits("DeregisterEventSource"));
    EXPECT_EQ("CEventLog::~CEventLog() entered\n"
              "CEventLog::~CEventLog() exited\n",
              TakeTraceText());
}

TEST_F(EventLogWriterTest, FailedRegistrationIsTracedAndReturned)
{
    pal::InjectFault("RegisterEventSourceW", ERROR_ACCESS_DENIED, 0, W("Orvhwsvc"));
    pal::InjectFault("DeregisterEventSource", ERROR_INVALID_HANDLE, 1000);
    {
        CEventLog writer;
        EXPECT_HR(HRESULT(0x80070005), writer.Initialize(W("Orvhwsvc")));
        EXPECT_EQ("CEventLog::Initialize() entered\n"
                  "    RegisterEventSource FAILED [error=0x00000005]\n"
                  "CEventLog::Initialize() exited\n",
                  TakeTraceText());
        // Reports of a writer without a source fail as an invalid handle does.
        EXPECT_HR(HRESULT(0x80070006), writer.Log(ORVPROV_EVENT_SERVICE_STARTED, 0));
        TakeTraceText();
    }
    EXPECT_EQ(0u, pal::FaultCalls("DeregisterEventSource")) << "nothing to deregister";
    EXPECT_EQ("CEventLog::~CEventLog() entered\n"
              "CEventLog::~CEventLog() exited\n",
              TakeTraceText());
    EXPECT_TRUE(Events().empty());

    TraceSetLevel(TRACE_LEVEL_ERROR);
    CEventLog writer;
    EXPECT_HR(HRESULT(0x80070005), writer.Initialize(W("Orvhwsvc")));
    EXPECT_EQ("    RegisterEventSource FAILED [error=0x00000005]\n", TakeTraceText());
}

// The cases administrators rely on: type from the severity bits, the code's bytes as data.
TEST_F(EventLogWriterTest, EventTypeStringsAndDataFollowTheIdAndTheCode)
{
    struct Case
    {
        const char* name;
        DWORD dwEventId;
        std::vector<std::u16string> strings;
        DWORD dwRawData;
        WORD wType;
        std::vector<BYTE> data;
    };
    const Case cases[] = {
        {"service started, no data", 0x40041008, {}, 0, EVENTLOG_INFORMATION_TYPE, {}},
        {"access denied as data",
         0xC0041105,
         {},
         0x80070005,
         EVENTLOG_ERROR_TYPE,
         {0x05, 0x00, 0x07, 0x80}},
        {"unsupported context as data",
         0xC004110E,
         {},
         0x8004231B,
         EVENTLOG_ERROR_TYPE,
         {0x1B, 0x23, 0x04, 0x80}},
        {"slow commit, two strings",
         0x8004110C,
         {u"{6a06b0b5-00e8-44b1-99f0-55fe420b2277}", u"12000"},
         0,
         EVENTLOG_WARNING_TYPE,
         {}},
        {"severity bits 0", 0x00041000, {}, 0, EVENTLOG_SUCCESS, {}},
        {"a positive code is data too",
         0x40041000,
         {},
         0x00000001,
         EVENTLOG_INFORMATION_TYPE,
         {0x01, 0x00, 0x00, 0x00}},
    };
    auto pWriter = NewWriter();
    for (const Case& c : cases) {
        std::vector<LPCWSTR> pointers;
        for (const auto& s : c.strings)
            pointers.push_back(s.c_str());
        EXPECT_HR(S_OK, pWriter->LogEx(c.dwEventId, static_cast<WORD>(pointers.size()),
                                       pointers.empty() ? nullptr : pointers.data(), c.dwRawData))
            << c.name;
    }
    auto events = Events();
    ASSERT_EQ(ARRAYSIZE(cases), events.size());
    for (size_t i = 0; i < events.size(); ++i) {
        const Case& c = cases[i];
        const pal::EventLogRecord& e = events[i];
        EXPECT_EQ(c.dwEventId, e.dwEventId) << c.name;
        EXPECT_EQ(c.wType, e.wType) << c.name;
        EXPECT_EQ(0, e.wCategory) << c.name;
        EXPECT_EQ(c.strings, e.strings) << c.name;
        EXPECT_EQ(c.data, e.data) << c.name;
        EXPECT_TRUE(e.userSid.empty()) << c.name;
        EXPECT_EQ(u"Orvhwsvc", e.source) << c.name;
    }
}

TEST_F(EventLogWriterTest, EachLogOverloadPassesItsStringsInOrder)
{
    auto pWriter = NewWriter();
    EXPECT_HR(S_OK, pWriter->Log(ORVPROV_EVENT_PROVIDER_LOADED, 0));
    EXPECT_HR(S_OK, pWriter->Log(ORVPROV_EVENT_INCORRECT_TESSERA, W("3.1.0.0"), 0));
    EXPECT_HR(S_OK, pWriter->Log(ORVPROV_EVENT_COMMIT_COMPLETED, W("{set}"), W("850"), 0));
    EXPECT_HR(S_OK, pWriter->Log(ORVPROV_EVENT_LUN_MAPPED, W("ORVANE"), W("LUN"), W("SN1"), 0));
    EXPECT_HR(S_OK, pWriter->Log(ORVPROV_EVENT_SOURCE_LUN_ADDED, W("ORVANE"), W("LUN"), W("SN1"),
                                 W("{set}"), 0x8004230F));
    auto events = Events();
    ASSERT_EQ(5u, events.size());
    const std::vector<std::vector<std::u16string>> expected = {
        {},
        {u"3.1.0.0"},
        {u"{set}", u"850"},
        {u"ORVANE", u"LUN", u"SN1"},
        {u"ORVANE", u"LUN", u"SN1", u"{set}"},
    };
    for (size_t i = 0; i < events.size(); ++i)
        EXPECT_EQ(expected[i], events[i].strings) << i;
    EXPECT_EQ((std::vector<BYTE>{0x0F, 0x23, 0x04, 0x80}), events[4].data);
}

TEST_F(EventLogWriterTest, LogExTracesTheIdAsASignedNumber)
{
    auto pWriter = NewWriter();
    EXPECT_HR(S_OK, pWriter->Log(0xC0041105, 0x80070005));
    EXPECT_HR(S_OK, pWriter->Log(0x40041008, 0));
    EXPECT_EQ("CEventLog::LogEx() entered\n"
              "    dwEventId=-1073475323\n"
              "CEventLog::LogEx() exited\n"
              "CEventLog::LogEx() entered\n"
              "    dwEventId=1074008072\n"
              "CEventLog::LogEx() exited\n",
              TakeTraceText());
    TraceSetLevel(TRACE_LEVEL_WARNING);
    EXPECT_HR(S_OK, pWriter->Log(0x40041008, 0));
    EXPECT_EQ("", TakeTraceText());
}

TEST_F(EventLogWriterTest, FailedReportIsTracedAndReturned)
{
    auto pWriter = NewWriter();
    pal::InjectFault("ReportEventW", ERROR_DISK_FULL, 2);
    EXPECT_HR(S_OK, pWriter->Log(ORVPROV_EVENT_PROVIDER_LOADED, 0));
    TakeTraceText();
    EXPECT_HR(HRESULT(0x80070070), pWriter->Log(ORVPROV_EVENT_PROVIDER_UNLOADED, 0));
    EXPECT_EQ("CEventLog::LogEx() entered\n"
              "    dwEventId=1074008065\n"
              "    ReportEvent FAILED [error=0x00000070]\n"
              "CEventLog::LogEx() exited\n",
              TakeTraceText());
    // The writer goes on: the next report is kept.
    EXPECT_HR(S_OK, pWriter->Log(ORVPROV_EVENT_SERVICE_STOPPED, 0));
    auto events = Events();
    ASSERT_EQ(2u, events.size());
    EXPECT_EQ(DWORD(ORVPROV_EVENT_PROVIDER_LOADED), events[0].dwEventId);
    EXPECT_EQ(DWORD(ORVPROV_EVENT_SERVICE_STOPPED), events[1].dwEventId);
}

TEST_F(EventLogWriterTest, RegistrySettingNamesTheMessageFileAndTheTypes)
{
    struct Case
    {
        BOOL fSystemLog;
        const WCHAR* key;
    };
    const Case cases[] = {
        {TRUE, W("System\\CurrentControlSet\\Services\\EventLog\\System\\Orvhwsvc")},
        {FALSE, W("System\\CurrentControlSet\\Services\\EventLog\\Application\\Orvhwsvc")},
    };
    for (const Case& c : cases) {
        EXPECT_HR(S_OK, CEventLog::AddEventLogRegistrySetting(
                            W("Orvhwsvc"), W("C:\\orv\\orvhwsvc.exe"), c.fSystemLog));
        CRegKey key;
        ASSERT_EQ(ERROR_SUCCESS, key.Open(HKEY_LOCAL_MACHINE, c.key, KEY_READ));
        DWORD dwType = 0;
        BYTE data[256];
        DWORD cb = sizeof(data);
        ASSERT_EQ(ERROR_SUCCESS,
                  RegQueryValueExW(key, W("EventMessageFile"), nullptr, &dwType, data, &cb));
        EXPECT_EQ(DWORD(REG_SZ), dwType);
        const WCHAR szExpected[] = W("C:\\orv\\orvhwsvc.exe");
        ASSERT_EQ(sizeof(szExpected), cb) << "the terminator is written";
        EXPECT_EQ(0, std::memcmp(szExpected, data, cb));
        DWORD dwTypes = 0;
        EXPECT_EQ(ERROR_SUCCESS, key.QueryDWORDValue(W("TypesSupported"), dwTypes));
        EXPECT_EQ(7u, dwTypes);
    }
    EXPECT_EQ("CEventLog::AddEventLogRegistrySetting() entered\n"
              "CEventLog::AddEventLogRegistrySetting() exited\n"
              "CEventLog::AddEventLogRegistrySetting() entered\n"
              "CEventLog::AddEventLogRegistrySetting() exited\n",
              TakeTraceText());
}

TEST_F(EventLogWriterTest, RegistrySettingCutsTheKeyToItsBuffer)
{
    std::u16string source(300, u's');
    EXPECT_HR(S_OK, CEventLog::AddEventLogRegistrySetting(source.c_str(), W("x.exe"), FALSE));
    // 259 characters in all: the 55 of the log's key, then 204 of the source's name.
    std::u16string prefix = u"System\\CurrentControlSet\\Services\\EventLog\\Application\\";
    ASSERT_EQ(55u, prefix.size());
    CRegKey key;
    EXPECT_EQ(ERROR_SUCCESS,
              key.Open(HKEY_LOCAL_MACHINE, (prefix + source.substr(0, 204)).c_str(), KEY_READ));
}

TEST_F(EventLogWriterTest, RegistrySettingFailuresAreTracedAndReturned)
{
    struct Case
    {
        const char* api;
        ULONG nth;
        const char* line;
    };
    const Case cases[] = {
        {"RegCreateKeyExW", 0, "    RegCreateKey FAILED [error=0x00000005]\n"},
        {"RegSetValueExW", 1, "    RegSetValueEx FAILED [error=0x00000005]\n"},
        {"RegSetValueExW", 2, "    RegSetValueEx FAILED [error=0x00000005]\n"},
    };
    for (const Case& c : cases) {
        pal::ClearFaults();
        pal::InjectFault(c.api, ERROR_ACCESS_DENIED, c.nth);
        EXPECT_HR(HRESULT(0x80070005),
                  CEventLog::AddEventLogRegistrySetting(W("Orvhwsvc"), W("x.exe"), TRUE))
            << c.api << " " << c.nth;
        EXPECT_EQ(std::string("CEventLog::AddEventLogRegistrySetting() entered\n") + c.line +
                      "CEventLog::AddEventLogRegistrySetting() exited\n",
                  TakeTraceText())
            << c.api << " " << c.nth;
    }
}

} // namespace
