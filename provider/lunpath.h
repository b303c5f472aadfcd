// Splitting the Path2 of a snapshot LUN ("filer:source LUN path:snapshot name") into its parts.
#pragma once

#include "pal/windef.h"

// Splits at the first two ':' (only the snapshot name may contain further ones); each part
// may be empty. E_INVALIDARG for a missing, empty or malformed Path2, E_OUTOFMEMORY when a
// copy fails, E_POINTER for a missing out-parameter. Only on S_OK are the three new strings
// (COM task memory, owned by the caller) stored; otherwise the out-parameters are untouched.
HRESULT CrackLunPath2(LPCWSTR pszPath2, LPWSTR* ppszFiler, LPWSTR* ppszLunPath,
                      LPWSTR* ppszSnapshot);
