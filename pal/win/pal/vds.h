// Windows: the VDS LUN information record and its parts come from the SDK's vdslun.h (mingw-w64's
// vds.h does not compile on its own: it defines the same types and then includes vdslun.h).
#pragma once

#include "pal/windef.h"

#include <vdslun.h>

// The records cross the VSS interface unchanged: the layouts this layer gives them elsewhere.
static_assert(sizeof(VDS_STORAGE_IDENTIFIER) == 24);
static_assert(sizeof(VDS_STORAGE_DEVICE_ID_DESCRIPTOR) == 16);
static_assert(sizeof(VDS_INTERCONNECT) == 32);
static_assert(sizeof(VDS_LUN_INFORMATION) == 96);
static_assert(offsetof(VDS_LUN_INFORMATION, m_diskSignature) == 48);
static_assert(offsetof(VDS_LUN_INFORMATION, m_rgInterconnects) == 88);
