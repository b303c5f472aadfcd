// Services as processes of their own: the test service (program/testservice.cpp) started through
// StartServiceW, controlled from this process, and what the manager records about it.
#include "pal/palcontrol.h"
#include "tests/pal/service/service_testing.h"
#include "tests/support/paltest.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using orvtest::service::ScopedScHandle;
using Lines = std::vector<std::string>;

class ServiceProcessTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        orvtest::PalTest::SetUp();
        m_manager.Reset(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
        ASSERT_NE(nullptr, static_cast<SC_HANDLE>(m_manager));
        // An image path with a blank in its folder, followed by arguments of the process.
        std::filesystem::path dir = MakeDir("program files");
        std::filesystem::copy_file(ORVSIM_TESTSERVICE_EXE, dir / "testservice");
        m_image = (dir / "testservice").string() + " --from-image-path";
    }
    // No service process outlives its test.
    void TearDown() override
    {
        for (ScopedScHandle& h : m_services)
            if (DWORD pid = Status(h).dwProcessId)
                kill(static_cast<pid_t>(pid), SIGKILL);
        m_services.clear();
        orvtest::PalTest::TearDown();
    }

    SC_HANDLE Create(const std::string& name, const std::string& image = {},
                     LPCWSTR account = nullptr, LPCWSTR password = nullptr)
    {
        SC_HANDLE h =
            CreateServiceW(m_manager, orvtest::Wide(name).c_str(), nullptr, SERVICE_ALL_ACCESS,
                           SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                           orvtest::Wide(image.empty() ? m_image : image).c_str(), nullptr, nullptr,
                           nullptr, account, password);
        EXPECT_NE(nullptr, h) << GetLastError();
        m_services.emplace_back(h);
        return h;
    }
    static SERVICE_STATUS_PROCESS Status(SC_HANDLE h)
    {
        SERVICE_STATUS_PROCESS status{};
        DWORD cb = 0;
        QueryServiceStatusEx(h, SC_STATUS_PROCESS_INFO, reinterpret_cast<LPBYTE>(&status),
                             sizeof(status), &cb);
        return status;
    }
    static bool WaitForState(SC_HANDLE h, DWORD dwState)
    {
        return orvtest::WaitUntil([&] { return Status(h).dwCurrentState == dwState; });
    }
    Lines LogOf(const std::string& name) const
    {
        Lines lines;
        std::ifstream file(Root() / (name + ".txt"));
        for (std::string line; std::getline(file, line);)
            lines.push_back(line);
        return lines;
    }
    // Each report as "<recorder> <state> <check point> <wait hint> <exit code>"; every one must
    // name the process.
    static Lines ReportsOf(const std::string& name, DWORD pid)
    {
        static const char* const states[] = {"", "STOPPED", "START_PENDING", "STOP_PENDING",
                                             "RUNNING"};
        std::vector<pal::ServiceStatusReport> reports;
        EXPECT_EQ(DWORD(ERROR_SUCCESS),
                  pal::ServiceStatusReports(pal::Utf8ToUtf16(name), &reports));
        Lines lines;
        for (const pal::ServiceStatusReport& r : reports) {
            EXPECT_EQ(pid, r.dwProcessId);
            lines.push_back(std::string(r.fByManager ? "manager " : "service ") +
                            states[r.dwCurrentState] + " " + std::to_string(r.dwCheckPoint) + " " +
                            std::to_string(r.dwWaitHint) + " " + std::to_string(r.dwWin32ExitCode));
        }
        return lines;
    }

    ScopedScHandle m_manager;
    std::string m_image;
    std::vector<ScopedScHandle> m_services;
};

TEST_F(ServiceProcessTest, RunsReportsAndObeysControlsInOrder)
{
    SC_HANDLE h = Create("OrvLife");
    LPCWSTR args[] = {W("alpha"), W("two words")};
    ASSERT_TRUE(StartServiceW(h, 2, args)) << GetLastError();
    ASSERT_TRUE(WaitForState(h, SERVICE_RUNNING));
    const DWORD pid = Status(h).dwProcessId;
    EXPECT_NE(0u, pid);
    SERVICE_STATUS status{};
    EXPECT_TRUE(ControlService(h, SERVICE_CONTROL_INTERROGATE, &status));
    EXPECT_EQ(DWORD(SERVICE_ACCEPT_STOP), status.dwControlsAccepted);
    EXPECT_TRUE(ControlService(h, 150, &status)) << "a service's own code is always delivered";
    EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_SERVICE_CONTROL,
                      ControlService(h, SERVICE_CONTROL_PAUSE, &status));
    EXPECT_EQ(DWORD(SERVICE_RUNNING), status.dwCurrentState);
    EXPECT_CALL_ERROR(FALSE, ERROR_SERVICE_ALREADY_RUNNING, StartServiceW(h, 0, nullptr));
    ScopedScHandle queryOnly(OpenServiceW(m_manager, W("OrvLife"), SERVICE_QUERY_STATUS));
    EXPECT_CALL_ERROR(FALSE, ERROR_ACCESS_DENIED,
                      ControlService(queryOnly, SERVICE_CONTROL_STOP, &status));

    ASSERT_TRUE(ControlService(h, SERVICE_CONTROL_STOP, &status));
    // ServiceMain may report the stop before the handler's reply comes back.
    EXPECT_NE(DWORD(SERVICE_RUNNING), status.dwCurrentState);
    ASSERT_TRUE(WaitForState(h, SERVICE_STOPPED));
    EXPECT_EQ(0u, Status(h).dwProcessId);
    EXPECT_EQ(0u, Status(h).dwWin32ExitCode);
    EXPECT_CALL_ERROR(FALSE, ERROR_SERVICE_NOT_ACTIVE,
                      ControlService(h, SERVICE_CONTROL_STOP, &status));
    EXPECT_EQ((Lines{"main|OrvLife|alpha|two words", "account LocalSystem", "bad state 13",
                     "control 4", "control 150", "control 1"}),
              LogOf("OrvLife"));
    EXPECT_EQ((Lines{"manager START_PENDING 0 2000 0", "service START_PENDING 1 3000 0",
                     "service RUNNING 0 0 0", "service RUNNING 0 0 0",
                     "service STOP_PENDING 1 5000 0", "service STOPPED 0 0 0"}),
              ReportsOf("OrvLife", pid));
}

TEST_F(ServiceProcessTest, ProcessThatEndsWithoutStoppingIsShownStopped)
{
    SC_HANDLE h = Create("OrvVanish");
    ASSERT_TRUE(StartServiceW(h, 0, nullptr));
    ASSERT_TRUE(WaitForState(h, SERVICE_RUNNING));
    const DWORD pid = Status(h).dwProcessId;
    SERVICE_STATUS status{};
    // The process may end before its dispatcher has answered, so the call's own answer is
    // either; what counts is what the manager makes of the vanished process.
    ControlService(h, 201, &status);
    ASSERT_TRUE(WaitForState(h, SERVICE_STOPPED));
    EXPECT_WIN32(ERROR_PROCESS_ABORTED, Status(h).dwWin32ExitCode);
    Lines reports = ReportsOf("OrvVanish", pid);
    ASSERT_EQ(4u, reports.size());
    EXPECT_EQ("manager STOPPED 0 0 1067", reports.back());
    // Its lock went with it: the service starts again.
    ASSERT_TRUE(StartServiceW(h, 0, nullptr)) << GetLastError();
    ASSERT_TRUE(WaitForState(h, SERVICE_RUNNING));
    EXPECT_NE(pid, Status(h).dwProcessId);
}

TEST_F(ServiceProcessTest, DeletedWhileRunningGoesWhenItStops)
{
    SC_HANDLE h = Create("OrvDoomed");
    ASSERT_TRUE(StartServiceW(h, 0, nullptr));
    ASSERT_TRUE(WaitForState(h, SERVICE_RUNNING));
    ASSERT_TRUE(DeleteService(h));
    ScopedScHandle again(OpenServiceW(m_manager, W("OrvDoomed"), SERVICE_START));
    ASSERT_NE(nullptr, static_cast<SC_HANDLE>(again)) << "a marked service still opens";
    EXPECT_CALL_ERROR(FALSE, ERROR_SERVICE_MARKED_FOR_DELETE, StartServiceW(again, 0, nullptr));
    EXPECT_CALL_ERROR(nullptr, ERROR_SERVICE_MARKED_FOR_DELETE,
                      CreateServiceW(m_manager, W("OrvDoomed"), nullptr, 0,
                                     SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                                     SERVICE_ERROR_NORMAL, W("/bin/true"), nullptr, nullptr,
                                     nullptr, nullptr, nullptr));
    SERVICE_STATUS status{};
    ASSERT_TRUE(ControlService(h, SERVICE_CONTROL_STOP, &status));
    ASSERT_TRUE(WaitForState(h, SERVICE_STOPPED)) << "its handles still read it";
    EXPECT_CALL_ERROR(nullptr, ERROR_SERVICE_DOES_NOT_EXIST,
                      OpenServiceW(m_manager, W("OrvDoomed"), SERVICE_QUERY_STATUS));
}

// A failed start leaves the service stopped as it was; the reports say what the manager did.
TEST_F(ServiceProcessTest, StartsThatFail)
{
    // Thirty seconds of the platform clock pass in thirty milliseconds.
    pal::SetClockScale(1000);
    const std::string missing = (Root() / "no such program").string();
    const struct
    {
        const char* name;
        std::string image;
        LPCWSTR account;
        LPCWSTR password;
        DWORD dwError;
        Lines reports; // after the manager's START_PENDING, if any
    } cases[] = {
        {"OrvSleeper",
         "/bin/sleep 60",
         nullptr,
         nullptr,
         ERROR_SERVICE_REQUEST_TIMEOUT,
         {"manager STOPPED 0 0 1053"}},
        {"OrvQuitter",
         "/bin/true",
         nullptr,
         nullptr,
         ERROR_SERVICE_REQUEST_TIMEOUT,
         {"manager STOPPED 0 0 1053"}},
        {"OrvMissing", missing, nullptr, nullptr, ERROR_FILE_NOT_FOUND, {}},
        {"OrvWrongPassword", {}, W(".\\User"), W("guess"), ERROR_SERVICE_LOGON_FAILED, {}},
        {"OrvNoPassword", {}, W("Administrator"), nullptr, ERROR_SERVICE_LOGON_FAILED, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        SC_HANDLE h = Create(c.name, c.image, c.account, c.password);
        EXPECT_CALL_ERROR(FALSE, c.dwError, StartServiceW(h, 0, nullptr));
        SERVICE_STATUS_PROCESS status = Status(h);
        EXPECT_EQ(DWORD(SERVICE_STOPPED), status.dwCurrentState);
        EXPECT_EQ(0u, status.dwProcessId);
        std::vector<pal::ServiceStatusReport> reports;
        pal::ServiceStatusReports(pal::Utf8ToUtf16(c.name), &reports);
        Lines lines = ReportsOf(c.name, reports.empty() ? 0 : reports[0].dwProcessId);
        if (!c.reports.empty())
            lines.erase(lines.begin());
        EXPECT_EQ(c.reports, lines);
    }
}

TEST_F(ServiceProcessTest, ControlsReachAServiceWhoseMachineRootIsTooDeepForASocketPath)
{
    std::filesystem::path deep = MakeDir(std::string(120, 'd'));
    setenv("ORVSIM_ROOT", deep.c_str(), 1);
    m_manager.Reset(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    SC_HANDLE h = Create("OrvDeep");
    ASSERT_TRUE(StartServiceW(h, 0, nullptr)) << GetLastError();
    ASSERT_TRUE(WaitForState(h, SERVICE_RUNNING));
    SERVICE_STATUS status{};
    EXPECT_TRUE(ControlService(h, SERVICE_CONTROL_STOP, &status)) << GetLastError();
    EXPECT_TRUE(WaitForState(h, SERVICE_STOPPED));
}

TEST_F(ServiceProcessTest, RunsUnderItsAccountAndTimesOutAHungHandler)
{
    SC_HANDLE h = Create("OrvUser", {}, W(".\\User"), W("Orvsim-User1"));
    ASSERT_TRUE(StartServiceW(h, 0, nullptr)) << GetLastError();
    ASSERT_TRUE(WaitForState(h, SERVICE_RUNNING));
    pal::SetClockScale(1000);
    SERVICE_STATUS status{};
    EXPECT_CALL_ERROR(FALSE, ERROR_SERVICE_REQUEST_TIMEOUT, ControlService(h, 200, &status));
    EXPECT_EQ((Lines{"main|OrvUser", "account .\\User", "bad state 13", "control 200"}),
              LogOf("OrvUser"));
}

} // namespace
