// Starting the server of a class that no process of the machine serves yet, as COM's own
// service control manager does.
#pragma once

#include "pal/objbase.h"

#include <sys/types.h>

namespace pal::detail::rpc {

class CServerLaunch
{
public:
    // Through the class's AppID "LocalService" the service control manager starts the service
    // (the AppID's "ServiceParameters" its arguments); else "LocalServer32" runs with
    // "-Embedding" under the caller's account. REGDB_E_CLASSNOTREG when the registry names
    // neither; the start's own failure as an HRESULT.
    HRESULT Start(REFCLSID rclsid);
    // The server this launch found or started has ended.
    bool Ended() const;
    // A service that was already running when the launch came may have been on its way out:
    // once it has stopped, it may be started again.
    bool MayStartAgain() const { return m_fService && !m_fStartedHere; }

private:
    bool m_fService = false;
    bool m_fStartedHere = false;
    LONGLONG m_llServiceId = 0;
    pid_t m_pid = -1;
};

} // namespace pal::detail::rpc
