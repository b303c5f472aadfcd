// COM apartments: per-thread initialisation and the process's multithreaded apartment.
#include "pal/objbase.h"
#include "pal/src/base/internal.h"
#include "pal/src/com/runtime.h"

#include <atomic>

namespace {

// Threads that initialised the multithreaded apartment and have not left it. While there is
// one, every other thread of the process belongs to it implicitly.
std::atomic<LONG> g_lMtaThreads{0};

struct CThreadApartment
{
    ULONG m_ulInits = 0;
    DWORD m_dwModel = COINIT_MULTITHREADED;

    ~CThreadApartment()
    {
        // A thread that ends without its last CoUninitialize leaves the apartment all the same.
        if (m_ulInits > 0 && m_dwModel == COINIT_MULTITHREADED)
            g_lMtaThreads.fetch_sub(1);
    }
};
thread_local CThreadApartment t_apartment;

constexpr DWORD kKnownCoInit =
    COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE | COINIT_SPEED_OVER_MEMORY;

} // namespace

namespace pal::detail {

bool ComInitializedOnThread()
{
    return t_apartment.m_ulInits > 0 || g_lMtaThreads.load() > 0;
}

HRESULT InjectedComFault(const char* api, const WCHAR* arg)
{
    DWORD dwError = 0;
    if (ConsumeFault(api, arg, &dwError))
        return static_cast<HRESULT>(dwError);
    return S_OK;
}

} // namespace pal::detail

HRESULT WINAPI CoInitializeEx(LPVOID pvReserved, DWORD dwCoInit)
{
    if (HRESULT hr = pal::detail::InjectedComFault("CoInitializeEx", nullptr); FAILED(hr))
        return hr;
    if (pvReserved != nullptr || (dwCoInit & ~kKnownCoInit) != 0)
        return E_INVALIDARG;
    DWORD dwModel = dwCoInit & COINIT_APARTMENTTHREADED;
    CThreadApartment& apartment = t_apartment;
    if (apartment.m_ulInits > 0) {
        if (apartment.m_dwModel != dwModel)
            return RPC_E_CHANGED_MODE;
        ++apartment.m_ulInits;
        return S_FALSE;
    }
    apartment.m_ulInits = 1;
    apartment.m_dwModel = dwModel;
    if (dwModel == COINIT_MULTITHREADED)
        g_lMtaThreads.fetch_add(1);
    return S_OK;
}

HRESULT WINAPI CoInitialize(LPVOID pvReserved)
{
    return CoInitializeEx(pvReserved, COINIT_APARTMENTTHREADED);
}

void WINAPI CoUninitialize()
{
    CThreadApartment& apartment = t_apartment;
    if (apartment.m_ulInits == 0)
        return;
    if (--apartment.m_ulInits == 0 && apartment.m_dwModel == COINIT_MULTITHREADED)
        g_lMtaThreads.fetch_sub(1);
}
