// The service control manager's contracts that need the test controls (accounts, faults, forged
// handles), and those where Wine departs from Windows' documentation, so that the conformance
// suite cannot hold them (each says how).
#include "pal/palcontrol.h"
#include "tests/pal/service/service_testing.h"
#include "tests/support/paltest.h"

#include <vector>

namespace {

using orvtest::service::ScopedScHandle;
using orvtest::service::ScopedService;
using WString = orvtest::WString;

void WINAPI IgnoreControl(DWORD) {}

class ServiceApiTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        orvtest::PalTest::SetUp();
        m_manager.Reset(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
        ASSERT_NE(nullptr, static_cast<SC_HANDLE>(m_manager));
    }
    ScopedScHandle m_manager;
};

TEST_F(ServiceApiTest, ChecksThatWineLeavesOut)
{
    ScopedService service(m_manager, W("OrvApi"), W("/bin/true"), nullptr, nullptr, W("Orv Api"),
                          W("DepA\0DepB\0"));
    ASSERT_NE(nullptr, static_cast<SC_HANDLE>(service));
    // Wine packs the dependency list wrongly.
    std::vector<BYTE> buffer(1024);
    auto* pConfig = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
    DWORD cbNeeded = 0;
    ASSERT_TRUE(QueryServiceConfigW(service, pConfig, 1024, &cbNeeded));
    EXPECT_EQ(WString(W("DepA")), WString(pConfig->lpDependencies));
    EXPECT_EQ(WString(W("DepB")), WString(pConfig->lpDependencies + 5));
    EXPECT_EQ(0, pConfig->lpDependencies[10]);
    // Wine compares a new display name with the display names alone.
    ScopedService other(m_manager, W("OrvOther"), W("/bin/true"), nullptr, nullptr, W("orvapi"));
    EXPECT_EQ(nullptr, static_cast<SC_HANDLE>(other));
    EXPECT_WIN32(ERROR_DUPLICATE_SERVICE_NAME, GetLastError());
    // Wine accepts any account.
    ScopedService stranger(m_manager, W("OrvOther"), W("/bin/true"), W(".\\Nobody"), W("x"));
    EXPECT_EQ(nullptr, static_cast<SC_HANDLE>(stranger));
    EXPECT_WIN32(ERROR_INVALID_SERVICE_ACCOUNT, GetLastError());
    // Wine answers ERROR_SERVICE_DOES_NOT_EXIST.
    EXPECT_CALL_ERROR(nullptr, ERROR_SERVICE_NOT_IN_EXE,
                      RegisterServiceCtrlHandlerW(W("OrvApi"), IgnoreControl));
}

TEST_F(ServiceApiTest, PlainUserMayOnlyQueryAndInterrogate)
{
    ScopedService service(m_manager, W("OrvApi"), W("/bin/true"));
    ASSERT_TRUE(pal::SetProcessAccount(u"User"));
    ScopedScHandle userManager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    ASSERT_NE(nullptr, static_cast<SC_HANDLE>(userManager));
    const struct
    {
        bool fManager;
        DWORD dwAccess;
        DWORD dwError;
    } cases[] = {
        {true, GENERIC_READ, ERROR_SUCCESS},
        {true, SC_MANAGER_CREATE_SERVICE, ERROR_ACCESS_DENIED},
        {true, SC_MANAGER_ALL_ACCESS, ERROR_ACCESS_DENIED},
        {false, GENERIC_READ | SERVICE_USER_DEFINED_CONTROL, ERROR_SUCCESS},
        {false, SERVICE_START, ERROR_ACCESS_DENIED},
        {false, SERVICE_STOP, ERROR_ACCESS_DENIED},
        {false, DELETE, ERROR_ACCESS_DENIED},
        {false, GENERIC_EXECUTE, ERROR_ACCESS_DENIED},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(orvtest::HexCode(c.dwAccess));
        SetLastError(orvtest::LAST_ERROR_UNTOUCHED);
        ScopedScHandle h(c.fManager ? OpenSCManagerW(nullptr, nullptr, c.dwAccess)
                                    : OpenServiceW(userManager, W("OrvApi"), c.dwAccess));
        EXPECT_EQ(c.dwError == ERROR_SUCCESS, h != nullptr);
        if (c.dwError != ERROR_SUCCESS) {
            EXPECT_WIN32(c.dwError, GetLastError());
        }
    }
    // The most a user may have still refuses the rest, call by call.
    ScopedScHandle most(OpenServiceW(userManager, W("OrvApi"), MAXIMUM_ALLOWED));
    ASSERT_NE(nullptr, static_cast<SC_HANDLE>(most));
    SERVICE_STATUS status{};
    SERVICE_DESCRIPTIONW description{const_cast<LPWSTR>(W("x"))};
    EXPECT_CALL_ERROR(FALSE, ERROR_ACCESS_DENIED, StartServiceW(most, 0, nullptr));
    EXPECT_CALL_ERROR(FALSE, ERROR_ACCESS_DENIED, ControlService(most, 1, &status));
    EXPECT_CALL_ERROR(FALSE, ERROR_ACCESS_DENIED, DeleteService(most));
    EXPECT_CALL_ERROR(FALSE, ERROR_ACCESS_DENIED, ChangeServiceConfig2W(most, 1, &description));
    EXPECT_TRUE(QueryServiceStatus(most, &status));
    ScopedScHandle mostManager(OpenSCManagerW(nullptr, nullptr, MAXIMUM_ALLOWED));
    EXPECT_CALL_ERROR(nullptr, ERROR_ACCESS_DENIED,
                      CreateServiceW(mostManager, W("OrvUser"), nullptr, 0,
                                     SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                                     SERVICE_ERROR_NORMAL, W("/bin/true"), nullptr, nullptr,
                                     nullptr, nullptr, nullptr));
    ASSERT_TRUE(pal::SetProcessAccount(u"Administrator"));
    EXPECT_NE(nullptr, ScopedScHandle(OpenServiceW(m_manager, W("OrvApi"), SERVICE_ALL_ACCESS)));
}

TEST_F(ServiceApiTest, HandlesMachinesLevelsKindsAndFaults)
{
    ScopedService service(m_manager, W("OrvApi"), W("/bin/true"));
    SC_HANDLE closed = OpenServiceW(m_manager, W("OrvApi"), SERVICE_QUERY_STATUS);
    ASSERT_TRUE(CloseServiceHandle(closed));
    SERVICE_STATUS status{};
    EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_HANDLE, CloseServiceHandle(closed));
    EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_HANDLE, QueryServiceStatus(closed, &status));
    EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_HANDLE,
                      DeleteService(reinterpret_cast<SC_HANDLE>(0x4242)));
    EXPECT_NE(nullptr, ScopedScHandle(OpenSCManagerW(W("\\\\orvsim"), nullptr, GENERIC_READ)));
    EXPECT_CALL_ERROR(nullptr, RPC_S_SERVER_UNAVAILABLE,
                      OpenSCManagerW(W("\\\\ELSEWHERE"), nullptr, GENERIC_READ));
    DWORD cb = 0;
    EXPECT_CALL_ERROR(
        FALSE, ERROR_INVALID_LEVEL,
        QueryServiceConfig2W(service, SERVICE_CONFIG_FAILURE_ACTIONS, nullptr, 0, &cb));
    EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_LEVEL,
                      QueryServiceStatusEx(service, SC_STATUS_TYPE(1), nullptr, 0, &cb));
    for (DWORD dwType : {DWORD(SERVICE_KERNEL_DRIVER), DWORD(SERVICE_WIN32_OWN_PROCESS | 0x1000)})
        EXPECT_CALL_ERROR(nullptr, ERROR_INVALID_PARAMETER,
                          CreateServiceW(m_manager, W("OrvKind"), nullptr, 0, dwType,
                                         SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, W("/bin/true"),
                                         nullptr, nullptr, nullptr, nullptr, nullptr));

    // A failed start leaves the service as it was, without a report.
    pal::InjectFault("StartServiceW", ERROR_NOT_ENOUGH_MEMORY, 0, W("orvapi"));
    EXPECT_CALL_ERROR(FALSE, ERROR_NOT_ENOUGH_MEMORY, StartServiceW(service, 0, nullptr));
    ASSERT_TRUE(QueryServiceStatus(service, &status));
    EXPECT_WIN32(ERROR_SERVICE_NEVER_STARTED, status.dwWin32ExitCode);
    std::vector<pal::ServiceStatusReport> reports;
    EXPECT_EQ(DWORD(ERROR_SUCCESS), pal::ServiceStatusReports(u"OrvApi", &reports));
    EXPECT_TRUE(reports.empty());
    EXPECT_EQ(DWORD(ERROR_SERVICE_DOES_NOT_EXIST), pal::ServiceStatusReports(u"Nope", &reports));
    pal::InjectFault("OpenServiceW", ERROR_ACCESS_DENIED, 1);
    EXPECT_CALL_ERROR(nullptr, ERROR_ACCESS_DENIED, OpenServiceW(m_manager, W("OrvApi"), 0));
    EXPECT_NE(nullptr, ScopedScHandle(OpenServiceW(m_manager, W("OrvApi"), 0)));
}

} // namespace
