// Shared internals of the platform layer; never included outside pal/src.
#pragma once

#include "pal/palcontrol.h"
#include "pal/windef.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace pal::detail {

// ---- Faults ----
// True when an injected rule makes this call of `api` fail; *pdwError receives the error.
bool ConsumeFault(const char* api, const WCHAR* arg, DWORD* pdwError);
bool ConsumeFault(const char* api, DWORD* pdwError);
// Fails the call: sets the last error and returns true. Usage:
//   if (pal::detail::FailIfInjected("CreateEventW", lpName)) return nullptr;
bool FailIfInjected(const char* api, const WCHAR* arg = nullptr);
// True when the task allocator must fail this allocation.
bool TaskAllocShouldFail();
// The task allocator's raw blocks, shared by CoTaskMem* and BSTRs; TaskAlloc obeys
// FailTaskAllocAt.
void* TaskAlloc(size_t cb);
void TaskFree(void* pv);
// True when this `new (std::nothrow)` must fail.
bool NothrowNewShouldFail();

// ---- Clock ----
// Platform milliseconds: real monotonic time scaled by the clock factor, continuous across
// scale changes.
ULONGLONG PlatformMilliseconds();
// The real time to wait for a platform timeout of `ms` milliseconds at the current scale.
std::chrono::nanoseconds RealDuration(DWORD ms);

// ---- Output and overrides kept by the control layer ----
// Debugger output: kept while captured, else written to standard error when
// ORVSIM_DEBUG_OUTPUT is set, else dropped.
void EmitDebugOutput(std::u16string_view text);
// Message box: kept while captured, else written to standard error.
void EmitMessageBox(std::u16string_view caption, std::u16string_view text, UINT type);
std::optional<std::u16string> ModuleFileNameOverride();
std::optional<std::u16string> CommandLineOverride();

// ---- Resources ----
// The bytes of the program's registered resource of that type and id (PalRegisterResource);
// false when there is none.
bool FindRegisteredResource(std::u16string_view type, UINT uID, const BYTE** ppData,
                            DWORD* pcbData);

// ---- Text ----
inline std::string ToUtf8(std::u16string_view s)
{
    return pal::Utf16ToUtf8(s);
}
inline std::u16string ToUtf16(std::string_view s)
{
    return pal::Utf8ToUtf16(s);
}
size_t WideLength(const WCHAR* s);
// Equal but for the case of ASCII letters, as Windows compares the names it keeps this way.
bool EqualNoCase(std::u16string_view a, std::u16string_view b);

} // namespace pal::detail
