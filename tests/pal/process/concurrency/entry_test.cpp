// Programs whose entry is wWinMain (program/winmainprog.cpp) run as processes of the machine:
// what the entry hands wWinMain, the hooks around it, and the full 32-bit exit code read back
// through OpenProcess and GetExitCodeProcess after the host kept only its low byte. A wait on a
// process is woken by its end in the provider program's service test (host/orvprov_test.cpp).
#include "pal/handleapi.h"
#include "pal/processthreadsapi.h"
#include "tests/pal/registry/registry_testing.h"

#include <filesystem>

namespace {

using ProcessEntryTest = orvtest::PalTest;

TEST_F(ProcessEntryTest, KeepsTheFullExitCodeOfEachWayOfEnding)
{
    // A program path with a blank is quoted in the command line; the tail starts after it.
    const std::string plain = ORV_WINMAINPROG_EXE;
    const std::string blank = (MakeDir("program files") / "winmainprog").string();
    std::filesystem::copy_file(plain, blank);
    const struct
    {
        std::string program;
        std::vector<std::string> args;
        std::string tail; // the arguments as the command line holds them
        int status;       // what the host saw; -1 for a signal
        DWORD dwCode;
    } rows[] = {
        {blank, {"0x80042306"}, "0x80042306", 0x06, 0x80042306},
        {plain, {"0x8007000E", "exit"}, "0x8007000E exit", 0x0E, 0x8007000E},
        {plain, {"0", "a b", "c\"d"}, R"(0 "a b" "c\"d")", 0, 0},
        {blank, {"0x80042306", "kill"}, "0x80042306 kill", -1, 1},
    };
    for (const auto& row : rows) {
        std::string program = row.program == blank ? "\"" + blank + "\"" : plain;
        std::string line = program + " " + row.tail;
        SCOPED_TRACE(line);
        std::vector<std::string> argv{row.program};
        argv.insert(argv.end(), row.args.begin(), row.args.end());
        orvtest::registry::ChildProcess child(argv, {});
        orvtest::registry::ProcessResult result = child.Wait();
        EXPECT_EQ(row.status, result.exitCode);
        EXPECT_EQ("start hook recorded\nline=[" + line + "]\ntail=[" + row.tail + "] at " +
                      std::to_string(program.size() + 1) + " show 10 module yes\n" +
                      (row.status >= 0 ? "exit hook\n" : ""),
                  result.out);

        HANDLE h = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, DWORD(child.Pid()));
        DWORD dwCode = 0;
        EXPECT_TRUE(GetExitCodeProcess(h, &dwCode)) << GetLastError();
        EXPECT_EQ(row.dwCode, dwCode);
        pal::ProcessRecord record;
        EXPECT_EQ(DWORD(ERROR_SUCCESS), pal::ReadProcessRecord(h, &record));
        EXPECT_TRUE(CloseHandle(h));
        EXPECT_EQ(row.program, pal::Utf16ToUtf8(record.imagePath));
        EXPECT_EQ(line, pal::Utf16ToUtf8(record.commandLine));
        EXPECT_EQ((std::tuple{false, row.status >= 0, row.dwCode}),
                  (std::tuple{record.fRunning, record.fExitRecorded, record.dwExitCode}));
        EXPECT_LE(record.ullStartTime, row.status >= 0 ? record.ullEndTime : ~0ull);
    }
}

} // namespace
