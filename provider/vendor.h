// Recognition of the provider's own LUNs by their SCSI vendor id. Both tests compare UTF-16
// code units exactly (case-sensitive, no trimming); callers convert the record's ANSI vendor
// id with AnsiToUnicode first.
#pragma once

#include "pal/windef.h"

// The vendor id that the provider's storage systems report.
inline constexpr WCHAR ORVANE_VENDOR_ID[] = W("ORVANE");
inline constexpr int ORVANE_VENDOR_ID_CCH = 6;

// The whole vendor id is the provider's: a padded id ("ORVANE  ") does not pass.
BOOL IsOrvaneVendorId(LPCWSTR pszVendorId);

// The vendor id begins with the provider's, so that a blank-padded id still passes.
BOOL HasOrvaneVendorPrefix(LPCWSTR pszVendorId);
