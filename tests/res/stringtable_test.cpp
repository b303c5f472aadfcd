// The compiled string table: the eight strings with their exact texts and agreement with the .rc
// source. LoadStringW reads it in the platform conformance cases.
#include "res/strings.h"
#include "tests/support/checks.h"

#include <fstream>
#include <map>
#include <regex>

namespace {

using orvtest::Narrow;

const std::map<UINT, std::u16string> kStrings = {
    {5336, u"Orvhwsvc"},
    {5337, u"VSS Hardware Provider for Verdane LUNs"},
    {5338, u"Verdane VSS Hardware Provider"},
    {5995, u"Parsing error: need to specify -a <account> and -p <password>\n"},
    {5996, u"Verdane VSS Hardware Provider"},
    {5997, u"Parsing error: -r (exe|service)\n"},
    {5998, u"Register Server"},
    {5999, u"Verdane hardware provider is already registered\n"},
};

TEST(StringTableTest, HoldsTheEightStringsInIdOrder)
{
    size_t cStrings = 0;
    const PAL_STRING_RESOURCE* pTable = OrvGetStringTable(&cStrings);
    ASSERT_EQ(kStrings.size(), cStrings);
    size_t i = 0;
    for (const auto& [uID, text] : kStrings) {
        EXPECT_EQ(uID, pTable[i].uID);
        EXPECT_EQ(text, pTable[i].pszText) << uID;
        ++i;
    }
    static_assert(IDS_SERVICENAME == 5336 && IDS_SERVICEDESCRIPTION == 5337 &&
                  IDS_SERVICEDISPLAYNAME == 5338 && IDS_PARSE_NEED_ACCOUNT == 5995 &&
                  IDS_PROVIDER_NAME == 5996 && IDS_PARSE_REGISTER_MODE == 5997 &&
                  IDS_REGISTER_SERVER_CAPTION == 5998 && IDS_PROVIDER_ALREADY_REGISTERED == 5999);
}

// A reading of resource.h and the .rc file independent of the generator: "#define NAME N" and
// "NAME "text"" lines, with the escapes the source uses.
TEST(StringTableTest, CompiledTableIsTheRcSource)
{
    std::map<std::string, UINT> ids;
    std::ifstream header(ORV_RES_SOURCE_DIR "/resource.h");
    ASSERT_TRUE(header);
    std::string line;
    std::smatch m;
    while (std::getline(header, line))
        if (std::regex_match(line, m, std::regex(R"(#define (\w+) (\d+))")))
            ids[m[1]] = static_cast<UINT>(std::stoul(m[2]));

    std::map<UINT, std::string> source;
    std::ifstream rc(ORV_RES_SOURCE_DIR "/orvprov.rc");
    ASSERT_TRUE(rc);
    while (std::getline(rc, line)) {
        if (!std::regex_match(line, m, std::regex(R"(\s*(\w+)\s+\"(.*)\"\s*)")))
            continue;
        ASSERT_TRUE(ids.count(m[1])) << m[1];
        std::string text = std::regex_replace(std::string(m[2]), std::regex(R"(\\n)"), "\n");
        EXPECT_TRUE(source.emplace(ids[m[1]], text).second) << m[1];
    }
    size_t cStrings = 0;
    const PAL_STRING_RESOURCE* pTable = OrvGetStringTable(&cStrings);
    ASSERT_EQ(source.size(), cStrings);
    size_t i = 0;
    for (const auto& [uID, text] : source) {
        EXPECT_EQ(uID, pTable[i].uID);
        EXPECT_EQ(text, Narrow(pTable[i].pszText)) << uID;
        ++i;
    }
}

} // namespace
