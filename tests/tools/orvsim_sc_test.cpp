// `orvsim sc`: sc.exe's output and failure lines, for a service that the tool creates, starts
// and controls from processes of its own while this process watches through the API.
#include "pal/winsvc.h"
#include "tests/pal/registry/registry_testing.h"

#include <regex>
#include <sstream>
#include <string>

namespace {

using orvtest::registry::ProcessResult;

const std::string kStopped = "\nSERVICE_NAME: OrvTool\n"
                             "        TYPE               : 10  WIN32_OWN_PROCESS  \n"
                             "        STATE              : 1  STOPPED \n"
                             "        WIN32_EXIT_CODE    : 1077  (0x435)\n"
                             "        SERVICE_EXIT_CODE  : 0  (0x0)\n"
                             "        CHECKPOINT         : 0x0\n"
                             "        WAIT_HINT          : 0x0\n";

class OrvsimScTest : public orvtest::PalTest
{
protected:
    ProcessResult Run(std::vector<std::string> args)
    {
        ProcessResult r = orvtest::registry::RunOrvsim(Root(), args);
        r.out = std::regex_replace(r.out, std::regex("PID                : [1-9][0-9]*"),
                                   "PID                : N");
        return r;
    }
};

// Each row runs in turn on the same machine: exact standard output and exit code (sc.exe's
// codes, of which a process exit keeps the low byte).
TEST_F(OrvsimScTest, CommandsPrintWhatScPrints)
{
    const std::string image = std::string(ORVSIM_TESTSERVICE_EXE) + " --tool";
    const struct
    {
        std::vector<std::string> args;
        std::string out;
        int code;
    } steps[] = {
        {{"sc", "create", "OrvTool", "binPath=", image, "DisplayName=", "Orv Tool",
          "depend=", "RpcSs/Tcpip", "obj=", ".\\User", "password=", "Orvsim-User1"},
         "[SC] CreateService SUCCESS\n",
         0},
        {{"sc", "qc", "OrvTool"},
         "[SC] QueryServiceConfig SUCCESS\n\nSERVICE_NAME: OrvTool\n"
         "        TYPE               : 10  WIN32_OWN_PROCESS \n"
         "        START_TYPE         : 3   DEMAND_START\n"
         "        ERROR_CONTROL      : 1   NORMAL\n"
         "        BINARY_PATH_NAME   : " +
             image +
             "\n        LOAD_ORDER_GROUP   : \n"
             "        TAG                : 0\n"
             "        DISPLAY_NAME       : Orv Tool\n"
             "        DEPENDENCIES       : RpcSs\n"
             "                           : Tcpip\n"
             "        SERVICE_START_NAME : .\\User\n",
         0},
        {{"sc", "query", "OrvTool"}, kStopped, 0},
        {{"sc", "description", "OrvTool", "Runs the tool's test."},
         "[SC] ChangeServiceConfig2 SUCCESS\n",
         0},
        {{"sc", "qdescription", "OrvTool"},
         "[SC] QueryServiceConfig2 SUCCESS\n\nSERVICE_NAME: OrvTool\n"
         "DESCRIPTION:  Runs the tool's test.\n",
         0},
        {{"sc", "query", "Nothing"},
         "[SC] EnumQueryServicesStatus:OpenService FAILED 1060:\n\n"
         "The specified service does not exist as an installed service.\n\n",
         1060 & 0xFF},
        {{"sc", "create", "orvtool", "binPath=", "/bin/true"},
         "[SC] CreateService FAILED 1073:\n\nThe specified service already exists.\n\n",
         1073 & 0xFF},
        {{"--as", "User", "sc", "stop", "OrvTool"},
         "[SC] OpenService FAILED 5:\n\nAccess is denied.\n\n",
         5},
        {{"sc", "delete", "OrvTool"}, "[SC] DeleteService SUCCESS\n", 0},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.args[1] + " " + step.args[2]);
        if (step.args[0] == "--as") {
            // The start, between the rows: the service may have reported already.
            ProcessResult r = Run({"sc", "start", "OrvTool", "one"});
            EXPECT_EQ(0, r.exitCode) << r.out;
            EXPECT_TRUE(std::regex_match(
                r.out, std::regex("\nSERVICE_NAME: OrvTool\n"
                                  "        TYPE               : 10  WIN32_OWN_PROCESS  \n"
                                  "        STATE              : (2  START_PENDING|4  RUNNING) \n"
                                  "[^]*        PID                : N\n"
                                  "        FLAGS              : \n")))
                << r.out;
        }
        ProcessResult r = Run(step.args);
        EXPECT_EQ(step.out, r.out);
        EXPECT_EQ(step.code, r.exitCode) << r.err;
    }

    // The tool's stop reaches the service its start left running; this process sees it stop.
    SC_HANDLE hManager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    SC_HANDLE hService = OpenServiceW(hManager, W("OrvTool"), SERVICE_QUERY_STATUS);
    ASSERT_NE(nullptr, hService) << "a deleted service stays while it runs";
    ProcessResult r = Run({"sc", "stop", "OrvTool"});
    EXPECT_EQ(0, r.exitCode) << r.out;
    SERVICE_STATUS status{};
    EXPECT_TRUE(orvtest::WaitUntil([&] {
        return QueryServiceStatus(hService, &status) && status.dwCurrentState == SERVICE_STOPPED;
    }));
    CloseServiceHandle(hService);
    CloseServiceHandle(hManager);

    r = Run({"sc", "reports", "OrvTool"});
    static const std::regex line(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}  PID \d+  \S+ +)"
                                 R"(CHECKPOINT 0x[0-9a-f]+  WAIT_HINT 0x[0-9a-f]+  )"
                                 R"(WIN32_EXIT_CODE \d+  SERVICE_EXIT_CODE \d+  TICK \d+  )"
                                 R"(by (manager|service))");
    std::istringstream lines(r.out);
    int cLines = 0;
    for (std::string text; std::getline(lines, text); ++cLines)
        EXPECT_TRUE(std::regex_match(text, line)) << text;
    EXPECT_EQ(5, cLines) << r.out;
    EXPECT_EQ(r.out.find("STOPPED"), r.out.rfind("STOPPED")) << "one stop, the last report";
    EXPECT_EQ(DWORD(ERROR_SERVICE_DOES_NOT_EXIST) & 0xFF,
              DWORD(Run({"sc", "qc", "OrvTool"}).exitCode));
}

} // namespace
