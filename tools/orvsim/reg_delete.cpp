// `orvsim reg delete`: a key with everything below it, one value, or all values of a key.
#include "reg_access.h"
#include "reg_console.h"
#include "reg_operations.h"

#include "pal/palcontrol.h"
#include "pal/regkey.h"

namespace orvsim::reg {

int RunDelete(const DeleteArgs& args)
{
    const std::string path = args.key.Display();
    CRegKey key;
    if (LONG status = key.Open(args.key.hRoot, args.key.subKey.c_str(), KEY_READ | KEY_WRITE))
        return FailStatus(status);

    switch (args.value.kind) {
    case ValueSelector::kNone: {
        if (args.key.subKey.empty())
            return Fail("Invalid key name.");
        if (!args.fForce && !Confirm("Permanently delete the registry key " + path))
            return Cancelled();
        key.Close();
        if (LONG status = RegDeleteTreeW(args.key.hRoot, args.key.subKey.c_str()))
            return FailStatus(status);
        return Succeed();
    }
    case ValueSelector::kAll: {
        if (!args.fForce && !Confirm("Delete all values under the registry key " + path))
            return Cancelled();
        std::vector<Value> values;
        if (LONG status = ReadValues(key, &values))
            return FailStatus(status);
        for (const Value& value : values)
            if (LONG status = key.DeleteValue(value.name.c_str()))
                return FailStatus(status);
        return Succeed();
    }
    default: {
        const std::u16string name =
            args.value.kind == ValueSelector::kNamed ? args.value.name : u"";
        Value existing;
        if (LONG status = ReadValue(key, name, &existing))
            return FailStatus(status);
        std::string shown = name.empty() ? "(Default)" : pal::Utf16ToUtf8(name);
        if (!args.fForce && !Confirm("Delete the registry value " + shown))
            return Cancelled();
        if (LONG status = key.DeleteValue(name.c_str()))
            return FailStatus(status);
        return Succeed();
    }
    }
}

} // namespace orvsim::reg
