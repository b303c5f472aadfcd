// Windows: the provider interfaces come from the SDK's vsprov.h, which declares their IIDs
// (defined in libuuid) and pairs each interface with its IID for __uuidof. The VSS and VDS
// headers of this layer come first, so that the records keep the layouts asserted there.
#pragma once

#include "pal/vds.h"
#include "pal/vss.h"
#include "pal/windef.h"

#include <vsprov.h>
