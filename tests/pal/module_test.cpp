// Modules: the executable's path and its buffer rules, kernel32 as the one library, and the
// exports found through GetProcAddress.
#include "pal/errhandlingapi.h"
#include "pal/libloaderapi.h"
#include "pal/sysinfoapi.h"
#include "tests/support/paltest.h"

#include <climits>
#include <unistd.h>

namespace {

using ModuleTest = orvtest::PalTest;

constexpr DWORD kUntouched = 0xDEADBEEF;

std::u16string RealExePath()
{
    char buffer[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", buffer, sizeof(buffer));
    return n > 0 ? orvtest::Wide(std::string_view(buffer, static_cast<size_t>(n))) : u"";
}

// Through void (*)(), which converts to any function pointer type without a warning.
template <typename Function>
Function* AsFunction(FARPROC proc)
{
    return reinterpret_cast<Function*>(reinterpret_cast<void (*)()>(proc));
}

TEST_F(ModuleTest, ReportsTheRealExecutableByDefault)
{
    WCHAR buffer[4096];
    SetLastError(kUntouched);
    DWORD length = GetModuleFileNameW(nullptr, buffer, ARRAYSIZE(buffer));
    std::u16string expected = RealExePath();
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(expected.size(), length);
    EXPECT_EQ(expected, std::u16string(buffer));
    EXPECT_WIN32(kUntouched, GetLastError());
}

TEST_F(ModuleTest, ReportsTheOverrideUntilItIsCleared)
{
    pal::SetModuleFileNameForTest(W("C:\\Program Files\\Orv\\orvprov.exe"));
    WCHAR buffer[MAX_PATH];
    EXPECT_EQ(32u, GetModuleFileNameW(nullptr, buffer, MAX_PATH));
    EXPECT_EQ(u"C:\\Program Files\\Orv\\orvprov.exe", std::u16string(buffer));
    // The handle of the executable names the same file.
    EXPECT_EQ(32u, GetModuleFileNameW(GetModuleHandleW(nullptr), buffer, MAX_PATH));

    pal::SetModuleFileNameForTest(nullptr);
    GetModuleFileNameW(nullptr, buffer, MAX_PATH);
    EXPECT_EQ(RealExePath().substr(0, MAX_PATH - 1), std::u16string(buffer));
}

// Windows Vista and later: a path that does not fit is cut to nSize - 1 characters and
// terminated, the call returns nSize and sets ERROR_INSUFFICIENT_BUFFER.
TEST_F(ModuleTest, BufferRulesAtExactSizes)
{
    pal::SetModuleFileNameForTest(W("C:\\svc\\p.exe")); // 12 characters.
    WCHAR buffer[32];

    SetLastError(kUntouched);
    std::fill(std::begin(buffer), std::end(buffer), u'#');
    EXPECT_EQ(12u, GetModuleFileNameW(nullptr, buffer, 13));
    EXPECT_EQ(u"C:\\svc\\p.exe", std::u16string(buffer));
    EXPECT_WIN32(kUntouched, GetLastError());

    SetLastError(kUntouched);
    std::fill(std::begin(buffer), std::end(buffer), u'#');
    EXPECT_EQ(12u, GetModuleFileNameW(nullptr, buffer, 12));
    EXPECT_EQ(u"C:\\svc\\p.ex", std::u16string(buffer));
    EXPECT_EQ(u'#', buffer[12]);
    EXPECT_WIN32(ERROR_INSUFFICIENT_BUFFER, GetLastError());

    SetLastError(kUntouched);
    EXPECT_EQ(5u, GetModuleFileNameW(nullptr, buffer, 5));
    EXPECT_EQ(u"C:\\s", std::u16string(buffer));
    EXPECT_WIN32(ERROR_INSUFFICIENT_BUFFER, GetLastError());

    SetLastError(kUntouched);
    std::fill(std::begin(buffer), std::end(buffer), u'#');
    EXPECT_EQ(1u, GetModuleFileNameW(nullptr, buffer, 1));
    EXPECT_EQ(0, buffer[0]);
    EXPECT_EQ(u'#', buffer[1]);
    EXPECT_WIN32(ERROR_INSUFFICIENT_BUFFER, GetLastError());

    SetLastError(kUntouched);
    buffer[0] = u'#';
    EXPECT_EQ(0u, GetModuleFileNameW(nullptr, buffer, 0));
    EXPECT_EQ(u'#', buffer[0]);
    EXPECT_WIN32(ERROR_INSUFFICIENT_BUFFER, GetLastError());
}

TEST_F(ModuleTest, ModuleFileNameOfKernel32AndOfUnknownHandles)
{
    WCHAR buffer[MAX_PATH];
    HMODULE kernel32 = GetModuleHandleW(W("kernel32.dll"));
    ASSERT_NE(nullptr, kernel32);
    DWORD length = GetModuleFileNameW(kernel32, buffer, MAX_PATH);
    ASSERT_GT(length, 12u);
    EXPECT_EQ(u"KERNEL32.DLL", std::u16string(buffer + length - 12));

    int local = 0;
    SetLastError(0);
    EXPECT_EQ(0u, GetModuleFileNameW(reinterpret_cast<HMODULE>(&local), buffer, MAX_PATH));
    EXPECT_WIN32(ERROR_MOD_NOT_FOUND, GetLastError());
}

TEST_F(ModuleTest, ModuleFileNameFaultHook)
{
    pal::InjectFault("GetModuleFileNameW", ERROR_NOT_ENOUGH_MEMORY, 2);
    WCHAR buffer[MAX_PATH];
    EXPECT_NE(0u, GetModuleFileNameW(nullptr, buffer, MAX_PATH));
    EXPECT_EQ(0u, GetModuleFileNameW(nullptr, buffer, MAX_PATH));
    EXPECT_WIN32(ERROR_NOT_ENOUGH_MEMORY, GetLastError());
    EXPECT_NE(0u, GetModuleFileNameW(nullptr, buffer, MAX_PATH));
}

TEST_F(ModuleTest, OnlyKernel32IsKnownInAnyCaseWithOrWithoutExtension)
{
    HMODULE kernel32 = LoadLibraryW(W("kernel32.dll"));
    ASSERT_NE(nullptr, kernel32);
    EXPECT_EQ(kernel32, LoadLibraryW(W("KERNEL32.DLL")));
    EXPECT_EQ(kernel32, LoadLibraryW(W("Kernel32")));
    EXPECT_EQ(kernel32, GetModuleHandleW(W("kernel32")));
    EXPECT_EQ(kernel32, GetModuleHandleW(W("KeRnEl32.dLl")));
    EXPECT_NE(kernel32, GetModuleHandleW(nullptr));
    EXPECT_NE(nullptr, GetModuleHandleW(nullptr));

    for (LPCWSTR name : {W("advapi32.dll"), W("kernel32.dll.dll"), W("kernel3"), W("")}) {
        SetLastError(0);
        EXPECT_EQ(nullptr, LoadLibraryW(name)) << orvtest::Narrow(name);
        EXPECT_WIN32(ERROR_MOD_NOT_FOUND, GetLastError());
        SetLastError(0);
        EXPECT_EQ(nullptr, GetModuleHandleW(name)) << orvtest::Narrow(name);
        EXPECT_WIN32(ERROR_MOD_NOT_FOUND, GetLastError());
    }

    EXPECT_TRUE(FreeLibrary(kernel32));
    EXPECT_TRUE(FreeLibrary(kernel32));
    int local = 0;
    SetLastError(0);
    EXPECT_FALSE(FreeLibrary(reinterpret_cast<HMODULE>(&local)));
    EXPECT_WIN32(ERROR_MOD_NOT_FOUND, GetLastError());
}

TEST_F(ModuleTest, LoadLibraryFaultHookMatchesTheName)
{
    pal::InjectFault("LoadLibraryW", ERROR_ACCESS_DENIED, 0, W("KERNEL32.DLL"));
    EXPECT_EQ(nullptr, LoadLibraryW(W("kernel32.dll")));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, GetLastError());
    EXPECT_NE(nullptr, LoadLibraryW(W("kernel32"))); // Another name: no match.
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
    DWORD now = AsFunction<DWORD()>(tick)();
    EXPECT_LE(now - before, 10000u);
}

TEST_F(ModuleTest, GetNativeSystemInfoIsMissingWhenTheProfileSaysSo)
{
    pal::HostProfile profile;
    profile.fHasGetNativeSystemInfo = false;
    pal::SetHostProfile(profile);
    HMODULE kernel32 = GetModuleHandleW(W("kernel32.dll"));
    SetLastError(0);
    EXPECT_EQ(nullptr, GetProcAddress(kernel32, "GetNativeSystemInfo"));
    EXPECT_WIN32(ERROR_PROC_NOT_FOUND, GetLastError());
    // The fallback callers use stays available.
    EXPECT_NE(nullptr, GetProcAddress(kernel32, "GetSystemInfo"));

    profile.fHasGetNativeSystemInfo = true;
    pal::SetHostProfile(profile);
    EXPECT_NE(nullptr, GetProcAddress(kernel32, "GetNativeSystemInfo"));
}

TEST_F(ModuleTest, GetProcAddressFailures)
{
    HMODULE kernel32 = GetModuleHandleW(W("kernel32.dll"));
    for (LPCSTR name : {"NoSuchFunction", "getsysteminfo", "GetSystemInfoW", ""}) {
        SetLastError(0);
        EXPECT_EQ(nullptr, GetProcAddress(kernel32, name)) << name;
        EXPECT_WIN32(ERROR_PROC_NOT_FOUND, GetLastError());
    }
    SetLastError(0);
    EXPECT_EQ(nullptr, GetProcAddress(kernel32, reinterpret_cast<LPCSTR>(1))); // Ordinal.
    EXPECT_WIN32(ERROR_PROC_NOT_FOUND, GetLastError());

    int local = 0;
    SetLastError(0);
    EXPECT_EQ(nullptr, GetProcAddress(reinterpret_cast<HMODULE>(&local), "GetSystemInfo"));
    EXPECT_WIN32(ERROR_MOD_NOT_FOUND, GetLastError());
    SetLastError(0);
    EXPECT_EQ(nullptr, GetProcAddress(nullptr, "NoSuchFunction"));
    EXPECT_WIN32(ERROR_PROC_NOT_FOUND, GetLastError());
}

TEST_F(ModuleTest, GetProcAddressFaultHookMatchesTheName)
{
    pal::InjectFault("GetProcAddress", ERROR_PROC_NOT_FOUND, 0, W("getnativesysteminfo"));
    HMODULE kernel32 = GetModuleHandleW(W("kernel32.dll"));
    EXPECT_EQ(nullptr, GetProcAddress(kernel32, "GetNativeSystemInfo"));
    EXPECT_NE(nullptr, GetProcAddress(kernel32, "GetSystemInfo"));
    EXPECT_EQ(1u, pal::FaultHits("GetProcAddress"));
}

} // namespace
