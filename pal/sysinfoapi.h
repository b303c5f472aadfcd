// Time, operating system version and processor information.
#pragma once

#include "pal/windef.h"

DWORD WINAPI GetTickCount();
ULONGLONG WINAPI GetTickCount64();
void WINAPI GetLocalTime(LPSYSTEMTIME lpSystemTime);

#define VER_PLATFORM_WIN32s 0
#define VER_PLATFORM_WIN32_WINDOWS 1
#define VER_PLATFORM_WIN32_NT 2
#define VER_NT_WORKSTATION 0x0000001
#define VER_NT_DOMAIN_CONTROLLER 0x0000002
#define VER_NT_SERVER 0x0000003

struct OSVERSIONINFOW
{
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
};
using LPOSVERSIONINFOW = OSVERSIONINFOW*;
static_assert(sizeof(OSVERSIONINFOW) == 276);

struct OSVERSIONINFOEXW
{
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
    WORD wServicePackMajor;
    WORD wServicePackMinor;
    WORD wSuiteMask;
    BYTE wProductType;
    BYTE wReserved;
};
using LPOSVERSIONINFOEXW = OSVERSIONINFOEXW*;
static_assert(sizeof(OSVERSIONINFOEXW) == 284);
static_assert(offsetof(OSVERSIONINFOEXW, wServicePackMajor) == 276);
static_assert(offsetof(OSVERSIONINFOEXW, wProductType) == 282);

// Accepts a record whose size field is that of OSVERSIONINFOW or OSVERSIONINFOEXW.
BOOL WINAPI GetVersionExW(LPOSVERSIONINFOW lpVersionInformation);

#define PROCESSOR_ARCHITECTURE_INTEL 0
#define PROCESSOR_ARCHITECTURE_ARM 5
#define PROCESSOR_ARCHITECTURE_IA64 6
#define PROCESSOR_ARCHITECTURE_AMD64 9
#define PROCESSOR_ARCHITECTURE_ARM64 12
#define PROCESSOR_ARCHITECTURE_UNKNOWN 0xffff

// The union and the structure in it are nameless, as the SDK declares them, so that code reads
// info.wProcessorArchitecture on both platforms (ISO C++ has no nameless structures).
struct SYSTEM_INFO
{
    union {
        DWORD dwOemId;
        __extension__ struct
        {
            WORD wProcessorArchitecture;
            WORD wReserved;
        };
    };
    DWORD dwPageSize;
    LPVOID lpMinimumApplicationAddress;
    LPVOID lpMaximumApplicationAddress;
    DWORD_PTR dwActiveProcessorMask;
    DWORD dwNumberOfProcessors;
    DWORD dwProcessorType;
    DWORD dwAllocationGranularity;
    WORD wProcessorLevel;
    WORD wProcessorRevision;
};
using LPSYSTEM_INFO = SYSTEM_INFO*;
static_assert(sizeof(SYSTEM_INFO) == 48);
static_assert(offsetof(SYSTEM_INFO, dwPageSize) == 4);
static_assert(offsetof(SYSTEM_INFO, dwNumberOfProcessors) == 32);

void WINAPI GetSystemInfo(LPSYSTEM_INFO lpSystemInfo);
void WINAPI GetNativeSystemInfo(LPSYSTEM_INFO lpSystemInfo);
