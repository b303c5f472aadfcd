#include "tests/diag/support/tracefixture.h"

#include <fstream>
#include <iterator>

namespace orvtest {

void TraceTest::SetUp()
{
    PalTest::SetUp();
    m_dir = MakeDir("bin");
    TraceInit(TRACE_LEVEL_VERBOSE, nullptr, nullptr, 0);
}

void TraceTest::TearDown()
{
    TraceClose();
    TraceInit(TRACE_LEVEL_VERBOSE, nullptr, nullptr, 0);
    PalTest::TearDown();
}

std::u16string TraceTest::TraceDir() const
{
    return Wide(m_dir.string() + "/");
}

void TraceTest::SetDate(WORD wMonth, WORD wDay, WORD wHour, WORD wMinute)
{
    SYSTEMTIME st{};
    st.wYear = 2026;
    st.wMonth = wMonth;
    st.wDay = wDay;
    st.wHour = wHour;
    st.wMinute = wMinute;
    pal::SetLocalTimeForTest(st);
}

bool TraceTest::IsFileOpenLocked()
{
    EnterCriticalSection(&g_traceLock);
    bool fOpen = g_trace.pFile != nullptr;
    LeaveCriticalSection(&g_traceLock);
    return fOpen;
}

DWORD TraceTest::SequenceLocked()
{
    EnterCriticalSection(&g_traceLock);
    DWORD dwSequence = g_trace.dwSequence;
    LeaveCriticalSection(&g_traceLock);
    return dwSequence;
}

void TraceTest::WriteFile(const std::string& name, const std::string& content) const
{
    std::ofstream out(m_dir / name, std::ios::binary);
    out << content;
}

std::string TraceTest::ReadFile(const std::string& name) const
{
    std::ifstream in(m_dir / name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool TraceTest::Exists(const std::string& name) const
{
    return std::filesystem::exists(m_dir / name);
}

} // namespace orvtest
