// host_test_service: a service built on the service module, for the tests to start through the
// emulated service control manager. Options (in the image path):
//   --name NAME          service name and event source (default OrvTestSvc)
//   --exe                run as an ordinary process instead of a service
//   --no-autoshutdown    keep running when the last lock goes
//   --hold               hold one module lock for the whole run, as a client's object would
//   --clock-scale N      run the platform clock N times faster (the drain's waits)
//   --direct-control N   once the service runs, call its control handler with N directly
//   --fault API=CODE     make every call of the platform function API fail with CODE (hex)
#include "diag/trace.h"
#include "host/servicemodule.h"
#include "pal/palcontrol.h"
#include "tests/host/support/testserver.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

namespace {

BEGIN_OBJECT_MAP(ObjectMap)
OBJECT_ENTRY(orvtest::host::CLSID_TestServer, orvtest::host::CTestServer)
END_OBJECT_MAP()

struct Options
{
    std::u16string name = orvtest::host::kTestServiceName;
    bool fService = true;
    bool fAutoShutdown = true;
    bool fHold = false;
    DWORD dwClockScale = 1;
    DWORD dwDirectControl = 0;
};

// Waits on the manager's view of the service until it runs, then calls the handler the way a
// system shutdown would reach it, without the manager.
void DeliverWhenRunning(const std::u16string& name, DWORD dwControl)
{
    SC_HANDLE hManager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    SC_HANDLE hService =
        hManager ? OpenServiceW(hManager, name.c_str(), SERVICE_QUERY_STATUS) : nullptr;
    SERVICE_STATUS status{};
    while (hService && QueryServiceStatus(hService, &status) &&
           status.dwCurrentState == SERVICE_START_PENDING)
        Sleep(1);
    if (hService)
        CloseServiceHandle(hService);
    if (hManager)
        CloseServiceHandle(hManager);
    if (status.dwCurrentState == SERVICE_RUNNING)
        _Module.Handler(dwControl);
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        bool fHasValue = i + 1 < argc;
        if (arg == "--name" && fHasValue)
            options.name = pal::Utf8ToUtf16(argv[++i]);
        else if (arg == "--exe")
            options.fService = false;
        else if (arg == "--no-autoshutdown")
            options.fAutoShutdown = false;
        else if (arg == "--hold")
            options.fHold = true;
        else if (arg == "--clock-scale" && fHasValue)
            options.dwClockScale = static_cast<DWORD>(std::strtoul(argv[++i], nullptr, 10));
        else if (arg == "--direct-control" && fHasValue)
            options.dwDirectControl = static_cast<DWORD>(std::strtoul(argv[++i], nullptr, 10));
        else if (arg == "--fault" && fHasValue) {
            std::string fault = argv[++i];
            size_t equals = fault.find('=');
            if (equals == std::string::npos)
                return 2;
            DWORD dwCode =
                static_cast<DWORD>(std::strtoul(fault.c_str() + equals + 1, nullptr, 16));
            pal::InjectFault(fault.substr(0, equals).c_str(), dwCode);
        } else
            return 2;
    }
    pal::SetClockScale(options.dwClockScale);
    TraceSetLevel(TRACE_LEVEL_VERBOSE);

    HRESULT hr = _Module.Init(options.name.c_str(), SERVICE_START_EVENT_ID, SERVICE_STOP_EVENT_ID,
                              ObjectMap, nullptr, orvtest::host::kTestAppId, options.fService,
                              options.fAutoShutdown, nullptr);
    if (SUCCEEDED(hr)) {
        if (options.fHold)
            _Module.Lock();
        std::thread direct;
        if (options.dwDirectControl != 0)
            direct = std::thread(DeliverWhenRunning, options.name, options.dwDirectControl);
        hr = _Module.Start();
        if (direct.joinable())
            direct.join();
    }
    _Module.Term();
    return SUCCEEDED(hr) ? 0 : 1;
}
