// The three operations of `orvsim reg`, each in its own file. Each returns the exit code.
#pragma once

#include "reg_args.h"

namespace orvsim::reg {

int RunQuery(const QueryArgs& args);
int RunAdd(const AddArgs& args);
int RunDelete(const DeleteArgs& args);

} // namespace orvsim::reg
