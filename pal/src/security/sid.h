// SIDs as text ("S-1-5-32-544"), which is how the machine's accounts name them.
#pragma once

#include "pal/windef.h"

#include <string>
#include <string_view>
#include <vector>

namespace pal::detail {

// The text of a valid SID: the authority in decimal, or as 0x and 12 hexadecimal digits when it
// needs more than 32 bits, as Windows writes it; empty for an invalid SID.
std::u16string SidToText(const void* pSid);
// The bytes of the SID a text names ("S-1-" is matched case-insensitively); false when the text
// is no SID.
bool SidFromText(std::u16string_view text, std::vector<BYTE>* pBytes);

} // namespace pal::detail
