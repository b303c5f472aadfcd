// HRESULTs as the tool's commands read and print them.
#pragma once

#include "pal/winerror.h"

#include <string>

namespace orvsim {

// "0x80042306"
std::string Hex(HRESULT hr);
// Says "ERROR: <what> (0x...)." on standard error; 1, the command's failure.
int FailHr(const std::string& what, HRESULT hr);
// A code as a number (decimal or 0x hexadecimal) or its name, for the common COM and RPC
// codes and those the simulations' faults use.
bool ParseCode(const std::string& text, HRESULT* phr);

} // namespace orvsim
