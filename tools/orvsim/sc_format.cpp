// sc.exe's output: its status and configuration blocks, byte for byte, and its failure lines.
#include "sc_format.h"

#include "pal/winerror.h"

#include <cstdio>
#include <ctime>
#include <iostream>

namespace orvsim::sc {

namespace {

std::string Printf(const char* format, auto... args)
{
    char buffer[512];
    std::snprintf(buffer, sizeof(buffer), format, args...);
    return buffer;
}

const char* TypeName(DWORD dwType)
{
    switch (dwType & ~DWORD(SERVICE_INTERACTIVE_PROCESS)) {
    case SERVICE_KERNEL_DRIVER:
        return "KERNEL_DRIVER";
    case SERVICE_FILE_SYSTEM_DRIVER:
        return "FILE_SYSTEM_DRIVER";
    case SERVICE_WIN32_OWN_PROCESS:
        return "WIN32_OWN_PROCESS";
    case SERVICE_WIN32_SHARE_PROCESS:
        return "WIN32_SHARE_PROCESS";
    case SERVICE_WIN32:
        return "WIN32";
    default:
        return "";
    }
}

const char* StateName(DWORD dwState)
{
    static const char* const names[] = {
        "",        "STOPPED",          "START_PENDING", "STOP_PENDING",
        "RUNNING", "CONTINUE_PENDING", "PAUSE_PENDING", "PAUSED"};
    return dwState < std::size(names) ? names[dwState] : "";
}

const char* StartTypeName(DWORD dwStartType)
{
    static const char* const names[] = {"BOOT_START", "SYSTEM_START", "AUTO_START", "DEMAND_START",
                                        "DISABLED"};
    return dwStartType < std::size(names) ? names[dwStartType] : "";
}

const char* ErrorControlName(DWORD dwErrorControl)
{
    static const char* const names[] = {"IGNORE", "NORMAL", "SEVERE", "CRITICAL"};
    return dwErrorControl < std::size(names) ? names[dwErrorControl] : "";
}

std::string LocalTimeText(ULONGLONG ullFileTime)
{
    constexpr ULONGLONG kUnixEpochAsFileTime = 116444736000000000ull;
    ULONGLONG ullSince1970 =
        ullFileTime > kUnixEpochAsFileTime ? ullFileTime - kUnixEpochAsFileTime : 0;
    auto seconds = static_cast<std::time_t>(ullSince1970 / 10000000);
    std::tm tm{};
    localtime_r(&seconds, &tm);
    return Printf("%04d-%02d-%02d %02d:%02d:%02d.%03u", tm.tm_year + 1900, tm.tm_mon + 1,
                  tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
                  static_cast<unsigned>((ullSince1970 / 10000) % 1000));
}

} // namespace

std::string Narrow(const WCHAR* text)
{
    return text ? pal::Utf16ToUtf8(text) : std::string();
}

std::string FormatStatus(const std::string& name, const SERVICE_STATUS_PROCESS& s, bool fProcess)
{
    std::string text = "\nSERVICE_NAME: " + name + "\n";
    text += Printf("        TYPE               : %x  %s  %s\n", s.dwServiceType,
                   TypeName(s.dwServiceType),
                   (s.dwServiceType & SERVICE_INTERACTIVE_PROCESS) ? "(interactive)" : "");
    text += Printf("        STATE              : %u  %s \n", s.dwCurrentState,
                   StateName(s.dwCurrentState));
    if (s.dwCurrentState != SERVICE_STOPPED) {
        const DWORD a = s.dwControlsAccepted;
        text += Printf("                                (%s, %s, %s)\n",
                       (a & SERVICE_ACCEPT_STOP) ? "STOPPABLE" : "NOT_STOPPABLE",
                       (a & SERVICE_ACCEPT_PAUSE_CONTINUE) ? "PAUSABLE" : "NOT_PAUSABLE",
                       (a & SERVICE_ACCEPT_SHUTDOWN) ? "ACCEPTS_SHUTDOWN" : "IGNORES_SHUTDOWN");
    }
    text +=
        Printf("        WIN32_EXIT_CODE    : %u  (0x%x)\n", s.dwWin32ExitCode, s.dwWin32ExitCode);
    text += Printf("        SERVICE_EXIT_CODE  : %u  (0x%x)\n", s.dwServiceSpecificExitCode,
                   s.dwServiceSpecificExitCode);
    text += Printf("        CHECKPOINT         : 0x%x\n", s.dwCheckPoint);
    text += Printf("        WAIT_HINT          : 0x%x\n", s.dwWaitHint);
    if (fProcess) {
        text += Printf("        PID                : %u\n", s.dwProcessId);
        text += Printf(
            "        FLAGS              : %s\n",
            (s.dwServiceFlags & SERVICE_RUNS_IN_SYSTEM_PROCESS) ? "RUNS_IN_SYSTEM_PROCESS" : "");
    }
    return text;
}

std::string FormatConfig(const std::string& name, const QUERY_SERVICE_CONFIGW& c)
{
    std::string text = "\nSERVICE_NAME: " + name + "\n";
    text += Printf("        TYPE               : %x  %s %s\n", c.dwServiceType,
                   TypeName(c.dwServiceType),
                   (c.dwServiceType & SERVICE_INTERACTIVE_PROCESS) ? "(interactive)" : "");
    text += Printf("        START_TYPE         : %u   %s\n", c.dwStartType,
                   StartTypeName(c.dwStartType));
    text += Printf("        ERROR_CONTROL      : %u   %s\n", c.dwErrorControl,
                   ErrorControlName(c.dwErrorControl));
    text += "        BINARY_PATH_NAME   : " + Narrow(c.lpBinaryPathName) + "\n";
    text += "        LOAD_ORDER_GROUP   : " + Narrow(c.lpLoadOrderGroup) + "\n";
    text += Printf("        TAG                : %u\n", c.dwTagId);
    text += "        DISPLAY_NAME       : " + Narrow(c.lpDisplayName) + "\n";
    text += "        DEPENDENCIES       : ";
    bool fFirst = true;
    for (const WCHAR* p = c.lpDependencies; p && *p; p += std::char_traits<WCHAR>::length(p) + 1) {
        if (!fFirst)
            text += "                           : ";
        text += Narrow(p) + "\n";
        fFirst = false;
    }
    if (fFirst)
        text += "\n";
    text += "        SERVICE_START_NAME : " + Narrow(c.lpServiceStartName) + "\n";
    return text;
}

std::string FormatReport(const pal::ServiceStatusReport& r)
{
    return Printf("%s  PID %u  %-16s CHECKPOINT 0x%x  WAIT_HINT 0x%x  WIN32_EXIT_CODE %u  "
                  "SERVICE_EXIT_CODE %u  TICK %u  by %s\n",
                  LocalTimeText(r.ullTime).c_str(), r.dwProcessId, StateName(r.dwCurrentState),
                  r.dwCheckPoint, r.dwWaitHint, r.dwWin32ExitCode, r.dwServiceSpecificExitCode,
                  r.dwTickCount, r.fByManager ? "manager" : "service");
}

std::string SystemMessage(DWORD dwError)
{
    static const struct
    {
        DWORD dwError;
        const char* text;
    } messages[] = {
        {ERROR_FILE_NOT_FOUND, "The system cannot find the file specified."},
        {ERROR_ACCESS_DENIED, "Access is denied."},
        {ERROR_INVALID_HANDLE, "The handle is invalid."},
        {ERROR_NOT_ENOUGH_MEMORY, "Not enough memory resources are available to process this "
                                  "command."},
        {ERROR_INVALID_DATA, "The data is invalid."},
        {ERROR_GEN_FAILURE, "A device attached to the system is not functioning."},
        {ERROR_INVALID_PARAMETER, "The parameter is incorrect."},
        {ERROR_DISK_FULL, "There is not enough space on the disk."},
        {ERROR_INSUFFICIENT_BUFFER, "The data area passed to a system call is too small."},
        {ERROR_INVALID_NAME, "The filename, directory name, or volume label syntax is "
                             "incorrect."},
        {ERROR_INVALID_LEVEL, "The system call level is not correct."},
        {ERROR_BAD_EXE_FORMAT, "%1 is not a valid Win32 application."},
        {ERROR_INVALID_ADDRESS, "Attempt to access invalid address."},
        {ERROR_BADDB, "The configuration registry database is corrupt."},
        {ERROR_INVALID_SERVICE_CONTROL, "The requested control is not valid for this service."},
        {ERROR_SERVICE_REQUEST_TIMEOUT, "The service did not respond to the start or control "
                                        "request in a timely fashion."},
        {ERROR_SERVICE_DATABASE_LOCKED, "The service database is locked."},
        {ERROR_SERVICE_ALREADY_RUNNING, "An instance of the service is already running."},
        {ERROR_INVALID_SERVICE_ACCOUNT, "The account name is invalid or does not exist, or the "
                                        "password is invalid for the account name specified."},
        {ERROR_SERVICE_DISABLED, "The service cannot be started, either because it is disabled "
                                 "or because it has no enabled devices associated with it."},
        {ERROR_CIRCULAR_DEPENDENCY, "Circular service dependency was specified."},
        {ERROR_SERVICE_DOES_NOT_EXIST, "The specified service does not exist as an installed "
                                       "service."},
        {ERROR_SERVICE_CANNOT_ACCEPT_CTRL, "The service cannot accept control messages at this "
                                           "time."},
        {ERROR_SERVICE_NOT_ACTIVE, "The service has not been started."},
        {ERROR_FAILED_SERVICE_CONTROLLER_CONNECT, "The service process could not connect to the "
                                                  "service controller."},
        {ERROR_DATABASE_DOES_NOT_EXIST, "The database specified does not exist."},
        {ERROR_PROCESS_ABORTED, "The process terminated unexpectedly."},
        {ERROR_SERVICE_LOGON_FAILED, "The service did not start due to a logon failure."},
        {ERROR_SERVICE_MARKED_FOR_DELETE, "The specified service has been marked for deletion."},
        {ERROR_SERVICE_EXISTS, "The specified service already exists."},
        {ERROR_SERVICE_NEVER_STARTED,
         "No attempts to start the service have been made since the last boot."},
        {ERROR_DUPLICATE_SERVICE_NAME, "The name is already in use as either a service name or "
                                       "a service display name."},
        {RPC_S_SERVER_UNAVAILABLE, "The RPC server is unavailable."},
    };
    for (const auto& m : messages)
        if (m.dwError == dwError)
            return m.text;
    return "The operation failed with error " + std::to_string(dwError) + ".";
}

int Failed(const std::string& what, DWORD dwError)
{
    std::cout << "[SC] " << what << " FAILED " << dwError << ":\n\n"
              << SystemMessage(dwError) << "\n\n";
    return static_cast<int>(dwError);
}

} // namespace orvsim::sc
