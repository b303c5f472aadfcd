// `orvsim reg query`: a key's values and subkeys, one value, or a recursive listing.
#include "reg_access.h"
#include "reg_console.h"
#include "reg_data.h"
#include "reg_operations.h"

#include "pal/palcontrol.h"
#include "pal/regkey.h"

#include <iostream>

namespace orvsim::reg {

namespace {

std::string Child(const std::string& path, const std::u16string& name)
{
    return path + "\\" + pal::Utf16ToUtf8(name);
}

// reg.exe's block for one key: a blank line, the key's path, its values indented.
LONG PrintKey(HKEY hKey, const std::string& path)
{
    std::vector<Value> values;
    if (LONG status = ReadValues(hKey, &values))
        return status;
    std::cout << '\n' << path << '\n';
    for (const Value& value : values)
        std::cout << FormatValueLine(value.name, value.dwType, value.data) << '\n';
    return ERROR_SUCCESS;
}

LONG PrintTree(HKEY hKey, const std::string& path)
{
    if (LONG status = PrintKey(hKey, path))
        return status;
    std::vector<std::u16string> names;
    if (LONG status = ReadSubKeyNames(hKey, &names))
        return status;
    for (const auto& name : names) {
        CRegKey child;
        if (LONG status = child.Open(hKey, name.c_str(), KEY_READ))
            return status;
        if (LONG status = PrintTree(child, Child(path, name)))
            return status;
    }
    return ERROR_SUCCESS;
}

// /v or /ve with /s: every key of the tree that has the value.
LONG SearchTree(HKEY hKey, const std::string& path, const std::u16string& name, int* pMatches)
{
    Value value;
    LONG status = ReadValue(hKey, name, &value);
    if (status == ERROR_SUCCESS) {
        std::cout << '\n'
                  << path << '\n'
                  << FormatValueLine(value.name, value.dwType, value.data) << '\n';
        ++*pMatches;
    } else if (status != ERROR_FILE_NOT_FOUND) {
        return status;
    }
    std::vector<std::u16string> names;
    if ((status = ReadSubKeyNames(hKey, &names)) != ERROR_SUCCESS)
        return status;
    for (const auto& child : names) {
        CRegKey key;
        if ((status = key.Open(hKey, child.c_str(), KEY_READ)) != ERROR_SUCCESS)
            return status;
        if ((status = SearchTree(key, Child(path, child), name, pMatches)) != ERROR_SUCCESS)
            return status;
    }
    return ERROR_SUCCESS;
}

} // namespace

int RunQuery(const QueryArgs& args)
{
    CRegKey key;
    if (LONG status = key.Open(args.key.hRoot, args.key.subKey.c_str(), KEY_READ))
        return FailStatus(status);
    const std::string path = args.key.Display();

    if (args.value.kind == ValueSelector::kNone) {
        if (args.fRecurse) {
            if (LONG status = PrintTree(key, path))
                return FailStatus(status);
            return 0;
        }
        std::vector<std::u16string> names;
        if (LONG status = PrintKey(key, path))
            return FailStatus(status);
        if (LONG status = ReadSubKeyNames(key, &names))
            return FailStatus(status);
        if (!names.empty())
            std::cout << '\n';
        for (const auto& name : names)
            std::cout << Child(path, name) << '\n';
        return 0;
    }

    const std::u16string name = args.value.kind == ValueSelector::kNamed ? args.value.name : u"";
    if (args.fRecurse) {
        int matches = 0;
        if (LONG status = SearchTree(key, path, name, &matches))
            return FailStatus(status);
        if (matches == 0)
            return Fail(kNotFoundMessage);
        std::cout << "\nEnd of search: " << matches << " match(es) found.\n";
        return 0;
    }
    Value value;
    LONG status = ReadValue(key, name, &value);
    if (status == ERROR_FILE_NOT_FOUND && args.value.kind == ValueSelector::kDefault) {
        // reg.exe shows an unset default value rather than failing.
        std::cout << '\n' << path << "\n    (Default)    REG_SZ    (value not set)\n";
        return 0;
    }
    if (status != ERROR_SUCCESS)
        return FailStatus(status);
    std::cout << '\n'
              << path << '\n'
              << FormatValueLine(value.name, value.dwType, value.data) << '\n';
    return 0;
}

} // namespace orvsim::reg
