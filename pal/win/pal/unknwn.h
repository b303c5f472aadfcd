// Windows: IUnknown and the interface macros come from the SDK.
#pragma once

#include "pal/windef.h"

#include <unknwn.h>
