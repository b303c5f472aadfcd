// The trace dump of a VDS LUN record, written at trace level 3 and above.
#pragma once

#include "pal/vds.h"
#include "pal/windef.h"

// `pszLabel` names the record in the header line ("Source", "Destination", ...); null leaves
// the label out.
void DumpLunInformation(const VDS_LUN_INFORMATION& lun, LPCWSTR pszLabel = nullptr);
