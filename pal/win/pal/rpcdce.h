// Windows: the RPC authentication and impersonation levels come from the SDK.
#pragma once

#include "pal/windef.h"

#include <rpc.h>
