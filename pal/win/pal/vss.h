// Windows: the VSS types come from the SDK.
#pragma once

#include "pal/windef.h"

#include <cstddef>
#include <vss.h>

// Ids are passed by value and timestamps in 64 bits: the sizes this layer gives them elsewhere.
static_assert(sizeof(VSS_ID) == 16);
static_assert(sizeof(VSS_TIMESTAMP) == 8);

// The coordinator's records cross its interface unchanged: the layouts this layer gives them
// elsewhere.
static_assert(sizeof(VSS_SNAPSHOT_PROP) == 128);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_ProviderId) == 88);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_tsCreationTimestamp) == 112);
static_assert(offsetof(VSS_SNAPSHOT_PROP, m_eStatus) == 120);
static_assert(sizeof(VSS_PROVIDER_PROP) == 72);
static_assert(offsetof(VSS_PROVIDER_PROP, m_eProviderType) == 24);
static_assert(offsetof(VSS_PROVIDER_PROP, m_pwszProviderVersion) == 32);
static_assert(offsetof(VSS_PROVIDER_PROP, m_ClassId) == 56);
static_assert(sizeof(VSS_OBJECT_PROP) == 136);
static_assert(offsetof(VSS_OBJECT_PROP, Obj) == 8);
