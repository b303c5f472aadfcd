// `make demo`'s program end to end on a machine root of its own: every check holds and the
// story tells the commit, the exposed copy, the service and what was left.
#include "tests/pal/registry/registry_testing.h"
#include "tests/support/paltest.h"

#include <gtest/gtest.h>

namespace {

class DemoTest : public orvtest::PalTest
{};

TEST_F(DemoTest, WholeShadowCopyOfEHoldsEveryCheck)
{
    orvtest::registry::ChildProcess demo({ORVDEMO_EXE, "--root", (Root() / "demo").string()}, {});
    orvtest::registry::ProcessResult result = demo.Wait();
    ASSERT_EQ(0, result.exitCode) << result.out << result.err;
    for (const char* line : {
             "Setup    2 filers, 5 LUNs, 6 host disks; provider installed as service Orvhwsvc "
             "(stopped), TraceMask=4\n",
             "Delete   left behind: 0 snapshots, 0 target LUNs, 0 new disks, 0 shadow copies; X: "
             "gone\n",
             "\nResult   all 19 checks held\n",
         })
        EXPECT_NE(std::string::npos, result.out.find(line)) << line << result.out;
    for (const char* text :
         {"set: OnLoad ", "deletion: OnLoad ", " ms and ended after the release\n",
          "started by COM's activation 2x (set, deletion), stopped by itself 2x; stopped now\n"})
        EXPECT_NE(std::string::npos, result.out.find(text)) << text << result.out;
}

} // namespace
