#include "provider/strings.h"

#include "pal/combaseapi.h"
#include "pal/stringapiset.h"
#include "pal/winbase.h"
#include "provider/taskmem.h"

LPWSTR AnsiToUnicode(LPCSTR pszAnsi)
{
    LPCSTR pszSource = pszAnsi ? pszAnsi : "";
    int cch = MultiByteToWideChar(CP_ACP, 0, pszSource, -1, nullptr, 0);
    if (cch == 0)
        return nullptr;
    CTaskMemPtr<WCHAR> szResult(
        static_cast<LPWSTR>(CoTaskMemAlloc(static_cast<SIZE_T>(cch) * sizeof(WCHAR))));
    if (!szResult)
        return nullptr;
    if (MultiByteToWideChar(CP_ACP, 0, pszSource, -1, szResult.Get(), cch) == 0)
        return nullptr;
    return szResult.Detach();
}

LPSTR UnicodeToAnsi(LPCWSTR pszUnicode)
{
    // The size query rejects a null input, which is how a missing string fails here.
    int cb = WideCharToMultiByte(CP_ACP, 0, pszUnicode, -1, nullptr, 0, nullptr, nullptr);
    if (cb == 0)
        return nullptr;
    CTaskMemPtr<CHAR> szResult(static_cast<LPSTR>(CoTaskMemAlloc(static_cast<SIZE_T>(cb))));
    if (!szResult)
        return nullptr;
    if (WideCharToMultiByte(CP_ACP, 0, pszUnicode, -1, szResult.Get(), cb, nullptr, nullptr) == 0)
        return nullptr;
    return szResult.Detach();
}

LPWSTR DuplicateString(LPCWSTR pszSource)
{
    LPCWSTR pszText = pszSource ? pszSource : W("");
    SIZE_T cch = static_cast<SIZE_T>(lstrlenW(pszText)) + 1;
    LPWSTR pszCopy = static_cast<LPWSTR>(CoTaskMemAlloc(cch * sizeof(WCHAR)));
    if (!pszCopy)
        return nullptr;
    for (SIZE_T i = 0; i < cch; ++i)
        pszCopy[i] = pszText[i];
    return pszCopy;
}
