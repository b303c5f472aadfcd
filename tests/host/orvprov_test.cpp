// The provider program as a process of the emulated machine: each row runs orvprov one or more
// times from a folder with blanks in its path and checks the last run's full exit code, the
// message boxes it showed, a line of its trace, and the whole installation state it left: the
// COM registration key by key, the Windows service and the VSS provider list.
#include "pal/processthreadsapi.h"
#include "pal/synchapi.h"
#include "pal/winreg.h"
#include "pal/winsvc.h"
#include "sim/vss/state.h"
#include "sim/vss/vsssim.h"
#include "tests/host/support/tracefiles.h"
#include "tests/pal/registry/registry_testing.h"

#include <fstream>
#include <iterator>

namespace {

using orvtest::registry::ProcessResult;

constexpr DWORD kVeto = 0x80042306;

// What the AppID key holds beside its name after each kind of registration.
constexpr char kExe[] = "";
constexpr char kAsService[] = " LocalService=Orvhwsvc ServiceParameters=-service";
constexpr char kExeAfterService[] = " ServiceParameters=-service";

// Every key of the installation under HKEY_CLASSES_ROOT, one line each with its values.
std::string ExpectedCom(const char* pszAppIdValues, const std::string& exe, const std::string& dir)
{
    if (!pszAppIdValues)
        return "";
    std::string text = R"(AppID\{6AF5BA0B-5FE5-4B79-9723-14C9C3ECB16C} @=orvprov%A
AppID\orvprov.EXE AppID={6AF5BA0B-5FE5-4B79-9723-14C9C3ECB16C}
CLSID\{C7F1D659-6F48-45AA-93D2-D99414EA5190} @=OrvaneHardwareProvider Class AppID={6AF5BA0B-5FE5-4B79-9723-14C9C3ECB16C}
CLSID\{C7F1D659-6F48-45AA-93D2-D99414EA5190}\LocalServer32 @=%E
CLSID\{C7F1D659-6F48-45AA-93D2-D99414EA5190}\ProgID @=Orvprov.OrvaneHardwareProvider.1
CLSID\{C7F1D659-6F48-45AA-93D2-D99414EA5190}\Programmable
CLSID\{C7F1D659-6F48-45AA-93D2-D99414EA5190}\TypeLib @={3BB85D3F-2BA9-4DC0-AC81-7F55520F51E2}
CLSID\{C7F1D659-6F48-45AA-93D2-D99414EA5190}\VersionIndependentProgID @=Orvprov.OrvaneHardwareProvider
Orvprov.OrvaneHardwareProvider @=OrvaneHardwareProvider Class
Orvprov.OrvaneHardwareProvider\CLSID @={C7F1D659-6F48-45AA-93D2-D99414EA5190}
Orvprov.OrvaneHardwareProvider\CurVer @=Orvprov.OrvaneHardwareProvider.1
Orvprov.OrvaneHardwareProvider.1 @=OrvaneHardwareProvider Class
Orvprov.OrvaneHardwareProvider.1\CLSID @={C7F1D659-6F48-45AA-93D2-D99414EA5190}
TypeLib\{3BB85D3F-2BA9-4DC0-AC81-7F55520F51E2}
TypeLib\{3BB85D3F-2BA9-4DC0-AC81-7F55520F51E2}\1.0 @=orvprov 1.0 Type Library
TypeLib\{3BB85D3F-2BA9-4DC0-AC81-7F55520F51E2}\1.0\0
TypeLib\{3BB85D3F-2BA9-4DC0-AC81-7F55520F51E2}\1.0\0\win64 @=%E
TypeLib\{3BB85D3F-2BA9-4DC0-AC81-7F55520F51E2}\1.0\FLAGS @=0
TypeLib\{3BB85D3F-2BA9-4DC0-AC81-7F55520F51E2}\1.0\HELPDIR @=%D/
)";
    for (auto [token, value] :
         {std::pair<std::string, std::string>{"%A", pszAppIdValues}, {"%E", exe}, {"%D", dir}})
        for (size_t at; (at = text.find(token)) != std::string::npos;)
            text.replace(at, token.size(), value);
    return text;
}

void DumpKey(HKEY hParent, const std::string& path, std::string* pText)
{
    HKEY hKey = nullptr;
    if (RegOpenKeyExW(hParent, orvtest::Wide(path).c_str(), 0, KEY_READ, &hKey) != ERROR_SUCCESS)
        return;
    *pText += path;
    WCHAR szName[256];
    BYTE data[1024];
    for (DWORD i = 0;; ++i) {
        DWORD cchName = 256, cbData = sizeof(data), dwType = 0;
        if (RegEnumValueW(hKey, i, szName, &cchName, nullptr, &dwType, data, &cbData) != 0)
            break;
        *pText += " " + (cchName ? orvtest::Narrow(szName) : std::string("@")) + "=" +
                  orvtest::Narrow(reinterpret_cast<const WCHAR*>(data));
    }
    *pText += "\n";
    for (DWORD i = 0;; ++i) {
        DWORD cchName = 256;
        if (RegEnumKeyExW(hKey, i, szName, &cchName, nullptr, nullptr, nullptr, nullptr) != 0)
            break;
        DumpKey(hParent, path + "\\" + orvtest::Narrow(szName), pText);
    }
    RegCloseKey(hKey);
}

struct Row
{
    const char* name;
    std::vector<std::vector<std::string>> runs; // the last run is the one checked
    const char* faults;                         // ORVSIM_FAULTS of the last run
    HRESULT hrRegisterProvider;                 // the coordinator's answer instead of its work
    DWORD dwExitCode;
    const char* console;        // its output, message boxes as the machine prints them
    const char* trace;          // a line of the last run's trace
    const char* pszAppIdValues; // NULL: no COM registration
    const char* service;        // the service's configuration, "" when there is none
    bool fVssRegistered;
};

void PrintTo(const Row& row, std::ostream* os)
{
    *os << row.name;
}

const std::vector<std::string> kService = {"-r", "service", "-a", "LocalSystem"};
constexpr char kInstalled[] = "type=16 start=3 error=1 deps=RPCSS account=LocalSystem "
                              "display=Verdane VSS Hardware Provider "
                              "description=VSS Hardware Provider for Verdane LUNs";
constexpr char kNoDescription[] = "type=16 start=3 error=1 deps=RPCSS account=LocalSystem "
                                  "display=Verdane VSS Hardware Provider description=";
constexpr char kParseError[] = "Parsing error: invalid switches or arguments";

// clang-format off
const Row kRows[] = {
    // name, runs, faults, coordinator's answer, exit code, console, trace, COM, service, VSS
    {"NoArgumentsIsTheServiceFromAConsole", {{}}, "", S_OK, 0, "",
     "StartServiceCtrlDispatcher FAILED [dwError=0x00000427]", nullptr, "", false},
    {"ServiceSwitchChangesNothing", {{"-service"}}, "", S_OK, 0, "", "m_fService=1", nullptr, "", false},
    {"UnregisterOnACleanMachine", {{"-u", "-r", "exe"}}, "", S_OK, 0, "", "Provider is not registered",
     nullptr, "", false},
    {"ServiceModeIgnoresCase", {{"-r", "Service", "-a", "LocalSystem"}}, "", S_OK, 0, "",
     "Creating regvalues for ServiceParameters", kAsService, kInstalled, true},
    {"ServiceTwiceStopsAtVss", {kService, kService}, "", S_OK, kVeto, "",
     "Verdane hardware provider is already registered", kAsService, kInstalled, true},
    {"ExeAfterServiceDeletesTheService", {kService, {"-r", "exe"}}, "", S_OK, kVeto, "",
     "RegisterVss FAILED [hr=0x80042303]", kExeAfterService, "", true},
    {"Exe", {{"-r", "exe"}}, "", S_OK, 0, "", "Reg exe", kExe, "", true},
    {"PasswordWithoutAccount", {{"-r", "service", "-p", "secret"}}, "", S_OK, kVeto,
     "[Register Server] Parsing error: need to specify -a <account> and -p <password>\n\n", "", nullptr, "", false},
    {"RegisterModeWithoutValue", {{"-r"}}, "", S_OK, kVeto, "", kParseError, nullptr, "", false},
    {"UnknownSwitch", {{"-x"}}, "", S_OK, kVeto, "", kParseError, nullptr, "", false},
    {"SwitchNamesAreCaseSensitive", {{"-R", "exe"}}, "", S_OK, kVeto, "", kParseError, nullptr, "", false},
    {"UnknownRegisterMode", {{"-r", "all"}}, "", S_OK, kVeto,
     "[Register Server] Parsing error: -r (exe|service)\n\n", "", nullptr, "", false},
    {"SlashUAfterAPlainWord", {kService, {"word", "/u"}}, "", S_OK, 0, "", "Unreg", nullptr, "", false},
    {"OutOfMemoryKeepsItsCode", {{"-u"}}, "InitializeCriticalSectionAndSpinCount=14", S_OK, 0x8007000E, "",
     "_Module.Init FAILED", nullptr, "", false},
    {"CoordinatorCannotBeCreated", {kService}, "CoCreateInstance=0x80040154", S_OK, kVeto,
     "CoCreateInstance FAILED [hr=80040154]\n", "RegisterVss FAILED [hr=0x80040154]", nullptr, "", false},
    {"RegisterProviderFails", {kService}, "", E_ACCESSDENIED, kVeto, "",
     "RegisterProvider FAILED [hr=80070005]", nullptr, "", false},
    {"AccountThatDoesNotExist", {{"-r", "service", "-a", "Nobody"}}, "", S_OK, 0,
     "[Orvhwsvc] Couldn't create service\n", "CreateService FAILED [dwError=0x00000421]", kAsService, "", true},
    {"ManagerCannotBeOpened", {kService}, "OpenSCManagerW=5", S_OK, 0, "[Orvhwsvc] Couldn't open service manager\n",
     "OpenSCManager FAILED [dwError=0x00000005]", kAsService, "", true},
    {"DescriptionCannotBeSet", {kService}, "ChangeServiceConfig2W=5", S_OK, 0, "",
     "ChangeServiceConfig2 FAILED [dwError=0x00000005]", kAsService, kNoDescription, true},
    {"ManagerCannotBeOpenedToDelete", {kService, {"-u"}}, "OpenSCManagerW=5,2", S_OK, 0,
     "[Orvhwsvc] Couldn't open service manager\n", "OpenSCManager FAILED [dwError=0x00000005]", nullptr, kInstalled, false},
    {"ServiceCannotBeOpenedToDelete", {kService, {"-u"}}, "OpenServiceW=5,2", S_OK, 0,
     "[Orvhwsvc] Couldn't open service\n", "OpenService FAILED [dwError=0x00000005]", nullptr, kInstalled, false},
    {"ServiceCannotBeDeleted", {kService, {"-u"}}, "DeleteService=5", S_OK, 0,
     "[Orvhwsvc] Service could not be deleted\n", "DeleteService FAILED [dwError=0x00000005]", nullptr, kInstalled, false},
};
// clang-format on

class OrvprovTest : public orvtest::PalTest, public ::testing::WithParamInterface<Row>
{
protected:
    void SetUp() override
    {
        PalTest::SetUp();
        m_dir = MakeDir("Program Files/Orvane");
        m_exe = m_dir / "orvprov";
        std::filesystem::copy_file(ORVPROV_EXE, m_exe);
    }

    // The run's full exit code, as the machine recorded it.
    DWORD Run(const std::vector<std::string>& args, const std::string& faults, ProcessResult* pr)
    {
        std::vector<std::string> argv{m_exe.string()};
        argv.insert(argv.end(), args.begin(), args.end());
        orvtest::registry::ChildProcess child(argv, {"ORVSIM_FAULTS=" + faults});
        DWORD dwPid = static_cast<DWORD>(child.Pid());
        *pr = child.Wait();
        DWORD dwCode = 0xFFFFFFFF;
        HANDLE hProcess = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, dwPid);
        EXPECT_TRUE(hProcess && GetExitCodeProcess(hProcess, &dwCode)) << GetLastError();
        if (hProcess)
            CloseHandle(hProcess);
        return dwCode;
    }

    std::string Com() const
    {
        std::string text;
        for (const char* pszKey :
             {"AppID\\{6AF5BA0B-5FE5-4B79-9723-14C9C3ECB16C}", "AppID\\orvprov.EXE",
              "CLSID\\{C7F1D659-6F48-45AA-93D2-D99414EA5190}", "Orvprov.OrvaneHardwareProvider",
              "Orvprov.OrvaneHardwareProvider.1",
              "TypeLib\\{3BB85D3F-2BA9-4DC0-AC81-7F55520F51E2}"})
            DumpKey(HKEY_CLASSES_ROOT, pszKey, &text);
        return text;
    }

    // The service's configuration on one line; "" when there is none.
    std::string Service() const
    {
        SC_HANDLE hManager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
        SC_HANDLE hService = OpenServiceW(hManager, W("Orvhwsvc"), SERVICE_QUERY_CONFIG);
        alignas(8) BYTE config[8192], description[1024];
        auto* p = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(config);
        LPWSTR& pszDescription =
            reinterpret_cast<SERVICE_DESCRIPTIONW*>(description)->lpDescription;
        DWORD cb = 0;
        std::string text;
        if (hService && QueryServiceConfigW(hService, p, sizeof(config), &cb) &&
            QueryServiceConfig2W(hService, SERVICE_CONFIG_DESCRIPTION, description,
                                 sizeof(description), &cb)) {
            text = "type=" + std::to_string(p->dwServiceType) +
                   " start=" + std::to_string(p->dwStartType) +
                   " error=" + std::to_string(p->dwErrorControl) +
                   " deps=" + orvtest::Narrow(p->lpDependencies) +
                   " account=" + orvtest::Narrow(p->lpServiceStartName) +
                   " display=" + orvtest::Narrow(p->lpDisplayName) +
                   " description=" + (pszDescription ? orvtest::Narrow(pszDescription) : "");
            EXPECT_EQ(m_exe.string(), orvtest::Narrow(p->lpBinaryPathName)) << "unquoted";
        }
        CloseServiceHandle(hService);
        CloseServiceHandle(hManager);
        return text;
    }

    std::filesystem::path m_dir;
    std::filesystem::path m_exe;
};

TEST_P(OrvprovTest, LeavesTheMachineAsExpected)
{
    const Row& row = GetParam();
    ProcessResult result;
    DWORD dwCode = 0;
    for (size_t i = 0; i < row.runs.size(); ++i) {
        const bool fLast = i + 1 == row.runs.size();
        if (fLast && row.hrRegisterProvider != S_OK) {
            ASSERT_HR(S_OK, vsssim::SetFault("RegisterProvider", row.hrRegisterProvider));
        }
        dwCode = Run(row.runs[i], fLast ? row.faults : "", &result);
    }

    EXPECT_HR(row.dwExitCode, dwCode) << result.err;
    EXPECT_EQ(row.console, result.out + result.err);
    if (*row.trace) {
        EXPECT_NE(std::string::npos, orvtest::host::TraceText(m_dir).find(row.trace))
            << orvtest::host::TraceText(m_dir);
    }
    EXPECT_EQ(ExpectedCom(row.pszAppIdValues, m_exe.string(), m_dir.string()), Com());
    EXPECT_EQ(row.service, Service());
    std::vector<vsssim::detail::ProviderRecord> providers;
    ASSERT_HR(S_OK, vsssim::detail::ReadProviders("QueryProviders", &providers));
    EXPECT_EQ(row.fVssRegistered ? 2u : 1u, providers.size());
    if (row.fVssRegistered) {
        EXPECT_EQ("Verdane VSS Hardware Provider/6. 0. 0. 2404",
                  orvtest::Narrow(providers.back().name) + "/" +
                      orvtest::Narrow(providers.back().version));
    }
}

// Installed, the program is the service: the manager starts it without arguments, and it stops
// on request with exit code 0 in its status and as a process.
TEST_F(OrvprovTest, RunsAsTheInstalledService)
{
    ProcessResult result;
    ASSERT_EQ(0u, Run(kService, "", &result));
    SC_HANDLE hManager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    SC_HANDLE hService = OpenServiceW(hManager, W("Orvhwsvc"), SERVICE_ALL_ACCESS);
    ASSERT_TRUE(hService && StartServiceW(hService, 0, nullptr)) << GetLastError();
    SERVICE_STATUS_PROCESS status = {};
    auto state = [&] {
        DWORD cb = 0;
        QueryServiceStatusEx(hService, SC_STATUS_PROCESS_INFO, reinterpret_cast<LPBYTE>(&status),
                             sizeof(status), &cb);
        return status.dwCurrentState;
    };
    ASSERT_TRUE(orvtest::WaitUntil([&] { return state() == SERVICE_RUNNING; }));
    // Opened while it runs, so that the wait below is woken by its end.
    HANDLE hProcess =
        OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, status.dwProcessId);
    SERVICE_STATUS stopped = {};
    EXPECT_TRUE(ControlService(hService, SERVICE_CONTROL_STOP, &stopped)) << GetLastError();
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hProcess, INFINITE));
    DWORD dwCode = STILL_ACTIVE;
    EXPECT_TRUE(GetExitCodeProcess(hProcess, &dwCode) && state() == SERVICE_STOPPED);
    EXPECT_EQ(std::pair(DWORD(0), DWORD(0)), std::pair(dwCode, status.dwWin32ExitCode));
    CloseHandle(hProcess);
    CloseServiceHandle(hService);
    CloseServiceHandle(hManager);
}

INSTANTIATE_TEST_SUITE_P(Rows, OrvprovTest, ::testing::ValuesIn(kRows),
                         [](const auto& info) { return std::string(info.param.name); });

} // namespace
