// The build's resource compiler run on small sources: what it writes for the parts of the two
// syntaxes it accepts, and the file and line it names for a source it refuses.
#include "tests/support/paltest.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

class ResgenTest : public orvtest::PalTest
{
protected:
    struct Result
    {
        int exitCode;
        std::string err;
    };

    // Writes the two sources (and resource.h) and runs resgen on them.
    Result Run(const std::string& mc, const std::string& rc, const std::string& header = "")
    {
        m_dir = MakeDir("src");
        Write(m_dir / "in.mc", mc);
        Write(m_dir / "in.rc", rc);
        Write(m_dir / "resource.h", header);
        std::string command = std::string("'") + ORV_RESGEN_EXE + "' '" +
                              (m_dir / "in.mc").string() + "' '" + (m_dir / "in.rc").string() +
                              "' '" + (m_dir / "out").string() + "' 2> '" +
                              (m_dir / "err.txt").string() + "'";
        int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Read(m_dir / "err.txt")};
    }

    std::string Output(const std::string& name) const { return Read(m_dir / "out" / name); }

    static void Write(const std::filesystem::path& path, const std::string& text)
    {
        std::ofstream(path, std::ios::binary) << text;
    }
    static std::string Read(const std::filesystem::path& path)
    {
        std::ifstream in(path, std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        return text.str();
    }

    std::filesystem::path m_dir;
};

const char* const kMinimalMc = "MessageId=1\nSymbolicName=MSG_ONE\nLanguage=English\nOne.\n.\n";
const char* const kMinimalRc = "STRINGTABLE\nBEGIN\n    1 \"one\"\nEND\n";

TEST_F(ResgenTest, WritesIdsTablesAndTextsAsTheSourcesSay)
{
    const std::string mc = ";// Header comment\n"
                           "MessageIdTypedef=DWORD\n"
                           "SeverityNames=(Success=0x0:SEV_OK\n"
                           "               Informational=0x1\n"
                           "               Warning=0x2:SEV_WARN Error=0x3:SEV_ERR)\n"
                           "FacilityNames=(Disk=0x12:FACILITY_TEST_DISK)\n"
                           "LanguageNames=(English=0x409:MSG00409)\n"
                           "\n"
                           ";// First message\n"
                           "MessageId=0x10\n"
                           "Severity=Warning\n"
                           "Facility=Disk\n"
                           "SymbolicName=MSG_FIRST\n"
                           "Language=English\n"
                           "Line one with \"quotes\", a \\ and caf\xC3\xA9.\n"
                           "Line two %1%r\n"
                           ".\n"
                           "MessageId=\n"
                           "SymbolicName=MSG_NEXT\n"
                           "Language=English\n"
                           "Next.\n"
                           ".\n"
                           "MessageIdTypedef=HRESULT\n"
                           "MessageId=+2\n"
                           "Severity=Error\n"
                           "SymbolicName=MSG_E_CODE\n"
                           "Language=English\n"
                           "MSG_E_CODE\n"
                           ".\n";
    const std::string rc = "#include \"resource.h\"\n"
                           "LANGUAGE 0x09, 0x01\n"
                           "/* a block\n comment */\n"
                           "STRINGTABLE\n"
                           "{\n"
                           "    IDS_B, L\"tab\\there \"\"quoted\"\" back\\\\slash\\n\"\n"
                           "    7 \"seven\"\n"
                           "}\n";
    Result r = Run(mc, rc, "#pragma once\n// ids\n#define IDS_B 0x20\n");
    ASSERT_EQ(0, r.exitCode) << r.err;

    std::string header = Output("orvmsg.h");
    for (const char* line : {
             "// Header comment\n",
             "#ifndef FACILITY_TEST_DISK\n#define FACILITY_TEST_DISK 0x12\n#endif\n",
             "#define SEV_WARN 0x2\n",
             "// First message\n//\n// MessageId: MSG_FIRST\n",
             "// Line two %1%r\n",
             // Severity and facility carry over; an empty MessageId is the previous one + 1.
             "#define MSG_FIRST ((DWORD)0x80120010L)\n",
             "#define MSG_NEXT ((DWORD)0x80120011L)\n",
             "#define MSG_E_CODE ((HRESULT)0xC0120013L)\n",
         })
        EXPECT_NE(std::string::npos, header.find(line)) << line << "\nin\n" << header;
    EXPECT_EQ(std::string::npos, header.find("Informational")) << "no symbol, no define";

    std::string table = Output("messagetable.cpp");
    EXPECT_NE(std::string::npos,
              table.find("{0x80120010, 0x0409, W(\"MSG_FIRST\"),\n     W(\"Line one with "
                         "\\\"quotes\\\", a \\\\ and caf\\u00E9.\\r\\nLine two %1%r\\r\\n\")},"))
        << table;
    EXPECT_NE(std::string::npos, table.find("const size_t g_cOrvMessages = 3;")) << table;

    std::string strings = Output("stringtable.cpp");
    EXPECT_NE(std::string::npos, strings.find("{7, W(\"seven\")},\n    {32, W(\"tab\\there "
                                              "\\\"quoted\\\" back\\\\slash\\n\")},"))
        << strings;
    EXPECT_NE(std::string::npos, strings.find("const size_t g_cOrvStrings = 2;")) << strings;
}

TEST_F(ResgenTest, RefusedSourcesNameTheirFileAndLine)
{
    struct Case
    {
        const char* name;
        std::string mc;
        std::string rc;
        std::string error;
    };
    const std::string ok = kMinimalMc;
    const Case cases[] = {
        {"same id twice", ok + ok, kMinimalRc,
         "in.mc:8: error: message 0x00000001 is defined twice"},
        {"unknown severity", "MessageId=1\nSeverity=Fatal\nLanguage=English\nx\n.\n", kMinimalRc,
         "in.mc:2: error: unknown Severity 'Fatal'"},
        {"no terminating line", "MessageId=1\nLanguage=English\nx\n", kMinimalRc,
         "in.mc:2: error: message text without its terminating '.' line"},
        {"id past 16 bits", "MessageId=0x10000\nLanguage=English\nx\n.\n", kMinimalRc,
         "in.mc:1: error: MessageId does not fit in 16 bits"},
        {"unknown keyword", "Colour=blue\n", kMinimalRc,
         "in.mc:1: error: unknown keyword 'Colour'"},
        {"message without text", "MessageId=1\nSymbolicName=X\n", kMinimalRc,
         "in.mc:1: error: the message has no text"},
        {"undefined string id", ok, "STRINGTABLE\nBEGIN\n IDS_NONE \"x\"\nEND\n",
         "in.rc:3: error: 'IDS_NONE' is not defined"},
        {"same string id twice", ok, "STRINGTABLE\nBEGIN\n 1 \"x\"\n 1 \"y\"\nEND\n",
         "in.rc:4: error: string 1 is defined twice"},
        {"other resources", ok, "1 ICON \"app.ico\"\n", "in.rc:1: error: unexpected '1'"},
        {"unterminated string", ok, "STRINGTABLE\nBEGIN\n 1 \"x\nEND\n",
         "in.rc:3: error: unterminated string"},
    };
    for (const Case& c : cases) {
        Result r = Run(c.mc, c.rc);
        EXPECT_EQ(1, r.exitCode) << c.name;
        EXPECT_NE(std::string::npos, r.err.find(c.error)) << c.name << ": " << r.err;
    }
}

} // namespace
