// The enumerator a query hands out: a fixed list of records taken when the query ran.
#pragma once

#include "state.h"

#include "pal/vss.h"

#include <memory>
#include <vector>

namespace vsssim::detail {

// A new enumerator over `records`, positioned at the first, with one reference for the caller.
HRESULT CreateProviderEnum(std::shared_ptr<const std::vector<ProviderRecord>> records,
                           IVssEnumObject** ppEnum);

} // namespace vsssim::detail
