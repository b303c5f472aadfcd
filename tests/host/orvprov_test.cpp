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
#include "tests/pal/registry/registry_testing.h"

#include <fstream>
#include <iterator>

namespace {

using orvtest::registry::ProcessResult;

constexpr char kAppId[] = "{6AF5BA0B-5FE5-4B79-9723-14C9C3ECB16C}";
constexpr char kClsid[] = "{C7F1D659-6F48-45AA-93D2-D99414EA5190}";
constexpr char kLibId[] = "{3BB85D3F-2BA9-4DC0-AC81-7F55520F51E2}";
constexpr DWORD kVeto = 0x80042306;

enum class Com
{
    None,
    Exe,
    Service,
    ExeAfterService
};

// Every key of the installation under HKEY_CLASSES_ROOT, one line each with its values.
std::string ExpectedCom(Com com, const std::string& exe, const std::string& dir)
{
    if (com == Com::None)
        return "";
    const std::string clsid = std::string("CLSID\\") + kClsid;
    const std::string progId = "Orvprov.OrvaneHardwareProvider";
    std::string appIdValues = " @=orvprov";
    if (com == Com::Service)
        appIdValues += " LocalService=Orvhwsvc ServiceParameters=-service";
    else if (com == Com::ExeAfterService)
        appIdValues += " ServiceParameters=-service";
    const std::string lib = std::string("TypeLib\\") + kLibId;
    return std::string("AppID\\") + kAppId + appIdValues + "\n" +
           "AppID\\orvprov.EXE AppID=" + kAppId + "\n" + clsid +
           " @=OrvaneHardwareProvider Class AppID=" + kAppId + "\n" + clsid +
           "\\LocalServer32 @=" + exe + "\n" + clsid + "\\ProgID @=" + progId + ".1\n" + clsid +
           "\\Programmable\n" + clsid + "\\TypeLib @=" + kLibId + "\n" + clsid +
           "\\VersionIndependentProgID @=" + progId + "\n" + progId +
           " @=OrvaneHardwareProvider Class\n" + progId + "\\CLSID @=" + kClsid + "\n" + progId +
           "\\CurVer @=" + progId + ".1\n" + progId + ".1 @=OrvaneHardwareProvider Class\n" +
           progId + ".1\\CLSID @=" + kClsid + "\n" + lib + "\n" + lib +
           "\\1.0 @=orvprov 1.0 Type Library\n" + lib + "\\1.0\\0\n" + lib +
           "\\1.0\\0\\win64 @=" + exe + "\n" + lib + "\\1.0\\FLAGS @=0\n" + lib +
           "\\1.0\\HELPDIR @=" + dir + "/\n";
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
    const char* console; // its output, message boxes as the machine prints them
    const char* trace;   // a line of the last run's trace
    Com com;
    const char* service; // the service's configuration, "" when there is none
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
     "StartServiceCtrlDispatcher FAILED [dwError=0x00000427]", Com::None, "", false},
    {"ServiceSwitchChangesNothing", {{"-service"}}, "", S_OK, 0, "", "m_fService=1", Com::None, "", false},
    {"UnregisterOnACleanMachine", {{"-u", "-r", "exe"}}, "", S_OK, 0, "", "Provider is not registered",
     Com::None, "", false},
    {"ServiceModeIgnoresCase", {{"-r", "Service", "-a", "LocalSystem"}}, "", S_OK, 0, "",
     "Creating regvalues for ServiceParameters", Com::Service, kInstalled, true},
    {"ServiceTwiceStopsAtVss", {kService, kService}, "", S_OK, kVeto, "",
     "Verdane hardware provider is already registered", Com::Service, kInstalled, true},
    {"ExeAfterServiceDeletesTheService", {kService, {"-r", "exe"}}, "", S_OK, kVeto, "",
     "RegisterVss FAILED [hr=0x80042303]", Com::ExeAfterService, "", true},
    {"Exe", {{"-r", "exe"}}, "", S_OK, 0, "", "Reg exe", Com::Exe, "", true},
    {"PasswordWithoutAccount", {{"-r", "service", "-p", "secret"}}, "", S_OK, kVeto,
     "[Register Server] Parsing error: need to specify -a <account> and -p <password>\n\n", "", Com::None, "", false},
    {"RegisterModeWithoutValue", {{"-r"}}, "", S_OK, kVeto, "", kParseError, Com::None, "", false},
    {"UnknownSwitch", {{"-x"}}, "", S_OK, kVeto, "", kParseError, Com::None, "", false},
    {"SwitchNamesAreCaseSensitive", {{"-R", "exe"}}, "", S_OK, kVeto, "", kParseError, Com::None, "", false},
    {"UnknownRegisterMode", {{"-r", "all"}}, "", S_OK, kVeto,
     "[Register Server] Parsing error: -r (exe|service)\n\n", "", Com::None, "", false},
    {"SlashUAfterAPlainWord", {kService, {"word", "/u"}}, "", S_OK, 0, "", "Unreg", Com::None, "", false},
    {"OutOfMemoryKeepsItsCode", {{"-u"}}, "InitializeCriticalSectionAndSpinCount=14", S_OK, 0x8007000E, "",
     "_Module.Init FAILED", Com::None, "", false},
    {"CoordinatorCannotBeCreated", {kService}, "CoCreateInstance=0x80040154", S_OK, kVeto,
     "CoCreateInstance FAILED [hr=80040154]\n", "RegisterVss FAILED [hr=0x80040154]", Com::None, "", false},
    {"RegisterProviderFails", {kService}, "", E_ACCESSDENIED, kVeto, "",
     "RegisterProvider FAILED [hr=80070005]", Com::None, "", false},
    {"AccountThatDoesNotExist", {{"-r", "service", "-a", "Nobody"}}, "", S_OK, 0,
     "[Orvhwsvc] Couldn't create service\n", "CreateService FAILED [dwError=0x00000421]", Com::Service, "", true},
    {"ManagerCannotBeOpened", {kService}, "OpenSCManagerW=5", S_OK, 0, "[Orvhwsvc] Couldn't open service manager\n",
     "OpenSCManager FAILED [dwError=0x00000005]", Com::Service, "", true},
    {"DescriptionCannotBeSet", {kService}, "ChangeServiceConfig2W=5", S_OK, 0, "",
     "ChangeServiceConfig2 FAILED [dwError=0x00000005]", Com::Service, kNoDescription, true},
    {"ManagerCannotBeOpenedToDelete", {kService, {"-u"}}, "OpenSCManagerW=5,2", S_OK, 0,
     "[Orvhwsvc] Couldn't open service manager\n", "OpenSCManager FAILED [dwError=0x00000005]", Com::None, kInstalled, false},
    {"ServiceCannotBeOpenedToDelete", {kService, {"-u"}}, "OpenServiceW=5,2", S_OK, 0,
     "[Orvhwsvc] Couldn't open service\n", "OpenService FAILED [dwError=0x00000005]", Com::None, kInstalled, false},
    {"ServiceCannotBeDeleted", {kService, {"-u"}}, "DeleteService=5", S_OK, 0,
     "[Orvhwsvc] Service could not be deleted\n", "DeleteService FAILED [dwError=0x00000005]", Com::None, kInstalled, false},
};
// clang-format on

class OrvprovTest : public orvtest::PalTest, public ::testing::WithParamInterface<Row>
{
protected:
    void SetUp() override
    {
        PalTest::SetUp();
        m_dir = MakeDir("Program Files") / "Orvane";
        std::filesystem::create_directories(m_dir);
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
        for (std::string key :
             {std::string("AppID\\") + kAppId, std::string("AppID\\orvprov.EXE"),
              std::string("CLSID\\") + kClsid, std::string("Orvprov.OrvaneHardwareProvider"),
              std::string("Orvprov.OrvaneHardwareProvider.1"), std::string("TypeLib\\") + kLibId})
            DumpKey(HKEY_CLASSES_ROOT, key, &text);
        return text;
    }

    std::string Service() const
    {
        SC_HANDLE hManager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
        SC_HANDLE hService = OpenServiceW(hManager, W("Orvhwsvc"), SERVICE_QUERY_CONFIG);
        std::string text;
        alignas(8) BYTE config[8192];
        alignas(8) BYTE description[1024];
        DWORD cb = 0;
        if (hService &&
            QueryServiceConfigW(hService, reinterpret_cast<QUERY_SERVICE_CONFIGW*>(config),
                                sizeof(config), &cb) &&
            QueryServiceConfig2W(hService, SERVICE_CONFIG_DESCRIPTION, description,
                                 sizeof(description), &cb)) {
            auto* p = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(config);
            LPWSTR pszDescription =
                reinterpret_cast<SERVICE_DESCRIPTIONW*>(description)->lpDescription;
            text = "type=" + std::to_string(p->dwServiceType) +
                   " start=" + std::to_string(p->dwStartType) +
                   " error=" + std::to_string(p->dwErrorControl) +
                   " deps=" + orvtest::Narrow(p->lpDependencies) +
                   " account=" + orvtest::Narrow(p->lpServiceStartName) +
                   " display=" + orvtest::Narrow(p->lpDisplayName) +
                   " description=" + (pszDescription ? orvtest::Narrow(pszDescription) : "");
            EXPECT_EQ(m_exe.string(), orvtest::Narrow(p->lpBinaryPathName));
        }
        if (hService)
            CloseServiceHandle(hService);
        if (hManager)
            CloseServiceHandle(hManager);
        return text;
    }

    // The files of the log are UTF-16 with a few narrow lines; the rows look for ASCII text.
    std::string Trace() const
    {
        std::string text;
        for (const auto& entry : std::filesystem::directory_iterator(m_dir)) {
            if (entry.path().extension() != ".log")
                continue;
            std::ifstream file(entry.path(), std::ios::binary);
            text.append(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
        }
        std::erase(text, '\0');
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
        EXPECT_NE(std::string::npos, Trace().find(row.trace)) << Trace();
    }
    EXPECT_EQ(ExpectedCom(row.com, m_exe.string(), m_dir.string()), Com());
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
    const DWORD dwPid = status.dwProcessId;
    SERVICE_STATUS stopped = {};
    EXPECT_TRUE(ControlService(hService, SERVICE_CONTROL_STOP, &stopped)) << GetLastError();
    ASSERT_TRUE(orvtest::WaitUntil([&] { return state() == SERVICE_STOPPED; }));
    EXPECT_EQ(0u, status.dwWin32ExitCode);
    HANDLE hProcess = OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, dwPid);
    DWORD dwCode = STILL_ACTIVE;
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hProcess, 20000));
    EXPECT_TRUE(GetExitCodeProcess(hProcess, &dwCode));
    EXPECT_EQ(0u, dwCode);
    CloseHandle(hProcess);
    CloseServiceHandle(hService);
    CloseServiceHandle(hManager);
}

INSTANTIATE_TEST_SUITE_P(Rows, OrvprovTest, ::testing::ValuesIn(kRows),
                         [](const auto& info) { return std::string(info.param.name); });

} // namespace
