// `orvsim reg add`: creates a key and sets one of its values.
#include "reg_access.h"
#include "reg_console.h"
#include "reg_data.h"
#include "reg_operations.h"

#include "pal/palcontrol.h"
#include "pal/regkey.h"

namespace orvsim::reg {

int RunAdd(const AddArgs& args)
{
    DWORD dwType = REG_SZ;
    if (args.type) {
        auto type = TypeFromName(*args.type);
        if (!type)
            return Fail("Invalid syntax. Unsupported type '" + *args.type + "' for /t.");
        dwType = *type;
    }
    if (args.separator && dwType != REG_MULTI_SZ)
        return Fail("Invalid syntax. /s applies to REG_MULTI_SZ data only.");
    std::vector<BYTE> data;
    if (args.value.kind != ValueSelector::kNone) {
        auto encoded = EncodeData(dwType, args.data.value_or(""), args.separator.value_or("\\0"));
        if (!encoded)
            return Fail("Invalid syntax. The data given with /d does not fit " + TypeName(dwType) +
                        ".");
        data = std::move(*encoded);
    }

    CRegKey key;
    if (LONG status = key.Create(args.key.hRoot, args.key.subKey.c_str(), KEY_READ | KEY_WRITE))
        return FailStatus(status);
    if (args.value.kind == ValueSelector::kNone)
        return Succeed();

    const std::u16string name = args.value.kind == ValueSelector::kNamed ? args.value.name : u"";
    Value existing;
    if (!args.fForce && ReadValue(key, name, &existing) == ERROR_SUCCESS) {
        std::string shown = name.empty() ? "(Default)" : pal::Utf16ToUtf8(name);
        if (!Confirm("Value " + shown + " exists, overwrite"))
            return Cancelled();
    }
    LONG status =
        RegSetValueExW(key, name.c_str(), 0, dwType, data.data(), static_cast<DWORD>(data.size()));
    if (status != ERROR_SUCCESS)
        return FailStatus(status);
    return Succeed();
}

} // namespace orvsim::reg
