// The provider's registration with the Volume Shadow Copy Service, through the coordinator's
// administration interface.
#pragma once

#include "pal/guiddef.h"
#include "pal/windef.h"
#include "pal/winerror.h"

// {6A06B0B5-00E8-44B1-99F0-55FE420B2277}
inline constexpr GUID PROVIDER_ID_OrvaneHardwareProvider = {
    0x6A06B0B5, 0x00E8, 0x44B1, {0x99, 0xF0, 0x55, 0xFE, 0x42, 0x0B, 0x22, 0x77}};
// {F7A15468-1540-44CC-BB3B-FBA5240E1E8E}
inline constexpr GUID PROVIDER_VERSION_ID_OrvaneHardwareProvider = {
    0xF7A15468, 0x1540, 0x44CC, {0xBB, 0x3B, 0xFB, 0xA5, 0x24, 0x0E, 0x1E, 0x8E}};
#define PROVIDER_VERSION_TEXT "6. 0. 0. 2404"

// Registers the provider as a hardware provider. A provider already registered fails with
// VSS_E_PROVIDER_ALREADY_REGISTERED.
HRESULT RegisterVss();
// Removes the registration; a provider that is not registered is no failure.
HRESULT UnregisterVss();
