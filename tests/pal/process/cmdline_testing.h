// Command line splitting for the tests of both platforms.
#pragma once

#include "pal/shellapi.h"
#include "pal/winbase.h"
#include "tests/support/checks.h"

#include <vector>

namespace orvtest::process {

using Args = std::vector<WString>;

// Splits `line` and frees the block, checking that it is one LocalAlloc block whose pointer
// array ends with a null.
inline Args Split(LPCWSTR line)
{
    int argc = -1;
    LPWSTR* argv = CommandLineToArgvW(line, &argc);
    EXPECT_NE(nullptr, argv);
    if (argv == nullptr)
        return {};
    Args args(argv, argv + argc);
    EXPECT_EQ(nullptr, argv[argc]);
    EXPECT_EQ(nullptr, LocalFree(argv));
    return args;
}

} // namespace orvtest::process
