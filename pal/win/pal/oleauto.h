// Windows: BSTRs and the error information functions come from the SDK.
#pragma once

#include "pal/windef.h"

#include <oleauto.h>
