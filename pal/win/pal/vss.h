// Windows: the VSS types come from the SDK.
#pragma once

#include "pal/windef.h"

#include <vss.h>

// Ids are passed by value and timestamps in 64 bits: the sizes this layer gives them elsewhere.
static_assert(sizeof(VSS_ID) == 16);
static_assert(sizeof(VSS_TIMESTAMP) == 8);
