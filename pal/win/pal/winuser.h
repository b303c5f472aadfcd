// Windows: wsprintf, message boxes and string resources come from the SDK.
#pragma once

#include "pal/windef.h"
