#include "tests/support/paltest.h"

#include <cstdio>
#include <cstdlib>
#include <thread>
#include <unistd.h>

namespace orvtest {

void PalTest::SetUp()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "orvsim-test-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr) << "cannot create a machine root";
    m_root = pattern;
    setenv("ORVSIM_ROOT", m_root.c_str(), 1);
    pal::ResetForTest();
    pal::CaptureDebugOutput(true);
    pal::CaptureMessageBoxes(true);
}

void PalTest::TearDown()
{
    pal::ResetForTest();
    std::error_code ec;
    std::filesystem::remove_all(m_root, ec);
}

std::filesystem::path PalTest::MakeDir(const std::string& name) const
{
    std::filesystem::path dir = m_root / name;
    std::filesystem::create_directories(dir);
    return dir;
}

bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout)
{
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

std::string HexCode(DWORD value)
{
    char buffer[16];
    std::snprintf(buffer, sizeof(buffer), "0x%08X", value);
    return buffer;
}

::testing::AssertionResult HrEqual(const char* expectedExpr, const char* actualExpr,
                                   HRESULT expected, HRESULT actual)
{
    if (expected == actual)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "Expected equality of these values:\n  " << expectedExpr
           << "\n    Which is: " << HexCode(static_cast<DWORD>(expected)) << "\n  " << actualExpr
           << "\n    Which is: " << HexCode(static_cast<DWORD>(actual));
}

} // namespace orvtest
