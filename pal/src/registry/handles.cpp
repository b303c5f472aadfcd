// HKEY values and what they refer to.
#include "pal/src/registry/handles.h"

#include "pal/src/registry/store.h"

#include <map>

namespace pal::detail::registry {

namespace {

// Above any pointer-sized sentinel a caller might pass, below the predefined values.
constexpr ULONG_PTR kFirstHandle = 0x1000;

struct HandleTable
{
    std::map<ULONG_PTR, KeyHandle> open;
    std::map<ULONG_PTR, KeyHandle> predefined;
    ULONG_PTR next = kFirstHandle;
};

HandleTable& Table()
{
    static HandleTable table;
    return table;
}

ULONG_PTR Value(HKEY hKey)
{
    return reinterpret_cast<ULONG_PTR>(hKey);
}

} // namespace

REGSAM MapKeyAccess(REGSAM samDesired)
{
    constexpr REGSAM kNotKeyRights = KEY_WOW64_RES | 0xF0000000u | DWORD(MAXIMUM_ALLOWED);
    REGSAM sam = samDesired & ~kNotKeyRights;
    if (samDesired & DWORD(GENERIC_READ))
        sam |= KEY_READ;
    if (samDesired & DWORD(GENERIC_WRITE))
        sam |= KEY_WRITE;
    if (samDesired & DWORD(GENERIC_EXECUTE))
        sam |= KEY_EXECUTE;
    if (samDesired & DWORD(GENERIC_ALL | MAXIMUM_ALLOWED))
        sam |= KEY_ALL_ACCESS;
    return sam;
}

HKEY InsertHandle(KeyHandle handle)
{
    HandleTable& t = Table();
    ULONG_PTR value = t.next;
    t.next += 4;
    t.open.emplace(value, std::move(handle));
    return reinterpret_cast<HKEY>(value);
}

const KeyHandle* FindHandle(HKEY hKey)
{
    HandleTable& t = Table();
    auto it = t.open.find(Value(hKey));
    if (it != t.open.end())
        return &it->second;
    it = t.predefined.find(Value(hKey));
    return it == t.predefined.end() ? nullptr : &it->second;
}

bool EraseHandle(HKEY hKey)
{
    return Table().open.erase(Value(hKey)) != 0;
}

void ForgetHandles()
{
    Table().open.clear();
}

void ResetPredefinedHandles(const Connection& conn)
{
    auto& predefined = Table().predefined;
    predefined.clear();
    predefined[Value(HKEY_LOCAL_MACHINE)] = {conn.HklmId(), KEY_ALL_ACCESS, u"HKLM", true};
    predefined[Value(HKEY_CURRENT_USER)] = {conn.HkcuId(), KEY_ALL_ACCESS, u"HKCU", true};
    predefined[Value(HKEY_CLASSES_ROOT)] = {conn.ClassesId(), KEY_ALL_ACCESS,
                                            u"HKLM\\Software\\Classes", true};
}

bool IsPredefinedKey(HKEY hKey)
{
    return hKey == HKEY_LOCAL_MACHINE || hKey == HKEY_CURRENT_USER || hKey == HKEY_CLASSES_ROOT;
}

} // namespace pal::detail::registry
