// Test programs' entry: every process gets a machine root of its own even outside a fixture.
#include "pal/palcontrol.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <unistd.h>

namespace {

class MachineRootEnvironment : public ::testing::Environment
{
public:
    void SetUp() override
    {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "orvsim-run-XXXXXX").string();
        if (mkdtemp(pattern.data())) {
            m_root = pattern;
            setenv("ORVSIM_ROOT", pattern.c_str(), 1);
        }
    }
    void TearDown() override
    {
        std::error_code ec;
        if (!m_root.empty())
            std::filesystem::remove_all(m_root, ec);
    }

private:
    std::filesystem::path m_root;
};

}  // namespace

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::AddGlobalTestEnvironment(new MachineRootEnvironment);
    return RUN_ALL_TESTS();
}
