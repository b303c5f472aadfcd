// The string fields of the core's records: UTF-16, COM task memory, owned by the record that
// holds them, NULL when the value is absent.
#pragma once

#include "pal/combaseapi.h"
#include "pal/windef.h"
#include "provider/strings.h"

inline void FreeField(LPWSTR& pszField)
{
    CoTaskMemFree(pszField);
    pszField = nullptr;
}

// Replaces the field with a copy of the source when the source is present; an absent source
// leaves the field absent rather than empty. FALSE only when a present source fails to copy.
inline BOOL CopyFieldIfPresent(LPWSTR& pszField, LPCWSTR pszSource)
{
    FreeField(pszField);
    if (!pszSource)
        return TRUE;
    pszField = DuplicateString(pszSource);
    return pszField != nullptr;
}
