// Modules: the executable's path and its buffer rules, kernel32 as the one library, and the
// exports found through GetProcAddress.
#include "pal/errhandlingapi.h"
#include "pal/libloaderapi.h"
#include "pal/sysinfoapi.h"
#include "tests/support/paltest.h"

#include <climits>
#include <tuple>
#include <unistd.h>

namespace {

using ModuleTest = orvtest::PalTest;

constexpr DWORD kUntouched = orvtest::LAST_ERROR_UNTOUCHED;

int g_notAModule;
const HMODULE kNotAModule = reinterpret_cast<HMODULE>(&g_notAModule);

// Through void (*)(), which converts to any function pointer type without a warning.
template <typename Function>
Function* AsFunction(FARPROC proc)
{
    return reinterpret_cast<Function*>(reinterpret_cast<void (*)()>(proc));
}

TEST_F(ModuleTest, ReportsTheRealExecutableTheOverrideOrKernel32)
{
    char real[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", real, sizeof(real));
    ASSERT_GT(n, 0);
    std::u16string expected = orvtest::Wide(std::string_view(real, static_cast<size_t>(n)));
    WCHAR buffer[4096];
    EXPECT_CALL_ERROR(expected.size(), kUntouched,
                      GetModuleFileNameW(nullptr, buffer, ARRAYSIZE(buffer)));
    EXPECT_EQ(expected, std::u16string(buffer));

    pal::SetModuleFileNameForTest(W("C:\\Program Files\\Orv\\orvprov.exe"));
    EXPECT_EQ(32u, GetModuleFileNameW(nullptr, buffer, MAX_PATH));
    EXPECT_EQ(u"C:\\Program Files\\Orv\\orvprov.exe", std::u16string(buffer));
    // The handle of the executable names the same file.
    EXPECT_EQ(32u, GetModuleFileNameW(GetModuleHandleW(nullptr), buffer, MAX_PATH));
    pal::SetModuleFileNameForTest(nullptr);
    GetModuleFileNameW(nullptr, buffer, MAX_PATH);
    EXPECT_EQ(expected.substr(0, MAX_PATH - 1), std::u16string(buffer));

    DWORD length = GetModuleFileNameW(GetModuleHandleW(W("kernel32.dll")), buffer, MAX_PATH);
    ASSERT_GT(length, 12u);
    EXPECT_EQ(u"KERNEL32.DLL", std::u16string(buffer + length - 12));
    EXPECT_CALL_ERROR(0u, ERROR_MOD_NOT_FOUND, GetModuleFileNameW(kNotAModule, buffer, MAX_PATH));

    pal::InjectFault("GetModuleFileNameW", ERROR_NOT_ENOUGH_MEMORY, 2);
    EXPECT_NE(0u, GetModuleFileNameW(nullptr, buffer, MAX_PATH));
    EXPECT_CALL_ERROR(0u, ERROR_NOT_ENOUGH_MEMORY, GetModuleFileNameW(nullptr, buffer, MAX_PATH));
    EXPECT_NE(0u, GetModuleFileNameW(nullptr, buffer, MAX_PATH));
}

// Windows Vista and later: a path that does not fit is cut to nSize - 1 characters and
// terminated, the call returns nSize and sets ERROR_INSUFFICIENT_BUFFER.
TEST_F(ModuleTest, BufferRulesAtExactSizes)
{
    pal::SetModuleFileNameForTest(W("C:\\svc\\p.exe")); // 12 characters
    // Size, result, text, last error.
    const std::tuple<DWORD, DWORD, std::u16string, DWORD> cases[] = {
        {13, 12, u"C:\\svc\\p.exe", kUntouched},
        {12, 12, u"C:\\svc\\p.ex", ERROR_INSUFFICIENT_BUFFER},
        {5, 5, u"C:\\s", ERROR_INSUFFICIENT_BUFFER},
        {1, 1, u"", ERROR_INSUFFICIENT_BUFFER},
        {0, 0, u"#", ERROR_INSUFFICIENT_BUFFER}, // nothing written
    };
    for (const auto& [nSize, dwResult, text, dwError] : cases) {
        SCOPED_TRACE(nSize);
        WCHAR buffer[32];
        std::fill(std::begin(buffer), std::end(buffer), u'#');
        buffer[31] = 0;
        EXPECT_CALL_ERROR(dwResult, dwError, GetModuleFileNameW(nullptr, buffer, nSize));
        EXPECT_EQ(text, std::u16string(buffer).substr(0, text.size()));
        EXPECT_EQ(nSize ? 0 : u'#', buffer[text.size()]);
        EXPECT_EQ(u'#', buffer[text.size() + 1]);
    }
}

TEST_F(ModuleTest, OnlyKernel32IsKnownInAnyCaseWithOrWithoutExtension)
{
    HMODULE kernel32 = LoadLibraryW(W("kernel32.dll"));
    ASSERT_NE(nullptr, kernel32);
    EXPECT_EQ(kernel32, LoadLibraryW(W("KERNEL32.DLL")));
    EXPECT_EQ(kernel32, LoadLibraryW(W("Kernel32")));
    EXPECT_EQ(kernel32, GetModuleHandleW(W("KeRnEl32.dLl")));
    EXPECT_NE(kernel32, GetModuleHandleW(nullptr));
    EXPECT_NE(nullptr, GetModuleHandleW(nullptr));
    for (LPCWSTR name : {W("advapi32.dll"), W("kernel32.dll.dll"), W("kernel3"), W("")}) {
        SCOPED_TRACE(orvtest::Narrow(name));
        EXPECT_CALL_ERROR(nullptr, ERROR_MOD_NOT_FOUND, LoadLibraryW(name));
        EXPECT_CALL_ERROR(nullptr, ERROR_MOD_NOT_FOUND, GetModuleHandleW(name));
    }
    EXPECT_TRUE(FreeLibrary(kernel32));
    EXPECT_TRUE(FreeLibrary(kernel32));
    EXPECT_CALL_ERROR(FALSE, ERROR_MOD_NOT_FOUND, FreeLibrary(kNotAModule));

    // The fault's argument is the name as the caller spelt it.
    pal::InjectFault("LoadLibraryW", ERROR_ACCESS_DENIED, 0, W("KERNEL32.DLL"));
    EXPECT_CALL_ERROR(nullptr, ERROR_ACCESS_DENIED, LoadLibraryW(W("kernel32.dll")));
    EXPECT_NE(nullptr, LoadLibraryW(W("kernel32")));
    EXPECT_EQ(1u, pal::FaultHits("LoadLibraryW"));
}

TEST_F(ModuleTest, GetProcAddressFindsTheExportedFunctions)
{
    HMODULE kernel32 = GetModuleHandleW(W("kernel32.dll"));
    FARPROC native = GetProcAddress(kernel32, "GetNativeSystemInfo");
    ASSERT_NE(nullptr, native);
    SYSTEM_INFO info{};
    AsFunction<void(LPSYSTEM_INFO)>(native)(&info);
    EXPECT_EQ(pal::GetHostProfile().dwNumberOfProcessors, info.dwNumberOfProcessors);
    EXPECT_EQ(reinterpret_cast<void (*)()>(&GetSystemInfo),
              reinterpret_cast<void (*)()>(GetProcAddress(kernel32, "GetSystemInfo")));
    EXPECT_EQ(reinterpret_cast<void (*)()>(&GetVersionExW),
              reinterpret_cast<void (*)()>(GetProcAddress(kernel32, "GetVersionExW")));
    FARPROC tick = GetProcAddress(kernel32, "GetTickCount");
    ASSERT_NE(nullptr, tick);
    DWORD before = GetTickCount();
    EXPECT_LE(AsFunction<DWORD()>(tick)() - before, 10000u);

    // Older systems lack GetNativeSystemInfo; the fallback callers use stays.
    pal::HostProfile profile;
    profile.fHasGetNativeSystemInfo = false;
    pal::SetHostProfile(profile);
    EXPECT_CALL_ERROR(nullptr, ERROR_PROC_NOT_FOUND,
                      GetProcAddress(kernel32, "GetNativeSystemInfo"));
    EXPECT_NE(nullptr, GetProcAddress(kernel32, "GetSystemInfo"));
    profile.fHasGetNativeSystemInfo = true;
    pal::SetHostProfile(profile);
    EXPECT_NE(nullptr, GetProcAddress(kernel32, "GetNativeSystemInfo"));
}

TEST_F(ModuleTest, GetProcAddressFailures)
{
    HMODULE kernel32 = GetModuleHandleW(W("kernel32.dll"));
    // Names are case-sensitive; ordinals are not supported.
    for (LPCSTR name :
         {"NoSuchFunction", "getsysteminfo", "GetSystemInfoW", "", reinterpret_cast<LPCSTR>(1)})
        EXPECT_CALL_ERROR(nullptr, ERROR_PROC_NOT_FOUND, GetProcAddress(kernel32, name));
    EXPECT_CALL_ERROR(nullptr, ERROR_MOD_NOT_FOUND, GetProcAddress(kNotAModule, "GetSystemInfo"));
    EXPECT_CALL_ERROR(nullptr, ERROR_PROC_NOT_FOUND, GetProcAddress(nullptr, "NoSuchFunction"));

    // The fault's argument matches the name in any case.
    pal::InjectFault("GetProcAddress", ERROR_PROC_NOT_FOUND, 0, W("getnativesysteminfo"));
    EXPECT_EQ(nullptr, GetProcAddress(kernel32, "GetNativeSystemInfo"));
    EXPECT_NE(nullptr, GetProcAddress(kernel32, "GetSystemInfo"));
    EXPECT_EQ(1u, pal::FaultHits("GetProcAddress"));
}

} // namespace
