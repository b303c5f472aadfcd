// Operating system version and processor information, answered from the host profile.
#include "pal/errhandlingapi.h"
#include "pal/src/base/internal.h"
#include "pal/sysinfoapi.h"
#include "pal/winerror.h"

#include <cstring>
#include <string>

namespace {

// Windows x64 user address space bounds.
constexpr uintptr_t kMinimumApplicationAddress = 0x10000;
constexpr uintptr_t kMaximumApplicationAddress = 0x7FFFFFFEFFFF;
constexpr DWORD kPageSize = 4096;
constexpr DWORD kAllocationGranularity = 65536;

// PROCESSOR_INTEL_386, _486, _PENTIUM, PROCESSOR_AMD_X8664 and PROCESSOR_ARM (reserved): the
// obsolete dwProcessorType values Windows still fills in.
DWORD ProcessorTypeFor(WORD architecture)
{
    switch (architecture) {
    case PROCESSOR_ARCHITECTURE_INTEL:
        return 586;
    case PROCESSOR_ARCHITECTURE_AMD64:
        return 8664;
    case PROCESSOR_ARCHITECTURE_IA64:
        return 2200;
    default:
        return 0;
    }
}

void FillSystemInfo(LPSYSTEM_INFO info)
{
    if (info == nullptr)
        return;
    pal::HostProfile profile = pal::GetHostProfile();
    std::memset(info, 0, sizeof(*info));
    info->wProcessorArchitecture = profile.wProcessorArchitecture;
    info->wReserved = 0;
    info->dwPageSize = kPageSize;
    info->lpMinimumApplicationAddress = reinterpret_cast<LPVOID>(kMinimumApplicationAddress);
    info->lpMaximumApplicationAddress = reinterpret_cast<LPVOID>(kMaximumApplicationAddress);
    DWORD count = profile.dwNumberOfProcessors;
    info->dwActiveProcessorMask = count >= 64 ? ~DWORD_PTR(0) : ((DWORD_PTR(1) << count) - 1);
    info->dwNumberOfProcessors = count;
    info->dwProcessorType = ProcessorTypeFor(profile.wProcessorArchitecture);
    info->dwAllocationGranularity = kAllocationGranularity;
    info->wProcessorLevel = 6;
    info->wProcessorRevision = 0;
}

} // namespace

BOOL WINAPI GetVersionExW(LPOSVERSIONINFOW lpVersionInformation)
{
    if (lpVersionInformation == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (pal::detail::FailIfInjected("GetVersionExW"))
        return FALSE;
    pal::HostProfile profile = pal::GetHostProfile();
    if (profile.dwGetVersionExError != 0) {
        SetLastError(profile.dwGetVersionExError);
        return FALSE;
    }
    DWORD size = lpVersionInformation->dwOSVersionInfoSize;
    if (size != sizeof(OSVERSIONINFOW) && size != sizeof(OSVERSIONINFOEXW)) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    lpVersionInformation->dwMajorVersion = profile.dwMajorVersion;
    lpVersionInformation->dwMinorVersion = profile.dwMinorVersion;
    lpVersionInformation->dwBuildNumber = profile.dwBuildNumber;
    lpVersionInformation->dwPlatformId = profile.dwPlatformId;
    std::memset(lpVersionInformation->szCSDVersion, 0, sizeof(lpVersionInformation->szCSDVersion));
    if (profile.wServicePackMajor != 0) {
        std::u16string csd =
            u"Service Pack " + pal::detail::ToUtf16(std::to_string(profile.wServicePackMajor));
        std::memcpy(lpVersionInformation->szCSDVersion, csd.data(), csd.size() * sizeof(WCHAR));
    }
    if (size == sizeof(OSVERSIONINFOEXW)) {
        auto* ex = reinterpret_cast<LPOSVERSIONINFOEXW>(lpVersionInformation);
        ex->wServicePackMajor = profile.wServicePackMajor;
        ex->wServicePackMinor = profile.wServicePackMinor;
        ex->wSuiteMask = profile.wSuiteMask;
        ex->wProductType = profile.wProductType;
        ex->wReserved = 0;
    }
    return TRUE;
}

void WINAPI GetSystemInfo(LPSYSTEM_INFO lpSystemInfo)
{
    FillSystemInfo(lpSystemInfo);
}

// No WOW64 here: the native view is the same as the process's.
void WINAPI GetNativeSystemInfo(LPSYSTEM_INFO lpSystemInfo)
{
    FillSystemInfo(lpSystemInfo);
}
