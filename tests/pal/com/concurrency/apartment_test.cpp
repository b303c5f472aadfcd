// The COM runtime across threads: the implicit multithreaded apartment, per-thread error
// objects, and activation racing with registration and revocation.
#include "tests/pal/com/com_testing.h"
#include "tests/support/paltest.h"

#include <atomic>
#include <thread>
#include <vector>

namespace {

using orvtest::com::CLSID_TestWidget;
using orvtest::com::ScopedRegistration;

HRESULT CreateOnce()
{
    IWidget* pWidget = nullptr;
    HRESULT hr = CoCreateInstance(CLSID_TestWidget, nullptr, CLSCTX_LOCAL_SERVER, __uuidof(IWidget),
                                  reinterpret_cast<void**>(&pWidget));
    if (pWidget)
        pWidget->Release();
    return hr;
}

HRESULT OnThread(HRESULT (*pfn)())
{
    HRESULT hr = E_FAIL;
    std::thread thread([&hr, pfn] { hr = pfn(); });
    thread.join();
    return hr;
}

using ComThreadsTest = orvtest::PalTest;

TEST_F(ComThreadsTest, UninitializedThreadJoinsTheProcessMtaOnlyWhileAThreadHoldsIt)
{
    // Nobody holds the multithreaded apartment yet; a single-threaded apartment does not open
    // it, and a thread that ends without CoUninitialize leaves it.
    EXPECT_HR(CO_E_NOTINITIALIZED, OnThread(CreateOnce));
    ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
    EXPECT_HR(CO_E_NOTINITIALIZED, OnThread(CreateOnce));
    CoUninitialize();
    std::thread([] { EXPECT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED)); }).join();
    EXPECT_HR(CO_E_NOTINITIALIZED, OnThread(CreateOnce));

    ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    {
        ScopedRegistration reg;
        ASSERT_HR(S_OK, reg.Register(CLSID_TestWidget, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE));
        EXPECT_HR(S_OK, OnThread(CreateOnce));
    }
    CoUninitialize();
    EXPECT_HR(CO_E_NOTINITIALIZED, OnThread(CreateOnce));
}

TEST_F(ComThreadsTest, ErrorObjectsBelongToTheirThread)
{
    ICreateErrorInfo* pCreate = nullptr;
    ASSERT_HR(S_OK, CreateErrorInfo(&pCreate));
    IErrorInfo* pInfo = nullptr;
    ASSERT_HR(S_OK, pCreate->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&pInfo)));
    pCreate->Release();
    ASSERT_HR(S_OK, SetErrorInfo(0, pInfo));
    HRESULT hrOther = E_FAIL;
    std::thread thread([&hrOther] {
        IErrorInfo* pTaken = nullptr;
        hrOther = GetErrorInfo(0, &pTaken);
        // The other thread leaves one of its own, released when it ends.
        ICreateErrorInfo* pMine = nullptr;
        if (SUCCEEDED(CreateErrorInfo(&pMine))) {
            IErrorInfo* pMineInfo = nullptr;
            pMine->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&pMineInfo));
            SetErrorInfo(0, pMineInfo);
            pMineInfo->Release();
            pMine->Release();
        }
    });
    thread.join();
    EXPECT_HR(S_FALSE, hrOther);
    IErrorInfo* pTaken = nullptr;
    EXPECT_HR(S_OK, GetErrorInfo(0, &pTaken));
    EXPECT_EQ(pInfo, pTaken);
    pTaken->Release();
    EXPECT_EQ(0u, pInfo->Release());
}

TEST_F(ComThreadsTest, ActivationRacesWithRegistrationAndSuspension)
{
    ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    std::atomic<bool> fStop{false};
    std::atomic<int> cCreated{0};
    std::vector<std::thread> clients;
    for (int i = 0; i < 4; ++i)
        clients.emplace_back([&] {
            while (!fStop.load()) {
                HRESULT hr = CreateOnce();
                if (hr == S_OK)
                    ++cCreated;
                else
                    EXPECT_TRUE(hr == REGDB_E_CLASSNOTREG || hr == CO_E_SERVER_STOPPING)
                        << orvtest::HexCode(DWORD(hr));
            }
        });
    for (int round = 0; round < 200; ++round) {
        ScopedRegistration reg;
        ASSERT_HR(S_OK, reg.Register(CLSID_TestWidget, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE));
        if (round % 3 == 0)
            CoSuspendClassObjects();
        std::this_thread::yield();
        CoResumeClassObjects();
    }
    {
        // A last registration that stays until a client has certainly been served.
        ScopedRegistration reg;
        ASSERT_HR(S_OK, reg.Register(CLSID_TestWidget, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE));
        int cBefore = cCreated.load();
        EXPECT_TRUE(orvtest::WaitUntil([&] { return cCreated.load() > cBefore; }));
        fStop = true;
        for (auto& t : clients)
            t.join();
    }
    EXPECT_EQ(0, orvtest::com::g_lWidgetsAlive.load());
    CoUninitialize();
}

} // namespace
