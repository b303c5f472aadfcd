// The phases of a shadow copy set as the provider's trace file tells them: each traced call of
// the provider's VSS interfaces with the time between its "entered" and "exited" lines.
#pragma once

#include <string>
#include <vector>

namespace orvdemo {

struct TracePhase
{
    std::string name; // "BeginPrepareSnapshot", the method without its class
    long lMilliseconds;
};

// Reads every orvp*.log file of the directory, oldest name first. The trace's line prefix is
// "[thread] [MM/DD hh:mm:ss mmm] " (a thread's first line has none: it takes the time of the
// line before); a scope is "Class::Method() entered" then "... exited". Only the scopes of the
// methods VSS calls on the provider object (COrvaneHardwareProvider::) are kept, in the order
// they ended; VSS calls them one at a time.
std::vector<TracePhase> ReadTracePhases(const std::string& directory);

} // namespace orvdemo
