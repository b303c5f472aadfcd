// Windows: the error information interfaces come from the SDK.
#pragma once

#include "pal/windef.h"

#include <oaidl.h>
