// The LUN information helpers of the provider front: string conversions, the trace dump,
// vendor recognition, the provider's interconnect and the parsing of Path2.
#pragma once

#include "provider/interconnect.h"
#include "provider/lundump.h"
#include "provider/lunpath.h"
#include "provider/strings.h"
#include "provider/vendor.h"
