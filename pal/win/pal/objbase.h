// Windows: COM's functions, interfaces and IIDs come from the SDK; __uuidof as this layer
// declares it for its own interfaces.
#pragma once

#include "pal/uuidof.h"
#include "pal/windef.h"

#include <objbase.h>
