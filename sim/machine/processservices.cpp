// Set up before the program's wWinMain runs and taken down after it returns: the program's
// string table and type library (which Windows finds in the image), and the simulated VSS
// coordinator and storage service, which on Windows are processes of their own and here are
// served in this process through its COM class table.
#include "pal/objbase.h"
#include "pal/palcontrol.h"
#include "res/strings.h"
#include "res/typelib.h"
#include "sim/storage/storagesim.h"
#include "sim/vss/vsssim.h"

#include <cstdio>

namespace {

struct CProcessServices
{
    vsssim::CVssCoordinator m_coordinator;
    storagesim::CStorageService m_storage;
    bool m_fComInitialized = false;
};

CProcessServices* g_pServices = nullptr;

void Report(const char* pszWhat, HRESULT hr)
{
    std::fprintf(stderr, "orvsim: %s FAILED [hr=0x%08X]\n", pszWhat, static_cast<unsigned>(hr));
}

void StartServices()
{
    OrvRegisterStringTable();
    OrvRegisterTypeLib();
    g_pServices = new CProcessServices();
    HRESULT hr = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    g_pServices->m_fComInitialized = SUCCEEDED(hr);
    if (FAILED(hr)) {
        Report("CoInitializeEx", hr);
        return;
    }
    // A machine whose storage is not set up has no storage service; the program then meets
    // REGDB_E_CLASSNOTREG as it would on Windows without the service installed.
    g_pServices->m_storage.Start();
    if (hr = g_pServices->m_coordinator.Start(); FAILED(hr))
        Report("The VSS coordinator's start", hr);
}

void StopServices()
{
    if (!g_pServices)
        return;
    g_pServices->m_coordinator.Stop();
    g_pServices->m_storage.Stop();
    if (g_pServices->m_fComInitialized)
        CoUninitialize();
    delete g_pServices;
    g_pServices = nullptr;
}

const bool g_fHooked = (pal::AddProcessEntryHooks(&StartServices, &StopServices), true);

} // namespace
