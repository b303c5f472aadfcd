// Windows: OLECHAR and BSTR come from the SDK.
#pragma once

#include "pal/windef.h"

#include <wtypes.h>
