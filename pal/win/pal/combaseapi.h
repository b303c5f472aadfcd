// Windows: the task allocator and GUID creation come from the SDK.
#pragma once

#include "pal/windef.h"

#include <objbase.h>
