// `orvsim vssadmin list shadows` and `delete shadows`: the machine's shadow copies with
// vssadmin's records, and their deletion through the VSS simulation.
#pragma once

#include "pal/winerror.h"

#include <string>
#include <vector>

namespace orvsim {

// Each runs with COM initialised in the calling thread, after the banner, with the options
// that followed the two words ("/Set={...}", "/Quiet"), and answers the tool's exit code.
int ListShadows(const std::vector<std::string>& options);
int DeleteShadows(const std::vector<std::string>& options);

// vssadmin's line for a failure on standard error; answers 1.
int VssadminFail(HRESULT hr);
// vssadmin's line for a command line it does not take; answers 1.
int VssadminUsageError(const std::string& message);

} // namespace orvsim
