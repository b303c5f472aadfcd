// Windows: file search come from the SDK.
#pragma once

#include "pal/windef.h"
