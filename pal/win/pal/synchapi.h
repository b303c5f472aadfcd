// Windows: critical sections, events and waits come from the SDK.
#pragma once

#include "pal/windef.h"
