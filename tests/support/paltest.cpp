#include "tests/support/paltest.h"

#include <cstdlib>
#include <thread>
#include <unistd.h>

namespace orvtest {

std::string BeginMachineRoot()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "orvsim-test-XXXXXX").string();
    if (!mkdtemp(pattern.data()))
        return {};
    setenv("ORVSIM_ROOT", pattern.c_str(), 1);
    pal::ResetForTest();
    pal::CaptureDebugOutput(true);
    pal::CaptureMessageBoxes(true);
    return pattern;
}

void EndMachineRoot(const std::string& root)
{
    pal::ResetForTest();
    std::error_code ec;
    if (!root.empty())
        std::filesystem::remove_all(root, ec);
}

void PalTest::SetUp()
{
    std::string root = BeginMachineRoot();
    ASSERT_FALSE(root.empty()) << "cannot create a machine root";
    m_root = root;
}

void PalTest::TearDown()
{
    EndMachineRoot(m_root.string());
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

} // namespace orvtest
