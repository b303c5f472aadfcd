// What the class table asks of the out-of-process path.
#pragma once

#include "pal/objbase.h"

namespace pal::detail::rpc {

// The class object of rclsid, asked as riid, from another running process of the machine that
// published it: a proxy; REGDB_E_CLASSNOTREG when none serves it.
HRESULT GetRemoteClassObject(REFCLSID rclsid, REFIID riid, void** ppv);
// Publishes a class this process registered as a local server, starting the endpoint first.
HRESULT PublishClass(REFCLSID rclsid);
void UnpublishClass(REFCLSID rclsid);

} // namespace pal::detail::rpc

namespace pal::detail {
// The class table's local-server class object of rclsid, with a reference (the endpoint's
// getClassObject); REGDB_E_CLASSNOTREG or CO_E_SERVER_STOPPING as for another process.
HRESULT FindLocalServerClassObject(REFCLSID rclsid, IUnknown** ppUnk);
} // namespace pal::detail
