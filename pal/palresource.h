// Registration of a program's compiled-in resources (its string table and binary resources);
// Windows finds them in the image itself.
#pragma once

#include "pal/windef.h"

struct PAL_STRING_RESOURCE
{
    UINT uID;
    LPCWSTR pszText;
};

// The table must stay valid for the life of the process; a new table replaces the old one.
void PalRegisterStringTable(const PAL_STRING_RESOURCE* pEntries, size_t cEntries);

// A binary resource of the program, such as its type library (type "TYPELIB", id 1), found by
// its type (a name, compared without regard to case) and id. The bytes must stay valid for the
// life of the process; registering a type and id again replaces them, and null data removes
// the registration.
void PalRegisterResource(LPCWSTR pszType, UINT uID, const void* pData, DWORD cbData);
