// Windows: GUID and its comparisons come from the SDK, GUID_NULL from cguid.h.
#pragma once

#include "pal/windef.h"

#include <cguid.h>
#include <guiddef.h>
