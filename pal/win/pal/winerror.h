// Windows: the error codes come from the SDK; the connection point codes (CONNECT_E_*) that
// this layer's winerror.h also declares live in olectl.h there.
#pragma once

#include "pal/windef.h"

#include <olectl.h>
#include <winerror.h>
// The VSS codes that this layer's winerror.h also declares.
#include <vsserror.h>
