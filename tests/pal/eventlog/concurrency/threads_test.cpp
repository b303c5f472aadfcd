// Reports from many threads at once, through one shared source handle and through a handle per
// thread: every report is kept once, each thread's in the order it made them, and the record
// numbers and times written run without gaps or steps back.
#include "tests/pal/eventlog/eventlog_testing.h"

#include <map>
#include <thread>

namespace {

using orvtest::Narrow;
using orvtest::Wide;
using orvtest::eventlog::ReadAll;
using orvtest::eventlog::Report;
using orvtest::eventlog::ScopedSource;

using EventLogThreadsTest = orvtest::PalTest;

constexpr int kThreads = 8;
constexpr int kReportsPerThread = 60;

// Report n of thread t carries the strings "t" and "n" and the data byte t.
void CheckAllKept(const std::vector<pal::EventLogRecord>& records)
{
    ASSERT_EQ(size_t(kThreads * kReportsPerThread), records.size());
    std::map<int, int> nextOfThread;
    for (size_t i = 0; i < records.size(); ++i) {
        const pal::EventLogRecord& r = records[i];
        EXPECT_EQ(i + 1, r.ullRecordNumber);
        if (i > 0) {
            EXPECT_LE(records[i - 1].ullTimeWritten, r.ullTimeWritten) << "record " << i + 1;
        }
        ASSERT_EQ(2u, r.strings.size());
        int t = std::stoi(Narrow(r.strings[0]));
        int n = std::stoi(Narrow(r.strings[1]));
        EXPECT_EQ(nextOfThread[t], n) << "thread " << t << " out of order";
        nextOfThread[t] = n + 1;
        EXPECT_EQ(std::vector<BYTE>{static_cast<BYTE>(t)}, r.data);
    }
    for (int t = 0; t < kThreads; ++t)
        EXPECT_EQ(kReportsPerThread, nextOfThread[t]) << "thread " << t;
}

void ReportFrom(int t, HANDLE h, std::atomic<int>* pcFailed)
{
    for (int n = 0; n < kReportsPerThread; ++n)
        if (!Report(h, 0x40041005, {Wide(std::to_string(t)), Wide(std::to_string(n))},
                    {static_cast<BYTE>(t)}))
            ++*pcFailed;
}

TEST_F(EventLogThreadsTest, ThreadsSharingOneHandleLoseNothing)
{
    ScopedSource source(u"Orvhwsvc");
    ASSERT_NE(nullptr, source.Get());
    std::atomic<int> cFailed{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back(ReportFrom, t, source.Get(), &cFailed);
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(0, cFailed.load());
    CheckAllKept(ReadAll());
}

TEST_F(EventLogThreadsTest, ThreadsWithHandlesOfTheirOwnLoseNothing)
{
    std::atomic<int> cFailed{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t, &cFailed] {
            // Registration and deregistration race with the other threads' reports too.
            ScopedSource source(t % 2 ? u"Orvhwsvc" : u"Other");
            if (source.Get() == nullptr) {
                cFailed += kReportsPerThread;
                return;
            }
            ReportFrom(t, source, &cFailed);
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(0, cFailed.load());
    auto records = ReadAll();
    CheckAllKept(records);
    pal::EventLogQuery query;
    query.source = u"Other";
    EXPECT_EQ(size_t(kThreads / 2 * kReportsPerThread), ReadAll(query).size());
}

} // namespace
