// Windows: everything <windows.h> gives, with what this layer adds on both platforms.
#pragma once

#include "pal/interlockedapi.h"
#include "pal/windef.h"
#include "pal/winerror.h"
