// Message boxes: no desktop here, so the box goes to the control layer and is answered with
// IDOK.
#include "pal/src/base/internal.h"
#include "pal/winuser.h"

int WINAPI MessageBoxW(HWND hWnd, LPCWSTR lpText, LPCWSTR lpCaption, UINT uType)
{
    UNREFERENCED_PARAMETER(hWnd);
    std::u16string_view text;
    if (lpText != nullptr)
        text = std::u16string_view(lpText, pal::detail::WideLength(lpText));
    // Windows titles a box without a caption "Error".
    std::u16string_view caption = u"Error";
    if (lpCaption != nullptr)
        caption = std::u16string_view(lpCaption, pal::detail::WideLength(lpCaption));
    pal::detail::EmitMessageBox(caption, text, uType);
    return IDOK;
}
