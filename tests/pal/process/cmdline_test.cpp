// Command line splitting by shell32's rules, and the process's command line.
#include "pal/errhandlingapi.h"
#include "pal/processthreadsapi.h"
#include "pal/shellapi.h"
#include "pal/winbase.h"
#include "tests/pal/registry/registry_testing.h"

#include <fstream>
#include <vector>

namespace {

using CmdLineTest = orvtest::PalTest;
using Args = std::vector<std::u16string>;

// Splits `line` and frees the block, checking that it is one LocalAlloc block whose pointer
// array ends with a null.
Args Split(LPCWSTR line)
{
    int argc = -1;
    LPWSTR* argv = CommandLineToArgvW(line, &argc);
    EXPECT_NE(nullptr, argv);
    if (argv == nullptr)
        return {};
    Args args(argv, argv + argc);
    EXPECT_EQ(nullptr, argv[argc]);
    EXPECT_EQ(nullptr, LocalFree(argv));
    return args;
}

TEST_F(CmdLineTest, SplitsByShell32Rules)
{
    // The first argument is the program name, with rules of its own; every case but those
    // about it starts with "prog".
    const struct
    {
        const char16_t* line;
        Args args;
    } cases[] = {
        // The documented examples.
        {uR"(prog "a b c" d e)", {u"prog", u"a b c", u"d", u"e"}},
        {uR"(prog "ab\"c" "\\" d)", {u"prog", uR"(ab"c)", uR"(\)", u"d"}},
        {uR"(prog a\\\b d"e f"g h)", {u"prog", uR"(a\\\b)", u"de fg", u"h"}},
        {uR"(prog a\\\"b c d)", {u"prog", uR"(a\"b)", u"c", u"d"}},
        {uR"(prog a\\\\"b c" d e)", {u"prog", uR"(a\\b c)", u"d", u"e"}},
        // Empty quoted arguments count.
        {uR"(prog "" x "")", {u"prog", u"", u"x", u""}},
        // Trailing backslashes are literal unless a quote follows.
        {uR"(prog a\ b\\)", {u"prog", uR"(a\)", uR"(b\\)"}},
        {uR"(prog "C:\dir\\" x)", {u"prog", uR"(C:\dir\)", u"x"}},
        {uR"(prog "C:\dir\" x)", {u"prog", uR"(C:\dir" x)"}},
        {uR"(prog \\server\share\)", {u"prog", uR"(\\server\share\)"}},
        // "" inside quotes gives a literal quote and ends the quoted part; """ outside gives one.
        {uR"(prog "a ""b"" c")", {u"prog", uR"(a "b)", u"c"}},
        {uR"(prog """a""")", {u"prog", uR"("a")"}},
        {uR"(prog a"b"" c d)", {u"prog", uR"(ab")", u"c", u"d"}},
        // The fourth quote of a run opens quoting again.
        {uR"(prog """" x)", {u"prog", uR"(" x)"}},
        {uR"(prog """""" x)", {u"prog", uR"("")", u"x"}},
        // Quotes join pieces into one argument; an unclosed quote runs to the end.
        {uR"(prog ab"c d"ef)", {u"prog", u"abc def"}},
        {uR"(prog "a b)", {u"prog", u"a b"}},
        // Spaces and tabs separate; runs of them and trailing ones do not make arguments.
        {u"prog\ta \t b  ", {u"prog", u"a", u"b"}},
        {u"prog", {u"prog"}},
        // The program name: quoted it runs to the next quote, else to the next blank; no
        // backslash rules apply to it.
        {uR"("C:\Program Files\app.exe" -x)", {uR"(C:\Program Files\app.exe)", u"-x"}},
        {uR"(C:\dir\"odd" a)", {uR"(C:\dir\"odd")", u"a"}},
        {uR"("C:\a\"b c)", {uR"(C:\a\)", u"b", u"c"}},
        {uR"("prog"x y)", {u"prog", u"x", u"y"}},
        {uR"("" a)", {u"", u"a"}},
        {uR"("unclosed name)", {u"unclosed name"}},
        {u" a b", {u"", u"a", u"b"}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.args, Split(c.line)) << orvtest::Narrow(c.line);
}

TEST_F(CmdLineTest, EmptyLineNullCountAndAllocationFailure)
{
    // An empty line gives the executable's path.
    pal::SetModuleFileNameForTest(W("C:\\Program Files\\Orv\\orvprov.exe"));
    EXPECT_EQ(Args{u"C:\\Program Files\\Orv\\orvprov.exe"}, Split(W("")));
    EXPECT_EQ(Args{u"C:\\Program Files\\Orv\\orvprov.exe"}, Split(nullptr));

    EXPECT_CALL_ERROR(nullptr, ERROR_INVALID_PARAMETER, CommandLineToArgvW(W("prog a"), nullptr));

    pal::InjectFault("LocalAlloc", ERROR_NOT_ENOUGH_MEMORY);
    int argc = -1;
    EXPECT_CALL_ERROR(nullptr, ERROR_NOT_ENOUGH_MEMORY, CommandLineToArgvW(W("prog a b"), &argc));
    EXPECT_EQ(-1, argc);
}

TEST_F(CmdLineTest, OverrideIsReportedThroughAStablePointer)
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
TEST_F(CmdLineTest, RealCommandLineSplitsBackIntoTheProcessArguments)
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

TEST_F(CmdLineTest, AwkwardArgumentsRoundTripInAChildProcess)
{
    std::vector<std::string> args =
        orvtest::registry::SelfArgs("CmdLineTest.RealCommandLineSplitsBackIntoTheProcessArguments");
    args.insert(args.end(),
                {"plain", "with space", "", "tab\there", R"(quote"inside)", R"(trailing\)",
                 R"(trailing two\\)", R"(back\\"slash quote)", R"(\\server\share\)", R"(")",
                 R"(a""b)", R"("already quoted")", "caf\xC3\xA9"});
    auto result = orvtest::registry::RunProcess(args);
    EXPECT_EQ(0, result.exitCode) << result.out << result.err;
    EXPECT_NE(std::string::npos, result.out.find("[  PASSED  ] 1 test")) << result.out;
}

} // namespace
