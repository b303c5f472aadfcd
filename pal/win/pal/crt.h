// Windows: the C runtime's wide-string and stream functions come from the SDK's runtime.
#pragma once

#include "pal/windef.h"

#include <stdio.h>
#include <wchar.h>
