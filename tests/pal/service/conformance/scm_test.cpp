// Conformance of the service control manager's API contracts: opening, creating, configuring,
// deleting and querying services, and the service side's answers outside a service process.
#include "tests/pal/service/service_testing.h"
#include "tests/support/conformance.h"

#include <vector>

namespace {

using orvtest::WString;
using orvtest::service::ScopedScHandle;
using orvtest::service::ScopedService;

constexpr const WCHAR* kName = W("OrvConformanceSvc");
constexpr const WCHAR* kBinPath = W("C:\\orvtest\\missing service.exe -k conf");

class ServiceConformanceTest : public orvtest::ConformanceTest
{
protected:
    void SetUp() override
    {
        orvtest::ConformanceTest::SetUp();
        m_manager.Reset(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
        ASSERT_NE(nullptr, static_cast<SC_HANDLE>(m_manager)) << GetLastError();
    }
    ScopedScHandle m_manager;
};

TEST_F(ServiceConformanceTest, DatabasesAndMissingServices)
{
    ScopedScHandle active(OpenSCManagerW(W(""), SERVICES_ACTIVE_DATABASEW, SC_MANAGER_CONNECT));
    EXPECT_NE(nullptr, static_cast<SC_HANDLE>(active));
    EXPECT_CALL_ERROR(nullptr, ERROR_DATABASE_DOES_NOT_EXIST,
                      OpenSCManagerW(nullptr, SERVICES_FAILED_DATABASEW, SC_MANAGER_CONNECT));
    EXPECT_CALL_ERROR(nullptr, ERROR_INVALID_NAME,
                      OpenSCManagerW(nullptr, W("NoSuchDatabase"), SC_MANAGER_CONNECT));
    EXPECT_CALL_ERROR(nullptr, ERROR_SERVICE_DOES_NOT_EXIST,
                      OpenServiceW(m_manager, W("OrvNoSuchService"), SERVICE_QUERY_STATUS));
    EXPECT_CALL_ERROR(nullptr, ERROR_INVALID_HANDLE,
                      OpenServiceW(nullptr, kName, SERVICE_QUERY_STATUS));
    EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_HANDLE, CloseServiceHandle(nullptr));
}

TEST_F(ServiceConformanceTest, ConfigurationComesBackWithItsBufferRules)
{
    // The dependency list is checked on Linux only (api_test.cpp): Wine packs it wrongly.
    ScopedService service(m_manager, kName, kBinPath, nullptr, nullptr, W("Orv Conformance"));
    ASSERT_NE(nullptr, static_cast<SC_HANDLE>(service)) << GetLastError();

    DWORD cbNeeded = 0;
    EXPECT_CALL_ERROR(FALSE, ERROR_INSUFFICIENT_BUFFER,
                      QueryServiceConfigW(service, nullptr, 0, &cbNeeded));
    ASSERT_GT(cbNeeded, DWORD(sizeof(QUERY_SERVICE_CONFIGW)));
    std::vector<BYTE> buffer(cbNeeded);
    auto* pConfig = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
    DWORD cbAgain = 0;
    EXPECT_CALL_ERROR(FALSE, ERROR_INSUFFICIENT_BUFFER,
                      QueryServiceConfigW(service, pConfig, cbNeeded - 1, &cbAgain));
    EXPECT_EQ(cbNeeded, cbAgain);
    ASSERT_TRUE(QueryServiceConfigW(service, pConfig, cbNeeded, &cbAgain)) << GetLastError();
    EXPECT_EQ(DWORD(SERVICE_WIN32_OWN_PROCESS), pConfig->dwServiceType);
    EXPECT_EQ(DWORD(SERVICE_DEMAND_START), pConfig->dwStartType);
    EXPECT_EQ(DWORD(SERVICE_ERROR_NORMAL), pConfig->dwErrorControl);
    EXPECT_EQ(WString(kBinPath), WString(pConfig->lpBinaryPathName));
    EXPECT_EQ(WString(), WString(pConfig->lpLoadOrderGroup));
    EXPECT_EQ(WString(W("LocalSystem")), WString(pConfig->lpServiceStartName));
    EXPECT_EQ(WString(W("Orv Conformance")), WString(pConfig->lpDisplayName));
    for (const WCHAR* p :
         {pConfig->lpBinaryPathName, pConfig->lpDisplayName, pConfig->lpDependencies}) {
        EXPECT_GE(reinterpret_cast<const BYTE*>(p), buffer.data() + sizeof(*pConfig));
        EXPECT_LT(reinterpret_cast<const BYTE*>(p), buffer.data() + buffer.size());
    }
}

TEST_F(ServiceConformanceTest, DescriptionIsSetQueriedAndRemoved)
{
    ScopedService service(m_manager, kName, kBinPath);
    ASSERT_NE(nullptr, static_cast<SC_HANDLE>(service)) << GetLastError();
    BYTE buffer[256] = {};
    auto* pDescription = reinterpret_cast<SERVICE_DESCRIPTIONW*>(buffer);
    DWORD cbNeeded = 0;
    ASSERT_TRUE(QueryServiceConfig2W(service, SERVICE_CONFIG_DESCRIPTION, buffer, sizeof(buffer),
                                     &cbNeeded));
    EXPECT_EQ(nullptr, pDescription->lpDescription) << "no description yet";

    SERVICE_DESCRIPTIONW change{const_cast<LPWSTR>(W("Keeps the tests honest."))};
    ASSERT_TRUE(ChangeServiceConfig2W(service, SERVICE_CONFIG_DESCRIPTION, &change));
    EXPECT_CALL_ERROR(FALSE, ERROR_INSUFFICIENT_BUFFER,
                      QueryServiceConfig2W(service, SERVICE_CONFIG_DESCRIPTION, buffer,
                                           sizeof(SERVICE_DESCRIPTIONW), &cbNeeded));
    EXPECT_EQ(DWORD(sizeof(SERVICE_DESCRIPTIONW) + 24 * sizeof(WCHAR)), cbNeeded);
    ASSERT_TRUE(
        QueryServiceConfig2W(service, SERVICE_CONFIG_DESCRIPTION, buffer, cbNeeded, &cbNeeded));
    EXPECT_EQ(WString(W("Keeps the tests honest.")), WString(pDescription->lpDescription));

    change.lpDescription = const_cast<LPWSTR>(W(""));
    ASSERT_TRUE(ChangeServiceConfig2W(service, SERVICE_CONFIG_DESCRIPTION, &change));
    ASSERT_TRUE(QueryServiceConfig2W(service, SERVICE_CONFIG_DESCRIPTION, buffer, sizeof(buffer),
                                     &cbNeeded));
    EXPECT_EQ(nullptr, pDescription->lpDescription) << "an empty description removes it";
}

// A display name equal to another service's name is checked on Linux only (api_test.cpp): Wine
// compares display names with display names alone.
TEST_F(ServiceConformanceTest, NamesAreUniqueAcrossNamesAndDisplayNames)
{
    ScopedService service(m_manager, kName, kBinPath, nullptr, nullptr, W("Orv Conformance"));
    ASSERT_NE(nullptr, static_cast<SC_HANDLE>(service)) << GetLastError();
    const struct
    {
        const WCHAR* name;
        const WCHAR* display;
        DWORD dwError;
    } cases[] = {
        {W("orvconformancesvc"), nullptr, ERROR_SERVICE_EXISTS},
        {W("OrvOther"), W("ORV CONFORMANCE"), ERROR_DUPLICATE_SERVICE_NAME},
        {W("Orv Conformance"), nullptr, ERROR_DUPLICATE_SERVICE_NAME},
        {W("Orv/Slash"), nullptr, ERROR_INVALID_NAME},
        {W(""), nullptr, ERROR_INVALID_NAME},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(orvtest::Narrow(c.name) + " / " +
                     (c.display ? orvtest::Narrow(c.display) : ""));
        ScopedService other(m_manager, c.name, kBinPath, nullptr, nullptr, c.display);
        EXPECT_EQ(nullptr, static_cast<SC_HANDLE>(other));
        EXPECT_WIN32(c.dwError, GetLastError());
    }
}

TEST_F(ServiceConformanceTest, StoppedServiceStatusAndControls)
{
    ScopedService service(m_manager, kName, kBinPath);
    ASSERT_NE(nullptr, static_cast<SC_HANDLE>(service)) << GetLastError();
    SERVICE_STATUS status{};
    ASSERT_TRUE(QueryServiceStatus(service, &status));
    EXPECT_EQ(DWORD(SERVICE_STOPPED), status.dwCurrentState);
    EXPECT_EQ(DWORD(SERVICE_WIN32_OWN_PROCESS), status.dwServiceType);
    EXPECT_EQ(0u, status.dwControlsAccepted);
    EXPECT_WIN32(ERROR_SERVICE_NEVER_STARTED, status.dwWin32ExitCode);

    BYTE buffer[64] = {};
    DWORD cbNeeded = 0;
    EXPECT_CALL_ERROR(FALSE, ERROR_INSUFFICIENT_BUFFER,
                      QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, buffer,
                                           sizeof(SERVICE_STATUS_PROCESS) - 1, &cbNeeded));
    EXPECT_EQ(DWORD(sizeof(SERVICE_STATUS_PROCESS)), cbNeeded);
    ASSERT_TRUE(
        QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, buffer, sizeof(buffer), &cbNeeded));
    EXPECT_EQ(0u, reinterpret_cast<SERVICE_STATUS_PROCESS*>(buffer)->dwProcessId);

    status = {};
    EXPECT_CALL_ERROR(FALSE, ERROR_SERVICE_NOT_ACTIVE,
                      ControlService(service, SERVICE_CONTROL_STOP, &status));
    EXPECT_EQ(DWORD(SERVICE_STOPPED), status.dwCurrentState) << "the status comes back too";
    EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_PARAMETER,
                      ControlService(service, SERVICE_CONTROL_SHUTDOWN, &status));
    // A manager's handle is no service's.
    EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_HANDLE, QueryServiceStatus(m_manager, &status));
}

TEST_F(ServiceConformanceTest, DeletedServiceIsMarkedUntilItsHandleCloses)
{
    ScopedScHandle service(CreateServiceW(m_manager, kName, nullptr, SERVICE_ALL_ACCESS,
                                          SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                                          SERVICE_ERROR_NORMAL, kBinPath, nullptr, nullptr, nullptr,
                                          nullptr, nullptr));
    ASSERT_NE(nullptr, static_cast<SC_HANDLE>(service)) << GetLastError();
    ASSERT_TRUE(DeleteService(service));
    EXPECT_CALL_ERROR(FALSE, ERROR_SERVICE_MARKED_FOR_DELETE, DeleteService(service));
    {
        ScopedService again(m_manager, kName, kBinPath);
        EXPECT_EQ(nullptr, static_cast<SC_HANDLE>(again));
        EXPECT_WIN32(ERROR_SERVICE_MARKED_FOR_DELETE, GetLastError());
    }
    service.Reset();
    EXPECT_CALL_ERROR(nullptr, ERROR_SERVICE_DOES_NOT_EXIST,
                      OpenServiceW(m_manager, kName, SERVICE_QUERY_STATUS));
}

// RegisterServiceCtrlHandlerW outside a service process and unknown accounts are checked on Linux
// only (api_test.cpp): Wine answers ERROR_SERVICE_DOES_NOT_EXIST for the one, where Windows
// documents ERROR_SERVICE_NOT_IN_EXE, and accepts any account for the other.
TEST_F(ServiceConformanceTest, ServiceSideOutsideAServiceProcess)
{
    SERVICE_TABLE_ENTRYW table[] = {{const_cast<LPWSTR>(W("")), nullptr}, {nullptr, nullptr}};
    EXPECT_CALL_ERROR(FALSE, ERROR_FAILED_SERVICE_CONTROLLER_CONNECT,
                      StartServiceCtrlDispatcherW(table));
    SERVICE_STATUS status{SERVICE_WIN32_OWN_PROCESS, SERVICE_RUNNING, 0, 0, 0, 0, 0};
    EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_HANDLE, SetServiceStatus(nullptr, &status));
}

} // namespace
