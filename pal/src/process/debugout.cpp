// Debugger output: delivered to the control layer, which captures it or writes it out.
#include "pal/debugapi.h"
#include "pal/src/base/internal.h"

void WINAPI OutputDebugStringW(LPCWSTR lpOutputString)
{
    if (lpOutputString == nullptr)
        return;
    pal::detail::EmitDebugOutput(
        std::u16string_view(lpOutputString, pal::detail::WideLength(lpOutputString)));
}

// The ANSI code page is UTF-8 on this platform.
void WINAPI OutputDebugStringA(LPCSTR lpOutputString)
{
    if (lpOutputString == nullptr)
        return;
    pal::detail::EmitDebugOutput(pal::detail::ToUtf16(lpOutputString));
}

BOOL WINAPI IsDebuggerPresent()
{
    return FALSE;
}
