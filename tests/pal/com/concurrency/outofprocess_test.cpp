// COM across the machine's processes: a class registered by a running test server
// (program/comserver.cpp) activated and called from this process, its references run down when a
// client is killed, its COM security refusing an account, and its death seen by a proxy.
#include "pal/palcontrol.h"
#include "pal/winreg.h"
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
        HKEY hKey = nullptr;
        ASSERT_EQ(ERROR_SUCCESS,
                  RegCreateKeyExW(HKEY_CLASSES_ROOT,
                                  W("CLSID\\{6A2F7C1B-8E40-4F32-AB5C-1D2E3F405162}\\LocalServer32"),
                                  0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &hKey, nullptr));
        std::u16string command(row.pszCommand, row.pszCommand + strlen(row.pszCommand));
        ASSERT_EQ(ERROR_SUCCESS,
                  RegSetValueExW(hKey, nullptr, 0, REG_SZ,
                                 reinterpret_cast<const BYTE*>(command.c_str()),
                                 static_cast<DWORD>((command.size() + 1) * sizeof(char16_t))));
        RegCloseKey(hKey);
        ITestEcho* pEcho = nullptr;
        EXPECT_HR(row.hr, CoCreateInstance(CLSID_TestEcho, nullptr, CLSCTX_LOCAL_SERVER,
                                           IID_ITestEcho, reinterpret_cast<void**>(&pEcho)));
        if (!pEcho)
            continue;
        LPWSTR pszEcho = nullptr;
        EXPECT_HR(S_OK, pEcho->Echo(W("started"), &pszEcho));
        CoTaskMemFree(pszEcho);
        pEcho->Release();
        // Its last object gone, the server revokes its class and ends.
        EXPECT_TRUE(orvtest::WaitUntil([&] {
            return !std::filesystem::exists(Root() / "com") ||
                   std::none_of(std::filesystem::directory_iterator(Root() / "com"),
                                std::filesystem::directory_iterator(), [](const auto& entry) {
                                    return entry.path().filename().string().rfind("{6A2F", 0) == 0;
                                });
        }));
    }
}

TEST_F(OutOfProcessTest, RunsDownTheReferencesOfAKilledClient)
{
    orvtest::CPipedChild server(ORV_COMSERVER_EXE, {"serve"});
    ASSERT_EQ("ready\n", server.Line());
    ITestEcho* pEcho = nullptr;
    ASSERT_HR(S_OK, CoCreateInstance(CLSID_TestEcho, nullptr, CLSCTX_LOCAL_SERVER, IID_ITestEcho,
                                     reinterpret_cast<void**>(&pEcho)));
    orvtest::CPipedChild client(ORV_COMSERVER_EXE, {"hold", "3"});
    ASSERT_EQ("held\n", client.Line());
    LONG lObjects = 0;
    EXPECT_HR(S_OK, pEcho->WaitForObjects(4, &lObjects));
    EXPECT_EQ(4, lObjects);
    client.Kill();
    EXPECT_HR(S_OK, pEcho->WaitForObjects(1, &lObjects));
    EXPECT_EQ(1, lObjects);
    pEcho->Release();
}

// Threads of this process, through a shared proxy and proxies of their own, call the server at
// the same time as another client process holds objects of it; every answer is the caller's.
TEST_F(OutOfProcessTest, ServesSeveralClientsAtOnce)
{
    orvtest::CPipedChild server(ORV_COMSERVER_EXE, {"serve"});
    ASSERT_EQ("ready\n", server.Line());
    orvtest::CPipedChild client(ORV_COMSERVER_EXE, {"hold", "2"});
    ASSERT_EQ("held\n", client.Line());
    ITestEcho* pShared = nullptr;
    ASSERT_HR(S_OK, CoCreateInstance(CLSID_TestEcho, nullptr, CLSCTX_LOCAL_SERVER, IID_ITestEcho,
                                     reinterpret_cast<void**>(&pShared)));
    std::atomic<int> cWrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            ITestEcho* pEcho = pShared;
            if (t % 2 && FAILED(CoCreateInstance(CLSID_TestEcho, nullptr, CLSCTX_LOCAL_SERVER,
                                                 IID_ITestEcho, reinterpret_cast<void**>(&pEcho))))
                ++cWrong;
            for (int i = 0; i < 20; ++i) {
                std::u16string text = u"t" + std::u16string(1, char16_t(u'0' + t)) + u"-" +
                                      std::u16string(1, char16_t(u'a' + i));
                LPWSTR pszEcho = nullptr;
                if (FAILED(pEcho->Echo(reinterpret_cast<LPCWSTR>(text.c_str()), &pszEcho)) ||
                    text != reinterpret_cast<char16_t*>(pszEcho))
                    ++cWrong;
                CoTaskMemFree(pszEcho);
            }
            if (pEcho != pShared)
                pEcho->Release();
            CoUninitialize();
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(0, cWrong.load());
    // The threads' own objects are gone; the other client's two and the shared one remain.
    LONG lObjects = 0;
    EXPECT_HR(S_OK, pShared->WaitForObjects(3, &lObjects));
    EXPECT_EQ(3, lObjects);
    pShared->Release();
}

TEST_F(OutOfProcessTest, RefusesTheAccountsTheServersSecurityDoesNotAdmit)
{
    orvtest::CPipedChild server(ORV_COMSERVER_EXE, {"serve", "admins"});
    ASSERT_EQ("ready\n", server.Line());
    struct
    {
        const char16_t* pszAccount;
        HRESULT hr;
    } const kRows[] = {{u"User", E_ACCESSDENIED}, {u"Administrator", S_OK}};
    for (const auto& row : kRows) {
        ASSERT_TRUE(pal::SetProcessAccount(row.pszAccount));
        ITestEcho* pEcho = nullptr;
        EXPECT_HR(row.hr, CoCreateInstance(CLSID_TestEcho, nullptr, CLSCTX_LOCAL_SERVER,
                                           IID_ITestEcho, reinterpret_cast<void**>(&pEcho)));
        if (pEcho)
            pEcho->Release();
    }
}

} // namespace
