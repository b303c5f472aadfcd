// Many threads tracing at once into rolling files: nothing lost, nothing torn.
#include "pal/handleapi.h"
#include "pal/processthreadsapi.h"
#include "pal/synchapi.h"
#include "tests/diag/support/diagfixture.h"

#include <fstream>

namespace {

using TraceThreadsTest = orvtest::TraceTest;

constexpr int THREADS = 4;
constexpr int LINES = 500;

DWORD WINAPI TraceLines(LPVOID)
{
    CTraceScope scope(W("Worker"));
    for (int i = 0; i < LINES; ++i)
        TraceA("worker line %04d with some padding to fill the files sooner\n", i);
    return 0;
}

TEST_F(TraceThreadsTest, EveryLineReachesExactlyOneFile)
{
    SetDate(3, 7);
    TraceInit(TRACE_LEVEL_INFO, TraceDir().c_str(), W("orvp"), 102400);
    pal::CaptureDebugOutput(false);
    HANDLE rgThreads[THREADS];
    for (HANDLE& h : rgThreads) {
        h = CreateThread(nullptr, 0, TraceLines, nullptr, 0, nullptr);
        ASSERT_NE(nullptr, h);
    }
    TraceSetLevel(TRACE_LEVEL_ERROR); // a level change while others write
    for (HANDLE h : rgThreads) {
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(h, INFINITE));
        CloseHandle(h);
    }
    TraceClose();

    size_t cLines = 0;
    for (const auto& entry : std::filesystem::directory_iterator(m_dir)) {
        std::ifstream in(entry.path());
        std::string line;
        while (std::getline(in, line))
            cLines += line.find("worker line") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(static_cast<size_t>(THREADS * LINES), cLines);
    EXPECT_GE(g_trace.dwSequence, 1u) << "the files rolled over";
}

} // namespace
