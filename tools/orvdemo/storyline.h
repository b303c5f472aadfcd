// The demonstration's output: labelled lines of the story, the checks it makes, and the plain
// text forms of what it shows (ids, durations, service states, events).
#pragma once

#include "pal/guiddef.h"
#include "pal/paleventlog.h"
#include "pal/windef.h"
#include "pal/winerror.h"

#include <string>
#include <vector>

namespace orvdemo {

class CStoryline
{
public:
    void Title(const std::string& text);
    // "Label    text", the label in a column of its own (empty: a continuation line).
    void Line(const std::string& label, const std::string& text);
    // Records a check; a failed one is told at once with its code. Returns whether it held.
    bool Check(const std::string& name, bool fHeld);
    bool Check(const std::string& name, HRESULT hr);
    // The verdict line; 0 when every check held, 1 otherwise.
    int Finish();

private:
    size_t m_cChecks = 0;
    std::vector<std::string> m_failed;
};

// "12.3 ms"
std::string Ms(LONGLONG llNanoseconds);
// "stopped", "running", ...
std::string StateName(DWORD dwState);
// "Information Orvhwsvc 4102 (pid 1234): first line of the message"
std::string EventSummary(const pal::EventLogRecord& record);

} // namespace orvdemo
