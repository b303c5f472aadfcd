// Modules: the executable's path, kernel32 as the one known library, and the exports that
// callers look up at run time.
#include "pal/errhandlingapi.h"
#include "pal/libloaderapi.h"
#include "pal/src/base/internal.h"
#include "pal/sysinfoapi.h"
#include "pal/winerror.h"

#include <climits>
#include <cstring>
#include <unistd.h>

namespace {

// Distinct, never-null addresses serve as the module handles.
HINSTANCE__ g_exeModule{};
HINSTANCE__ g_kernel32Module{};

HMODULE ExeModule()
{
    return &g_exeModule;
}
HMODULE Kernel32Module()
{
    return &g_kernel32Module;
}

// Where Windows keeps kernel32; reported for GetModuleFileNameW(kernel32).
constexpr char16_t kKernel32Path[] = u"C:\\Windows\\System32\\KERNEL32.DLL";

// "kernel32" or "kernel32.dll", in any case; any directory in front is not accepted.
bool IsKernel32Name(LPCWSTR name)
{
    std::u16string_view view(name, pal::detail::WideLength(name));
    return pal::detail::EqualNoCase(view, u"kernel32") ||
           pal::detail::EqualNoCase(view, u"kernel32.dll");
}

// The real executable's path, read once.
const std::u16string& RealExecutablePath()
{
    static const std::u16string path = [] {
        std::string buffer(PATH_MAX, '\0');
        for (;;) {
            ssize_t n = readlink("/proc/self/exe", buffer.data(), buffer.size());
            if (n < 0)
                return std::u16string();
            if (static_cast<size_t>(n) < buffer.size()) {
                buffer.resize(static_cast<size_t>(n));
                return pal::detail::ToUtf16(buffer);
            }
            buffer.resize(buffer.size() * 2);
        }
    }();
    return path;
}

// Through void (*)(), the generic function pointer type, which any function type converts to
// without a warning.
template <typename Function>
FARPROC AsFarProc(Function* function)
{
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(function));
}

} // namespace

DWORD WINAPI GetModuleFileNameW(HMODULE hModule, LPWSTR lpFilename, DWORD nSize)
{
    if (pal::detail::FailIfInjected("GetModuleFileNameW"))
        return 0;
    std::u16string path;
    if (hModule == nullptr || hModule == ExeModule()) {
        auto overridePath = pal::detail::ModuleFileNameOverride();
        path = overridePath ? *overridePath : RealExecutablePath();
    } else if (hModule == Kernel32Module()) {
        path = kKernel32Path;
    } else {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return 0;
    }
    if (lpFilename == nullptr && nSize != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    if (nSize == 0) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    // Vista and later: a path that does not fit is cut to nSize - 1 characters and terminated;
    // the call returns nSize and reports ERROR_INSUFFICIENT_BUFFER.
    if (path.size() >= nSize) {
        std::memcpy(lpFilename, path.data(), (nSize - 1) * sizeof(WCHAR));
        lpFilename[nSize - 1] = 0;
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return nSize;
    }
    std::memcpy(lpFilename, path.data(), path.size() * sizeof(WCHAR));
    lpFilename[path.size()] = 0;
    return static_cast<DWORD>(path.size());
}

HMODULE WINAPI LoadLibraryW(LPCWSTR lpLibFileName)
{
    if (lpLibFileName == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    if (pal::detail::FailIfInjected("LoadLibraryW", lpLibFileName))
        return nullptr;
    if (IsKernel32Name(lpLibFileName))
        return Kernel32Module();
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
}

HMODULE WINAPI GetModuleHandleW(LPCWSTR lpModuleName)
{
    if (lpModuleName == nullptr)
        return ExeModule();
    if (IsKernel32Name(lpModuleName))
        return Kernel32Module();
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
}

FARPROC WINAPI GetProcAddress(HMODULE hModule, LPCSTR lpProcName)
{
    // Names below 0x10000 are ordinals; none is exported here.
    bool fOrdinal = reinterpret_cast<uintptr_t>(lpProcName) < 0x10000;
    std::u16string wideName = fOrdinal ? std::u16string() : pal::detail::ToUtf16(lpProcName);
    if (pal::detail::FailIfInjected("GetProcAddress", fOrdinal ? nullptr : wideName.c_str()))
        return nullptr;
    // NULL stands for the executable, which exports nothing here.
    if (hModule != nullptr && hModule != Kernel32Module() && hModule != ExeModule()) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    if (hModule == Kernel32Module() && !fOrdinal) {
        // Export names are case-sensitive.
        if (std::strcmp(lpProcName, "GetNativeSystemInfo") == 0) {
            if (pal::GetHostProfile().fHasGetNativeSystemInfo)
                return AsFarProc(&GetNativeSystemInfo);
        } else if (std::strcmp(lpProcName, "GetSystemInfo") == 0) {
            return AsFarProc(&GetSystemInfo);
        } else if (std::strcmp(lpProcName, "GetVersionExW") == 0) {
            return AsFarProc(&GetVersionExW);
        } else if (std::strcmp(lpProcName, "GetTickCount") == 0) {
            return AsFarProc(&GetTickCount);
        }
    }
    SetLastError(ERROR_PROC_NOT_FOUND);
    return nullptr;
}

BOOL WINAPI FreeLibrary(HMODULE hLibModule)
{
    if (hLibModule == Kernel32Module() || hLibModule == ExeModule())
        return TRUE;
    SetLastError(ERROR_MOD_NOT_FOUND);
    return FALSE;
}
