// The tests' names for the LUN record builder, which the VSS simulation owns (sim/vss).
#pragma once

#include "sim/vss/lunbuilder.h"

namespace orvtest {

using vsssim::AnsiBytes;
using vsssim::CLunBuilder;
using vsssim::CLunRecord;
using vsssim::FreeLunInformation;

} // namespace orvtest
