// GUIDs as registry text.
#include "pal/objbase.h"

#include <cstdio>

int WINAPI StringFromGUID2(REFGUID rguid, LPWSTR lpsz, int cchMax)
{
    constexpr int kChars = 39; // braces, 32 digits, 4 hyphens and the terminator
    if (!lpsz || cchMax < kChars)
        return 0;
    char sz[kChars];
    std::snprintf(sz, sizeof(sz), "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", rguid.Data1,
                  rguid.Data2, rguid.Data3, rguid.Data4[0], rguid.Data4[1], rguid.Data4[2],
                  rguid.Data4[3], rguid.Data4[4], rguid.Data4[5], rguid.Data4[6], rguid.Data4[7]);
    for (int i = 0; i < kChars; ++i)
        lpsz[i] = static_cast<WCHAR>(sz[i]);
    return kChars;
}
