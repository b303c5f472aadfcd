// `orvsim run` and `orvsim tasklist`: the full exit code of a program of the machine, the low
// byte the host sees, and the table of the processes with their codes.
#include "tests/pal/registry/registry_testing.h"

#include <cstdio>
#include <tuple>

namespace {

using orvtest::registry::ProcessResult;
using orvtest::registry::RunOrvsim;

using OrvsimRunTest = orvtest::PalTest;

std::tuple<int, std::string, std::string> Fields(const ProcessResult& r)
{
    return {r.exitCode, r.out, r.err};
}

TEST_F(OrvsimRunTest, PrintsTheFullExitCodeAndListsTheProcesses)
{
    const std::string program = ORV_WINMAINPROG_EXE;
    const struct
    {
        std::vector<std::string> args;
        const char* code; // as the tool's last line shows it
        int status;
    } rows[] = {
        // The other ways of ending are the entry's own tests.
        {{program, "0x80042306"}, "0x80042306 (-2147212538)", 0x06},
        // Without the Windows entry the host's status is all there is.
        {{"/bin/sh", "-c", "exit 3"}, "0x00000003 (3)", 3},
    };
    for (const auto& row : rows) {
        std::string tail;
        for (size_t i = 1; i < row.args.size(); ++i)
            tail += (i > 1 ? " " : "") + row.args[i];
        SCOPED_TRACE(tail);
        // What the program itself prints first (see program/winmainprog.cpp).
        std::string out = row.args[0] != program
                              ? ""
                              : "start hook recorded\nline=[" + program + " " + tail + "]\ntail=[" +
                                    tail + "] at " + std::to_string(program.size() + 1) +
                                    " show 10 module yes\nexit hook\n";
        std::vector<std::string> args{"run"};
        args.insert(args.end(), row.args.begin(), row.args.end());
        EXPECT_EQ(Fields({row.status, out + "Exit code: " + row.code + "\n", ""}),
                  Fields(RunOrvsim(Root(), args)));
    }
    EXPECT_EQ(Fields({1, "", "ERROR: /none cannot be started: No such file or directory.\n"}),
              Fields(RunOrvsim(Root(), {"run", "/none"})));

    std::vector<pal::ProcessRecord> records;
    ASSERT_EQ(DWORD(ERROR_SUCCESS), pal::ReadProcessTable(&records));
    ASSERT_EQ(1u, records.size());
    std::string table = "\nImage Name                     PID Status       Exit Code\n"
                        "========================= ======== ============ ==========\n";
    char line[128];
    std::snprintf(line, sizeof(line), "orv_winmainprog           %8u Exited       0x80042306\n",
                  records[0].dwProcessId);
    table += line;
    EXPECT_EQ(Fields({0, table, ""}), Fields(RunOrvsim(Root(), {"tasklist", "--exited"})));
}

} // namespace
