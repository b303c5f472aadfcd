// String resources: the table the program registered stands in for the image's string table.
#include "pal/errhandlingapi.h"
#include "pal/palresource.h"
#include "pal/src/base/internal.h"
#include "pal/winerror.h"
#include "pal/winuser.h"

#include <algorithm>
#include <cstring>
#include <mutex>

namespace {

std::mutex g_tableLock;
const PAL_STRING_RESOURCE* g_pEntries = nullptr;
size_t g_cEntries = 0;

// The text of string `uID`, or nullptr when the table has no such entry. A string resource's
// id is a WORD, so the high word of `uID` is not looked at. An image keeps its strings in
// blocks of 16 consecutive ids, where every id of a block that the script left out is an empty
// string: such an id is found, and empty.
LPCWSTR FindString(UINT uID)
{
    WORD wID = LOWORD(uID);
    LPCWSTR text = nullptr;
    std::lock_guard lock(g_tableLock);
    for (size_t i = 0; i < g_cEntries; ++i) {
        if (g_pEntries[i].uID == wID)
            return g_pEntries[i].pszText ? g_pEntries[i].pszText : u"";
        if (g_pEntries[i].uID >> 4 == UINT(wID >> 4))
            text = u"";
    }
    return text;
}

} // namespace

void PalRegisterStringTable(const PAL_STRING_RESOURCE* pEntries, size_t cEntries)
{
    std::lock_guard lock(g_tableLock);
    g_pEntries = pEntries;
    g_cEntries = pEntries ? cEntries : 0;
}

// The module handle is not checked: every module shares the one registered table.
int WINAPI LoadStringW(HINSTANCE hInstance, UINT uID, LPWSTR lpBuffer, int cchBufferMax)
{
    UNREFERENCED_PARAMETER(hInstance);
    if (lpBuffer == nullptr)
        return 0;
    if (cchBufferMax < 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    LPCWSTR text = FindString(uID);
    if (text == nullptr) {
        if (cchBufferMax > 0)
            lpBuffer[0] = 0;
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        return 0;
    }
    size_t length = pal::detail::WideLength(text);
    if (cchBufferMax == 0) {
        // A read-only pointer to the resource itself.
        *reinterpret_cast<LPCWSTR*>(lpBuffer) = text;
        return static_cast<int>(length);
    }
    size_t copied = std::min(length, static_cast<size_t>(cchBufferMax) - 1);
    std::memcpy(lpBuffer, text, copied * sizeof(WCHAR));
    lpBuffer[copied] = 0;
    return static_cast<int>(copied);
}
