// A service's image path, which is Windows command-line text, as the program to run and its
// arguments.
#pragma once

#include "pal/windef.h"

#include <string>
#include <string_view>
#include <vector>

namespace pal::detail::service {

// A quoted first token is the program. Unquoted, the text is cut at each blank in turn and the
// first prefix that names an existing file is the program, as CreateProcess does. The rest is
// split into arguments by the command line's rules. ERROR_FILE_NOT_FOUND when no program exists.
DWORD ResolveImagePath(std::u16string_view imagePath, std::string* pProgram,
                       std::vector<std::string>* pArgs);

} // namespace pal::detail::service
