// Windows: the module functions come from the SDK.
#pragma once

#include "pal/windef.h"
