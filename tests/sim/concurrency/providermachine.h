// A machine root with the storage initialised and orvprov installed as a service, as the VSS
// simulation's shadow copy tests need it; the service is stopped after each test.
#pragma once

#include "sim/storage/storagesim.h"
#include "sim/vss/vsssim.h"
#include "tests/pal/registry/registry_testing.h"
#include "tests/support/paltest.h"

#include "pal/objbase.h"
#include "pal/winsvc.h"

#include <gtest/gtest.h>

namespace orvtest {

class ProviderMachineTest : public PalTest
{
protected:
    static constexpr LONG kPersistent =
        LONG{VSS_CTX_BACKUP} | VSS_VOLSNAP_ATTR_PERSISTENT | VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE;

    void SetUp() override
    {
        PalTest::SetUp();
        ASSERT_HR(S_OK, storagesim::InitializeState("", ""));
        std::filesystem::path dir = MakeDir("Program Files/Orvane");
        std::filesystem::copy_file(ORVPROV_EXE, dir / "orvprov");
        registry::ChildProcess install(
            {(dir / "orvprov").string(), "-r", "service", "-a", "LocalSystem"}, {});
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
            EXPECT_TRUE(WaitUntil([&] {
                return QueryServiceStatus(m_hService, &status) &&
                       status.dwCurrentState == SERVICE_STOPPED;
            }));
        }
        CloseServiceHandle(m_hService);
        CloseServiceHandle(m_hManager);
        CoUninitialize();
        PalTest::TearDown();
    }
    static std::vector<vsssim::ShadowCopyInfo> Inventory()
    {
        std::vector<vsssim::ShadowCopyInfo> copies;
        EXPECT_HR(S_OK, vsssim::QueryShadowCopies(&copies));
        return copies;
    }

    SC_HANDLE m_hManager = nullptr;
    SC_HANDLE m_hService = nullptr;
};

} // namespace orvtest
