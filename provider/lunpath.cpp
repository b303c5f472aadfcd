#include "provider/lunpath.h"

#include "diag/trace.h"
#include "pal/combaseapi.h"
#include "pal/winerror.h"
#include "provider/taskmem.h"

namespace {

// A new string of the `cch` characters at `pch`.
LPWSTR CopyPart(LPCWSTR pch, SIZE_T cch)
{
    LPWSTR psz = static_cast<LPWSTR>(CoTaskMemAlloc((cch + 1) * sizeof(WCHAR)));
    if (!psz)
        return nullptr;
    for (SIZE_T i = 0; i < cch; ++i)
        psz[i] = pch[i];
    psz[cch] = 0;
    return psz;
}

// The position of the next ':' from `pch` on, or null when the string ends first.
LPCWSTR FindSeparator(LPCWSTR pch)
{
    for (; *pch; ++pch)
        if (*pch == W(':'))
            return pch;
    return nullptr;
}

SIZE_T Length(LPCWSTR psz)
{
    SIZE_T cch = 0;
    while (psz[cch])
        ++cch;
    return cch;
}

} // namespace

HRESULT CrackLunPath2(LPCWSTR pszPath2, LPWSTR* ppszFiler, LPWSTR* ppszLunPath,
                      LPWSTR* ppszSnapshot)
{
    CTraceScope scope(W("CrackLunPath2"));

    if (!ppszFiler || !ppszLunPath || !ppszSnapshot)
        return E_POINTER;
    if (!pszPath2 || !*pszPath2)
        return E_INVALIDARG;

    LPCWSTR pchFirst = FindSeparator(pszPath2);
    if (!pchFirst)
        return E_INVALIDARG;
    LPCWSTR pchSecond = FindSeparator(pchFirst + 1);
    if (!pchSecond)
        return E_INVALIDARG;

    CTaskMemPtr<WCHAR> szFiler(CopyPart(pszPath2, static_cast<SIZE_T>(pchFirst - pszPath2)));
    if (!szFiler)
        return E_OUTOFMEMORY;
    CTaskMemPtr<WCHAR> szLunPath(
        CopyPart(pchFirst + 1, static_cast<SIZE_T>(pchSecond - (pchFirst + 1))));
    if (!szLunPath)
        return E_OUTOFMEMORY;
    CTaskMemPtr<WCHAR> szSnapshot(CopyPart(pchSecond + 1, Length(pchSecond + 1)));
    if (!szSnapshot)
        return E_OUTOFMEMORY;

    *ppszFiler = szFiler.Detach();
    *ppszLunPath = szLunPath.Detach();
    *ppszSnapshot = szSnapshot.Detach();
    return S_OK;
}
