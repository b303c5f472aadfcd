// Windows: the connection point interfaces come from the SDK, their error codes from olectl.h.
#pragma once

#include "pal/uuidof.h"
#include "pal/windef.h"

#include <ocidl.h>
#include <olectl.h>
