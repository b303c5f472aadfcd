// What the COM runtime's implementation files share.
#pragma once

#include "pal/windef.h"
#include "pal/winerror.h"

namespace pal::detail {

// The calling thread may use COM: it initialised, or the process has a multithreaded
// apartment that it belongs to implicitly.
bool ComInitializedOnThread();
// The injected fault of a COM function as its HRESULT, S_OK when none applies.
HRESULT InjectedComFault(const char* api, const WCHAR* arg);

} // namespace pal::detail
