// COM across the machine's processes: a class registered by a running test server
// (program/comserver.cpp) activated and called from this process, servers started by the
// activation as the registry says, several clients at once, and a server's death seen by a proxy.
// (The provider's own service, its security and rundown: tests/host/concurrency.)
#include "pal/atlbase.h"
#include "pal/palcontrol.h"
#include "pal/regkey.h"
#include "tests/pal/com/program/echo.h"
#include "tests/support/paltest.h"
#include "tests/support/pipedchild.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace {

using orvtest::com::CLSID_TestEcho;
using orvtest::com::IID_ITestEcho;

class OutOfProcessTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        orvtest::PalTest::SetUp();
        ASSERT_HR(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    }
    void TearDown() override
    {
        CoUninitialize();
        orvtest::PalTest::TearDown();
    }
};

TEST_F(OutOfProcessTest, ActivatesAndCallsTheClassAnotherProcessServes)
{
    ITestEcho* pEcho = nullptr;
    EXPECT_HR(REGDB_E_CLASSNOTREG,
              CoCreateInstance(CLSID_TestEcho, nullptr, CLSCTX_LOCAL_SERVER, IID_ITestEcho,
                               reinterpret_cast<void**>(&pEcho)));
    orvtest::CPipedChild server(ORV_COMSERVER_EXE, {"serve"});
    ASSERT_EQ("ready\n", server.Line());
    ASSERT_HR(S_OK, CoCreateInstance(CLSID_TestEcho, nullptr, CLSCTX_LOCAL_SERVER, IID_ITestEcho,
                                     reinterpret_cast<void**>(&pEcho)));
    struct
    {
        const WCHAR* pszText;
        HRESULT hr;
        std::u16string echo;
    } const kRows[] = {{W("hello"), S_OK, u"hello"}, {W(""), S_OK, u""}, {nullptr, E_POINTER, u""}};
    for (const auto& row : kRows) {
        LPWSTR pszEcho = nullptr;
        EXPECT_HR(row.hr, pEcho->Echo(row.pszText, &pszEcho));
        EXPECT_EQ(row.echo, pszEcho ? std::u16string(reinterpret_cast<char16_t*>(pszEcho)) : u"");
        CoTaskMemFree(pszEcho);
    }
    IClassFactory* pFactory = nullptr;
    ASSERT_HR(S_OK, CoGetClassObject(CLSID_TestEcho, CLSCTX_LOCAL_SERVER, nullptr,
                                     IID_IClassFactory, reinterpret_cast<void**>(&pFactory)));
    IUnknown* pOuter = pEcho;
    IUnknown* pObject = nullptr;
    EXPECT_HR(CLASS_E_NOAGGREGATION,
              pFactory->CreateInstance(pOuter, IID_ITestEcho, reinterpret_cast<void**>(&pObject)));
    EXPECT_HR(E_NOINTERFACE, pFactory->CreateInstance(nullptr, IID_IClassFactory,
                                                      reinterpret_cast<void**>(&pObject)));
    pFactory->Release();

    // The server dies: the proxy finds it unavailable, is disconnected from then on, and nobody
    // serves the class.
    server.Kill();
    LPWSTR pszEcho = nullptr;
    EXPECT_HR(HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE), pEcho->Echo(W("late"), &pszEcho));
    EXPECT_HR(RPC_E_DISCONNECTED, pEcho->Echo(W("later"), &pszEcho));
    pEcho->Release();
    EXPECT_HR(REGDB_E_CLASSNOTREG,
              CoCreateInstance(CLSID_TestEcho, nullptr, CLSCTX_LOCAL_SERVER, IID_ITestEcho,
                               reinterpret_cast<void**>(&pEcho)));
}

TEST_F(OutOfProcessTest, StartsTheLocalServerTheRegistryNames)
{
    struct
    {
        const char* pszCommand;
        DWORD dwClockScale; // 10000: COM's two minutes for a server to register pass in 12 ms
        HRESULT hr;
    } const kRows[] = {
        {ORV_COMSERVER_EXE " embedded", 1, S_OK},
        {ORV_COMSERVER_EXE " exit", 1, CO_E_SERVER_EXEC_FAILURE},
        {ORV_COMSERVER_EXE " silent", 10000, CO_E_SERVER_EXEC_FAILURE},
        {"/nonexistent/server", 1, HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.pszCommand);
        pal::SetClockScale(row.dwClockScale);
        CRegKey key;
        ASSERT_EQ(ERROR_SUCCESS,
                  key.Create(HKEY_CLASSES_ROOT,
                             W("CLSID\\{6A2F7C1B-8E40-4F32-AB5C-1D2E3F405162}\\LocalServer32")));
        std::u16string command(row.pszCommand, row.pszCommand + strlen(row.pszCommand));
        ASSERT_EQ(ERROR_SUCCESS, key.SetStringValue(nullptr, command.c_str()));
        CComPtr<ITestEcho> pEcho;
        EXPECT_HR(row.hr, pEcho.CoCreateInstance(CLSID_TestEcho, nullptr, CLSCTX_LOCAL_SERVER));
        if (!pEcho)
            continue;
        LPWSTR pszEcho = nullptr;
        EXPECT_HR(S_OK, pEcho->Echo(W("started"), &pszEcho));
        CoTaskMemFree(pszEcho);
        pEcho.Release();
        // Its last object gone, the server revokes its class and ends.
        auto published = Root() / "com" / "{6A2F7C1B-8E40-4F32-AB5C-1D2E3F405162}";
        EXPECT_TRUE(orvtest::WaitUntil([&] {
            for (const auto& entry : std::filesystem::directory_iterator(Root() / "com"))
                if (entry.path().stem() == published.filename())
                    return false;
            return true;
        }));
    }
}

// Threads of this process, through a shared proxy and proxies of their own, call the server at
// the same time as another client process holds objects of it; every answer is the caller's.
TEST_F(OutOfProcessTest, ServesSeveralClientsAtOnce)
{
    orvtest::CPipedChild server(ORV_COMSERVER_EXE, {"serve"});
    ASSERT_EQ("ready\n", server.Line());
    orvtest::CPipedChild client(ORV_COMSERVER_EXE, {"hold", "2"});
    ASSERT_EQ("held\n", client.Line());
    CComPtr<ITestEcho> pShared;
    ASSERT_HR(S_OK, pShared.CoCreateInstance(CLSID_TestEcho, nullptr, CLSCTX_LOCAL_SERVER));
    std::atomic<int> cWrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            CComPtr<ITestEcho> pEcho = pShared;
            if (t % 2) {
                pEcho.Release();
                cWrong +=
                    FAILED(pEcho.CoCreateInstance(CLSID_TestEcho, nullptr, CLSCTX_LOCAL_SERVER));
            }
            for (int i = 0; i < 20 && pEcho; ++i) {
                std::u16string text{u't', char16_t(u'0' + t), u'-', char16_t(u'a' + i)};
                LPWSTR pszEcho = nullptr;
                cWrong += FAILED(pEcho->Echo(text.c_str(), &pszEcho)) || text != pszEcho;
                CoTaskMemFree(pszEcho);
            }
            pEcho.Release();
            CoUninitialize();
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(0, cWrong.load());
}

} // namespace
