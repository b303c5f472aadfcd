// `orvsim diskshadow`: its banner, how scripts and typed commands run, its syntax and what it
// answers when the engine refuses, on machines without a provider.
#include "sim/storage/storagesim.h"
#include "tests/pal/registry/registry_testing.h"

#include "pal/paleventlog.h"

#include <fstream>
#include <regex>

namespace {

using orvtest::registry::ProcessResult;

using OrvsimDiskshadowTest = orvtest::PalTest;

const std::string kSyntax = "The syntax of the command is incorrect: ";
const std::string kNoneListed = "\nQuerying all shadow copies on the computer ...\n\n"
                                "Number of shadow copies listed: 0\n";

TEST_F(OrvsimDiskshadowTest, RunsScriptsAndTypedCommandsAsDiskshadow)
{
    const std::string kSystem = "\n\t* ProviderID: {b5946137-7b9f-4925-af80-51abd60b20d5}\n"
                                "\t\tType: [1] VSS_PROV_SYSTEM\n"
                                "\t\tName: Microsoft Software Shadow Copy provider 1.0\n"
                                "\t\tVersion: 1.0.0.7\n"
                                "\t\tCLSID: {65ee1dba-8ff4-4a58-ac1c-3470ee2f376a}\n\n"
                                "Number of providers registered: 1\n";
    // Each row on a machine of its own (with the default storage topology when fStorage); a
    // script's lines are echoed after "-> ", typed ones (no script) follow the prompt.
    const struct
    {
        const char* what;
        bool fScript;
        bool fStorage;
        std::string input;
        int exitCode;
        std::string out; // after the banner
    } rows[] = {
        {"settings", true, false,
         "# a comment\nset context persistent nowriters\nset option transportable noautorecover"
         "\n\nset metadata C:\\meta.cab\nset verbose on\nbegin backup\nend backup\nreset\nexit\n"
         "list providers\n",
         0,
         "-> # a comment\n-> set context persistent nowriters\n-> set option transportable "
         "noautorecover\n-> set metadata C:\\meta.cab\n-> set verbose on\n-> begin backup\n"
         "-> end backup\n-> reset\n-> exit\n"},
        {"lists", true, false, "list shadows all\nlist providers\n", 0,
         "-> list shadows all\n" + kNoneListed + "-> list providers\n" + kSystem},
        {"typed", false, false, "list shadows all\r\nfrobnicate\nexit\n", 1,
         "DISKSHADOW> " + kNoneListed + "DISKSHADOW> Unrecognized command: \"frobnicate\".\n" +
             "DISKSHADOW> \n"},
        {"unknown stops the script", true, false, "frobnicate now\nlist providers\n", 1,
         "-> frobnicate now\nUnrecognized command: \"frobnicate\".\n"},
        {"context", true, false, "set context sometimes\n", 1,
         "-> set context sometimes\n" + kSyntax + "\"set context sometimes\".\n"},
        {"option", true, false, "set option differential\n", 1,
         "-> set option differential\n" + kSyntax + "\"set option differential\".\n"},
        {"volume", true, false, "add volume E:\\data alias d\n", 1,
         "-> add volume E:\\data alias d\n" + kSyntax + "\"add volume E:\\data\".\n"},
        {"id", true, false, "delete shadows id $nothing\n", 1,
         "-> delete shadows id $nothing\n" + kSyntax + "\"delete shadows id\".\n"},
        {"unknown copy", true, true, "expose {6a06b0b5-00e8-44b1-99f0-55fe420b2277} F:\n", 1,
         "-> expose {6a06b0b5-00e8-44b1-99f0-55fe420b2277} F:\nThe last operation failed.\n"
         "\t- Returned HRESULT: 80042308\n\t- Error text: VSS_E_OBJECT_NOT_FOUND\n"},
        {"expose as", true, false, "expose {6a06b0b5-00e8-44b1-99f0-55fe420b2277} C:\\x\n", 1,
         "-> expose {6a06b0b5-00e8-44b1-99f0-55fe420b2277} C:\\x\n" + kSyntax +
             "\"expose {6a06b0b5-00e8-44b1-99f0-55fe420b2277} C:\\x\".\n"},
        {"no provider", true, true, "add volume k:\ncreate\n", 1,
         "-> add volume k:\n-> create\nThe last operation failed.\n"
         "\t- Returned HRESULT: 8004230c\n\t- Error text: VSS_E_VOLUME_NOT_SUPPORTED\n"},
        {"no volume", true, true, "add volume Z:\ncreate\n", 1,
         "-> add volume Z:\n-> create\nThe last operation failed.\n"
         "\t- Returned HRESULT: 80042308\n\t- Error text: VSS_E_OBJECT_NOT_FOUND\n"},
    };
    const std::regex banner("Microsoft DiskShadow version 1\\.0\nCopyright \\(C\\) 2013 Microsoft "
                            "Corporation\nOn computer:  " +
                            pal::Utf16ToUtf8(pal::EventLogComputerName()) +
                            ",  \\d{1,2}/\\d{1,2}/\\d{4} \\d{1,2}:\\d\\d:\\d\\d [AP]M\n\n");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        std::filesystem::path root = MakeDir(row.what);
        setenv("ORVSIM_ROOT", root.c_str(), 1);
        if (row.fStorage) {
            ASSERT_HR(S_OK, storagesim::InitializeState("", ""));
        }
        std::vector<std::string> args{"diskshadow"};
        if (row.fScript) {
            std::ofstream(root / "script.dsh") << row.input;
            args.insert(args.end(), {"/s", (root / "script.dsh").string()});
        }
        ProcessResult r =
            orvtest::registry::RunOrvsim(root, args, row.fScript ? std::string() : row.input);
        EXPECT_EQ(row.exitCode, r.exitCode);
        std::smatch match;
        ASSERT_TRUE(std::regex_search(r.out, match, banner)) << r.out;
        EXPECT_EQ(0, match.position());
        EXPECT_EQ(row.out, match.suffix().str());
        EXPECT_EQ("", r.err);
    }
}

TEST_F(OrvsimDiskshadowTest, RefusesArgumentsItDoesNotTake)
{
    ProcessResult r = orvtest::registry::RunOrvsim(Root(), {"diskshadow", "/s", "missing.dsh"});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_EQ("", r.out);
    EXPECT_EQ("ERROR: The script file missing.dsh cannot be opened.\n", r.err);
    r = orvtest::registry::RunOrvsim(Root(), {"diskshadow", "-l", "log.txt"});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_EQ("ERROR: diskshadow takes -s SCRIPT or nothing (see orvsim diskshadow --help)\n",
              r.err);
}

} // namespace
