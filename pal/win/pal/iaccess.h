// Windows: IAccessControl and its IID come from the SDK's iaccess.h, CLSID_DCOMAccessControl
// from cguid.h (both defined in libuuid). mingw-w64 pairs no IID with the interface, so __uuidof
// is declared here as for the program's own interfaces.
#pragma once

#include "pal/accctrl.h"
#include "pal/uuidof.h"
#include "pal/windef.h"

#include <cguid.h>
#include <iaccess.h>

PAL_DEFINE_UUIDOF(IAccessControl, IID_IAccessControl);
