// The service module inside the test process: its initialisation and run-loop failures, the
// control handler, the run as an ordinary process with its auto-shutdown and drain, and a stop
// that meets the last release. Each case is a process of its own (CTest runs them apart), as
// the module is the process's one global object and initialises once.
#include "diag/trace.h"
#include "host/servicemodule.h"
#include "pal/paleventlog.h"
#include "pal/sysinfoapi.h"
#include "tests/host/support/testserver.h"
#include "tests/support/paltest.h"
#include "tests/support/tracetext.h"

#include <atomic>
#include <thread>

namespace {

using orvtest::host::CLSID_TestServer;
using orvtest::host::CTestServer;
using orvtest::host::kTestAppId;
using orvtest::host::kTestServiceName;

BEGIN_OBJECT_MAP(ObjectMap)
OBJECT_ENTRY(CLSID_TestServer, CTestServer)
END_OBJECT_MAP()

constexpr auto kRowName = [](const auto& info) { return std::string(info.param.name); };

constexpr HRESULT kDeniedHr = HRESULT(0x80070005);
constexpr HRESULT kNoMemoryHr = HRESULT(0x80070008);

class ServiceModuleTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        orvtest::PalTest::SetUp();
        TraceSetLevel(TRACE_LEVEL_INFO);
    }
    void TearDown() override
    {
        _Module.Term();
        orvtest::PalTest::TearDown();
    }

    static HRESULT InitModule(BOOL fService, BOOL fAutoShutdown)
    {
        return _Module.Init(kTestServiceName, SERVICE_START_EVENT_ID, SERVICE_STOP_EVENT_ID,
                            ObjectMap, nullptr, kTestAppId, fService, fAutoShutdown, nullptr);
    }
    // The ids of the events the module reported, oldest first.
    static std::vector<DWORD> EventIds()
    {
        std::vector<pal::EventLogRecord> records;
        pal::EventLogQuery query;
        query.source = kTestServiceName;
        EXPECT_EQ(DWORD(ERROR_SUCCESS), pal::ReadEventLog(query, &records));
        std::vector<DWORD> ids;
        for (const auto& record : records)
            ids.push_back(record.dwEventId);
        return ids;
    }
    // The trace text without the scopes' indentation, which these tests do not judge.
    static std::string Unindented(const std::string& text)
    {
        std::string out;
        bool fLineStart = true;
        for (char c : text) {
            if (fLineStart && c == ' ')
                continue;
            fLineStart = c == '\n';
            out += c;
        }
        return out;
    }
    static std::string TraceText() { return Unindented(orvtest::TakeTraceText()); }
    // How often `line` occurs in the trace text.
    static size_t Count(const std::string& text, const std::string& line)
    {
        size_t c = 0;
        for (size_t at = text.find(line); at != std::string::npos; at = text.find(line, at + 1))
            ++c;
        return c;
    }
    // A new object of the served class, through the class object Run registered.
    static IUnknown* WaitForObject()
    {
        IUnknown* pUnk = nullptr;
        EXPECT_TRUE(orvtest::WaitUntil([&] {
            return SUCCEEDED(CoCreateInstance(CLSID_TestServer, nullptr, CLSCTX_LOCAL_SERVER,
                                              IID_IUnknown, reinterpret_cast<void**>(&pUnk)));
        }));
        return pUnk;
    }
};

// ---- Initialisation failures: each leaves Init's result and one trace line ----
struct InitFailureRow
{
    const char* name;
    const char* api; // injected with dwError, or null for the allocation of the writer
    DWORD dwError;
    HRESULT hrExpected;
    const char* line;
};

void PrintTo(const InitFailureRow& row, std::ostream* os)
{
    *os << row.name;
}

class InitFailureTest : public ServiceModuleTest,
                        public ::testing::WithParamInterface<InitFailureRow>
{};

TEST_P(InitFailureTest, FailsWithItsResultAndTraceLine)
{
    const InitFailureRow& row = GetParam();
    if (row.api)
        pal::InjectFault(row.api, row.dwError);
    else
        pal::FailNothrowNewAt(1, true);
    EXPECT_HR(row.hrExpected, InitModule(TRUE, TRUE));
    pal::ClearFaults();
    pal::FailNothrowNewAt(0);
    std::string text = TraceText();
    EXPECT_EQ(1u, Count(text, row.line)) << text;
    EXPECT_EQ(std::string::npos, text.find("m_szServiceName=")) << text;
}

INSTANTIATE_TEST_SUITE_P(
    Rows, InitFailureTest,
    ::testing::Values(InitFailureRow{"CoInitializeEx", "CoInitializeEx", DWORD(E_UNEXPECTED),
                                     E_UNEXPECTED, "CoInitializeEx FAILED [hr=0x8000ffff]\n"},
                      InitFailureRow{"ModuleInit", "InitializeCriticalSectionAndSpinCount",
                                     ERROR_NOT_ENOUGH_MEMORY, kNoMemoryHr,
                                     "CComModule::Init FAILED [hr=0x80070008]\n"},
                      InitFailureRow{"EventLogWriter", nullptr, 0, E_OUTOFMEMORY,
                                     "new CEventLog FAILED\n"},
                      InitFailureRow{"EventSource", "RegisterEventSourceW", ERROR_ACCESS_DENIED,
                                     kDeniedHr, "m_pEvent->Initialize FAILED [hr=0x80070005]\n"},
                      InitFailureRow{"ShutdownEvent", "CreateEventW", ERROR_NOT_ENOUGH_MEMORY,
                                     kNoMemoryHr, "CreateEvent FAILED [dwError=0x00000008]\n"}),
    kRowName);

TEST_F(ServiceModuleTest, InitSetsTheNamesAndTheStoppedStatus)
{
    ASSERT_HR(S_OK, InitModule(TRUE, TRUE));
    EXPECT_EQ("m_szAppId={0E3C7B52-41A9-4F0D-8D6E-2B9A51C4E7F2}\n"
              "m_szServiceName=OrvTestSvc\n"
              "m_szServiceDisplay=Verdane VSS Hardware Provider\n"
              "m_szServiceDescp=VSS Hardware Provider for Verdane LUNs\n",
              TraceText());
    const SERVICE_STATUS& s = _Module.m_status;
    EXPECT_EQ((std::vector<DWORD>{SERVICE_WIN32_OWN_PROCESS, SERVICE_STOPPED, SERVICE_ACCEPT_STOP,
                                  0, 0, 0, 0}),
              (std::vector<DWORD>{s.dwServiceType, s.dwCurrentState, s.dwControlsAccepted,
                                  s.dwWin32ExitCode, s.dwServiceSpecificExitCode, s.dwCheckPoint,
                                  s.dwWaitHint}));
    EXPECT_NE(nullptr, _Module.m_pEvent.get());
}

// A console start without -exe: the dispatcher refuses a process the manager did not start.
TEST_F(ServiceModuleTest, StartFromAConsoleReturnsTheDispatcherError)
{
    ASSERT_HR(S_OK, InitModule(TRUE, TRUE));
    TraceText();
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT), _Module.Start());
    EXPECT_EQ("m_fService=1\nStartServiceCtrlDispatcher FAILED [dwError=0x00000427]\n",
              TraceText());
}

TEST_F(ServiceModuleTest, ServiceMainWithoutAHandlerReportsNothing)
{
    ASSERT_HR(S_OK, InitModule(TRUE, TRUE));
    TraceText();
    pal::InjectFault("RegisterServiceCtrlHandlerW", ERROR_NOT_ENOUGH_MEMORY);
    _Module.ServiceMain(0, nullptr);
    EXPECT_EQ("RegisterServiceCtrlHandler FAILED [dwError=0x00000008]\n", TraceText());
    std::vector<pal::ServiceStatusReport> reports;
    EXPECT_WIN32(ERROR_SERVICE_DOES_NOT_EXIST,
                 pal::ServiceStatusReports(kTestServiceName, &reports));
    EXPECT_TRUE(EventIds().empty());
}

// ---- Run failures: before the wait, so nothing is served and no start is reported ----
struct RunFailureRow
{
    const char* name;
    const char* api;
    DWORD dwError;
    ULONG nth;
    const WCHAR* arg;
    HRESULT hrExpected;
    const char* lines;
};

void PrintTo(const RunFailureRow& row, std::ostream* os)
{
    *os << row.name;
}

class RunFailureTest : public ServiceModuleTest, public ::testing::WithParamInterface<RunFailureRow>
{};

TEST_P(RunFailureTest, ReturnsBeforeServing)
{
    const RunFailureRow& row = GetParam();
    ASSERT_HR(S_OK, InitModule(FALSE, TRUE));
    if (row.api)
        pal::InjectFault(row.api, row.dwError, row.nth, row.arg);
    else // COM security is set once per process: a second setting is too late
        ASSERT_HR(S_OK,
                  CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_CONNECT,
                                       RPC_C_IMP_LEVEL_IDENTIFY, nullptr, EOAC_NONE, nullptr));
    TraceText();
    EXPECT_HR(row.hrExpected, _Module.Run());
    pal::ClearFaults();
    EXPECT_EQ(row.lines, TraceText());
    IUnknown* pUnk = nullptr;
    EXPECT_HR(REGDB_E_CLASSNOTREG, CoCreateInstance(CLSID_TestServer, nullptr, CLSCTX_ALL,
                                                    IID_IUnknown, reinterpret_cast<void**>(&pUnk)));
    EXPECT_TRUE(EventIds().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, RunFailureTest,
    ::testing::Values(RunFailureRow{"SystemSid", "AllocateAndInitializeSid",
                                    ERROR_NOT_ENOUGH_MEMORY, 1, nullptr, kNoMemoryHr,
                                    "AllocateAndInitializeSid FAILED\n"
                                    "InitializeSecurity FAILED [hr=0x80070008]\n"},
                      RunFailureRow{"AdministratorsSid", "AllocateAndInitializeSid",
                                    ERROR_NOT_ENOUGH_MEMORY, 2, nullptr, kNoMemoryHr,
                                    "AllocateAndInitializeSid FAILED\n"
                                    "InitializeSecurity FAILED [hr=0x80070008]\n"},
                      RunFailureRow{
                          "AccessControlObject", "CoCreateInstance", DWORD(REGDB_E_CLASSNOTREG), 0,
                          W("{0000031D-0000-0000-C000-000000000046}"), REGDB_E_CLASSNOTREG,
                          "CoCreateInstance on CLSID_DCOMAccessControl FAILED [hr=0x80040154]\n"
                          "InitializeSecurity FAILED [hr=0x80040154]\n"},
                      RunFailureRow{"AccessRights", "IAccessControl::SetAccessRights",
                                    DWORD(E_OUTOFMEMORY), 0, nullptr, E_OUTOFMEMORY,
                                    "SetAccessRights FAILED [hr=0x8007000e]\n"
                                    "InitializeSecurity FAILED [hr=0x8007000e]\n"},
                      RunFailureRow{"SecurityTooLate", nullptr, 0, 0, nullptr, RPC_E_TOO_LATE,
                                    "CoInitializeSecurity FAILED [hr=0x80010119]\n"
                                    "InitializeSecurity FAILED [hr=0x80010119]\n"},
                      RunFailureRow{"ClassObject", "CoRegisterClassObject", DWORD(E_OUTOFMEMORY), 0,
                                    nullptr, E_OUTOFMEMORY,
                                    "CoInitializeSecurity succeeded\n"
                                    "Registering class object\n"
                                    "RegisterClassObjects FAILED [hr=0x8007000e]\n"}),
    kRowName);

// What COM keeps: the access list lets the local system account and an Administrators member
// call in, a plain user not; identify-level impersonation, packet integrity.
TEST_F(ServiceModuleTest, SecurityAdmitsSystemAndAdministratorsOnly)
{
    ASSERT_HR(S_OK, InitModule(TRUE, TRUE));
    TraceText();
    ASSERT_HR(S_OK, _Module.InitializeSecurity());
    EXPECT_EQ("CoInitializeSecurity succeeded\n", TraceText());
    pal::ComSecurityState state = pal::GetComSecurityState();
    EXPECT_TRUE(state.fInitialized && state.fAccessControl);
    EXPECT_EQ((std::vector<DWORD>{RPC_C_AUTHN_LEVEL_PKT_INTEGRITY, RPC_C_IMP_LEVEL_IDENTIFY,
                                  EOAC_ACCESS_CONTROL}),
              (std::vector<DWORD>{state.dwAuthnLevel, state.dwImpLevel, state.dwCapabilities}));
    for (auto [account, fExpected] :
         {std::pair{u"LocalSystem", TRUE}, std::pair{u".\\Administrator", TRUE},
          std::pair{u"User", FALSE}}) {
        BOOL fAllowed = !fExpected;
        EXPECT_HR(S_OK, pal::ComSecurityAllowsAccount(account, &fAllowed));
        EXPECT_EQ(fExpected, fAllowed) << pal::Utf16ToUtf8(account);
    }
}

// ---- The handler: what each control traces and does while the server runs ----
TEST_F(ServiceModuleTest, HandlerTracesKnownControlsAndIgnoresTheRest)
{
    ASSERT_HR(S_OK, InitModule(FALSE, TRUE));
    struct
    {
        DWORD dwControl;
        const char* line;
    } rows[] = {
        {SERVICE_CONTROL_PAUSE, "**** Received SERVICE_CONTROL_PAUSE from SCM\n"},
        {SERVICE_CONTROL_CONTINUE, "**** Received SERVICE_CONTROL_CONTINUE from SCM\n"},
        {6, ""},
        {128, ""},
        {255, ""},
    };
    TraceText();
    for (const auto& row : rows) {
        _Module.Handler(row.dwControl);
        EXPECT_EQ(row.line, TraceText()) << row.dwControl;
    }
    EXPECT_EQ(0, ReadNoFence(&_Module.m_lShutdownInProgress));
}

// ---- As an ordinary process: auto-shutdown, the drain, and a stop meeting the last release ----
class AutoShutdownTest : public ServiceModuleTest, public ::testing::WithParamInterface<BOOL>
{};

TEST_P(AutoShutdownTest, ReleasingTheLastObjectStopsTheServerOnlyWhenOn)
{
    const BOOL fAutoShutdown = GetParam();
    ASSERT_HR(S_OK, InitModule(FALSE, fAutoShutdown));
    HRESULT hrRun = E_FAIL;
    std::thread server([&] { hrRun = _Module.Run(); });
    IUnknown* pUnk = WaitForObject();
    ASSERT_NE(nullptr, pUnk);
    EXPECT_EQ(1, _Module.GetLockCount());
    TraceText();
    pUnk->Release();
    std::string text = TraceText();
    EXPECT_EQ(1u, Count(text, "Module lock has reached zero!\n")) << text;
    EXPECT_EQ(fAutoShutdown ? 1u : 0u, Count(text, "Starting to shutdown service!\n")) << text;
    if (!fAutoShutdown) {
        EXPECT_EQ(0, ReadNoFence(&_Module.m_lShutdownInProgress));
        _Module.Handler(SERVICE_CONTROL_STOP);
    }
    server.join();
    EXPECT_HR(S_OK, hrRun);
    text += TraceText();
    EXPECT_EQ(1u, Count(text, "Starting to shutdown service...\n")) << text;
    EXPECT_EQ(0u, Count(text, "Waiting for module lock count")) << text;
    EXPECT_EQ(1u, Count(text, "Revoking class object\n")) << text;
    EXPECT_EQ(std::vector<DWORD>{SERVICE_START_EVENT_ID}, EventIds());
}

INSTANTIATE_TEST_SUITE_P(OnOff, AutoShutdownTest, ::testing::Values(TRUE, FALSE));

struct DrainRow
{
    const char* name;
    DWORD dwControl;
    size_t cWaits;
};

void PrintTo(const DrainRow& row, std::ostream* os)
{
    *os << row.name;
}

class DrainTest : public ServiceModuleTest, public ::testing::WithParamInterface<DrainRow>
{};

// A client that never lets go: the server waits 10 s at a time, then stops anyway.
TEST_P(DrainTest, WaitsForTheLockAtMostItsAllowance)
{
    const DrainRow& row = GetParam();
    pal::SetClockScale(1000);
    ASSERT_HR(S_OK, InitModule(FALSE, TRUE));
    _Module.Lock();
    std::thread server([] { _Module.Run(); });
    IUnknown* pUnk = WaitForObject();
    ASSERT_NE(nullptr, pUnk);
    pUnk->Release();
    TraceText();
    DWORD dwStart = GetTickCount();
    _Module.Handler(row.dwControl);
    server.join();
    DWORD dwElapsed = GetTickCount() - dwStart;
    std::string text = TraceText();
    EXPECT_EQ(row.cWaits, Count(text, "Waiting for module lock count to reach zero, dwLocks=1\n"))
        << text;
    EXPECT_GE(dwElapsed, row.cWaits * 10000);
    EXPECT_EQ(1u, Count(text, "Revoking class object\n")) << text;
    EXPECT_EQ(1, _Module.GetLockCount());
}

INSTANTIATE_TEST_SUITE_P(Rows, DrainTest,
                         ::testing::Values(DrainRow{"Stop", SERVICE_CONTROL_STOP, 3},
                                           DrainRow{"SystemShutdown", SERVICE_CONTROL_SHUTDOWN, 1}),
                         kRowName);

// The handler's stop and the last release race for the shutdown: exactly one proceeds.
TEST_F(ServiceModuleTest, StopAndLastReleaseShutDownOnce)
{
    pal::SetClockScale(1000); // a drain that sees the object still alive stays short
    ASSERT_HR(S_OK, InitModule(FALSE, TRUE));
    std::thread server([] { _Module.Run(); });
    IUnknown* pUnk = WaitForObject();
    ASSERT_NE(nullptr, pUnk);
    TraceText();
    std::atomic<bool> fGo{false};
    std::thread stopper([&] {
        while (!fGo.load())
            std::this_thread::yield();
        _Module.Handler(SERVICE_CONTROL_STOP);
    });
    std::thread releaser([&] {
        while (!fGo.load())
            std::this_thread::yield();
        pUnk->Release();
    });
    fGo = true;
    stopper.join();
    releaser.join();
    server.join();
    std::string text = TraceText();
    EXPECT_EQ(1u, Count(text, "Starting to shutdown service...\n")) << text;
    EXPECT_EQ(1u, Count(text, "Shutdown is already in progress...\n")) << text;
    EXPECT_EQ(0, _Module.GetLockCount());
}

} // namespace
