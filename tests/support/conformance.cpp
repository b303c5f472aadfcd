// The conformance fixture on Linux: the machine root and resets of every other test.
#include "tests/support/conformance.h"

#include "tests/support/paltest.h"

namespace orvtest {

void ConformanceTest::SetUp()
{
    m_root = BeginMachineRoot();
    ASSERT_FALSE(m_root.empty()) << "cannot create a machine root";
}

void ConformanceTest::TearDown()
{
    EndMachineRoot(m_root);
}

} // namespace orvtest
