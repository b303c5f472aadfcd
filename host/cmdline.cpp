// The provider program's command line.
#include "host/cmdline.h"

#include "pal/crt.h"
#include "pal/winerror.h"

#include <new>

namespace {

const SWITCH_ENTRY* FindSwitch(LPCWSTR pszName, const SWITCH_ENTRY* pTable, int cEntries)
{
    // An ordinal comparison: "R", "-r" and "rexe" are other switches than "r".
    for (int i = 0; i < cEntries; ++i)
        if (wcscmp(pTable[i].pszName, pszName) == 0)
            return &pTable[i];
    return nullptr;
}

} // namespace

bool ParseArgs(int argc, LPWSTR* argv, const SWITCH_ENTRY* pTable, int cEntries, LPWSTR** pppExtra,
               int* pcExtra)
{
    *pcExtra = 0;
    *pppExtra = new (std::nothrow) LPWSTR[argc > 0 ? argc : 1];
    if (!*pppExtra)
        return false;
    int cExtra = 0;
    for (int i = 1; i < argc; ++i) {
        LPWSTR pszArg = argv[i];
        if (pszArg[0] != W('-') && pszArg[0] != W('/')) {
            (*pppExtra)[cExtra++] = pszArg;
            continue;
        }
        const SWITCH_ENTRY* pSwitch = FindSwitch(pszArg + 1, pTable, cEntries);
        if (!pSwitch)
            return false;
        if (!pSwitch->fTakesValue) {
            *static_cast<BOOL*>(pSwitch->pTarget) = 1;
            continue;
        }
        // The next argument is the value, whatever it looks like.
        if (i + 1 >= argc)
            return false;
        *static_cast<LPWSTR*>(pSwitch->pTarget) = argv[++i];
    }
    if (cExtra >= 1)
        *pcExtra = cExtra;
    return true;
}

HRESULT MapExitCode(HRESULT hr)
{
    if (SUCCEEDED(hr) || hr == E_OUTOFMEMORY)
        return hr;
    return VSS_E_PROVIDER_VETO;
}
