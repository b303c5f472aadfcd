// CEventLog from many threads: one writer shared by all, and two writers of one source as the
// provider class and the service module have, lose no report; failed reports traced to a
// trace file while other threads trace and change the trace level end without deadlock (the
// trace lock only ever nests inside a report lock; ThreadSanitizer checks the order).
#include "diag/trace.h"
#include "host/eventlog.h"
#include "pal/paleventlog.h"
#include "tests/support/paltest.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

namespace {

using orvtest::Narrow;
using orvtest::Wide;

constexpr int kThreads = 8;
constexpr int kReportsPerThread = 50;

class EventLogWriterThreadsTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        orvtest::PalTest::SetUp();
        TraceInit(TRACE_LEVEL_ERROR, nullptr, nullptr, 0);
    }
    void TearDown() override
    {
        TraceClose();
        TraceInit(TRACE_LEVEL_VERBOSE, nullptr, nullptr, 0);
        orvtest::PalTest::TearDown();
    }

    // Thread t reports n = 0, 1, ... with the strings t and n through writer t % cWriters.
    static void ReportFromThreads(const std::vector<CEventLog*>& writers)
    {
        std::atomic<int> cFailed{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([t, &writers, &cFailed] {
                CEventLog* pWriter = writers[static_cast<size_t>(t) % writers.size()];
                std::u16string thread = Wide(std::to_string(t));
                for (int n = 0; n < kReportsPerThread; ++n) {
                    std::u16string number = Wide(std::to_string(n));
                    if (FAILED(
                            pWriter->Log(0xC0041105, thread.c_str(), number.c_str(), 0x80070005)))
                        ++cFailed;
                }
            });
        for (auto& thread : threads)
            thread.join();
        EXPECT_EQ(0, cFailed.load());
    }

    // Every report is in the log, after the `cEarlier` records of earlier rounds.
    static void ExpectAllKept(size_t cEarlier)
    {
        std::vector<pal::EventLogRecord> records;
        ASSERT_EQ(DWORD(ERROR_SUCCESS), pal::ReadEventLog({}, &records));
        ASSERT_EQ(cEarlier + kThreads * kReportsPerThread, records.size());
        std::map<std::string, int> next;
        for (const auto& r : std::vector(records.begin() + cEarlier, records.end())) {
            ASSERT_EQ(2u, r.strings.size());
            std::string thread = Narrow(r.strings[0]);
            EXPECT_EQ(next[thread], std::stoi(Narrow(r.strings[1]))) << "thread " << thread;
            next[thread]++;
            EXPECT_EQ((std::vector<BYTE>{0x05, 0x00, 0x07, 0x80}), r.data);
        }
    }
};

TEST_F(EventLogWriterThreadsTest, OneSharedWriterOrTwoWritersOfOneSourceLoseNothing)
{
    for (size_t cWriters : {1u, 2u}) {
        SCOPED_TRACE(cWriters);
        std::vector<CEventLog> writers(cWriters);
        std::vector<CEventLog*> pointers;
        for (CEventLog& writer : writers) {
            ASSERT_HR(S_OK, writer.Initialize(W("Orvhwsvc")));
            pointers.push_back(&writer);
        }
        ReportFromThreads(pointers);
        ExpectAllKept(cWriters == 1 ? 0 : kThreads * kReportsPerThread);
    }
}

TEST_F(EventLogWriterThreadsTest, FailedReportsTraceUnderTheReportLockWithoutDeadlock)
{
    std::filesystem::path dir = MakeDir("bin");
    std::u16string directory = Wide(dir.string() + "/");
    TraceInit(TRACE_LEVEL_ERROR, directory.c_str(), W("orvp"), 0);
    CEventLog failing;
    ASSERT_HR(S_OK, failing.Initialize(W("Failing")));
    pal::InjectFault("ReportEventW", ERROR_DISK_FULL, 0, W("Failing"));

    std::atomic<bool> fStop{false};
    std::atomic<int> cTraced{0};
    std::vector<std::thread> threads;
    // Reports that fail and are traced while their writer's lock is held.
    for (int t = 0; t < kThreads / 2; ++t)
        threads.emplace_back([&failing] {
            for (int n = 0; n < kReportsPerThread; ++n)
                EXPECT_HR(HRESULT(0x80070070), failing.Log(0xC0041105, 0x80070005));
        });
    // Trace writes and level changes, each under the trace lock alone.
    for (int t = 0; t < 2; ++t)
        threads.emplace_back([&fStop, &cTraced, t] {
            // At least once, even when the reporters finish before this thread is scheduled.
            do {
                if (t == 0)
                    TraceSetLevel(TRACE_LEVEL_ERROR);
                else
                    TraceW(W("another thread's line\n"));
                ++cTraced;
            } while (!fStop);
        });
    for (int t = 0; t < kThreads / 2; ++t)
        threads[static_cast<size_t>(t)].join();
    fStop = true;
    for (size_t t = kThreads / 2; t < threads.size(); ++t)
        threads[t].join();
    TraceClose();

    EXPECT_GT(cTraced.load(), 0);
    std::string text;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        std::ifstream in(entry.path(), std::ios::binary);
        text.append(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    // The file holds the lines as text, CR LF at their ends.
    size_t cFailures = 0;
    const std::string line = "ReportEvent FAILED [error=0x00000070]\r\n";
    for (size_t at = 0; (at = text.find(line, at)) != std::string::npos; at += line.size())
        ++cFailures;
    EXPECT_EQ(size_t(kThreads / 2 * kReportsPerThread), cFailures);
    std::vector<pal::EventLogRecord> records;
    ASSERT_EQ(DWORD(ERROR_SUCCESS), pal::ReadEventLog({}, &records));
    EXPECT_TRUE(records.empty());
}

} // namespace
