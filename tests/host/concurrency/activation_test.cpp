// The installed provider as COM's clients reach it from other processes: the first activation
// starts its service, its security refuses a plain user, and the service ends by itself once
// its last client has gone, whether released or killed, or drains a stop while one holds it.
#include "pal/objbase.h"
#include "pal/processthreadsapi.h"
#include "pal/synchapi.h"
#include "pal/vsprov.h"
#include "pal/winsvc.h"
#include "tests/host/support/tracefiles.h"
#include "tests/pal/registry/registry_testing.h"
#include "tests/support/pipedchild.h"
#include "tests/support/providermachine.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

// {C7F1D659-6F48-45AA-93D2-D99414EA5190}
constexpr CLSID kClsidProvider = {
    0xC7F1D659, 0x6F48, 0x45AA, {0x93, 0xD2, 0xD9, 0x94, 0x14, 0xEA, 0x51, 0x90}};
constexpr char kClsidText[] = "{C7F1D659-6F48-45AA-93D2-D99414EA5190}";

class ProviderActivationTest : public orvtest::ProviderMachineTest
{
protected:
    void SetUp() override
    {
        // The service's drain of three 10-second waits passes in 30 ms.
        setenv("ORVSIM_CLOCK_SCALE", "1000", 1);
        ProviderMachineTest::SetUp();
    }
    void TearDown() override
    {
        ProviderMachineTest::TearDown();
        unsetenv("ORVSIM_CLOCK_SCALE");
    }
};

TEST_F(ProviderActivationTest, StartsTheServiceAndStopsItAfterTheLastRelease)
{
    struct
    {
        const char16_t* pszAccount;
        HRESULT hr;
    } const kRows[] = {{u"User", E_ACCESSDENIED}, {u"Administrator", S_OK}};
    for (const auto& row : kRows) {
        ASSERT_TRUE(pal::SetProcessAccount(row.pszAccount));
        IUnknown* pProvider = nullptr;
        EXPECT_HR(row.hr, CoCreateInstance(kClsidProvider, nullptr, CLSCTX_LOCAL_SERVER,
                                           IID_IUnknown, reinterpret_cast<void**>(&pProvider)));
        // Started by the first activation, refused or not.
        EXPECT_TRUE(orvtest::WaitUntil([&] { return State() == SERVICE_RUNNING; }));
        if (!pProvider)
            continue;
        // The provider's own interfaces reach the object in the service.
        IVssHardwareSnapshotProviderEx* pHardware = nullptr;
        ASSERT_HR(S_OK, pProvider->QueryInterface(IID_IVssHardwareSnapshotProviderEx,
                                                  reinterpret_cast<void**>(&pHardware)));
        ULONGLONG ullMask = 0;
        EXPECT_HR(VSS_E_PROVIDER_VETO, pHardware->GetProviderCapabilities(&ullMask));
        pHardware->Release();
        pProvider->Release();
    }
    EXPECT_TRUE(orvtest::WaitUntil([&] { return State() == SERVICE_STOPPED; }));
    EXPECT_EQ(std::string::npos,
              orvtest::host::TraceText(m_dir).find("Waiting for module lock count"));
}

TEST_F(ProviderActivationTest, StopsAfterItsKilledClientIsRunDown)
{
    // The client's own activation waits for the service on an unscaled clock.
    unsetenv("ORVSIM_CLOCK_SCALE");
    orvtest::CPipedChild client(ORV_COMSERVER_EXE, {"hold", "2", kClsidText});
    ASSERT_EQ("held\n", client.Line());
    EXPECT_TRUE(orvtest::WaitUntil([&] { return State() == SERVICE_RUNNING; }));
    client.Kill();
    EXPECT_TRUE(orvtest::WaitUntil([&] { return State() == SERVICE_STOPPED; }));
}

TEST_F(ProviderActivationTest, DrainsAStopWhileAClientHoldsIt)
{
    IUnknown* pProvider = nullptr;
    ASSERT_HR(S_OK, CoCreateInstance(kClsidProvider, nullptr, CLSCTX_LOCAL_SERVER, IID_IUnknown,
                                     reinterpret_cast<void**>(&pProvider)));
    ASSERT_TRUE(orvtest::WaitUntil([&] { return State() == SERVICE_RUNNING; }));
    SERVICE_STATUS_PROCESS process = {};
    DWORD cb = 0;
    ASSERT_TRUE(QueryServiceStatusEx(m_hService, SC_STATUS_PROCESS_INFO,
                                     reinterpret_cast<LPBYTE>(&process), sizeof(process), &cb));
    HANDLE hProcess = OpenProcess(SYNCHRONIZE, FALSE, process.dwProcessId);
    SERVICE_STATUS status = {};
    ASSERT_TRUE(ControlService(m_hService, SERVICE_CONTROL_STOP, &status)) << GetLastError();
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hProcess, INFINITE));
    CloseHandle(hProcess);
    EXPECT_EQ(DWORD(SERVICE_STOPPED), State());
    EXPECT_NE(std::string::npos, orvtest::host::TraceText(m_dir).find(
                                     "Waiting for module lock count to reach zero, dwLocks=1"));
    // The drain over, the service ended with the client still holding its proxy.
    IUnknown* pFactory = nullptr;
    EXPECT_HR(HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE),
              pProvider->QueryInterface(IID_IClassFactory, reinterpret_cast<void**>(&pFactory)));
    pProvider->Release();
}

} // namespace
