// GUID, IID, CLSID and their comparison.
#pragma once

#include "pal/windef.h"

struct GUID
{
    DWORD Data1;
    WORD Data2;
    WORD Data3;
    BYTE Data4[8];
};
static_assert(sizeof(GUID) == 16);

using IID = GUID;
using CLSID = GUID;
using LPGUID = GUID*;
using LPCGUID = const GUID*;
using REFGUID = const GUID&;
using REFIID = const IID&;
using REFCLSID = const CLSID&;

inline constexpr GUID GUID_NULL = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};

inline BOOL IsEqualGUID(REFGUID a, REFGUID b)
{
    if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3)
        return FALSE;
    for (int i = 0; i < 8; ++i)
        if (a.Data4[i] != b.Data4[i])
            return FALSE;
    return TRUE;
}
#define IsEqualIID(a, b) IsEqualGUID(a, b)
#define IsEqualCLSID(a, b) IsEqualGUID(a, b)

inline bool operator==(REFGUID a, REFGUID b) { return IsEqualGUID(a, b) != FALSE; }
