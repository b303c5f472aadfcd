// The injected faults at VSS's points of a shadow copy set, as the engine meets them (the rules
// themselves: SetFault in vsssim.h).
#pragma once

#include "providertime.h"

#include "pal/winerror.h"

#include <string>

namespace vsssim::detail {

// Ends the process with the rule's exit code when a "Kill:<point>" rule is set, consuming it.
void EndProcessIfInjected(const std::string& point);
// The code of the "<kind>:<point>" rule (or "HoldWrites"), consuming one time; S_OK when there
// is none.
HRESULT InjectedFault(const std::string& name);

// VSS's call of the provider's `method`: a kill rule ends VSS's process first, a call rule
// fails the call on its way, before it reaches the provider.
template <class Call>
HRESULT CallProvider(const char* method, Call call)
{
    EndProcessIfInjected(method);
    HRESULT hr = InjectedFault(std::string("Call:") + method);
    if (FAILED(hr))
        return hr;
    CProviderCallTimer timer;
    return call();
}

} // namespace vsssim::detail
