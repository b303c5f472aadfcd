// Fault injection reaches every registry function, filtered by the canonical full key path.
#include "tests/pal/registry/registry_testing.h"

#include <functional>
#include <string>

namespace {

using orvtest::registry::ScopedKey;
using RegistryFaultTest = orvtest::registry::RegistryTest;

// One registry call on the key `name` under `parent`.
using Call = std::function<LONG(HKEY parent, const WCHAR* name)>;

// Opens parent\name with every right, then runs `use` on that handle.
Call OnHandle(std::function<LONG(HKEY)> use)
{
    return [use](HKEY parent, const WCHAR* name) {
        HKEY hKey = nullptr;
        LONG status = RegOpenKeyExW(parent, name, 0, KEY_ALL_ACCESS, &hKey);
        if (status != ERROR_SUCCESS)
            return status;
        status = use(hKey);
        RegCloseKey(hKey); // may have been closed by `use` already: harmless
        return status;
    };
}

// Runs a deleting call, then puts the key back for the next call.
Call ThenRecreate(LONG (*del)(HKEY, const WCHAR*))
{
    return [del](HKEY parent, const WCHAR* name) {
        LONG status = del(parent, name);
        HKEY hKey = nullptr;
        RegCreateKeyExW(parent, name, 0, nullptr, 0, KEY_READ, nullptr, &hKey, nullptr);
        RegCloseKey(hKey);
        return status;
    };
}

TEST_F(RegistryFaultTest, EveryFunctionFailsOnlyForTheChosenKey)
{
    const struct
    {
        const char* api;
        Call call;
    } cases[] = {
        {"RegOpenKeyExW", OnHandle([](HKEY) { return LONG(ERROR_SUCCESS); })},
        {"RegCreateKeyExW",
         [](HKEY parent, const WCHAR* name) {
             ScopedKey key;
             return RegCreateKeyExW(parent, name, 0, nullptr, 0, KEY_READ, nullptr, key.Out(),
                                    nullptr);
         }},
        {"RegCloseKey",
         [](HKEY parent, const WCHAR* name) {
             // A handle whose close failed stays open until the next test's machine root.
             HKEY hKey = nullptr;
             RegOpenKeyExW(parent, name, 0, KEY_READ, &hKey);
             return RegCloseKey(hKey);
         }},
        {"RegQueryValueExW", OnHandle([](HKEY h) {
             DWORD cb = 0;
             return RegQueryValueExW(h, u"v", nullptr, nullptr, nullptr, &cb);
         })},
        {"RegSetValueExW", OnHandle([](HKEY h) {
             DWORD value = 2;
             return RegSetValueExW(h, u"v", 0, REG_DWORD, reinterpret_cast<BYTE*>(&value), 4);
         })},
        {"RegDeleteValueW", OnHandle([](HKEY h) {
             LONG status = RegDeleteValueW(h, u"v");
             DWORD value = 1;
             RegSetValueExW(h, u"v", 0, REG_DWORD, reinterpret_cast<BYTE*>(&value), 4);
             return status;
         })},
        {"RegDeleteKeyW", ThenRecreate([](HKEY p, const WCHAR* n) { return RegDeleteKeyW(p, n); })},
        {"RegDeleteKeyExW",
         ThenRecreate([](HKEY p, const WCHAR* n) { return RegDeleteKeyExW(p, n, 0, 0); })},
        {"RegDeleteTreeW",
         ThenRecreate([](HKEY p, const WCHAR* n) { return RegDeleteTreeW(p, n); })},
        {"RegEnumKeyExW", OnHandle([](HKEY h) {
             WCHAR name[16];
             DWORD cch = ARRAYSIZE(name);
             return RegEnumKeyExW(h, 0, name, &cch, nullptr, nullptr, nullptr, nullptr);
         })},
        {"RegEnumValueW", OnHandle([](HKEY h) {
             WCHAR name[16];
             DWORD cch = ARRAYSIZE(name);
             return RegEnumValueW(h, 0, name, &cch, nullptr, nullptr, nullptr, nullptr);
         })},
        {"RegQueryInfoKeyW",
         OnHandle([](HKEY h) { return orvtest::registry::QueryInfo(h).status; })},
        {"RegNotifyChangeKeyValue", OnHandle([](HKEY h) {
             HANDLE hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
             LONG status = RegNotifyChangeKeyValue(h, TRUE, REG_NOTIFY_CHANGE_NAME, hEvent, TRUE);
             RegCloseKey(h); // ends the watch before the event goes
             CloseHandle(hEvent);
             return status;
         })},
    };
    constexpr LONG kInjected = ERROR_REGISTRY_IO_FAILED;
    const std::u16string target = std::u16string(orvtest::registry::kTestKeyPath) + u"\\Target";
    for (const WCHAR* name : {u"Target", u"Other"}) {
        ScopedKey key(Create(name));
        ASSERT_EQ(ERROR_SUCCESS, SetDword(key, u"v", 1));
    }
    for (const auto& c : cases) {
        SCOPED_TRACE(c.api);
        pal::InjectFault(c.api, kInjected, 0, target.c_str());
        EXPECT_WIN32(kInjected, c.call(Base(), u"Target"));
        EXPECT_NE(kInjected, c.call(Base(), u"Other"));
        EXPECT_EQ(1u, pal::FaultHits(c.api));
        pal::ClearFault(c.api);
        EXPECT_NE(kInjected, c.call(Base(), u"Target"));
    }
}

TEST_F(RegistryFaultTest, ClassesRootPathsAreTheirPlaceUnderLocalMachine)
{
    pal::InjectFault("RegCreateKeyExW", ERROR_ACCESS_DENIED, 0,
                     u"HKLM\\Software\\Classes\\CLSID\\{ABC}");
    ScopedKey key;
    EXPECT_WIN32(ERROR_ACCESS_DENIED,
                 CreateKey(HKEY_CLASSES_ROOT, u"clsid\\{abc}\\", key.Out(), nullptr, 0, KEY_READ))
        << "case and a trailing backslash do not matter";
}

TEST_F(RegistryFaultTest, NthCallOnlyAndNoPathMeansEveryKey)
{
    pal::InjectFault("RegSetValueExW", ERROR_DISK_FULL, 2);
    EXPECT_EQ(ERROR_SUCCESS, SetDword(Base(), u"a", 1));
    EXPECT_WIN32(ERROR_DISK_FULL, SetDword(Base(), u"b", 1));
    EXPECT_EQ(ERROR_SUCCESS, SetDword(Base(), u"c", 1));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, Query(Base(), u"b")) << "a failed call changes nothing";
}

} // namespace
