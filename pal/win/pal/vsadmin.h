// Windows: the coordinator's administration interface, its IID and CLSID_VSSCoordinator come
// from the SDK's vsadmin.h (defined in libuuid; mingw-w64 pairs IVssAdmin with its IID for
// __uuidof). The VSS header of this layer comes first, so that the records keep the layouts
// asserted there.
#pragma once

#include "pal/vss.h"
#include "pal/windef.h"

#include <vsadmin.h>
