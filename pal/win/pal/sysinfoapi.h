// Windows: the OS version, processor and time functions come from the SDK.
#pragma once

#include "pal/windef.h"
