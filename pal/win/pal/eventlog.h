// Windows: the event source functions come from the SDK.
#pragma once

#include "pal/windef.h"
