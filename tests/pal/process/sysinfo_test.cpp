// Operating system version and processor information from the host profile; what holds on
// Windows too is in conformance/sysinfo_test.cpp.
#include "pal/errhandlingapi.h"
#include "pal/sysinfoapi.h"
#include "tests/support/paltest.h"

#include <cstring>

namespace {

using HostProfileTest = orvtest::PalTest;

constexpr DWORD kUntouched = orvtest::LAST_ERROR_UNTOUCHED;

// A record filled with 0xAB before the call, so that fields left alone show.
OSVERSIONINFOEXW GetVersionRecord(DWORD dwSize)
{
    OSVERSIONINFOEXW info;
    std::memset(&info, 0xAB, sizeof(info));
    info.dwOSVersionInfoSize = dwSize;
    SetLastError(kUntouched);
    EXPECT_TRUE(GetVersionExW(reinterpret_cast<LPOSVERSIONINFOW>(&info)));
    EXPECT_WIN32(kUntouched, GetLastError());
    return info;
}

TEST_F(HostProfileTest, PlainRecordGetsTheDefaultVersionAndNoExtendedFields)
{
    OSVERSIONINFOEXW info = GetVersionRecord(sizeof(OSVERSIONINFOW));
    EXPECT_EQ(276u, info.dwOSVersionInfoSize);
    EXPECT_EQ(10u, info.dwMajorVersion);
    EXPECT_EQ(0u, info.dwMinorVersion);
    EXPECT_EQ(20348u, info.dwBuildNumber);
    EXPECT_EQ(static_cast<DWORD>(VER_PLATFORM_WIN32_NT), info.dwPlatformId);
    EXPECT_EQ(0, info.szCSDVersion[0]);
    EXPECT_EQ(0xABAB, info.wServicePackMajor);
    EXPECT_EQ(0xABAB, info.wSuiteMask);
    EXPECT_EQ(0xAB, info.wProductType);
    EXPECT_EQ(0xAB, info.wReserved);
}

TEST_F(HostProfileTest, ExtendedRecordGetsTheExtendedFieldsOfTheProfile)
{
    pal::HostProfile profile;
    profile.dwMajorVersion = 6;
    profile.dwMinorVersion = 1;
    profile.dwBuildNumber = 7601;
    profile.wServicePackMajor = 1;
    profile.wServicePackMinor = 2;
    profile.wSuiteMask = 0x0112;
    profile.wProductType = VER_NT_WORKSTATION;
    pal::SetHostProfile(profile);
    OSVERSIONINFOEXW info = GetVersionRecord(sizeof(OSVERSIONINFOEXW));
    EXPECT_EQ(6u, info.dwMajorVersion);
    EXPECT_EQ(1u, info.dwMinorVersion);
    EXPECT_EQ(7601u, info.dwBuildNumber);
    EXPECT_EQ(u"Service Pack 1", std::u16string(info.szCSDVersion));
    EXPECT_EQ(1, info.wServicePackMajor);
    EXPECT_EQ(2, info.wServicePackMinor);
    EXPECT_EQ(0x0112, info.wSuiteMask);
    EXPECT_EQ(VER_NT_WORKSTATION, info.wProductType);
    EXPECT_EQ(0, info.wReserved);
}

TEST_F(HostProfileTest, FailuresSetTheLastError)
{
    // Linux only: Wine leaves the last error of a wrong size as it was; Windows sets it, as
    // Wine's own tests of GetVersionExA show.
    OSVERSIONINFOW info{};
    EXPECT_CALL_ERROR(FALSE, ERROR_INSUFFICIENT_BUFFER, GetVersionExW(&info));

    pal::HostProfile profile;
    profile.dwGetVersionExError = ERROR_ACCESS_DENIED;
    pal::SetHostProfile(profile);
    info.dwOSVersionInfoSize = sizeof(info);
    EXPECT_CALL_ERROR(FALSE, ERROR_ACCESS_DENIED, GetVersionExW(&info));

    pal::SetHostProfile(pal::HostProfile{});
    pal::InjectFault("GetVersionExW", ERROR_NOT_ENOUGH_MEMORY, 1);
    EXPECT_CALL_ERROR(FALSE, ERROR_NOT_ENOUGH_MEMORY, GetVersionExW(&info));
    EXPECT_TRUE(GetVersionExW(&info));
}

// The default profile's system information is checked on both platforms.
TEST_F(HostProfileTest, SystemInfoFromTheProfileWithOneMaskBitPerProcessor)
{
    const std::pair<DWORD, DWORD_PTR> masks[] = {
        {1, 0x1}, {4, 0xF}, {63, 0x7FFFFFFFFFFFFFFF}, {64, ~DWORD_PTR(0)}};
    for (auto [count, mask] : masks) {
        pal::HostProfile profile;
        profile.dwNumberOfProcessors = count;
        profile.wProcessorArchitecture = PROCESSOR_ARCHITECTURE_INTEL;
        pal::SetHostProfile(profile);
        SYSTEM_INFO info{};
        GetNativeSystemInfo(&info);
        EXPECT_EQ(count, info.dwNumberOfProcessors);
        EXPECT_EQ(mask, info.dwActiveProcessorMask) << count;
        EXPECT_EQ(PROCESSOR_ARCHITECTURE_INTEL, info.wProcessorArchitecture);
    }
}

} // namespace
