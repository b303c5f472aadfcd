// Windows: GetLastError and SetLastError come from the SDK.
#pragma once

#include "pal/windef.h"
