// The conformance fixture on Linux: the machine root and resets of every other test, and the
// program's string table, which Windows finds in the image.
#include "tests/support/conformance.h"

#include "res/strings.h"
#include "tests/support/paltest.h"

namespace orvtest {

void ConformanceTest::SetUp()
{
    m_root = BeginMachineRoot();
    ASSERT_FALSE(m_root.empty()) << "cannot create a machine root";
    OrvRegisterStringTable();
}

void ConformanceTest::TearDown()
{
    PalRegisterStringTable(nullptr, 0);
    EndMachineRoot(m_root);
}

} // namespace orvtest
