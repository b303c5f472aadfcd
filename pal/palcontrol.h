// Control of the platform layer for tests and tools: the clock, injected faults,
// captured debugger output and message boxes, the module path and the host profile.
// System code never includes this header.
#pragma once

#include "pal/windef.h"

#include <string>
#include <string_view>
#include <vector>

struct sqlite3;

namespace pal {

// ---- Clock --------------------------------------------------------------------------------
// Every Sleep, wait timeout and GetTickCount runs `factor` times faster than real time.
void SetClockScale(DWORD factor);
DWORD GetClockScale();
// Added to every GetTickCount result, e.g. to start just before the 32-bit wrap.
void SetTickCountOffset(DWORD offsetMs);
// The calling thread's next GetTickCount calls answer these values, in order, instead of the
// clock; for timings that must come out to the exact millisecond. Other threads are not
// affected.
void ScriptTickCounts(const std::vector<DWORD>& values);
// From now on the local time runs on (at the clock's scale) from `st`.
void SetLocalTimeForTest(const SYSTEMTIME& st);
// Back to the machine's real local time.
void ResetLocalTimeForTest();

// ---- Fault injection ----------------------------------------------------------------------
// Makes calls to the platform function `api` (its Win32 name, e.g. "CreateEventW") fail with
// `error`. nth == 0 fails every matching call; nth == N fails only the Nth matching call
// counted from now. With `arg`, only calls whose main argument (a name, a path) equals it
// case-insensitively match. One rule per api; a new rule replaces the old one.
// The registry functions (Reg*) return the error instead of setting the last error, and their
// main argument is the full path of the key the call is about: the root's abbreviation (HKLM
// or HKCU) and the key's path as the caller spelt it, joined by single backslashes, without a
// trailing one, e.g. u"HKLM\\System\\CurrentControlSet\\Services\\Orvhwsvc\\Parameters".
// Keys reached through HKEY_CLASSES_ROOT have their real path, u"HKLM\\Software\\Classes\\...".
void InjectFault(const char* api, DWORD error, ULONG nth = 0, const WCHAR* arg = nullptr);
// The same rules for another process of the machine: a process whose environment holds
// ORVSIM_FAULTS injects them when it starts. The text is a list of rules separated by ';',
// each "API=ERROR[,NTH[,ARG]]" with ERROR and NTH decimal or 0x-hexadecimal and ARG in UTF-8,
// e.g. "OpenSCManagerW=5;OpenServiceW=0x424,2". False, with nothing injected, for a malformed
// text.
bool InjectFaultsFromText(const std::string& text);
void ClearFault(const char* api);
void ClearFaults();
// Matching calls seen and calls failed since the rule for `api` was set.
ULONG FaultCalls(const char* api);
ULONG FaultHits(const char* api);

// The task allocator (CoTaskMemAlloc, CoTaskMemRealloc, SysAllocString*) fails its Nth
// allocation counted from now; 0 disarms. TaskAllocations counts allocations since arming.
// fThisThreadOnly counts only the calling thread's allocations, leaving other threads (a
// service's, say) alone.
void FailTaskAllocAt(ULONG nth, bool fThisThreadOnly = false);
ULONG TaskAllocations();
// Same for `new (std::nothrow)`, effective only in programs linked with pal_newfault.
void FailNothrowNewAt(ULONG nth, bool fThisThreadOnly = false);
ULONG NothrowNewAllocations();

// ---- Debugger output and message boxes ------------------------------------------------------
// While capturing, OutputDebugString text is kept (one entry per call, UTF-16) instead of
// going to standard error.
void CaptureDebugOutput(bool capture);
std::vector<std::u16string> TakeDebugOutput();
// All captured text joined, in UTF-8.
std::string TakeDebugOutputText();

struct MessageBoxRecord
{
    std::u16string caption;
    std::u16string text;
    UINT type;
};
// While capturing, MessageBoxW records its box instead of writing it to standard error.
void CaptureMessageBoxes(bool capture);
std::vector<MessageBoxRecord> TakeMessageBoxes();

// ---- Module and host --------------------------------------------------------------------------
// GetModuleFileNameW reports `path` instead of the real executable; nullptr restores it.
void SetModuleFileNameForTest(const WCHAR* path);
// GetCommandLineW reports `commandLine`; nullptr restores the real one.
void SetCommandLineForTest(const WCHAR* commandLine);

struct HostProfile
{
    DWORD dwMajorVersion = 10;
    DWORD dwMinorVersion = 0;
    DWORD dwBuildNumber = 20348;
    DWORD dwPlatformId = 2; // VER_PLATFORM_WIN32_NT
    WORD wServicePackMajor = 0;
    WORD wServicePackMinor = 0;
    WORD wSuiteMask = 0x0110;        // VER_SUITE_SINGLEUSERTS | VER_SUITE_TERMINAL
    BYTE wProductType = 3;           // VER_NT_SERVER
    WORD wProcessorArchitecture = 9; // PROCESSOR_ARCHITECTURE_AMD64
    DWORD dwNumberOfProcessors = 2;
    // Older systems lack GetNativeSystemInfo; GetProcAddress then fails to find it.
    bool fHasGetNativeSystemInfo = true;
    // GetVersionExW fails with this error when non-zero.
    DWORD dwGetVersionExError = 0;
};
void SetHostProfile(const HostProfile& profile);
HostProfile GetHostProfile();

// ---- COM --------------------------------------------------------------------------------------
// The class registered under `dwCookie` stands for the server of another process that the
// emulation serves in this one (the simulated storage service in the provider's process): this
// process's CoSuspendClassObjects and last CoReleaseServerProcess leave it available, as they
// would on Windows. False for an unknown cookie.
bool ServeAsAnotherProcess(DWORD dwCookie);

// ---- Registry ----------------------------------------------------------------------------------
// RegNotifyChangeKeyValue calls armed in this process and not yet signalled, so a test can wait
// until a watcher thread is listening before it makes a change.
size_t ArmedRegistryNotifications();

// ---- Databases of the machine
// ---------------------------------------------------------------------- Opens (creating) a SQLite
// database the way every store of the emulated machine does, so that several processes share it
// safely: write-ahead log (retried while another process switches a fresh file to it), a 30-second
// busy timeout, and NORMAL synchronisation (a killed process loses no committed call). Returns the
// SQLite result code; *ppDb is null on failure.
int OpenMachineDatabase(const std::string& path, sqlite3** ppDb);

// ---- Machine root -----------------------------------------------------------------------------
// The directory that holds the persistent state of the emulated machine: $ORVSIM_ROOT, or
// $HOME/.orvsim when unset. Created on first use.
std::string MachineRoot();

// ---- Accounts ----------------------------------------------------------------------------------
// The emulated machine has three accounts: "LocalSystem" (S-1-5-18, no password),
// "Administrator" (password "Orvsim-Admin1", a member of Administrators) and "User" (password
// "Orvsim-User1", a plain user); names may be qualified as ".\Name" or "ORVSIM\Name".
// The calling process runs under `name` from now on (an empty name: back to $ORVSIM_ACCOUNT,
// else LocalSystem); false when the machine has no such account.
bool SetProcessAccount(std::u16string_view name);
// The plain name of the account the calling process runs under.
std::u16string ProcessAccountName();
// Whether that account is a member of Administrators (LocalSystem and Administrator are), as a
// service that admits administrators only asks of its caller.
bool ProcessAccountIsAdministrator();

// ---- Processes ---------------------------------------------------------------------------------
// Hooks of a program whose entry is wWinMain (linked with orv_pal_winmain): the start hooks run
// after the process is recorded in the machine's process table and before wWinMain, the exit
// hooks after wWinMain returns (or in ExitProcess) and before the exit code is recorded, in the
// reverse order of their addition. A program's own object adds them from a static initializer,
// e.g. one that serves simulated machine services in-process:
//   static const bool s_fHooked = (pal::AddProcessEntryHooks(&StartServices, &StopServices), true);
// Either may be null. At most 8 pairs; false when the list is full.
bool AddProcessEntryHooks(void (*pfnStart)(), void (*pfnExit)());

// One row of the machine's process table (<machine root>/processes.db): a process started
// through the entry.
struct ProcessRecord
{
    DWORD dwProcessId = 0;
    // The process's start time in clock ticks after boot (/proc/<pid>/stat), which tells a
    // reused id apart.
    ULONGLONG ullStartIdentity = 0;
    std::u16string imagePath;   // GetModuleFileNameW(NULL) of the process
    std::u16string commandLine; // its GetCommandLineW()
    ULONGLONG ullStartTime = 0; // FILETIME (UTC)
    bool fRunning = false;      // the process is alive
    bool fExitRecorded = false; // its exit code was recorded
    // As GetExitCodeProcess answers: STILL_ACTIVE while running, the recorded code, else 1.
    DWORD dwExitCode = 0;
    ULONGLONG ullEndTime = 0; // FILETIME (UTC) of the recorded exit, else 0
};
// Every row, oldest first. ERROR_SUCCESS or the Win32 error of the failed read.
DWORD ReadProcessTable(std::vector<ProcessRecord>* pRecords);
// The row of the process a handle of OpenProcess names: ERROR_INVALID_HANDLE for any other
// handle, ERROR_NOT_FOUND when the process has no row (it was not started through the entry).
DWORD ReadProcessRecord(HANDLE hProcess, ProcessRecord* pRecord);

// ---- Services ----------------------------------------------------------------------------------
// One status report of a service, as the service control manager recorded it: every
// SetServiceStatus of the service, and what the manager itself recorded (the start, a process
// found dead, a start that timed out).
struct ServiceStatusReport
{
    ULONGLONG ullSequence; // increases from one report to the next, across all services
    DWORD dwProcessId;
    DWORD dwCurrentState;
    DWORD dwControlsAccepted;
    DWORD dwWin32ExitCode;
    DWORD dwServiceSpecificExitCode;
    DWORD dwCheckPoint;
    DWORD dwWaitHint;
    DWORD dwTickCount; // GetTickCount of the recording process
    ULONGLONG ullTime; // wall clock, as a FILETIME (UTC)
    bool fByManager;   // recorded by the manager rather than the service
};
// The reports of the service of this name (case-insensitive), oldest first; for a name that
// has been deleted, those of the last service that had it. ERROR_SERVICE_DOES_NOT_EXIST when no
// service ever had the name.
DWORD ServiceStatusReports(std::u16string_view serviceName,
                           std::vector<ServiceStatusReport>* pReports);

// ---- COM security ------------------------------------------------------------------------------
// What CoInitializeSecurity kept for the process: whether it was called, whether it kept an access
// control object (EOAC_ACCESS_CONTROL), and its levels and capabilities.
struct ComSecurityState
{
    bool fInitialized = false;
    bool fAccessControl = false;
    DWORD dwAuthnLevel = 0;
    DWORD dwImpLevel = 0;
    DWORD dwCapabilities = 0;
};
ComSecurityState GetComSecurityState();
// Whether the process's COM security lets a caller running under the machine account `name` in,
// as the runtime checks every caller: the kept access control object's IsAccessAllowed for the
// account's SID and COM_RIGHTS_EXECUTE; without an object, every caller is let in. Returns that
// call's result (*pfAllowed FALSE on failure), E_INVALIDARG for a name of no account.
HRESULT ComSecurityAllowsAccount(std::u16string_view name, BOOL* pfAllowed);

// ---- Text for tools and tests ------------------------------------------------------------------
// Lenient conversions: invalid input becomes U+FFFD.
std::string Utf16ToUtf8(std::u16string_view s);
std::u16string Utf8ToUtf16(std::string_view s);

// Restores every control above to its default (real clock, no faults, no capture) and forgets
// the process's COM security, so that CoInitializeSecurity may be called again.
void ResetForTest();

} // namespace pal
