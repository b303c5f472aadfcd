// `orvsim events`: the text and JSON forms of events written through the platform's event log,
// its filters, and its refusals.
#include "pal/eventlog.h"
#include "pal/paleventlog.h"
#include "tests/pal/registry/registry_testing.h"

#include <algorithm>
#include <regex>
#include <string>

namespace {

using orvtest::registry::ProcessResult;

class OrvsimEventsTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        orvtest::PalTest::SetUp();
        m_hSource = RegisterEventSourceW(nullptr, u"Orvhwsvc");
        m_hOther = RegisterEventSourceW(nullptr, u"Other");
        ASSERT_NE(nullptr, m_hSource);
        ASSERT_NE(nullptr, m_hOther);
    }
    void TearDown() override
    {
        DeregisterEventSource(m_hSource);
        DeregisterEventSource(m_hOther);
        orvtest::PalTest::TearDown();
    }

    static void Report(HANDLE h, WORD wType, DWORD dwEventId,
                       std::vector<std::u16string> strings = {}, std::vector<BYTE> data = {})
    {
        std::vector<LPCWSTR> pointers;
        for (const auto& s : strings)
            pointers.push_back(s.c_str());
        ASSERT_TRUE(ReportEventW(
            h, wType, 0, dwEventId, nullptr, static_cast<WORD>(pointers.size()),
            static_cast<DWORD>(data.size()), pointers.empty() ? nullptr : pointers.data(),
            data.empty() ? nullptr : data.data()));
    }

    // The events of the test's own log: service started, a failed commit with its code, a
    // slow commit, an event of another source.
    void ReportSample()
    {
        Report(m_hSource, EVENTLOG_INFORMATION_TYPE, 0x40041008);
        Report(m_hSource, EVENTLOG_ERROR_TYPE, 0xC0041102, {u"{set-1}"}, {0x06, 0x23, 0x04, 0x80});
        Report(m_hSource, EVENTLOG_WARNING_TYPE, 0x8004110C, {u"{set-1}", u"12000"});
        Report(m_hOther, EVENTLOG_SUCCESS, 7, {u"a \"quoted\" word", u"caf\u00e9"});
    }

    ProcessResult Events(const std::vector<std::string>& args)
    {
        std::vector<std::string> all{"events"};
        all.insert(all.end(), args.begin(), args.end());
        ProcessResult r = orvtest::registry::RunOrvsim(Root(), all);
        // The time changes from run to run.
        static const std::regex time(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3})");
        r.out = std::regex_replace(r.out, time, "TIME");
        return r;
    }

    HANDLE m_hSource = nullptr;
    HANDLE m_hOther = nullptr;
};

const char* const kStarted = "[1] TIME  Information  Orvhwsvc  Event ID 4104 (0x40041008)\n"
                             "    Verdane VSS hardware provider service has started.\n"
                             "\n";
const char* const kCommitFailed =
    "[2] TIME  Error  Orvhwsvc  Event ID 4354 (0xC0041102)\n"
    "    Verdane VSS hardware provider failed in CommitSnapshots method [SnapshotSetId={set-1}].\n"
    "    Tessera failed to create snapshot.\n"
    "    Please check Tessera event logs.\n"
    "\n"
    "    The data is the error code.\n"
    "    Data: 06 23 04 80\n"
    "\n";
const char* const kSlowCommit =
    "[3] TIME  Warning  Orvhwsvc  Event ID 4364 (0x8004110C)\n"
    "    Verdane VSS hardware provider has completed CommitSnapshots for SnapshotSetId {set-1} in "
    "12000 milliseconds. Since it takes more than 10 seconds, this can fail the current shadow "
    "copy.\n"
    "\n";
const char* const kOther =
    "[4] TIME  Success  Other  Event ID 7 (0x00000007)\n"
    "    The description for Event ID 7 from source Other cannot be found. Either the component "
    "that raises this event is not installed on this computer or the installation is "
    "corrupted.\n"
    "\n"
    "    The following information was included with the event:\n"
    "\n"
    "    a \"quoted\" word\n"
    "    caf\xC3\xA9\n"
    "\n";

TEST_F(OrvsimEventsTest, TextShowsEachEventNewestLast)
{
    ReportSample();
    ProcessResult r = Events({});
    EXPECT_EQ(0, r.exitCode) << r.err;
    EXPECT_EQ(std::string(kStarted) + kCommitFailed + kSlowCommit + kOther, r.out);
    EXPECT_EQ("", r.err);
}

TEST_F(OrvsimEventsTest, JsonGivesOneObjectPerLineWithTheStrings)
{
    ReportSample();
    ProcessResult r = Events({"--json"});
    EXPECT_EQ(0, r.exitCode) << r.err;
    std::string computer = orvtest::Narrow(pal::EventLogComputerName());
    EXPECT_EQ(
        "{\"record\":1,\"time\":\"TIME\",\"level\":\"Information\",\"type\":4,\"source\":"
        "\"Orvhwsvc\",\"computer\":\"" +
            computer +
            "\",\"eventId\":4104,\"id\":\"0x40041008\",\"category\":0,\"strings\":[],\"message\":"
            "\"Verdane VSS hardware provider service has started.\\r\\n\",\"data\":\"\"}\n"
            "{\"record\":2,\"time\":\"TIME\",\"level\":\"Error\",\"type\":1,\"source\":"
            "\"Orvhwsvc\",\"computer\":\"" +
            computer +
            "\",\"eventId\":4354,\"id\":\"0xC0041102\",\"category\":0,\"strings\":[\"{set-1}\"],"
            "\"message\":\"Verdane VSS hardware provider failed in CommitSnapshots method "
            "[SnapshotSetId={set-1}].\\r\\nTessera failed to create snapshot.\\r\\r\\nPlease "
            "check Tessera event logs.\\r\\r\\n\\r\\r\\nThe data is the error code.\\r\\n\","
            "\"data\":\"06 23 04 80\"}\n",
        r.out.substr(0, r.out.find("{\"record\":3")));
    // The other source's strings, escaped.
    EXPECT_NE(std::string::npos,
              r.out.find("\"strings\":[\"a \\\"quoted\\\" word\",\"caf\xC3\xA9\"]"))
        << r.out;
    EXPECT_EQ(4, std::count(r.out.begin(), r.out.end(), '\n'));
}

TEST_F(OrvsimEventsTest, FiltersSelectSourceLevelAndNewest)
{
    ReportSample();
    struct Case
    {
        std::vector<std::string> args;
        std::string out;
    };
    const Case cases[] = {
        {{"--source", "ORVHWSVC"}, std::string(kStarted) + kCommitFailed + kSlowCommit},
        {{"--level", "error"}, kCommitFailed},
        {{"--level", "Warning"}, kSlowCommit},
        // Event Viewer counts success events as information.
        {{"--level", "information"}, std::string(kStarted) + kOther},
        {{"--last", "2"}, std::string(kSlowCommit) + kOther},
        {{"--source", "Orvhwsvc", "--level", "information", "--last", "1"}, kStarted},
        {{"--source", "Nobody"}, ""},
    };
    for (const Case& c : cases) {
        ProcessResult r = Events(c.args);
        EXPECT_EQ(0, r.exitCode) << r.err;
        EXPECT_EQ(c.out, r.out) << ::testing::PrintToString(c.args);
    }
}

TEST_F(OrvsimEventsTest, EmptyLogShowsNothing)
{
    ProcessResult r = Events({});
    EXPECT_EQ(0, r.exitCode) << r.err;
    EXPECT_EQ("", r.out);
}

TEST_F(OrvsimEventsTest, BadOptionsFailWithOneLine)
{
    for (const auto& args : std::vector<std::vector<std::string>>{
             {"--level", "fatal"}, {"--last", "0"}, {"--last", "x"}, {"--colour"}}) {
        ProcessResult r = Events(args);
        EXPECT_EQ(1, r.exitCode) << ::testing::PrintToString(args);
        EXPECT_EQ("", r.out);
        EXPECT_TRUE(r.err.starts_with("ERROR: ")) << r.err;
        EXPECT_EQ(1, std::count(r.err.begin(), r.err.end(), '\n')) << r.err;
    }
}

} // namespace
