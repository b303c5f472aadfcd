// `orvsim reg`: query, add and delete round trips, reg.exe's output format and its failures.
#include "tests/pal/registry/registry_testing.h"

#include <string>

namespace {

using orvtest::registry::ProcessResult;
using orvtest::registry::ScopedKey;

const char* const kNotFound =
    "ERROR: The system was unable to find the specified registry key or value.\n";
const char* const kDone = "The operation completed successfully.\n";

class OrvsimRegTest : public orvtest::PalTest
{
protected:
    ProcessResult Reg(const std::vector<std::string>& args, const std::string& input = {})
    {
        std::vector<std::string> all{"reg"};
        all.insert(all.end(), args.begin(), args.end());
        return orvtest::registry::RunOrvsim(Root(), all, input);
    }
    void Add(const std::vector<std::string>& args)
    {
        std::vector<std::string> all{"add"};
        all.insert(all.end(), args.begin(), args.end());
        all.push_back("/f");
        ProcessResult r = Reg(all);
        ASSERT_EQ(0, r.exitCode) << r.err;
        ASSERT_EQ(kDone, r.out);
    }
};

TEST_F(OrvsimRegTest, AddThenQueryShowsEveryTypeInRegFormat)
{
    const std::string key = "HKLM\\Software\\Orvane\\Params";
    Add({key, "/v", "Version", "/t", "REG_DWORD", "/d", "42"});
    Add({key, "/v", "Name", "/d", "Orvane provider"});
    Add({key, "/v", "Hosts", "/t", "REG_MULTI_SZ", "/d", "alpha\\0beta"});
    Add({key, "/v", "Big", "/t", "REG_QWORD", "/d", "0x1122334455"});
    Add({key, "/v", "Blob", "/t", "REG_BINARY", "/d", "00ff7A"});
    Add({key, "/v", "Dir", "/t", "REG_EXPAND_SZ", "/d", "%TEMP%\\orv"});
    Add({key, "/ve", "/d", "default text"});
    Add({key + "\\Child"});
    ProcessResult r = Reg({"query", key});
    EXPECT_EQ(0, r.exitCode) << r.err;
    EXPECT_EQ("\n"
              "HKEY_LOCAL_MACHINE\\Software\\Orvane\\Params\n"
              "    Version    REG_DWORD    0x2a\n"
              "    Name    REG_SZ    Orvane provider\n"
              "    Hosts    REG_MULTI_SZ    alpha\\0beta\n"
              "    Big    REG_QWORD    0x1122334455\n"
              "    Blob    REG_BINARY    00FF7A\n"
              "    Dir    REG_EXPAND_SZ    %TEMP%\\orv\n"
              "    (Default)    REG_SZ    default text\n"
              "\n"
              "HKEY_LOCAL_MACHINE\\Software\\Orvane\\Params\\Child\n",
              r.out);
    EXPECT_EQ("", r.err);
}

TEST_F(OrvsimRegTest, ToolWritesWhatTheApiReadsAndTheOtherWayRound)
{
    Add({"HKLM\\Software\\Orvane", "/v", "Level", "/t", "REG_DWORD", "/d", "0x10"});
    ScopedKey key;
    ASSERT_EQ(ERROR_SUCCESS,
              RegOpenKeyExW(HKEY_LOCAL_MACHINE, u"Software\\Orvane", 0, KEY_ALL_ACCESS, key.Out()));
    DWORD value = 0, cb = sizeof(value), dwType = 0;
    ASSERT_EQ(ERROR_SUCCESS, RegQueryValueExW(key, u"Level", nullptr, &dwType,
                                              reinterpret_cast<LPBYTE>(&value), &cb));
    EXPECT_EQ(DWORD(REG_DWORD), dwType);
    EXPECT_EQ(16u, value);
    const WCHAR text[] = u"from the api";
    ASSERT_EQ(ERROR_SUCCESS, RegSetValueExW(key, u"Note", 0, REG_SZ,
                                            reinterpret_cast<const BYTE*>(text), sizeof(text)));
    ProcessResult r = Reg({"query", "HKLM\\Software\\Orvane", "/v", "Note"});
    EXPECT_EQ(0, r.exitCode);
    EXPECT_EQ("\nHKEY_LOCAL_MACHINE\\Software\\Orvane\n    Note    REG_SZ    from the api\n",
              r.out);
}

TEST_F(OrvsimRegTest, QueryOfAMissingKeyOrValueFails)
{
    ProcessResult r = Reg({"query", "HKLM\\Software\\Nowhere"});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_EQ(kNotFound, r.err);
    EXPECT_EQ("", r.out);
    Add({"HKLM\\Software\\Somewhere"});
    r = Reg({"query", "HKLM\\Software\\Somewhere", "/v", "Absent"});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_EQ(kNotFound, r.err);
}

// Keys and values added, then one query and its exact output, in the order given: later rows see
// what earlier rows added.
TEST_F(OrvsimRegTest, QueriesShowWhatWasAdded)
{
    const struct
    {
        const char* name;
        std::vector<std::vector<std::string>> adds;
        std::vector<std::string> query;
        std::string out;
    } cases[] = {
        {"default value unset",
         {{"HKCU\\Software\\Orv"}},
         {"HKCU\\Software\\Orv", "/ve"},
         "\nHKEY_CURRENT_USER\\Software\\Orv\n    (Default)    REG_SZ    (value not set)\n"},
        {"default value set",
         {{"HKCU\\Software\\Orv", "/ve", "/d", "set"}},
         {"HKCU\\Software\\Orv", "/ve"},
         "\nHKEY_CURRENT_USER\\Software\\Orv\n    (Default)    REG_SZ    set\n"},
        {"recursive query lists the whole tree",
         {{"HKLM\\Software\\Tree", "/v", "top", "/t", "REG_DWORD", "/d", "1"},
          {"HKLM\\Software\\Tree\\B\\Deep", "/v", "deep", "/d", "x"},
          {"HKLM\\Software\\Tree\\A"}},
         {"hklm\\software\\tree", "/s"},
         "\nHKEY_LOCAL_MACHINE\\software\\tree\n"
         "    top    REG_DWORD    0x1\n"
         "\nHKEY_LOCAL_MACHINE\\software\\tree\\A\n"
         "\nHKEY_LOCAL_MACHINE\\software\\tree\\B\n"
         "\nHKEY_LOCAL_MACHINE\\software\\tree\\B\\Deep\n"
         "    deep    REG_SZ    x\n"},
        {"recursive search for one value",
         {{"HKLM\\Software\\Search\\One", "/v", "Id", "/t", "REG_DWORD", "/d", "1"},
          {"HKLM\\Software\\Search\\Two", "/v", "Id", "/t", "REG_DWORD", "/d", "2"},
          {"HKLM\\Software\\Search\\Three", "/v", "Other", "/d", "x"}},
         {"HKLM\\Software\\Search", "/v", "Id", "/s"},
         "\nHKEY_LOCAL_MACHINE\\Software\\Search\\One\n"
         "    Id    REG_DWORD    0x1\n"
         "\nHKEY_LOCAL_MACHINE\\Software\\Search\\Two\n"
         "    Id    REG_DWORD    0x2\n"
         "\nEnd of search: 2 match(es) found.\n"},
        {"root names and option spellings",
         {{"HKEY_LOCAL_MACHINE\\Software\\Spelled", "-V", "a", "-D", "1"}},
         {"hkey_local_machine\\Software\\Spelled", "/V", "a"},
         "\nHKEY_LOCAL_MACHINE\\Software\\Spelled\n    a    REG_SZ    1\n"},
        {"the classes root is Software\\Classes",
         {{"HKCR\\.orv", "/ve", "/d", "Orvane.File"}},
         {"HKLM\\Software\\Classes\\.orv", "/ve"},
         "\nHKEY_LOCAL_MACHINE\\Software\\Classes\\.orv\n    (Default)    REG_SZ    Orvane.File\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        for (const auto& add : c.adds)
            Add(add);
        std::vector<std::string> query{"QUERY"};
        query.insert(query.end(), c.query.begin(), c.query.end());
        ProcessResult r = Reg(query);
        EXPECT_EQ(0, r.exitCode) << r.err;
        EXPECT_EQ(c.out, r.out);
    }
}

TEST_F(OrvsimRegTest, AddAsksBeforeOverwriting)
{
    Add({"HKLM\\Software\\Ask", "/v", "v", "/d", "first"});
    ProcessResult r = Reg({"add", "HKLM\\Software\\Ask", "/v", "v", "/d", "second"}, "no\n");
    EXPECT_EQ(1, r.exitCode);
    EXPECT_EQ("Value v exists, overwrite (Yes/No)? ", r.out);
    EXPECT_EQ("The operation was canceled by the user.\n", r.err);
    r = Reg({"add", "HKLM\\Software\\Ask", "/v", "v", "/d", "third"}, "yes\n");
    EXPECT_EQ(0, r.exitCode);
    r = Reg({"query", "HKLM\\Software\\Ask", "/v", "v"});
    EXPECT_EQ("\nHKEY_LOCAL_MACHINE\\Software\\Ask\n    v    REG_SZ    third\n", r.out);
}

TEST_F(OrvsimRegTest, DeleteValueDefaultAllAndKey)
{
    const std::string key = "HKLM\\Software\\Del";
    Add({key, "/v", "a", "/d", "1"});
    Add({key, "/v", "b", "/d", "2"});
    Add({key, "/ve", "/d", "d"});
    Add({key + "\\Sub", "/v", "s", "/d", "3"});

    ProcessResult r = Reg({"delete", key, "/v", "a", "/f"});
    EXPECT_EQ(0, r.exitCode);
    EXPECT_EQ(kDone, r.out);
    r = Reg({"delete", key, "/v", "a", "/f"});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_EQ(kNotFound, r.err);

    r = Reg({"delete", key, "/ve", "/f"});
    EXPECT_EQ(0, r.exitCode);
    r = Reg({"delete", key, "/va", "/f"});
    EXPECT_EQ(0, r.exitCode);
    r = Reg({"query", key});
    EXPECT_EQ("\nHKEY_LOCAL_MACHINE\\Software\\Del\n\nHKEY_LOCAL_MACHINE\\Software\\Del\\Sub\n",
              r.out)
        << "/va leaves the subkeys";

    r = Reg({"delete", key}, "n\n");
    EXPECT_EQ(1, r.exitCode);
    EXPECT_EQ("Permanently delete the registry key HKEY_LOCAL_MACHINE\\Software\\Del (Yes/No)? ",
              r.out);
    r = Reg({"delete", key, "/f"});
    EXPECT_EQ(0, r.exitCode);
    r = Reg({"query", key});
    EXPECT_EQ(1, r.exitCode);
    r = Reg({"delete", key, "/f"});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_EQ(kNotFound, r.err);
}

struct FailureCase
{
    const char* label;
    std::vector<std::string> args;
    std::string message;
};

void PrintTo(const FailureCase& c, std::ostream* os)
{
    *os << c.label;
}

class OrvsimRegFailureTest : public OrvsimRegTest, public ::testing::WithParamInterface<FailureCase>
{};

TEST_P(OrvsimRegFailureTest, FailsWithOneLineOnStandardError)
{
    const FailureCase& c = GetParam();
    ProcessResult r = Reg(c.args);
    EXPECT_EQ(1, r.exitCode);
    EXPECT_EQ(c.message + "\n", r.err);
    EXPECT_EQ("", r.out);
}

INSTANTIATE_TEST_SUITE_P(
    Arguments, OrvsimRegFailureTest,
    ::testing::Values(
        FailureCase{
            "NoKey", {"query"}, "ERROR: Invalid syntax. Type \"orvsim reg query /?\" for usage."},
        FailureCase{"UnknownOption",
                    {"query", "HKLM\\Software", "/x"},
                    "ERROR: Invalid syntax. Type \"orvsim reg query /?\" for usage."},
        FailureCase{"ValueAndDefault",
                    {"query", "HKLM\\Software", "/v", "a", "/ve"},
                    "ERROR: Invalid syntax. Type \"orvsim reg query /?\" for usage."},
        FailureCase{"RepeatedOption",
                    {"add", "HKLM\\Software\\X", "/f", "/f"},
                    "ERROR: Invalid syntax. Type \"orvsim reg add /?\" for usage."},
        FailureCase{"MissingOptionValue",
                    {"delete", "HKLM\\Software\\X", "/v"},
                    "ERROR: Invalid syntax. Type \"orvsim reg delete /?\" for usage."},
        FailureCase{"UnknownRoot",
                    {"query", "HKXX\\Software"},
                    "ERROR: Invalid key name. Type \"orvsim reg query /?\" for usage."},
        FailureCase{"UnknownType",
                    {"add", "HKLM\\Software\\X", "/v", "a", "/t", "REG_FOO", "/f"},
                    "ERROR: Invalid syntax. Unsupported type 'REG_FOO' for /t."},
        FailureCase{"BadDword",
                    {"add", "HKLM\\Software\\X", "/v", "a", "/t", "REG_DWORD", "/d", "12x", "/f"},
                    "ERROR: Invalid syntax. The data given with /d does not fit REG_DWORD."},
        FailureCase{
            "DwordOverflow",
            {"add", "HKLM\\Software\\X", "/v", "a", "/t", "REG_DWORD", "/d", "0x100000000", "/f"},
            "ERROR: Invalid syntax. The data given with /d does not fit REG_DWORD."},
        FailureCase{"OddHex",
                    {"add", "HKLM\\Software\\X", "/v", "a", "/t", "REG_BINARY", "/d", "abc", "/f"},
                    "ERROR: Invalid syntax. The data given with /d does not fit REG_BINARY."},
        FailureCase{"DeleteRoot", {"delete", "HKLM", "/f"}, "ERROR: Invalid key name."},
        FailureCase{"NoOperation", {}, "ERROR: A subcommand is required (see orvsim --help)"}),
    [](const auto& info) { return std::string(info.param.label); });

TEST_F(OrvsimRegTest, HelpAndUsage)
{
    ProcessResult r = orvtest::registry::RunProcess({orvtest::registry::OrvsimPath(), "--help"});
    EXPECT_EQ(0, r.exitCode);
    EXPECT_NE(std::string::npos, r.out.find("--root"));
    EXPECT_NE(std::string::npos, r.out.find("reg"));
    r = Reg({"query", "/?"});
    EXPECT_EQ(0, r.exitCode);
    EXPECT_EQ(0u, r.out.find("REG QUERY KeyName"));
    r = Reg({"add", "--help"});
    EXPECT_EQ(0, r.exitCode);
    EXPECT_NE(std::string::npos, r.out.find("REG ADD KeyName"));
}

TEST_F(OrvsimRegTest, RootOptionChoosesTheMachine)
{
    std::filesystem::path other = MakeDir("other-machine");
    ProcessResult r = orvtest::registry::RunOrvsim(
        other, {"reg", "add", "HKLM\\Software\\Elsewhere", "/v", "a", "/d", "b", "/f"});
    ASSERT_EQ(0, r.exitCode) << r.err;
    EXPECT_TRUE(std::filesystem::exists(other / "registry.db"));
    r = Reg({"query", "HKLM\\Software\\Elsewhere"});
    EXPECT_EQ(1, r.exitCode) << "this test's own machine does not have it";
}

TEST_F(OrvsimRegTest, RootDefaultsToTheEnvironment)
{
    ProcessResult r = orvtest::registry::RunProcess(
        {orvtest::registry::OrvsimPath(), "reg", "add", "HKLM\\Software\\FromEnv", "/f"},
        {"ORVSIM_ROOT=" + Root().string()});
    ASSERT_EQ(0, r.exitCode) << r.err;
    ScopedKey key;
    EXPECT_EQ(ERROR_SUCCESS,
              RegOpenKeyExW(HKEY_LOCAL_MACHINE, u"Software\\FromEnv", 0, KEY_READ, key.Out()));
}

TEST_F(OrvsimRegTest, MultiSzWithAnotherSeparatorAndEmptyData)
{
    Add({"HKLM\\Software\\Multi", "/v", "list", "/t", "REG_MULTI_SZ", "/s", ",", "/d", "a,b,c"});
    Add({"HKLM\\Software\\Multi", "/v", "none", "/t", "REG_MULTI_SZ"});
    ProcessResult r = Reg({"query", "HKLM\\Software\\Multi"});
    EXPECT_EQ("\nHKEY_LOCAL_MACHINE\\Software\\Multi\n"
              "    list    REG_MULTI_SZ    a\\0b\\0c\n"
              "    none    REG_MULTI_SZ    \n",
              r.out);
    ScopedKey key;
    ASSERT_EQ(ERROR_SUCCESS,
              RegOpenKeyExW(HKEY_LOCAL_MACHINE, u"Software\\Multi", 0, KEY_READ, key.Out()));
    WCHAR data[16];
    DWORD cb = sizeof(data);
    ASSERT_EQ(ERROR_SUCCESS, RegQueryValueExW(key, u"list", nullptr, nullptr,
                                              reinterpret_cast<LPBYTE>(data), &cb));
    EXPECT_EQ(std::u16string(u"a\0b\0c\0\0", 7), std::u16string(data, cb / 2));
}

} // namespace
