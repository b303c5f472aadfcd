// Values and subkeys read in full, whatever their size.
#include "reg_access.h"

namespace orvsim::reg {

LONG ReadValue(HKEY hKey, const std::u16string& name, Value* pValue)
{
    for (;;) {
        DWORD cbData = 0;
        LONG status =
            RegQueryValueExW(hKey, name.c_str(), nullptr, &pValue->dwType, nullptr, &cbData);
        if (status != ERROR_SUCCESS)
            return status;
        pValue->data.resize(cbData);
        status = RegQueryValueExW(hKey, name.c_str(), nullptr, &pValue->dwType, pValue->data.data(),
                                  &cbData);
        // The value may grow between the two calls: ask again.
        if (status == ERROR_MORE_DATA)
            continue;
        pValue->data.resize(cbData);
        pValue->name = name;
        return status;
    }
}

LONG ReadValues(HKEY hKey, std::vector<Value>* pValues)
{
    DWORD cchMaxName = 0;
    DWORD cbMaxData = 0;
    LONG status = RegQueryInfoKeyW(hKey, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                   nullptr, &cchMaxName, &cbMaxData, nullptr, nullptr);
    if (status != ERROR_SUCCESS)
        return status;
    for (DWORD index = 0;; ++index) {
        std::u16string name(cchMaxName + 1, u'\0');
        DWORD cchName = cchMaxName + 1;
        Value value;
        value.data.resize(cbMaxData);
        DWORD cbData = cbMaxData;
        status = RegEnumValueW(hKey, index, name.data(), &cchName, nullptr, &value.dwType,
                               value.data.data(), &cbData);
        if (status == ERROR_NO_MORE_ITEMS)
            return ERROR_SUCCESS;
        if (status == ERROR_MORE_DATA) {
            // Changed since the summary was read: start again with fresh sizes.
            pValues->clear();
            return ReadValues(hKey, pValues);
        }
        if (status != ERROR_SUCCESS)
            return status;
        name.resize(cchName);
        value.name = std::move(name);
        value.data.resize(cbData);
        pValues->push_back(std::move(value));
    }
}

LONG ReadSubKeyNames(HKEY hKey, std::vector<std::u16string>* pNames)
{
    for (DWORD index = 0;; ++index) {
        WCHAR name[256];
        DWORD cchName = ARRAYSIZE(name);
        LONG status =
            RegEnumKeyExW(hKey, index, name, &cchName, nullptr, nullptr, nullptr, nullptr);
        if (status == ERROR_NO_MORE_ITEMS)
            return ERROR_SUCCESS;
        if (status != ERROR_SUCCESS)
            return status;
        pNames->emplace_back(name, cchName);
    }
}

} // namespace orvsim::reg
