// Trace files: naming, first open, rollover, size accounting and failures to open.
#include "pal/palcontrol.h"
#include "pal/winerror.h"
#include "tests/diag/support/tracefixture.h"

#include <string>

namespace {

using orvtest::TraceTest;
using TraceFileTest = TraceTest;

constexpr DWORD LIMIT = 102400;

TEST_F(TraceFileTest, SizeLimitIsNormalised)
{
    struct Case
    {
        DWORD dwGiven;
        DWORD dwUsed;
    };
    const Case cases[] = {
        {0, 104857600},   {1, 102400},      {50000, 102400},      {102399, 102400},
        {102400, 102400}, {102401, 102401}, {10485760, 10485760},
    };
    for (const Case& c : cases) {
        TraceInit(0, nullptr, nullptr, c.dwGiven);
        EXPECT_EQ(c.dwUsed, g_trace.dwMaxFileSize) << "given " << c.dwGiven;
    }
}

TEST_F(TraceFileTest, FirstOpenOfTheDayCreatesNumberZero)
{
    SetDate(3, 7);
    TraceInit(TRACE_LEVEL_INFO, TraceDir().c_str(), W("orvp"), LIMIT);
    TraceW(W("hello\n"));
    EXPECT_EQ(12u, g_trace.dwBytesCounted);
    TraceClose();
    EXPECT_EQ("hello\r\n", ReadFile("orvp03070000.log"));
}

TEST_F(TraceFileTest, LevelZeroOpensNoFileUntilTheLevelIsRaised)
{
    SetDate(3, 7);
    WriteFile("orvp03070002.log", "earlier\r\n");
    TraceInit(0, TraceDir().c_str(), W("orvp"), LIMIT);
    EXPECT_EQ(nullptr, g_trace.pFile);

    TraceSetLevel(TRACE_LEVEL_INFO);
    ASSERT_NE(nullptr, g_trace.pFile);
    EXPECT_EQ(2u, g_trace.dwSequence);
    EXPECT_EQ(9u, g_trace.dwBytesCounted);
    TraceW(W("later\n"));
    TraceSetLevel(0);
    EXPECT_EQ(nullptr, g_trace.pFile);
    EXPECT_EQ("earlier\r\nlater\r\n", ReadFile("orvp03070002.log"));
}

TEST_F(TraceFileTest, FirstOpenContinuesTodaysNewestFile)
{
    struct Case
    {
        const char* pszName;
        std::vector<std::string> existing;
        DWORD dwSequence;
        DWORD dwBytesCounted;
    };
    const Case cases[] = {
        {"five files",
         {"orvp03070000.log", "orvp03070001.log", "orvp03070002.log", "orvp03070003.log",
          "orvp03070004.log"},
         4,
         16},
        {"only zero", {"orvp03070000.log"}, 0, 0},
        {"letters read as zero", {"orvp0307abcd.log"}, 0, 0},
        {"leading digits", {"orvp030712ab.log"}, 12, 16},
        {"wrong length ignored", {"orvp030712345.log", "orvp03070001.log"}, 1, 16},
        {"other day ignored", {"orvp03060009.log", "orvp03070001.log"}, 1, 16},
        {"other prefix ignored", {"trcp03070009.log"}, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.pszName);
        std::filesystem::remove_all(m_dir);
        std::filesystem::create_directories(m_dir);
        for (const std::string& name : c.existing)
            WriteFile(name, "sixteen bytes!\r\n");
        SetDate(3, 7);
        TraceInit(TRACE_LEVEL_ERROR, TraceDir().c_str(), W("orvp"), LIMIT);
        EXPECT_EQ(c.dwSequence, g_trace.dwSequence);
        EXPECT_EQ(c.dwBytesCounted, g_trace.dwBytesCounted);
        TraceClose();
    }
}

TEST_F(TraceFileTest, WideLineRollsOverWhenItWouldPassTheLimit)
{
    const std::u16string line(100, u'x'); // 200 bytes as the log counts them
    struct Case
    {
        DWORD dwCountedBefore;
        bool fRollover;
    };
    const Case cases[] = {{LIMIT - 199, true}, {LIMIT - 200, false}, {LIMIT, true}};
    for (const Case& c : cases) {
        std::filesystem::remove_all(m_dir);
        std::filesystem::create_directories(m_dir);
        SetDate(3, 7);
        TraceInit(TRACE_LEVEL_ERROR, TraceDir().c_str(), W("orvp"), LIMIT);
        g_trace.dwBytesCounted = c.dwCountedBefore;
        TraceW(W("%s"), line.c_str());
        EXPECT_EQ(c.fRollover ? 1u : 0u, g_trace.dwSequence) << c.dwCountedBefore;
        EXPECT_EQ(c.fRollover ? 200u : c.dwCountedBefore + 200, g_trace.dwBytesCounted);
        TraceClose();
        EXPECT_EQ(c.fRollover, Exists("orvp03070001.log"));
    }
}

TEST_F(TraceFileTest, NarrowLineCountsOneBytePerCharacter)
{
    SetDate(3, 7);
    TraceInit(TRACE_LEVEL_ERROR, TraceDir().c_str(), W("orvp"), LIMIT);
    g_trace.dwBytesCounted = LIMIT - 100;
    TraceA("%s", std::string(100, 'n').c_str());
    EXPECT_EQ(0u, g_trace.dwSequence);
    EXPECT_EQ(LIMIT, g_trace.dwBytesCounted);
    TraceA("z");
    EXPECT_EQ(1u, g_trace.dwSequence);
    EXPECT_EQ(1u, g_trace.dwBytesCounted);
}

TEST_F(TraceFileTest, LineFeedIsWrittenAsCrLfButCountedOnce)
{
    SetDate(3, 7);
    TraceInit(TRACE_LEVEL_ERROR, TraceDir().c_str(), W("orvp"), LIMIT);
    TraceA("a\nb\n");
    EXPECT_EQ(4u, g_trace.dwBytesCounted);
    TraceClose();
    EXPECT_EQ("a\r\nb\r\n", ReadFile("orvp03070000.log"));
}

TEST_F(TraceFileTest, FirstRolloverAfterMidnightTruncatesNumberZeroOfTheNewDay)
{
    WriteFile("orvp03080000.log", "stale content\r\n");
    SetDate(3, 7, 23, 59);
    TraceInit(TRACE_LEVEL_ERROR, TraceDir().c_str(), W("orvp"), LIMIT);
    SetDate(3, 8, 0, 1);
    TraceA("still yesterday\n"); // the date is looked at only when a file is opened
    g_trace.dwBytesCounted = LIMIT;
    TraceA("new day\n");
    EXPECT_EQ(0u, g_trace.dwSequence);
    TraceClose();
    EXPECT_EQ("still yesterday\r\n", ReadFile("orvp03070000.log"));
    // The new line's prefix is the write that rolls over, so the whole line is in the new file.
    std::string newFile = ReadFile("orvp03080000.log");
    EXPECT_EQ(0u, newFile.find("["));
    EXPECT_NE(std::string::npos, newFile.find("] [03/08 00:01:"));
    EXPECT_EQ(newFile.size() - 9, newFile.find("new day\r\n"));
}

TEST_F(TraceFileTest, SequenceWrapsFrom9999ToZeroWithTruncation)
{
    SetDate(3, 7);
    WriteFile("orvp03079999.log", "x");
    WriteFile("orvp03070000.log", "old number zero\r\n");
    TraceInit(TRACE_LEVEL_ERROR, TraceDir().c_str(), W("orvp"), LIMIT);
    EXPECT_EQ(9999u, g_trace.dwSequence);
    g_trace.dwBytesCounted = LIMIT;
    TraceA("wrapped\n");
    EXPECT_EQ(0u, g_trace.dwSequence);
    TraceClose();
    EXPECT_EQ("wrapped\r\n", ReadFile("orvp03070000.log"));
}

TEST_F(TraceFileTest, SuspendedOutputReachesOnlyTheDebugger)
{
    SetDate(3, 7);
    TraceInit(TRACE_LEVEL_ERROR, TraceDir().c_str(), W("orvp"), LIMIT);
    TraceSuspendFile();
    TraceA("hidden\n");
    EXPECT_EQ(0u, g_trace.dwBytesCounted);
    TraceResumeFile();
    TraceA("shown\n");
    TraceClose();
    std::string file = ReadFile("orvp03070000.log");
    EXPECT_EQ(std::string::npos, file.find("hidden"));
    EXPECT_NE(std::string::npos, file.find("shown\r\n"));
    EXPECT_NE(std::string::npos, pal::TakeDebugOutputText().find("hidden\n"));
}

TEST_F(TraceFileTest, FailedOpenLeavesNoFileButDebuggerOutputGoesOn)
{
    SetDate(3, 7);
    pal::InjectFault("_wfopen", ERROR_ACCESS_DENIED);
    TraceInit(TRACE_LEVEL_ERROR, TraceDir().c_str(), W("orvp"), LIMIT);
    EXPECT_EQ(nullptr, g_trace.pFile);
    TraceA("lost to the file\n");
    EXPECT_EQ(0u, g_trace.dwBytesCounted);
    EXPECT_EQ("lost to the file\n", pal::TakeDebugOutputText());

    pal::ClearFaults();
    TraceSetLevel(TRACE_LEVEL_INFO); // a later first open succeeds
    EXPECT_NE(nullptr, g_trace.pFile);
}

TEST_F(TraceFileTest, FailedRolloverStopsFileOutput)
{
    SetDate(3, 7);
    TraceInit(TRACE_LEVEL_ERROR, TraceDir().c_str(), W("orvp"), LIMIT);
    pal::InjectFault("_wfopen", ERROR_DISK_FULL);
    g_trace.dwBytesCounted = LIMIT;
    TraceA("no room\n");
    EXPECT_EQ(nullptr, g_trace.pFile);
    EXPECT_FALSE(Exists("orvp03070001.log"));
}

TEST_F(TraceFileTest, UnsearchableDirectoryStartsAtNumberZero)
{
    SetDate(3, 7);
    WriteFile("orvp03070005.log", "x");
    pal::InjectFault("FindFirstFileW", ERROR_ACCESS_DENIED);
    TraceInit(TRACE_LEVEL_ERROR, TraceDir().c_str(), W("orvp"), LIMIT);
    EXPECT_EQ(0u, g_trace.dwSequence);
    EXPECT_NE(nullptr, g_trace.pFile);
}

TEST_F(TraceFileTest, MissingDirectoryOrPrefixMeansNoFileEver)
{
    const LPCWSTR cases[][2] = {{nullptr, W("orvp")}, {W(""), W("orvp")}, {nullptr, nullptr}};
    for (const auto& c : cases) {
        TraceInit(TRACE_LEVEL_ERROR, c[0], c[1], LIMIT);
        TraceSetLevel(TRACE_LEVEL_INFO);
        EXPECT_EQ(nullptr, g_trace.pFile);
        EXPECT_EQ(0, g_trace.szDirectory[0]);
        EXPECT_EQ(0, g_trace.szPrefix[0]);
    }
    TraceInit(TRACE_LEVEL_ERROR, TraceDir().c_str(), W(""), LIMIT);
    EXPECT_EQ(nullptr, g_trace.pFile);
}

} // namespace
