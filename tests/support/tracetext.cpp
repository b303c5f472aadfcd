#include "tests/support/tracetext.h"

#include "pal/palcontrol.h"

#include <regex>

namespace orvtest {

std::string TakeTraceText()
{
    // The trace writes the prefix as an output of its own, so it can be dropped whole.
    static const std::regex prefix(R"(\[\d{6,}\] \[\d\d/\d\d \d\d:\d\d:\d\d \d\d\d\] )");
    std::string text;
    for (const std::u16string& piece : pal::TakeDebugOutput()) {
        std::string narrow = pal::Utf16ToUtf8(piece);
        if (!std::regex_match(narrow, prefix))
            text += narrow;
    }
    return text;
}

} // namespace orvtest
