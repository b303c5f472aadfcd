// The process's command line, and the splitting of an empty one; the splitting rules are
// in conformance/cmdline_test.cpp.
#include "pal/errhandlingapi.h"
#include "pal/processthreadsapi.h"
#include "tests/pal/process/cmdline_testing.h"
#include "tests/pal/registry/registry_testing.h"

#include <fstream>

namespace {

using ProcessCmdLineTest = orvtest::PalTest;
using orvtest::process::Args;
using orvtest::process::Split;

TEST_F(ProcessCmdLineTest, EmptyLineAndAllocationFailure)
{
    // An empty line gives the executable's path.
    pal::SetModuleFileNameForTest(W("C:\\Program Files\\Orv\\orvprov.exe"));
    EXPECT_EQ(Args{u"C:\\Program Files\\Orv\\orvprov.exe"}, Split(W("")));
    EXPECT_EQ(Args{u"C:\\Program Files\\Orv\\orvprov.exe"}, Split(nullptr));

    pal::InjectFault("LocalAlloc", ERROR_NOT_ENOUGH_MEMORY);
    int argc = -1;
    EXPECT_CALL_ERROR(nullptr, ERROR_NOT_ENOUGH_MEMORY, CommandLineToArgvW(W("prog a b"), &argc));
    EXPECT_EQ(-1, argc);
}

TEST_F(ProcessCmdLineTest, OverrideIsReportedThroughAStablePointer)
{
    pal::SetCommandLineForTest(W("orvprov.exe -service \"a b\""));
    LPWSTR first = GetCommandLineW();
    EXPECT_EQ(first, GetCommandLineW());
    EXPECT_EQ((Args{u"orvprov.exe", u"-service", u"a b"}), Split(first));

    pal::SetCommandLineForTest(W("other.exe"));
    LPWSTR second = GetCommandLineW();
    EXPECT_EQ(u"other.exe", std::u16string(second));
    EXPECT_EQ(second, GetCommandLineW());
}

// Runs in every test process, and in the child of the test below with awkward arguments.
TEST_F(ProcessCmdLineTest, RealCommandLineSplitsBackIntoTheProcessArguments)
{
    pal::SetCommandLineForTest(nullptr);
    LPWSTR line = GetCommandLineW();
    ASSERT_NE(nullptr, line);
    EXPECT_EQ(line, GetCommandLineW());
    std::ifstream file("/proc/self/cmdline", std::ios::binary);
    Args expected;
    for (std::string arg; std::getline(file, arg, '\0');)
        expected.push_back(orvtest::Wide(arg));
    EXPECT_EQ(expected, Split(line)) << orvtest::Narrow(line);
}

TEST_F(ProcessCmdLineTest, AwkwardArgumentsRoundTripInAChildProcess)
{
    std::vector<std::string> args = orvtest::registry::SelfArgs(
        "ProcessCmdLineTest.RealCommandLineSplitsBackIntoTheProcessArguments");
    args.insert(args.end(),
                {"plain", "with space", "", "tab\there", R"(quote"inside)", R"(trailing\)",
                 R"(trailing two\\)", R"(back\\"slash quote)", R"(\\server\share\)", R"(")",
                 R"(a""b)", R"("already quoted")", "caf\xC3\xA9"});
    auto result = orvtest::registry::RunProcess(args);
    EXPECT_EQ(0, result.exitCode) << result.out << result.err;
    EXPECT_NE(std::string::npos, result.out.find("[  PASSED  ] 1 test")) << result.out;
}

} // namespace
