// The trace text that the code under test wrote to the debugger output, without the
// "[thread] [time] " prefix that starts each line (it changes from run to run). Indentation and
// text are kept, so a test can compare whole lines byte for byte.
#pragma once

#include <string>

namespace orvtest {

// Takes (and so clears) the captured debugger output.
std::string TakeTraceText();

} // namespace orvtest
