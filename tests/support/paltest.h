// The base fixture of every test: a fresh machine root, captured debugger output and message
// boxes, and the platform's clock and faults reset before and after the test.
#pragma once

#include "pal/palcontrol.h"
#include "tests/support/checks.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>

namespace orvtest {

class PalTest : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    // The test's own machine root ($ORVSIM_ROOT).
    const std::filesystem::path& Root() const { return m_root; }
    // A fresh directory under the machine root.
    std::filesystem::path MakeDir(const std::string& name) const;

private:
    std::filesystem::path m_root;
};

// A fresh machine root ($ORVSIM_ROOT, empty on failure) with the platform layer reset, and
// its removal: what PalTest does around each test.
std::string BeginMachineRoot();
void EndMachineRoot(const std::string& root);

// Polls `condition` (real time, 1 ms steps) until it holds or `timeout` passes; for waiting on
// another thread's visible effect, never for timing.
bool WaitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds timeout = std::chrono::seconds(20));

} // namespace orvtest
