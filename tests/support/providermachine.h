// A machine root with orvprov installed as a service (ORVPROV_EXE, copied to
// "Program Files/Orvane") and COM initialised; the service is stopped after each test.
#pragma once

#include "tests/pal/registry/registry_testing.h"
#include "tests/support/paltest.h"

#include "pal/objbase.h"
#include "pal/winsvc.h"

#include <gtest/gtest.h>

namespace orvtest {

class ProviderMachineTest : public PalTest
{
protected:
    void SetUp() override
    {
        PalTest::SetUp();
        m_dir = MakeDir("Program Files/Orvane");
        std::filesystem::copy_file(ORVPROV_EXE, m_dir / "orvprov");
        registry::ChildProcess install(
            {(m_dir / "orvprov").string(), "-r", "service", "-a", "LocalSystem"}, {});
        registry::ProcessResult result = install.Wait();
        ASSERT_EQ(0, result.exitCode) << result.out << result.err;
        ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        m_hManager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
        m_hService = OpenServiceW(m_hManager, W("Orvhwsvc"), SERVICE_ALL_ACCESS);
        ASSERT_NE(nullptr, m_hService);
    }
    void TearDown() override
    {
        SERVICE_STATUS status = {};
        if (m_hService && ControlService(m_hService, SERVICE_CONTROL_STOP, &status)) {
            EXPECT_TRUE(WaitUntil([&] { return State() == SERVICE_STOPPED; }));
        }
        CloseServiceHandle(m_hService);
        CloseServiceHandle(m_hManager);
        CoUninitialize();
        PalTest::TearDown();
    }
    DWORD State()
    {
        SERVICE_STATUS status = {};
        return QueryServiceStatus(m_hService, &status) ? status.dwCurrentState : 0;
    }

    std::filesystem::path m_dir; // where orvprov and its trace files are
    SC_HANDLE m_hManager = nullptr;
    SC_HANDLE m_hService = nullptr;
};

} // namespace orvtest
