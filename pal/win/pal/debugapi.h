// Windows: debugger output come from the SDK.
#pragma once

#include "pal/windef.h"
