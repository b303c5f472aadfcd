// A small service for the service control manager's tests, written on Win32 calls alone, as a
// Windows service would be. Every ServiceMain call and control is logged, one line each, to
// $ORVSIM_ROOT/<service name>.txt: "main|<name>|<arg>...", "account <ORVSIM_ACCOUNT>",
// "bad state <error>" (the refusal of a status with state 0), "control <code>". It reports
// START_PENDING, then RUNNING accepting stop, and stops on SERVICE_CONTROL_STOP. Control 200 never
// returns from the handler; after control 201 its process ends without reporting SERVICE_STOPPED.
#include "pal/windows.h"
#include "pal/winsvc.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

SERVICE_STATUS_HANDLE g_hStatus = nullptr;
SERVICE_STATUS g_status{};
HANDLE g_hStop = nullptr;
HANDLE g_hVanish = nullptr;
std::string g_log;

std::string Narrow(LPCWSTR text)
{
    char buffer[1024] = {};
    WideCharToMultiByte(CP_UTF8, 0, text, -1, buffer, sizeof(buffer) - 1, nullptr, nullptr);
    return buffer;
}

void Log(const std::string& line)
{
    std::ofstream(g_log, std::ios::app) << line << '\n';
}

void Report(DWORD dwState, DWORD dwAccepted, DWORD dwCheckPoint, DWORD dwWaitHint)
{
    g_status = {
        SERVICE_WIN32_OWN_PROCESS, dwState, dwAccepted, NO_ERROR, 0, dwCheckPoint, dwWaitHint};
    SetServiceStatus(g_hStatus, &g_status);
}

void WINAPI Handler(DWORD dwControl)
{
    Log("control " + std::to_string(dwControl));
    if (dwControl == SERVICE_CONTROL_STOP) {
        Report(SERVICE_STOP_PENDING, 0, 1, 5000);
        SetEvent(g_hStop);
    } else if (dwControl == SERVICE_CONTROL_INTERROGATE) {
        SetServiceStatus(g_hStatus, &g_status);
    } else if (dwControl == 200) {
        Sleep(INFINITE);
    } else if (dwControl == 201) {
        SetEvent(g_hVanish);
    }
}

void WINAPI ServiceMain(DWORD dwArgc, LPWSTR* lpszArgv)
{
    const char* root = std::getenv("ORVSIM_ROOT");
    const char* account = std::getenv("ORVSIM_ACCOUNT");
    g_log = std::string(root ? root : ".") + "/" + Narrow(lpszArgv[0]) + ".txt";
    std::string line = "main";
    for (DWORD i = 0; i < dwArgc; ++i)
        line += "|" + Narrow(lpszArgv[i]);
    Log(line);
    Log(std::string("account ") + (account ? account : ""));
    g_hStop = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    g_hVanish = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    // A service of its own process may give any name.
    g_hStatus = RegisterServiceCtrlHandlerW(W("not the service's name"), Handler);
    SERVICE_STATUS bad{SERVICE_WIN32_OWN_PROCESS, 0, 0, 0, 0, 0, 0};
    Log("bad state " + std::to_string(SetServiceStatus(g_hStatus, &bad) ? 0 : GetLastError()));
    Report(SERVICE_START_PENDING, 0, 1, 3000);
    Report(SERVICE_RUNNING, SERVICE_ACCEPT_STOP, 0, 0);
    HANDLE handles[] = {g_hStop, g_hVanish};
    if (WaitForMultipleObjects(2, handles, FALSE, INFINITE) == WAIT_OBJECT_0 + 1)
        std::_Exit(3);
    Report(SERVICE_STOPPED, 0, 0, 0);
}

} // namespace

int main()
{
    SERVICE_TABLE_ENTRYW table[] = {{const_cast<LPWSTR>(W("")), ServiceMain}, {nullptr, nullptr}};
    if (!StartServiceCtrlDispatcherW(table)) {
        std::fprintf(stderr, "StartServiceCtrlDispatcherW failed: %u\n", GetLastError());
        return 1;
    }
    return 0;
}
