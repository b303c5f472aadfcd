// Windows: trustees and access lists come from the SDK's accctrl.h.
#pragma once

#include "pal/windef.h"

#include <accctrl.h>
#include <cstddef>

// IAccessControl reads them in the layouts this layer gives them elsewhere.
static_assert(sizeof(TRUSTEE_W) == 32 && offsetof(TRUSTEE_W, ptstrName) == 24);
static_assert(sizeof(ACTRL_ACCESS_ENTRYW) == 56);
static_assert(offsetof(ACTRL_ACCESS_ENTRYW, fAccessFlags) == 32);
static_assert(offsetof(ACTRL_ACCESS_ENTRYW, lpInheritProperty) == 48);
static_assert(sizeof(ACTRL_ACCESS_ENTRY_LISTW) == 16 && sizeof(ACTRL_PROPERTY_ENTRYW) == 24);
static_assert(sizeof(ACTRL_ACCESSW) == 16);
