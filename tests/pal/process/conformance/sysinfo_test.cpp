// Operating system version and processor information of an x64 process.
#include "pal/errhandlingapi.h"
#include "pal/sysinfoapi.h"
#include "tests/support/conformance.h"

#include <bitset>
#include <cstring>

namespace {

using SysInfoTest = orvtest::ConformanceTest;

TEST_F(SysInfoTest, VersionRecordIsFilledOnlyAtEitherOfItsTwoSizes)
{
    for (DWORD size : {sizeof(OSVERSIONINFOW), sizeof(OSVERSIONINFOEXW)}) {
        SCOPED_TRACE(size);
        OSVERSIONINFOEXW info{};
        info.dwOSVersionInfoSize = size;
        EXPECT_CALL_ERROR(TRUE, orvtest::LAST_ERROR_UNTOUCHED,
                          GetVersionExW(reinterpret_cast<LPOSVERSIONINFOW>(&info)));
        EXPECT_EQ(size, info.dwOSVersionInfoSize);
        EXPECT_EQ(DWORD(VER_PLATFORM_WIN32_NT), info.dwPlatformId);
        EXPECT_LE(6u, info.dwMajorVersion);
        EXPECT_NE(0u, info.dwBuildNumber);
    }
    for (DWORD size : {0u, 1u, 148u, 275u, 277u, 283u, 285u, 552u}) {
        SCOPED_TRACE(size);
        OSVERSIONINFOEXW info{};
        info.dwOSVersionInfoSize = size;
        EXPECT_FALSE(GetVersionExW(reinterpret_cast<LPOSVERSIONINFOW>(&info)));
        EXPECT_EQ(0u, info.dwMajorVersion);
    }
}

TEST_F(SysInfoTest, SystemInfoDescribesAnX64Machine)
{
    for (auto fill : {&GetSystemInfo, &GetNativeSystemInfo}) {
        SYSTEM_INFO info;
        std::memset(&info, 0xCD, sizeof(info));
        fill(&info);
        EXPECT_EQ(PROCESSOR_ARCHITECTURE_AMD64, info.wProcessorArchitecture);
        EXPECT_EQ(0, info.wReserved);
        EXPECT_EQ(4096u, info.dwPageSize);
        EXPECT_EQ(65536u, info.dwAllocationGranularity);
        EXPECT_EQ(reinterpret_cast<LPVOID>(0x10000), info.lpMinimumApplicationAddress);
        EXPECT_EQ(reinterpret_cast<LPVOID>(0x7FFFFFFEFFFF), info.lpMaximumApplicationAddress);
        EXPECT_EQ(8664u, info.dwProcessorType);
        EXPECT_LE(1u, info.dwNumberOfProcessors);
        EXPECT_EQ(info.dwNumberOfProcessors, std::bitset<64>(info.dwActiveProcessorMask).count());
    }
}

} // namespace
