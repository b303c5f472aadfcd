// Windows: CommandLineToArgvW come from the SDK.
#pragma once

#include "pal/windef.h"

#include <shellapi.h>
