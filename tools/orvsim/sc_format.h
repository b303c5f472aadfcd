// What `orvsim sc` prints: sc.exe's blocks for a service's status and configuration, its
// failure lines, and the system's texts of the errors the service control manager returns.
#pragma once

#include "pal/palcontrol.h"
#include "pal/winsvc.h"

#include <string>
#include <vector>

namespace orvsim::sc {

// sc.exe's status block: "SERVICE_NAME: ..." then TYPE, STATE (with the controls accepted
// unless stopped), the exit codes, CHECKPOINT and WAIT_HINT; with fProcess, PID and FLAGS.
std::string FormatStatus(const std::string& name, const SERVICE_STATUS_PROCESS& status,
                         bool fProcess);
// `sc qc`'s block, after its success line.
std::string FormatConfig(const std::string& name, const QUERY_SERVICE_CONFIGW& config);
// One recorded report: time, process, state, check point, wait hint, exit codes, recorder.
std::string FormatReport(const pal::ServiceStatusReport& report);

// FormatMessage's text of a Win32 error, without its line end.
std::string SystemMessage(DWORD dwError);
// "[SC] <what> FAILED <code>:\n\n<text>\n\n" on standard output, as sc.exe writes it; returns
// the code, which is also the exit code.
int Failed(const std::string& what, DWORD dwError);

std::string Narrow(const WCHAR* text);

} // namespace orvsim::sc
