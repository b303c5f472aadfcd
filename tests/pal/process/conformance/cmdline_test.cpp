// Command line splitting by shell32's rules.
#include "pal/errhandlingapi.h"
#include "tests/pal/process/cmdline_testing.h"
#include "tests/support/conformance.h"

namespace {

using CmdLineTest = orvtest::ConformanceTest;
using orvtest::process::Args;
using orvtest::process::Split;

TEST_F(CmdLineTest, SplitsByShell32Rules)
{
    // The first argument is the program name, with rules of its own; every case but those
    // about it starts with "prog".
    const struct
    {
        const WCHAR* line;
        Args args;
    } cases[] = {
        // The documented examples.
        {W(R"(prog "a b c" d e)"), {W("prog"), W("a b c"), W("d"), W("e")}},
        {W(R"(prog "ab\"c" "\\" d)"), {W("prog"), W(R"(ab"c)"), W(R"(\)"), W("d")}},
        {W(R"(prog a\\\b d"e f"g h)"), {W("prog"), W(R"(a\\\b)"), W("de fg"), W("h")}},
        {W(R"(prog a\\\"b c d)"), {W("prog"), W(R"(a\"b)"), W("c"), W("d")}},
        {W(R"(prog a\\\\"b c" d e)"), {W("prog"), W(R"(a\\b c)"), W("d"), W("e")}},
        // Empty quoted arguments count.
        {W(R"(prog "" x "")"), {W("prog"), W(""), W("x"), W("")}},
        // Trailing backslashes are literal unless a quote follows.
        {W(R"(prog a\ b\\)"), {W("prog"), W(R"(a\)"), W(R"(b\\)")}},
        {W(R"(prog "C:\dir\\" x)"), {W("prog"), W(R"(C:\dir\)"), W("x")}},
        {W(R"(prog "C:\dir\" x)"), {W("prog"), W(R"(C:\dir" x)")}},
        {W(R"(prog \\server\share\)"), {W("prog"), W(R"(\\server\share\)")}},
        // "" inside quotes gives a literal quote and ends the quoted part; """ outside gives one.
        {W(R"(prog "a ""b"" c")"), {W("prog"), W(R"(a "b)"), W("c")}},
        {W(R"(prog """a""")"), {W("prog"), W(R"("a")")}},
        {W(R"(prog a"b"" c d)"), {W("prog"), W(R"(ab")"), W("c"), W("d")}},
        // The fourth quote of a run opens quoting again.
        {W(R"(prog """" x)"), {W("prog"), W(R"(" x)")}},
        {W(R"(prog """""" x)"), {W("prog"), W(R"("")"), W("x")}},
        // Quotes join pieces into one argument; an unclosed quote runs to the end.
        {W(R"(prog ab"c d"ef)"), {W("prog"), W("abc def")}},
        {W(R"(prog "a b)"), {W("prog"), W("a b")}},
        // Spaces and tabs separate; runs of them and trailing ones do not make arguments.
        {W("prog\ta \t b  "), {W("prog"), W("a"), W("b")}},
        {W("prog"), {W("prog")}},
        // The program name: quoted it runs to the next quote, else to the next blank; no
        // backslash rules apply to it.
        {W(R"("C:\Program Files\app.exe" -x)"), {W(R"(C:\Program Files\app.exe)"), W("-x")}},
        {W(R"(C:\dir\"odd" a)"), {W(R"(C:\dir\"odd")"), W("a")}},
        {W(R"("C:\a\"b c)"), {W(R"(C:\a\)"), W("b"), W("c")}},
        {W(R"("prog"x y)"), {W("prog"), W("x"), W("y")}},
        {W(R"("" a)"), {W(""), W("a")}},
        {W(R"("unclosed name)"), {W("unclosed name")}},
        {W(" a b"), {W(""), W("a"), W("b")}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.args, Split(c.line)) << orvtest::Narrow(c.line);
}

TEST_F(CmdLineTest, NullCountIsRefused)
{
    EXPECT_CALL_ERROR(nullptr, ERROR_INVALID_PARAMETER, CommandLineToArgvW(W("prog a"), nullptr));
}

} // namespace
