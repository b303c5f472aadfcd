// Registration of a program's compiled-in resources; Windows finds them in the image itself.
#pragma once

#include "pal/windef.h"

struct PAL_STRING_RESOURCE
{
    UINT uID;
    LPCWSTR pszText;
};

// The table must stay valid for the life of the process; a new table replaces the old one.
void PalRegisterStringTable(const PAL_STRING_RESOURCE* pEntries, size_t cEntries);
