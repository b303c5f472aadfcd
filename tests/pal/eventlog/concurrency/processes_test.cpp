// Reports from several processes that share a machine root: two child processes and this one
// report at the same time and every report is kept, each process's in its own order; a
// reporter killed with SIGKILL loses none of the reports whose ReportEventW had returned. The
// children are this test program run again on a disabled test.
#include "tests/pal/eventlog/eventlog_testing.h"
#include "tests/pal/registry/registry_testing.h"

#include <cstdlib>
#include <map>
#include <set>

namespace {

using orvtest::Narrow;
using orvtest::Wide;
using orvtest::eventlog::ReadAll;
using orvtest::eventlog::Report;
using orvtest::eventlog::ScopedSource;
using orvtest::registry::ChildProcess;

constexpr int kReportsPerProcess = 150;

std::vector<std::string> ChildArgs(const char* test)
{
    return orvtest::registry::SelfArgs(std::string("EventLogChild.") + test);
}

// Report n of writer w carries the strings w and n.
bool ReportNumbered(HANDLE h, const std::string& writer, int n)
{
    return Report(h, 0x40041007, {Wide(writer), Wide(std::to_string(n))});
}

// ---- The children (disabled: they run only when started by the tests below) ----

// Reports $ORV_EVT_CHILD_COUNT events as writer $ORV_EVT_CHILD_NAME; with a count of 0, until
// killed, telling each completed n on descriptor 3.
TEST(EventLogChild, DISABLED_Reporter)
{
    const char* root = std::getenv("ORV_EVT_CHILD_ROOT");
    const char* name = std::getenv("ORV_EVT_CHILD_NAME");
    const char* count = std::getenv("ORV_EVT_CHILD_COUNT");
    if (!root || !name || !count)
        GTEST_SKIP() << "runs only as a child of the tests below";
    setenv("ORVSIM_ROOT", root, 1);
    ScopedSource source(u"Orvhwsvc");
    ASSERT_NE(nullptr, source.Get());
    int cReports = std::atoi(count);
    for (int n = 0; cReports == 0 || n < cReports; ++n) {
        ASSERT_TRUE(ReportNumbered(source, name, n)) << GetLastError();
        if (cReports == 0) {
            std::string line = std::to_string(n) + "\n";
            if (write(3, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
                _exit(5);
        }
    }
}

// ---- The tests ----

using EventLogProcessesTest = orvtest::PalTest;

TEST_F(EventLogProcessesTest, TwoProcessesAndThisOneLoseNothing)
{
    const std::string root = Root().string();
    std::vector<std::unique_ptr<ChildProcess>> children;
    for (const char* name : {"a", "b"})
        children.push_back(std::make_unique<ChildProcess>(
            ChildArgs("DISABLED_Reporter"),
            std::vector<std::string>{"ORV_EVT_CHILD_ROOT=" + root,
                                     std::string("ORV_EVT_CHILD_NAME=") + name,
                                     "ORV_EVT_CHILD_COUNT=" + std::to_string(kReportsPerProcess)}));
    {
        ScopedSource source(u"Orvhwsvc");
        for (int n = 0; n < kReportsPerProcess; ++n)
            ASSERT_TRUE(ReportNumbered(source, "parent", n));
    }
    for (auto& child : children) {
        auto result = child->Wait();
        ASSERT_EQ(0, result.exitCode) << result.out << result.err;
    }

    auto records = ReadAll();
    ASSERT_EQ(size_t(3 * kReportsPerProcess), records.size());
    std::map<std::string, int> next;
    std::map<std::string, std::set<DWORD>> pids;
    for (size_t i = 0; i < records.size(); ++i) {
        const pal::EventLogRecord& r = records[i];
        EXPECT_EQ(i + 1, r.ullRecordNumber);
        if (i > 0) {
            EXPECT_LE(records[i - 1].ullTimeWritten, r.ullTimeWritten) << "record " << i + 1;
        }
        ASSERT_EQ(2u, r.strings.size());
        std::string writer = Narrow(r.strings[0]);
        EXPECT_EQ(next[writer], std::stoi(Narrow(r.strings[1]))) << writer << " out of order";
        next[writer] = std::stoi(Narrow(r.strings[1])) + 1;
        pids[writer].insert(r.dwProcessId);
    }
    for (const char* writer : {"a", "b", "parent"}) {
        EXPECT_EQ(kReportsPerProcess, next[writer]) << writer;
        EXPECT_EQ(1u, pids[writer].size()) << writer;
    }
    EXPECT_EQ(std::set<DWORD>{GetCurrentProcessId()}, pids["parent"]);
    EXPECT_NE(*pids["a"].begin(), *pids["b"].begin());
}

TEST_F(EventLogProcessesTest, SigkillLosesNoReturnedReport)
{
    ChildProcess child(
        ChildArgs("DISABLED_Reporter"),
        {"ORV_EVT_CHILD_ROOT=" + Root().string(), "ORV_EVT_CHILD_NAME=k", "ORV_EVT_CHILD_COUNT=0"},
        true);
    ASSERT_TRUE(child.Started());
    // Kill once the child has reported a good number of events, whatever it is doing then.
    std::string pending;
    std::vector<ULONGLONG> reports;
    orvtest::registry::ReadReports(child.ReportFd(), std::nullopt, &pending, &reports, 40);
    ASSERT_GE(reports.size(), 40u) << "the reporter stopped";
    child.Kill();
    auto result = child.Wait();
    EXPECT_EQ(-1, result.exitCode) << result.err;

    auto records = ReadAll();
    ASSERT_GE(records.size(), reports.size());
    for (size_t i = 0; i < records.size(); ++i)
        EXPECT_EQ(std::to_string(i), Narrow(records[i].strings.at(1)));
    // The log goes on working after that.
    ScopedSource source(u"Orvhwsvc");
    EXPECT_TRUE(Report(source, 1));
    EXPECT_EQ(records.size() + 1, ReadAll().size());
}

} // namespace
