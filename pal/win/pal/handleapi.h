// Windows: CloseHandle and the handle constants come from the SDK.
#pragma once

#include "pal/windef.h"
