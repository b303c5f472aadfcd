// How a VDS LUN record travels between processes: every field; the identity strings with a null
// one kept apart from an empty one; the device id descriptor with each identifier's bytes; the
// interconnects with their port and address bytes. A record decoded on either side is built of
// task allocator blocks that it owns, as the records VSS hands to a provider are.
#pragma once

#include "pal/src/com/rpc/describe.h"
#include "pal/vds.h"

namespace pal::detail::rpc {

template <>
struct Coding<VDS_LUN_INFORMATION>
{
    // The fixed fields, four null strings and no identifier or interconnect.
    static constexpr size_t kMinBytes = 5 * 4 + 4 * 4 + sizeof(GUID) + 3 * 4;
    static void Put(CWriter& writer, const VDS_LUN_INFORMATION& lun);
    static HRESULT Get(CReader& reader, VDS_LUN_INFORMATION* pLun);
    static void Free(VDS_LUN_INFORMATION& lun);
};

} // namespace pal::detail::rpc
