// The provider's command line against its six-switch table: what each command line sets, and
// the exit code rule, in the cases that the program's own runs (orvprov_test.cpp) do not show.
#include "host/cmdline.h"
#include "pal/winerror.h"
#include "tests/support/checks.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using orvtest::Narrow;
using orvtest::Wide;
using orvtest::WString;

// What the table's targets hold after a parse, as text: r, service, exe, u, a, p, extras.
std::string Parse(const std::vector<std::string>& args, bool* pfParsed)
{
    std::vector<WString> text{Wide("orvprov.exe")};
    for (const auto& arg : args)
        text.push_back(Wide(arg));
    std::vector<LPWSTR> argv;
    for (auto& arg : text)
        argv.push_back(arg.data());

    LPWSTR pszMode = nullptr;
    BOOL fService = 0, fExe = 0, fUnregister = 0;
    LPWSTR pszAccount = nullptr;
    WCHAR szEmpty[] = W("");
    LPWSTR pszPassword = szEmpty;
    const SWITCH_ENTRY table[] = {
        {W("r"), TRUE, &pszMode},    {W("service"), FALSE, &fService},
        {W("exe"), FALSE, &fExe},    {W("u"), FALSE, &fUnregister},
        {W("a"), TRUE, &pszAccount}, {W("p"), TRUE, &pszPassword},
    };
    LPWSTR* ppExtra = nullptr;
    int cExtra = -1;
    *pfParsed = ParseArgs(static_cast<int>(argv.size()), argv.data(), table, 6, &ppExtra, &cExtra);
    std::unique_ptr<LPWSTR[]> extra(ppExtra);
    auto show = [](LPWSTR psz) { return psz ? "'" + Narrow(psz) + "'" : std::string("null"); };
    std::string result = "r=" + show(pszMode) + " service=" + std::to_string(fService) +
                         " exe=" + std::to_string(fExe) + " u=" + std::to_string(fUnregister) +
                         " a=" + show(pszAccount) + " p=" + show(pszPassword) +
                         " extra=" + std::to_string(cExtra);
    for (int i = 0; i < cExtra; ++i)
        result += " " + show(ppExtra[i]);
    return result;
}

TEST(CmdLineTest, SwitchesSetTheirTargets)
{
    const struct
    {
        std::vector<std::string> args;
        bool fParsed;
        const char* targets; // up to the failing switch when parsing fails
    } rows[] = {
        {{}, true, "r=null service=0 exe=0 u=0 a=null p='' extra=0"},
        {{"-exe"}, true, "r=null service=0 exe=1 u=0 a=null p='' extra=0"},
        {{"word", "-u", "more"},
         true,
         "r=null service=0 exe=0 u=1 a=null p='' extra=2 'word' 'more'"},
        // A value is the next argument whatever it looks like; a later one replaces an earlier.
        {{"-a", "-p", "-r", "a", "-r", "exe"},
         true,
         "r='exe' service=0 exe=0 u=0 a='-p' p='' extra=0"},
        {{"--r", "exe"}, false, "r=null service=0 exe=0 u=0 a=null p='' extra=0"},
        {{"-rexe"}, false, "r=null service=0 exe=0 u=0 a=null p='' extra=0"},
        {{"-u", "-Embedding"}, false, "r=null service=0 exe=0 u=1 a=null p='' extra=0"},
    };
    for (const auto& row : rows) {
        bool fParsed = !row.fParsed;
        std::string targets = Parse(row.args, &fParsed);
        EXPECT_EQ(row.fParsed, fParsed) << row.targets;
        EXPECT_EQ(row.targets, targets);
    }
}

TEST(CmdLineTest, ExitCodesAreSuccessOutOfMemoryOrVeto)
{
    const struct
    {
        HRESULT hr;
        HRESULT hrExit;
    } rows[] = {
        {S_FALSE, S_FALSE},
        {E_FAIL, VSS_E_PROVIDER_VETO},
        {HRESULT(0x80070008), VSS_E_PROVIDER_VETO},
        {HRESULT(0xC004030B), VSS_E_PROVIDER_VETO},
    };
    for (const auto& row : rows)
        EXPECT_HR(row.hrExit, MapExitCode(row.hr));
}

} // namespace
