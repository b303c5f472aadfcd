// The conformance fixture on Windows: the machine is Windows (or Wine) itself, left as it is.
#include "tests/support/conformance.h"

namespace orvtest {

void ConformanceTest::SetUp() {}

void ConformanceTest::TearDown() {}

} // namespace orvtest
