// The service control manager of advapi32: the service database, starting and controlling
// services, and the service side (dispatcher, control handler, status), as winsvc.h declares
// them.
//
// The database and every status report live in the machine root (docs/ARCHITECTURE.md, "Service
// control manager") and are shared by every process of the machine: a service created by one
// process is started, controlled and queried from any other. A started service is a process of
// its own, spawned from its image path. Every function fails with Win32's codes, sets the last
// error and starts with its fault hook (pal::InjectFault), named after the function and matched
// on the service's name where the call has one. Where Windows cannot be reproduced or it does
// not matter here:
//  - OpenSCManagerW opens only the local computer's manager: a null or empty machine name, or
//    "ORVSIM" with or without leading backslashes; another machine fails with
//    RPC_S_SERVER_UNAVAILABLE, as an unreachable one does. The database is null or
//    SERVICES_ACTIVE_DATABASEW; SERVICES_FAILED_DATABASEW fails with
//    ERROR_DATABASE_DOES_NOT_EXIST and any other name with ERROR_INVALID_NAME.
//  - Access follows Windows' default security by the calling process's account
//    (pal::SetProcessAccount, $ORVSIM_ACCOUNT): LocalSystem and Administrator get every right;
//    a plain user may open the manager for SC_MANAGER_CONNECT, SC_MANAGER_ENUMERATE_SERVICE,
//    SC_MANAGER_QUERY_LOCK_STATUS and READ_CONTROL only, and a service for SERVICE_QUERY_CONFIG,
//    SERVICE_QUERY_STATUS, SERVICE_ENUMERATE_DEPENDENTS, SERVICE_INTERROGATE,
//    SERVICE_USER_DEFINED_CONTROL and READ_CONTROL; asking for more fails the open with
//    ERROR_ACCESS_DENIED. A call outside the handle's granted rights fails with
//    ERROR_ACCESS_DENIED too. A closed, forged or foreign handle fails with ERROR_INVALID_HANDLE.
//  - Only services of their own process (SERVICE_WIN32_OWN_PROCESS, or SHARE_PROCESS run alone,
//    optionally SERVICE_INTERACTIVE_PROCESS for LocalSystem) can be created; drivers fail with
//    ERROR_INVALID_PARAMETER. Dependencies are kept and shown but not started with the service.
//    The tag id is always 0.
//  - The image path is Windows command-line text: a quoted first token is the program; unquoted,
//    the text is cut at each blank in turn and the first prefix that names an existing file is
//    the program, as CreateProcess does. The rest are its arguments. The process inherits the
//    caller's environment, plus ORVSIM_ROOT and ORVSIM_ACCOUNT (the service's account); it has
//    no console: standard input is empty, and standard output and error are appended to
//    <machine root>/services/<id>.log.
//  - StartServiceW returns once the process's dispatcher has started ServiceMain. A process that
//    ends, or does not connect within 30 seconds of the platform clock (pal::SetClockScale), is
//    killed and the call fails with ERROR_SERVICE_REQUEST_TIMEOUT. A wrong password for an
//    account that has one fails with ERROR_SERVICE_LOGON_FAILED.
//  - DeleteService marks the service; it is removed once it is stopped and no handle of the
//    process that notices is open to it (DeleteService and CloseServiceHandle look at their own
//    process's handles; a service process reporting SERVICE_STOPPED removes it at once). Handles
//    that other processes hold do not delay the removal, as they do on Windows. A removed
//    service's handles still answer status and configuration queries, and fail every change
//    with ERROR_SERVICE_MARKED_FOR_DELETE.
//  - A service process that ends without reporting SERVICE_STOPPED is found when its status is
//    next queried, or a start or control is attempted: it is then shown stopped with
//    ERROR_PROCESS_ABORTED, a report that the manager records.
//  - ChangeServiceConfig2W and QueryServiceConfig2W know SERVICE_CONFIG_DESCRIPTION only; other
//    levels fail with ERROR_INVALID_LEVEL.
#pragma once

#include "pal/windef.h"

PAL_DECLARE_HANDLE(SC_HANDLE);
using LPSC_HANDLE = SC_HANDLE*;
PAL_DECLARE_HANDLE(SERVICE_STATUS_HANDLE);

// ---- Databases and names ----
#define SERVICES_ACTIVE_DATABASEW W("ServicesActive")
#define SERVICES_FAILED_DATABASEW W("ServicesFailed")
#define SC_GROUP_IDENTIFIERW W('+')
#define SERVICE_NO_CHANGE 0xffffffff

// ---- Standard rights (winnt.h) ----
#ifndef DELETE
#define DELETE 0x00010000L
#endif
#ifndef READ_CONTROL
#define READ_CONTROL 0x00020000L
#endif
#ifndef WRITE_DAC
#define WRITE_DAC 0x00040000L
#endif
#ifndef WRITE_OWNER
#define WRITE_OWNER 0x00080000L
#endif
#ifndef STANDARD_RIGHTS_REQUIRED
#define STANDARD_RIGHTS_REQUIRED 0x000F0000L
#endif
#ifndef STANDARD_RIGHTS_READ
#define STANDARD_RIGHTS_READ READ_CONTROL
#define STANDARD_RIGHTS_WRITE READ_CONTROL
#define STANDARD_RIGHTS_EXECUTE READ_CONTROL
#endif
#ifndef MAXIMUM_ALLOWED
#define MAXIMUM_ALLOWED 0x02000000L
#endif
#ifndef GENERIC_READ
#define GENERIC_READ 0x80000000L
#define GENERIC_WRITE 0x40000000L
#define GENERIC_EXECUTE 0x20000000L
#define GENERIC_ALL 0x10000000L
#endif

// ---- The manager's rights ----
#define SC_MANAGER_CONNECT 0x0001
#define SC_MANAGER_CREATE_SERVICE 0x0002
#define SC_MANAGER_ENUMERATE_SERVICE 0x0004
#define SC_MANAGER_LOCK 0x0008
#define SC_MANAGER_QUERY_LOCK_STATUS 0x0010
#define SC_MANAGER_MODIFY_BOOT_CONFIG 0x0020
#define SC_MANAGER_ALL_ACCESS                                                                      \
    (STANDARD_RIGHTS_REQUIRED | SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE |                   \
     SC_MANAGER_ENUMERATE_SERVICE | SC_MANAGER_LOCK | SC_MANAGER_QUERY_LOCK_STATUS |               \
     SC_MANAGER_MODIFY_BOOT_CONFIG)

// ---- A service's rights ----
#define SERVICE_QUERY_CONFIG 0x0001
#define SERVICE_CHANGE_CONFIG 0x0002
#define SERVICE_QUERY_STATUS 0x0004
#define SERVICE_ENUMERATE_DEPENDENTS 0x0008
#define SERVICE_START 0x0010
#define SERVICE_STOP 0x0020
#define SERVICE_PAUSE_CONTINUE 0x0040
#define SERVICE_INTERROGATE 0x0080
#define SERVICE_USER_DEFINED_CONTROL 0x0100
#define SERVICE_ALL_ACCESS                                                                         \
    (STANDARD_RIGHTS_REQUIRED | SERVICE_QUERY_CONFIG | SERVICE_CHANGE_CONFIG |                     \
     SERVICE_QUERY_STATUS | SERVICE_ENUMERATE_DEPENDENTS | SERVICE_START | SERVICE_STOP |          \
     SERVICE_PAUSE_CONTINUE | SERVICE_INTERROGATE | SERVICE_USER_DEFINED_CONTROL)

// ---- Types ----
#define SERVICE_KERNEL_DRIVER 0x00000001
#define SERVICE_FILE_SYSTEM_DRIVER 0x00000002
#define SERVICE_ADAPTER 0x00000004
#define SERVICE_RECOGNIZER_DRIVER 0x00000008
#define SERVICE_DRIVER                                                                             \
    (SERVICE_KERNEL_DRIVER | SERVICE_FILE_SYSTEM_DRIVER | SERVICE_RECOGNIZER_DRIVER)
#define SERVICE_WIN32_OWN_PROCESS 0x00000010
#define SERVICE_WIN32_SHARE_PROCESS 0x00000020
#define SERVICE_WIN32 (SERVICE_WIN32_OWN_PROCESS | SERVICE_WIN32_SHARE_PROCESS)
#define SERVICE_INTERACTIVE_PROCESS 0x00000100

// ---- Start types and error controls ----
#define SERVICE_BOOT_START 0x00000000
#define SERVICE_SYSTEM_START 0x00000001
#define SERVICE_AUTO_START 0x00000002
#define SERVICE_DEMAND_START 0x00000003
#define SERVICE_DISABLED 0x00000004
#define SERVICE_ERROR_IGNORE 0x00000000
#define SERVICE_ERROR_NORMAL 0x00000001
#define SERVICE_ERROR_SEVERE 0x00000002
#define SERVICE_ERROR_CRITICAL 0x00000003

// ---- Controls ----
#define SERVICE_CONTROL_STOP 0x00000001
#define SERVICE_CONTROL_PAUSE 0x00000002
#define SERVICE_CONTROL_CONTINUE 0x00000003
#define SERVICE_CONTROL_INTERROGATE 0x00000004
#define SERVICE_CONTROL_SHUTDOWN 0x00000005
#define SERVICE_CONTROL_PARAMCHANGE 0x00000006
#define SERVICE_CONTROL_NETBINDADD 0x00000007
#define SERVICE_CONTROL_NETBINDREMOVE 0x00000008
#define SERVICE_CONTROL_NETBINDENABLE 0x00000009
#define SERVICE_CONTROL_NETBINDDISABLE 0x0000000A
#define SERVICE_CONTROL_DEVICEEVENT 0x0000000B
#define SERVICE_CONTROL_HARDWAREPROFILECHANGE 0x0000000C
#define SERVICE_CONTROL_POWEREVENT 0x0000000D
#define SERVICE_CONTROL_SESSIONCHANGE 0x0000000E
#define SERVICE_CONTROL_PRESHUTDOWN 0x0000000F

// ---- States ----
#define SERVICE_STOPPED 0x00000001
#define SERVICE_START_PENDING 0x00000002
#define SERVICE_STOP_PENDING 0x00000003
#define SERVICE_RUNNING 0x00000004
#define SERVICE_CONTINUE_PENDING 0x00000005
#define SERVICE_PAUSE_PENDING 0x00000006
#define SERVICE_PAUSED 0x00000007

// ---- Controls accepted ----
#define SERVICE_ACCEPT_STOP 0x00000001
#define SERVICE_ACCEPT_PAUSE_CONTINUE 0x00000002
#define SERVICE_ACCEPT_SHUTDOWN 0x00000004
#define SERVICE_ACCEPT_PARAMCHANGE 0x00000008
#define SERVICE_ACCEPT_NETBINDCHANGE 0x00000010
#define SERVICE_ACCEPT_HARDWAREPROFILECHANGE 0x00000020
#define SERVICE_ACCEPT_POWEREVENT 0x00000040
#define SERVICE_ACCEPT_SESSIONCHANGE 0x00000080
#define SERVICE_ACCEPT_PRESHUTDOWN 0x00000100

// ---- Optional configuration and status levels ----
#define SERVICE_CONFIG_DESCRIPTION 1
#define SERVICE_CONFIG_FAILURE_ACTIONS 2
#define SERVICE_RUNS_IN_SYSTEM_PROCESS 0x00000001

enum SC_STATUS_TYPE
{
    SC_STATUS_PROCESS_INFO = 0
};

// ---- Structures, in their 64-bit Windows layouts ----
struct SERVICE_STATUS
{
    DWORD dwServiceType;
    DWORD dwCurrentState;
    DWORD dwControlsAccepted;
    DWORD dwWin32ExitCode;
    DWORD dwServiceSpecificExitCode;
    DWORD dwCheckPoint;
    DWORD dwWaitHint;
};
using LPSERVICE_STATUS = SERVICE_STATUS*;
static_assert(sizeof(SERVICE_STATUS) == 28);

struct SERVICE_STATUS_PROCESS
{
    DWORD dwServiceType;
    DWORD dwCurrentState;
    DWORD dwControlsAccepted;
    DWORD dwWin32ExitCode;
    DWORD dwServiceSpecificExitCode;
    DWORD dwCheckPoint;
    DWORD dwWaitHint;
    DWORD dwProcessId;
    DWORD dwServiceFlags;
};
using LPSERVICE_STATUS_PROCESS = SERVICE_STATUS_PROCESS*;
static_assert(sizeof(SERVICE_STATUS_PROCESS) == 36);
static_assert(offsetof(SERVICE_STATUS_PROCESS, dwProcessId) == 28);

struct QUERY_SERVICE_CONFIGW
{
    DWORD dwServiceType;
    DWORD dwStartType;
    DWORD dwErrorControl;
    LPWSTR lpBinaryPathName;
    LPWSTR lpLoadOrderGroup;
    DWORD dwTagId;
    LPWSTR lpDependencies;
    LPWSTR lpServiceStartName;
    LPWSTR lpDisplayName;
};
using LPQUERY_SERVICE_CONFIGW = QUERY_SERVICE_CONFIGW*;
static_assert(sizeof(QUERY_SERVICE_CONFIGW) == 64);
static_assert(offsetof(QUERY_SERVICE_CONFIGW, lpBinaryPathName) == 16);
static_assert(offsetof(QUERY_SERVICE_CONFIGW, lpLoadOrderGroup) == 24);
static_assert(offsetof(QUERY_SERVICE_CONFIGW, dwTagId) == 32);
static_assert(offsetof(QUERY_SERVICE_CONFIGW, lpDependencies) == 40);
static_assert(offsetof(QUERY_SERVICE_CONFIGW, lpServiceStartName) == 48);
static_assert(offsetof(QUERY_SERVICE_CONFIGW, lpDisplayName) == 56);

struct SERVICE_DESCRIPTIONW
{
    LPWSTR lpDescription;
};
using LPSERVICE_DESCRIPTIONW = SERVICE_DESCRIPTIONW*;
static_assert(sizeof(SERVICE_DESCRIPTIONW) == 8);

using LPSERVICE_MAIN_FUNCTIONW = void(WINAPI*)(DWORD dwNumServicesArgs,
                                               LPWSTR* lpServiceArgVectors);
using LPHANDLER_FUNCTION = void(WINAPI*)(DWORD dwControl);

struct SERVICE_TABLE_ENTRYW
{
    LPWSTR lpServiceName;
    LPSERVICE_MAIN_FUNCTIONW lpServiceProc;
};
using LPSERVICE_TABLE_ENTRYW = SERVICE_TABLE_ENTRYW*;
static_assert(sizeof(SERVICE_TABLE_ENTRYW) == 16);
static_assert(offsetof(SERVICE_TABLE_ENTRYW, lpServiceProc) == 8);

// ---- The manager and its database ----

// Null with the last error set on failure. SC_MANAGER_CONNECT is always asked for.
SC_HANDLE WINAPI OpenSCManagerW(LPCWSTR lpMachineName, LPCWSTR lpDatabaseName,
                                DWORD dwDesiredAccess);
// Needs SC_MANAGER_CREATE_SERVICE. A name is at most 256 characters, without '/' or '\'
// (ERROR_INVALID_NAME); names and display names are unique, case-insensitively, across both
// (ERROR_SERVICE_EXISTS, ERROR_DUPLICATE_SERVICE_NAME). A null account is LocalSystem; one the
// machine does not know fails with ERROR_INVALID_SERVICE_ACCOUNT. The new service is stopped
// with ERROR_SERVICE_NEVER_STARTED as its exit code.
SC_HANDLE WINAPI CreateServiceW(SC_HANDLE hSCManager, LPCWSTR lpServiceName, LPCWSTR lpDisplayName,
                                DWORD dwDesiredAccess, DWORD dwServiceType, DWORD dwStartType,
                                DWORD dwErrorControl, LPCWSTR lpBinaryPathName,
                                LPCWSTR lpLoadOrderGroup, LPDWORD lpdwTagId, LPCWSTR lpDependencies,
                                LPCWSTR lpServiceStartName, LPCWSTR lpPassword);
SC_HANDLE WINAPI OpenServiceW(SC_HANDLE hSCManager, LPCWSTR lpServiceName, DWORD dwDesiredAccess);
BOOL WINAPI CloseServiceHandle(SC_HANDLE hSCObject);
// Needs DELETE; see the header's notes for when the service goes.
BOOL WINAPI DeleteService(SC_HANDLE hService);

// ---- Configuration ----

// Needs SERVICE_QUERY_CONFIG. The strings follow the structure in the caller's buffer; a
// buffer too small fails with ERROR_INSUFFICIENT_BUFFER and *pcbBytesNeeded set.
BOOL WINAPI QueryServiceConfigW(SC_HANDLE hService, LPQUERY_SERVICE_CONFIGW lpServiceConfig,
                                DWORD cbBufSize, LPDWORD pcbBytesNeeded);
// Needs SERVICE_CHANGE_CONFIG. A null lpDescription changes nothing, an empty one removes it.
BOOL WINAPI ChangeServiceConfig2W(SC_HANDLE hService, DWORD dwInfoLevel, LPVOID lpInfo);
// Needs SERVICE_QUERY_CONFIG. lpDescription is null when the service has no description.
BOOL WINAPI QueryServiceConfig2W(SC_HANDLE hService, DWORD dwInfoLevel, LPBYTE lpBuffer,
                                 DWORD cbBufSize, LPDWORD pcbBytesNeeded);

// ---- Starting, controlling, status ----

// Needs SERVICE_START. ServiceMain receives the service's name, then lpServiceArgVectors.
BOOL WINAPI StartServiceW(SC_HANDLE hService, DWORD dwNumServiceArgs, LPCWSTR* lpServiceArgVectors);
// The control is delivered to the service's process, whichever process calls; the handler runs
// on the dispatcher's thread there and must return within 30 seconds of the platform clock
// (ERROR_SERVICE_REQUEST_TIMEOUT). SERVICE_CONTROL_STOP needs SERVICE_STOP; pause, continue,
// parameter and binding changes SERVICE_PAUSE_CONTINUE; interrogation SERVICE_INTERROGATE; codes
// 128 to 255 SERVICE_USER_DEFINED_CONTROL and are always delivered to an active service. Any
// other code fails with ERROR_INVALID_PARAMETER. *lpServiceStatus receives the latest status on
// success and with ERROR_SERVICE_NOT_ACTIVE, ERROR_SERVICE_CANNOT_ACCEPT_CTRL and
// ERROR_INVALID_SERVICE_CONTROL.
BOOL WINAPI ControlService(SC_HANDLE hService, DWORD dwControl, LPSERVICE_STATUS lpServiceStatus);
// Need SERVICE_QUERY_STATUS.
BOOL WINAPI QueryServiceStatus(SC_HANDLE hService, LPSERVICE_STATUS lpServiceStatus);
BOOL WINAPI QueryServiceStatusEx(SC_HANDLE hService, SC_STATUS_TYPE InfoLevel, LPBYTE lpBuffer,
                                 DWORD cbBufSize, LPDWORD pcbBytesNeeded);

// ---- The service's side ----

// Fails at once with ERROR_FAILED_SERVICE_CONTROLLER_CONNECT in a process that the manager did
// not start. Otherwise it runs the ServiceMain of the entry named after the service (else the
// first entry, as an own-process service's name is ignored) on a thread of its own and serves
// controls on the calling thread. It returns once the service has reported SERVICE_STOPPED and
// its ServiceMain has returned, so that the process does not tear down its globals under a
// ServiceMain still running.
BOOL WINAPI StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* lpServiceStartTable);
// Fails with ERROR_SERVICE_NOT_IN_EXE outside a running dispatcher. The name is not checked, as
// a process runs one service.
SERVICE_STATUS_HANDLE WINAPI RegisterServiceCtrlHandlerW(LPCWSTR lpServiceName,
                                                         LPHANDLER_FUNCTION lpHandlerProc);
// Every call is recorded as a status report. ERROR_INVALID_HANDLE for a handle that is not the
// running service's, ERROR_INVALID_DATA for an unknown state or type.
BOOL WINAPI SetServiceStatus(SERVICE_STATUS_HANDLE hServiceStatus,
                             LPSERVICE_STATUS lpServiceStatus);
