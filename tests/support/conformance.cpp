// The conformance fixture on Linux: the machine root and resets of every other test, and the
// program's string table and type library, which Windows finds in the image.
#include "tests/support/conformance.h"

#include "res/strings.h"
#include "res/typelib.h"
#include "tests/support/paltest.h"

namespace orvtest {

void ConformanceTest::SetUp()
{
    m_root = BeginMachineRoot();
    ASSERT_FALSE(m_root.empty()) << "cannot create a machine root";
    OrvRegisterStringTable();
    OrvRegisterTypeLib();
}

void ConformanceTest::TearDown()
{
    PalRegisterStringTable(nullptr, 0);
    PalRegisterResource(ORV_TYPELIB_RESOURCE_TYPE, ORV_TYPELIB_RESOURCE_ID, nullptr, 0);
    EndMachineRoot(m_root);
}

} // namespace orvtest
