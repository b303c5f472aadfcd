// Windows: the lstr functions and the local heap come from the SDK.
#pragma once

#include "pal/windef.h"
