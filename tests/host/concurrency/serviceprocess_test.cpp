// The service module in a real service process: host_test_service started through the emulated
// service control manager, stopped or interrogated from this process, and judged by the status
// reports the manager recorded and the events the module reported.
#include "host/servicemodule.h"
#include "pal/palcontrol.h"
#include "pal/paleventlog.h"
#include "tests/host/support/testserver.h"
#include "tests/support/paltest.h"

#include <string>
#include <vector>

namespace {

using orvtest::host::kTestServiceName;

// What a test compares of one report: who recorded it, the state and its progress fields.
struct Report
{
    bool fByManager;
    DWORD dwState;
    DWORD dwCheckPoint;
    DWORD dwWaitHint;
    bool operator==(const Report&) const = default;
};

void PrintTo(const Report& r, std::ostream* os)
{
    *os << (r.fByManager ? "manager " : "service ") << r.dwState << " cp" << r.dwCheckPoint << " wh"
        << r.dwWaitHint;
}

constexpr Report kManagerStart{true, SERVICE_START_PENDING, 0, 2000};
constexpr Report kStartPending{false, SERVICE_START_PENDING, 0, 0};
constexpr Report kRunning{false, SERVICE_RUNNING, 0, 0};
constexpr Report kStopped{false, SERVICE_STOPPED, 0, 0};
constexpr Report StopPending(DWORD dwCheckPoint)
{
    return Report{false, SERVICE_STOP_PENDING, dwCheckPoint, 5000};
}

struct ServiceRow
{
    const char* name;
    const char* args;            // the test service's options
    std::vector<DWORD> controls; // sent with ControlService once it runs
    std::vector<Report> reports; // recorded from the start to the stop
    std::vector<DWORD> events;   // reported under the service's source
};

void PrintTo(const ServiceRow& row, std::ostream* os)
{
    *os << row.name;
}

class ServiceProcessTest : public orvtest::PalTest, public ::testing::WithParamInterface<ServiceRow>
{
protected:
    void TearDown() override
    {
        if (m_hService)
            CloseServiceHandle(m_hService);
        if (m_hManager)
            CloseServiceHandle(m_hManager);
        orvtest::PalTest::TearDown();
    }

    void Install(const std::string& args)
    {
        m_hManager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
        ASSERT_NE(nullptr, m_hManager);
        orvtest::WString image =
            orvtest::Wide("\"" HOST_TEST_SERVICE_EXE "\" --clock-scale 1000 " + args);
        m_hService =
            CreateServiceW(m_hManager, kTestServiceName, W("Test service"), SERVICE_ALL_ACCESS,
                           SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                           image.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
        ASSERT_NE(nullptr, m_hService) << GetLastError();
    }
    DWORD State()
    {
        SERVICE_STATUS status{};
        EXPECT_TRUE(QueryServiceStatus(m_hService, &status));
        return status.dwCurrentState;
    }
    std::vector<Report> Reports()
    {
        std::vector<pal::ServiceStatusReport> records;
        EXPECT_EQ(DWORD(ERROR_SUCCESS), pal::ServiceStatusReports(kTestServiceName, &records));
        std::vector<Report> reports;
        for (const auto& r : records)
            reports.push_back({r.fByManager, r.dwCurrentState, r.dwCheckPoint, r.dwWaitHint});
        return reports;
    }
    static std::vector<DWORD> EventIds()
    {
        std::vector<pal::EventLogRecord> records;
        pal::EventLogQuery query;
        query.source = kTestServiceName;
        pal::ReadEventLog(query, &records);
        std::vector<DWORD> ids;
        for (const auto& record : records)
            ids.push_back(record.dwEventId);
        return ids;
    }

    SC_HANDLE m_hManager = nullptr;
    SC_HANDLE m_hService = nullptr;
};

TEST_P(ServiceProcessTest, ReportsItsStatesAndEvents)
{
    const ServiceRow& row = GetParam();
    ASSERT_NO_FATAL_FAILURE(Install(row.args));
    ASSERT_TRUE(StartServiceW(m_hService, 0, nullptr)) << GetLastError();
    ASSERT_TRUE(orvtest::WaitUntil([&] { return State() != SERVICE_START_PENDING; }));
    for (DWORD dwControl : row.controls) {
        SERVICE_STATUS status{};
        EXPECT_TRUE(ControlService(m_hService, dwControl, &status)) << dwControl;
    }
    ASSERT_TRUE(orvtest::WaitUntil([&] { return State() == SERVICE_STOPPED; }));
    // The stop event follows the stopped report.
    EXPECT_TRUE(orvtest::WaitUntil([&] { return EventIds().size() == row.events.size(); }));
    EXPECT_EQ(row.events, EventIds());
    EXPECT_EQ(row.reports, Reports());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ServiceProcessTest,
    ::testing::Values(
        ServiceRow{"Stop",
                   "",
                   {SERVICE_CONTROL_STOP},
                   {kManagerStart, kStartPending, kRunning, StopPending(1), kStopped},
                   {SERVICE_START_EVENT_ID, SERVICE_STOP_EVENT_ID}},
        // A client's object keeps the module locked: three 10-second waits, then stopped.
        ServiceRow{"StopWhileHeld",
                   "--hold",
                   {SERVICE_CONTROL_STOP},
                   {kManagerStart, kStartPending, kRunning, StopPending(1), StopPending(2),
                    StopPending(3), StopPending(4), kStopped},
                   {SERVICE_START_EVENT_ID, SERVICE_STOP_EVENT_ID}},
        ServiceRow{
            "SystemShutdownWhileHeld",
            "--hold --direct-control 5",
            {},
            {kManagerStart, kStartPending, kRunning, StopPending(1), StopPending(2), kStopped},
            {SERVICE_START_EVENT_ID, SERVICE_STOP_EVENT_ID}},
        ServiceRow{"Interrogate",
                   "",
                   {SERVICE_CONTROL_INTERROGATE, SERVICE_CONTROL_STOP},
                   {kManagerStart, kStartPending, kRunning, kRunning, StopPending(1), kStopped},
                   {SERVICE_START_EVENT_ID, SERVICE_STOP_EVENT_ID}},
        // Nothing is served, so nothing starts; the service still stops cleanly.
        ServiceRow{"ClassRegistrationFails",
                   "--fault CoRegisterClassObject=80004005",
                   {},
                   {kManagerStart, kStartPending, kStopped},
                   {SERVICE_STOP_EVENT_ID}}),
    [](const auto& info) { return std::string(info.param.name); });

} // namespace
