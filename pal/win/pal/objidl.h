// Windows: IClassFactory and ICallFactory come from the SDK.
#pragma once

#include "pal/windef.h"

#include <objidl.h>
