// The fixture of the platform conformance cases (tests/pal/<area>/conformance): the same test
// sources check this layer on Linux and Windows itself (under Wine), in the manner of Wine's
// own conformance tests. They call only Win32 functions, never the test controls of
// pal/palcontrol.h.
//
// On Linux every case gets a fresh machine root and a reset platform layer, as PalTest gives,
// LoadStringW reads the program's string table (res/orvprov.rc) and LoadTypeLib its type
// library (res/orvprov.idl) as from Windows' image.
// On Windows the state is the machine's, so a case removes what it creates.
#pragma once

#include "tests/support/checks.h"

#include <gtest/gtest.h>

#include <string>

namespace orvtest {

class ConformanceTest : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

private:
    std::string m_root; // the machine root on Linux; empty on Windows
};

} // namespace orvtest
