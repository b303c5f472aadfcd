// The program's two registry scripts, as tables of the keys they write under
// HKEY_CLASSES_ROOT: IDR_ORVPROV (the server's AppID) and IDR_ORVANEHARDWAREPROVIDER (the
// provider class, its ProgIDs and its type library). The module's registrar
// (CServiceModule::UpdateRegistryFromResource) writes them in table order and removes them in
// the reverse order, each key by its rule.
#pragma once

#include "pal/windef.h"
#include "res/resource.h"

enum REG_SCRIPT_RULE
{
    // Written on registration, deleted on unregistration unless it still has subkeys that the
    // script does not know.
    REG_SCRIPT_REMOVE,
    // Written on registration, never deleted: a key that other servers share.
    REG_SCRIPT_NOREMOVE,
    // Deleted with its whole subtree before it is written, and deleted with its subtree on
    // unregistration.
    REG_SCRIPT_FORCEREMOVE,
};

struct REG_SCRIPT_KEY
{
    LPCWSTR pszPath; // under HKEY_CLASSES_ROOT
    REG_SCRIPT_RULE rule;
    LPCWSTR pszDefault;   // the key's unnamed value; NULL: none
    LPCWSTR pszValueName; // one named string value; NULL: none
    LPCWSTR pszValueData;
};

// The replacement that stands for the executable's full path in the values of a script.
#define REG_SCRIPT_MODULE W("%MODULE%")

// The keys of script `nResId`, or NULL (and *pcKeys 0) when the program has no such script.
const REG_SCRIPT_KEY* FindRegistryScript(UINT nResId, size_t* pcKeys);
