// Reading keys and values for `orvsim reg`, through the registry API of pal/.
#pragma once

#include "pal/windows.h"

#include <string>
#include <vector>

namespace orvsim::reg {

struct Value
{
    std::u16string name;
    DWORD dwType = REG_NONE;
    std::vector<BYTE> data;
};

// One value; ERROR_FILE_NOT_FOUND when it is missing.
LONG ReadValue(HKEY hKey, const std::u16string& name, Value* pValue);
// Every value, in the key's enumeration order.
LONG ReadValues(HKEY hKey, std::vector<Value>* pValues);
// The names of the subkeys, in enumeration order.
LONG ReadSubKeyNames(HKEY hKey, std::vector<std::u16string>* pNames);

} // namespace orvsim::reg
