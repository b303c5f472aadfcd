// Value types and data of `orvsim reg`: names, the text `add /d` takes and the text `query`
// prints, as reg.exe has them.
#pragma once

#include "pal/windows.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvsim::reg {

// REG_SZ, REG_DWORD, ... (case-insensitive); nullopt for a name reg.exe does not take.
std::optional<DWORD> TypeFromName(std::string_view name);
std::string TypeName(DWORD dwType);

// The bytes `reg add /t type /d text` stores. Strings are stored with their terminator,
// REG_MULTI_SZ items are split at `separator` (reg.exe's default is the two characters \0),
// numbers are decimal or 0x hexadecimal, REG_BINARY and REG_NONE take hexadecimal digits.
// nullopt when the text does not fit the type.
std::optional<std::vector<BYTE>> EncodeData(DWORD dwType, std::string_view text,
                                            std::string_view separator);

// The data as `reg query` shows it: strings up to their terminator, REG_MULTI_SZ items joined
// by \0, numbers as 0x hexadecimal, anything else as hexadecimal digits.
std::string FormatData(DWORD dwType, const std::vector<BYTE>& data);

// "    Name    REG_TYPE    data", the default value's name being "(Default)".
std::string FormatValueLine(std::u16string_view name, DWORD dwType, const std::vector<BYTE>& data);

} // namespace orvsim::reg
