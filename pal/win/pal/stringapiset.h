// Windows: the code page conversions come from the SDK.
#pragma once

#include "pal/windef.h"
