// Trace files: naming, first open, rollover, size accounting and failures to open.
#include "tests/diag/support/diagfixture.h"

#include <string>

namespace {

constexpr DWORD LIMIT = 102400;

class TraceFileTest : public orvtest::TraceTest
{
protected:
    // Opens the log on 7 March in a trace directory holding only `files` (16 bytes each).
    void Open(DWORD dwLevel = TRACE_LEVEL_ERROR, const std::vector<std::string>& files = {})
    {
        std::filesystem::remove_all(m_dir);
        std::filesystem::create_directories(m_dir);
        for (const std::string& name : files)
            WriteFile(name, "sixteen bytes!\r\n");
        SetDate(3, 7);
        TraceInit(dwLevel, TraceDir().c_str(), W("orvp"), LIMIT);
    }
};

TEST_F(TraceFileTest, SizeLimitIsNormalised)
{
    const DWORD cases[][2] = {
        {0, 104857600},   {1, 102400},      {50000, 102400},      {102399, 102400},
        {102400, 102400}, {102401, 102401}, {10485760, 10485760},
    };
    for (const auto& c : cases) {
        TraceInit(0, nullptr, nullptr, c[0]);
        EXPECT_EQ(c[1], g_trace.dwMaxFileSize) << "given " << c[0];
    }
}

TEST_F(TraceFileTest, FirstOpenCreatesNumberZeroAndWritesCrLfCountedOnce)
{
    Open(TRACE_LEVEL_INFO);
    TraceW(W("hello\n"));
    EXPECT_EQ(12u, g_trace.dwBytesCounted);
    TraceClose();
    EXPECT_EQ("hello\r\n", ReadFile("orvp03070000.log"));
    Open();
    TraceA("a\nb\n");
    EXPECT_EQ(4u, g_trace.dwBytesCounted);
    TraceClose();
    EXPECT_EQ("a\r\nb\r\n", ReadFile("orvp03070000.log"));
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
    const struct
    {
        std::vector<std::string> existing;
        DWORD dwSequence;
        DWORD dwBytesCounted;
    } cases[] = {
        {{"orvp03070000.log", "orvp03070001.log", "orvp03070002.log", "orvp03070003.log",
          "orvp03070004.log"},
         4,
         16},
        {{"orvp03070000.log"}, 0, 0},
        {{"orvp0307abcd.log"}, 0, 0}, // letters read as zero
        {{"orvp030712ab.log"}, 12, 16},
        {{"orvp030712345.log", "orvp03070001.log"}, 1, 16}, // wrong length ignored
        {{"orvp03060009.log", "orvp03070001.log"}, 1, 16},  // another day ignored
        {{"trcp03070009.log"}, 0, 0},                       // another prefix ignored
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.existing[0]);
        Open(TRACE_LEVEL_ERROR, c.existing);
        EXPECT_EQ(c.dwSequence, g_trace.dwSequence);
        EXPECT_EQ(c.dwBytesCounted, g_trace.dwBytesCounted);
        TraceClose();
    }
}

TEST_F(TraceFileTest, LineRollsOverWhenItWouldPassTheLimit)
{
    const std::u16string line(100, u'x'); // 200 bytes as the log counts them
    const struct
    {
        DWORD dwCountedBefore;
        bool fRollover;
    } cases[] = {{LIMIT - 199, true}, {LIMIT - 200, false}, {LIMIT, true}};
    for (const auto& c : cases) {
        Open();
        g_trace.dwBytesCounted = c.dwCountedBefore;
        TraceW(W("%s"), line.c_str());
        EXPECT_EQ(c.fRollover ? 1u : 0u, g_trace.dwSequence) << c.dwCountedBefore;
        EXPECT_EQ(c.fRollover ? 200u : c.dwCountedBefore + 200, g_trace.dwBytesCounted);
        TraceClose();
        EXPECT_EQ(c.fRollover, Exists("orvp03070001.log"));
    }
    Open();
    g_trace.dwBytesCounted = LIMIT - 100;
    TraceA("%s", std::string(100, 'n').c_str());
    EXPECT_EQ(0u, g_trace.dwSequence) << "a narrow character counts one byte";
    EXPECT_EQ(LIMIT, g_trace.dwBytesCounted);
    TraceA("z");
    EXPECT_EQ(1u, g_trace.dwSequence);
    EXPECT_EQ(1u, g_trace.dwBytesCounted);
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
    WriteFile("orvp03079999.log", "x");
    WriteFile("orvp03070000.log", "old number zero\r\n");
    SetDate(3, 7);
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
    Open();
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

TEST_F(TraceFileTest, FailedOpensAndSearches)
{
    pal::InjectFault("_wfopen", ERROR_ACCESS_DENIED);
    Open();
    EXPECT_EQ(nullptr, g_trace.pFile);
    TraceA("lost to the file\n");
    EXPECT_EQ(0u, g_trace.dwBytesCounted);
    EXPECT_EQ("lost to the file\n", pal::TakeDebugOutputText()) << "the debugger still gets it";
    pal::ClearFaults();
    TraceSetLevel(TRACE_LEVEL_INFO);
    EXPECT_NE(nullptr, g_trace.pFile) << "a later first open succeeds";

    pal::InjectFault("_wfopen", ERROR_DISK_FULL);
    g_trace.dwBytesCounted = LIMIT;
    TraceA("no room\n");
    EXPECT_EQ(nullptr, g_trace.pFile) << "a failed rollover stops file output";
    EXPECT_FALSE(Exists("orvp03070001.log"));
    pal::ClearFaults();

    pal::InjectFault("FindFirstFileW", ERROR_ACCESS_DENIED);
    Open(TRACE_LEVEL_ERROR, {"orvp03070005.log"});
    EXPECT_EQ(0u, g_trace.dwSequence) << "an unsearchable directory starts at number zero";
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
