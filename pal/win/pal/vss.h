// Windows: the VSS types come from the SDK.
#pragma once

#include "pal/windef.h"

#include <vss.h>
