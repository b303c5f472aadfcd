#include "host/vssregistration.h"

#include "diag/trace.h"
#include "host/servicemodule.h"
#include "pal/objbase.h"
#include "pal/vsadmin.h"
#include "pal/winuser.h"
#include "provider/orvprov.h"
#include "provider/strings.h"
#include "provider/taskmem.h"
#include "res/resource.h"

#include <cstdio>

namespace {

// The coordinator's administration interface, released on every exit.
class CVssAdminHolder
{
public:
    CVssAdminHolder() = default;
    CVssAdminHolder(const CVssAdminHolder&) = delete;
    CVssAdminHolder& operator=(const CVssAdminHolder&) = delete;
    ~CVssAdminHolder()
    {
        if (m_p)
            m_p->Release();
    }

    // Failures go to the standard output: registration runs from a console.
    HRESULT Create()
    {
        HRESULT hr = CoCreateInstance(CLSID_VSSCoordinator, nullptr, CLSCTX_ALL, IID_IVssAdmin,
                                      reinterpret_cast<void**>(&m_p));
        if (FAILED(hr) || !m_p) {
            std::printf("CoCreateInstance FAILED [hr=%08x]\n", static_cast<unsigned>(hr));
            std::fflush(stdout);
        }
        return hr;
    }

    IVssAdmin* m_p = nullptr;
};

} // namespace

HRESULT RegisterVss()
{
    CTraceScope scope(W("RegisterVss"));
    CVssAdminHolder admin;
    HRESULT hr = admin.Create();
    if (FAILED(hr) || !admin.m_p)
        return hr;

    CTaskMemPtr<WCHAR> pszVersion(AnsiToUnicode(PROVIDER_VERSION_TEXT));
    if (!pszVersion)
        return E_OUTOFMEMORY;
    WCHAR szName[256] = {};
    LoadStringW(_Module.m_hInstResource, IDS_PROVIDER_NAME, szName, 256);

    hr = admin.m_p->RegisterProvider(PROVIDER_ID_OrvaneHardwareProvider,
                                     CLSID_OrvaneHardwareProvider, szName, VSS_PROV_HARDWARE,
                                     pszVersion.Get(), PROVIDER_VERSION_ID_OrvaneHardwareProvider);
    if (hr == VSS_E_PROVIDER_ALREADY_REGISTERED) {
        WCHAR szMessage[256] = {};
        LoadStringW(_Module.m_hInstResource, IDS_PROVIDER_ALREADY_REGISTERED, szMessage, 256);
        TRACE(TRACE_LEVEL_INFO, szMessage);
    } else if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("RegisterProvider FAILED [hr=%08x]\n"), hr);
    }
    return hr;
}

HRESULT UnregisterVss()
{
    CTraceScope scope(W("UnregisterVss"));
    CVssAdminHolder admin;
    HRESULT hr = admin.Create();
    if (FAILED(hr) || !admin.m_p)
        return hr;

    hr = admin.m_p->UnregisterProvider(PROVIDER_ID_OrvaneHardwareProvider);
    if (hr == VSS_E_PROVIDER_NOT_REGISTERED) {
        TRACE(TRACE_LEVEL_INFO, W("Provider is not registered\n"));
        return S_OK;
    }
    if (FAILED(hr)) {
        TRACE(TRACE_LEVEL_ERROR, W("UnregisterProvider FAILED [hr=%08x]\n"), hr);
        return hr;
    }
    return S_OK;
}
