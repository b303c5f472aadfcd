// Windows: SIDs and their functions come from the SDK.
#pragma once

#include "pal/windef.h"

#include <securitybaseapi.h>
