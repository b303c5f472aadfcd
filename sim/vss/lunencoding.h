// LUN records kept in the inventory: a record flattened to bytes and built again from them, so
// that a shadow copy's source and target LUNs can be handed to a provider long after the set
// was made (OnLunEmpty at deletion, and later an import).
#pragma once

#include "pal/vds.h"
#include "pal/winerror.h"

#include <string>

namespace vsssim {

// Every field, each string with whether it is present, every identifier and interconnect.
std::string EncodeLunInformation(const VDS_LUN_INFORMATION& lun);
// Builds a task-allocated record (free it with FreeLunInformation). E_INVALIDARG for bytes that
// EncodeLunInformation did not write, E_OUTOFMEMORY when an allocation fails; `*pLun` is then
// all zero.
HRESULT DecodeLunInformation(const std::string& bytes, VDS_LUN_INFORMATION* pLun);
// A separate copy of `source`, as VSS starts a destination record from the source's.
HRESULT CopyLunInformation(const VDS_LUN_INFORMATION& source, VDS_LUN_INFORMATION* pCopy);

} // namespace vsssim
