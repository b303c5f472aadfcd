// Fault injection reaches every registry function, filtered by the canonical full key path.
#include "tests/pal/registry_testing.h"

#include <functional>
#include <string>

namespace {

using orvtest::registry::ScopedKey;

constexpr LONG kInjected = ERROR_REGISTRY_IO_FAILED;
const std::u16string kTargetPath = u"HKLM\\Software\\OrvTest\\Target";

// One registry call on the key `name` under `parent` (whose handle is opened beforehand).
using Call = std::function<LONG(HKEY parent, const WCHAR* name)>;

struct FaultCase
{
    const char* api;
    Call call;
};

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

void PrintTo(const FaultCase& c, std::ostream* os)
{
    *os << c.api;
}

class RegistryFaultTest : public orvtest::registry::RegistryTest,
                          public ::testing::WithParamInterface<FaultCase>
{
protected:
    void SetUp() override
    {
        RegistryTest::SetUp();
        for (const WCHAR* name : {u"Target", u"Other"}) {
            ScopedKey key(Create(name));
            ASSERT_EQ(ERROR_SUCCESS, SetDword(key, u"v", 1));
        }
    }
};

TEST_P(RegistryFaultTest, FailsOnlyForTheChosenKey)
{
    const FaultCase& c = GetParam();
    pal::InjectFault(c.api, kInjected, 0, kTargetPath.c_str());
    EXPECT_WIN32(kInjected, c.call(Base(), u"Target"));
    EXPECT_NE(kInjected, c.call(Base(), u"Other"));
    EXPECT_EQ(1u, pal::FaultHits(c.api));
    pal::ClearFault(c.api);
    EXPECT_NE(kInjected, c.call(Base(), u"Target"));
}

const FaultCase kCases[] = {
    {"RegOpenKeyExW", OnHandle([](HKEY) { return LONG(ERROR_SUCCESS); })},
    {"RegCreateKeyExW",
     [](HKEY parent, const WCHAR* name) {
         HKEY hKey = nullptr;
         LONG status =
             RegCreateKeyExW(parent, name, 0, nullptr, 0, KEY_READ, nullptr, &hKey, nullptr);
         if (hKey)
             RegCloseKey(hKey);
         return status;
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
    {"RegDeleteKeyW",
     [](HKEY parent, const WCHAR* name) {
         LONG status = RegDeleteKeyW(parent, name);
         HKEY hKey = nullptr;
         RegCreateKeyExW(parent, name, 0, nullptr, 0, KEY_READ, nullptr, &hKey, nullptr);
         RegCloseKey(hKey);
         return status;
     }},
    {"RegDeleteKeyExW",
     [](HKEY parent, const WCHAR* name) {
         LONG status = RegDeleteKeyExW(parent, name, 0, 0);
         HKEY hKey = nullptr;
         RegCreateKeyExW(parent, name, 0, nullptr, 0, KEY_READ, nullptr, &hKey, nullptr);
         RegCloseKey(hKey);
         return status;
     }},
    {"RegDeleteTreeW",
     [](HKEY parent, const WCHAR* name) {
         LONG status = RegDeleteTreeW(parent, name);
         HKEY hKey = nullptr;
         RegCreateKeyExW(parent, name, 0, nullptr, 0, KEY_READ, nullptr, &hKey, nullptr);
         RegCloseKey(hKey);
         return status;
     }},
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
    {"RegQueryInfoKeyW", OnHandle([](HKEY h) {
         DWORD cValues = 0;
         return RegQueryInfoKeyW(h, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &cValues,
                                 nullptr, nullptr, nullptr, nullptr);
     })},
    {"RegNotifyChangeKeyValue", OnHandle([](HKEY h) {
         HANDLE hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
         LONG status = RegNotifyChangeKeyValue(h, TRUE, REG_NOTIFY_CHANGE_NAME, hEvent, TRUE);
         RegCloseKey(h); // ends the watch before the event goes
         CloseHandle(hEvent);
         return status;
     })},
};

INSTANTIATE_TEST_SUITE_P(Functions, RegistryFaultTest, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.api); });

using RegistryFaultPathTest = orvtest::registry::RegistryTest;

TEST_F(RegistryFaultPathTest, ClassesRootPathsAreTheirPlaceUnderLocalMachine)
{
    pal::InjectFault("RegCreateKeyExW", ERROR_ACCESS_DENIED, 0,
                     u"HKLM\\Software\\Classes\\CLSID\\{ABC}");
    ScopedKey key;
    EXPECT_WIN32(ERROR_ACCESS_DENIED,
                 RegCreateKeyExW(HKEY_CLASSES_ROOT, u"clsid\\{abc}\\", 0, nullptr, 0, KEY_READ,
                                 nullptr, key.Out(), nullptr))
        << "case and a trailing backslash do not matter";
}

TEST_F(RegistryFaultPathTest, NthCallOnlyAndNoPathMeansEveryKey)
{
    pal::InjectFault("RegSetValueExW", ERROR_DISK_FULL, 2);
    EXPECT_EQ(ERROR_SUCCESS, SetDword(Base(), u"a", 1));
    EXPECT_WIN32(ERROR_DISK_FULL, SetDword(Base(), u"b", 1));
    EXPECT_EQ(ERROR_SUCCESS, SetDword(Base(), u"c", 1));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND,
                 RegQueryValueExW(Base(), u"b", nullptr, nullptr, nullptr, nullptr))
        << "a failed call changes nothing";
}

} // namespace
