// Windows: threads and process ids come from the SDK.
#pragma once

#include "pal/windef.h"
