// The test server of out-of-process COM. "serve [admins]" registers CLSID_TestEcho as a local
// server (with "admins", CoInitializeSecurity admits Administrators only), says "ready" and
// serves until its standard input closes. "hold N [CLSID]" creates N echo objects (or N objects
// of CLSID, asked as IUnknown) from the server that serves the class, says "held" and keeps them
// until it is killed or its input closes.
// Started by COM's activation (a last argument "-Embedding"): "embedded" serves as "serve" does
// until its last object has gone, "exit" ends at once, "silent" never registers the class.
#include "pal/iaccess.h"
#include "tests/pal/com/program/echo.h"

#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

namespace {

std::mutex g_lock;
std::condition_variable g_cvObjects;
LONG g_lObjects = 0;
LONG g_lCreated = 0;

void CountObject(LONG lDelta)
{
    std::lock_guard lock(g_lock);
    g_lObjects += lDelta;
    if (lDelta > 0)
        g_lCreated += lDelta;
    g_cvObjects.notify_all();
}

class CEcho final : public ITestEcho
{
public:
    CEcho() { CountObject(1); }
    ~CEcho() { CountObject(-1); }
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override
    {
        if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, orvtest::com::IID_ITestEcho)) {
            *ppv = nullptr;
            return E_NOINTERFACE;
        }
        AddRef();
        *ppv = static_cast<ITestEcho*>(this);
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return InterlockedIncrement(&m_lRefs); }
    STDMETHODIMP_(ULONG) Release() override
    {
        LONG l = InterlockedDecrement(&m_lRefs);
        if (l == 0)
            delete this;
        return l;
    }
    STDMETHODIMP Echo(LPCWSTR pszText, LPWSTR* ppszEcho) override
    {
        *ppszEcho = nullptr;
        if (!pszText)
            return E_POINTER;
        size_t cb = (std::char_traits<WCHAR>::length(pszText) + 1) * sizeof(WCHAR);
        *ppszEcho = static_cast<LPWSTR>(CoTaskMemAlloc(cb));
        memcpy(*ppszEcho, pszText, cb);
        return S_OK;
    }
    STDMETHODIMP WaitForObjects(LONG lExpected, LONG* plObjects) override
    {
        std::unique_lock lock(g_lock);
        g_cvObjects.wait_for(lock, std::chrono::seconds(10),
                             [&] { return g_lObjects == lExpected; });
        *plObjects = g_lObjects;
        return S_OK;
    }

private:
    LONG m_lRefs = 1;
};

class CEchoFactory final : public IClassFactory
{
public:
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override
    {
        if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, IID_IClassFactory)) {
            *ppv = nullptr;
            return E_NOINTERFACE;
        }
        *ppv = static_cast<IClassFactory*>(this);
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP CreateInstance(IUnknown* pOuter, REFIID riid, void** ppv) override
    {
        *ppv = nullptr;
        if (pOuter)
            return CLASS_E_NOAGGREGATION;
        CEcho* pEcho = new CEcho();
        HRESULT hr = pEcho->QueryInterface(riid, ppv);
        pEcho->Release();
        return hr;
    }
    STDMETHODIMP LockServer(BOOL) override { return S_OK; }
};

HRESULT AdmitAdministratorsOnly()
{
    IAccessControl* pAccess = nullptr;
    HRESULT hr = CoCreateInstance(CLSID_DCOMAccessControl, nullptr, CLSCTX_INPROC_SERVER,
                                  IID_IAccessControl, reinterpret_cast<void**>(&pAccess));
    if (FAILED(hr))
        return hr;
    ACTRL_ACCESS_ENTRYW entry = {};
    entry.Trustee.TrusteeForm = TRUSTEE_IS_NAME;
    entry.Trustee.ptstrName = const_cast<LPWSTR>(W("Administrators"));
    entry.fAccessFlags = ACTRL_ACCESS_ALLOWED;
    entry.Access = COM_RIGHTS_EXECUTE;
    ACTRL_ACCESS_ENTRY_LISTW list = {1, &entry};
    ACTRL_PROPERTY_ENTRYW property = {nullptr, &list, 0};
    ACTRL_ACCESSW access = {1, &property};
    hr = pAccess->SetAccessRights(&access);
    if (SUCCEEDED(hr))
        hr = CoInitializeSecurity(pAccess, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_PKT,
                                  RPC_C_IMP_LEVEL_IDENTIFY, nullptr, EOAC_ACCESS_CONTROL, nullptr);
    pAccess->Release();
    return hr;
}

// Serves the class until the objects it made have all gone again.
int ServeEmbedded()
{
    static CEchoFactory factory;
    DWORD dwCookie = 0;
    if (FAILED(CoRegisterClassObject(orvtest::com::CLSID_TestEcho, &factory, CLSCTX_LOCAL_SERVER,
                                     REGCLS_MULTIPLEUSE, &dwCookie)))
        return 4;
    std::unique_lock lock(g_lock);
    // Nobody may come: the server does not wait for ever.
    g_cvObjects.wait_for(lock, std::chrono::seconds(30), [] { return g_lCreated > 0; });
    g_cvObjects.wait(lock, [] { return g_lObjects == 0; });
    lock.unlock();
    CoRevokeClassObject(dwCookie);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
        return 2;
    if (strcmp(argv[1], "embedded") == 0)
        return ServeEmbedded();
    if (strcmp(argv[1], "exit") == 0)
        return 0;
    if (strcmp(argv[1], "silent") == 0) {
        std::this_thread::sleep_for(std::chrono::seconds(5));
        return 0;
    }
    if (strcmp(argv[1], "serve") == 0) {
        if (argc > 2 && FAILED(AdmitAdministratorsOnly()))
            return 3;
        static CEchoFactory factory;
        DWORD dwCookie = 0;
        if (FAILED(CoRegisterClassObject(orvtest::com::CLSID_TestEcho, &factory,
                                         CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE, &dwCookie)))
            return 4;
        std::printf("ready\n");
        std::fflush(stdout);
        while (std::getchar() != EOF) {
        }
        CoRevokeClassObject(dwCookie);
        return 0;
    }
    CLSID clsid = orvtest::com::CLSID_TestEcho;
    IID iid = orvtest::com::IID_ITestEcho;
    if (argc > 3) {
        unsigned a[11] = {};
        if (std::sscanf(argv[3], "{%8x-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x}", &a[0], &a[1], &a[2],
                        &a[3], &a[4], &a[5], &a[6], &a[7], &a[8], &a[9], &a[10]) != 11)
            return 6;
        clsid = {a[0], static_cast<WORD>(a[1]), static_cast<WORD>(a[2]), {}};
        for (int i = 0; i < 8; ++i)
            clsid.Data4[i] = static_cast<BYTE>(a[3 + i]);
        iid = IID_IUnknown;
    }
    std::vector<IUnknown*> held;
    for (int i = 0; i < (argc > 2 ? atoi(argv[2]) : 1); ++i) {
        IUnknown* pObject = nullptr;
        if (FAILED(CoCreateInstance(clsid, nullptr, CLSCTX_LOCAL_SERVER, iid,
                                    reinterpret_cast<void**>(&pObject))))
            return 5;
        held.push_back(pObject);
    }
    std::printf("held\n");
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    return 0;
}
