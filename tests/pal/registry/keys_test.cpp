// The registry keys of the emulated machine: where the database lives, what the pal refuses
// where Windows leaves the result undefined, and the roots that cannot be deleted. The rest of the
// keys' behaviour is checked on both platforms by conformance/keys_test.cpp.
#include "tests/pal/registry/registry_testing.h"

namespace {

using orvtest::registry::ScopedKey;
using RegistryMachineTest = orvtest::registry::RegistryTest;

TEST_F(RegistryMachineTest, TheDatabaseIsInTheMachineRoot)
{
    EXPECT_TRUE(std::filesystem::exists(Root() / "registry.db")) << "the base key is stored there";
}

// Linux only: Wine accepts all of these (and reports the empty subkey as created); Windows
// documents none of the results.
TEST_F(RegistryMachineTest, CreateRefusesMalformedPathsAndOptions)
{
    ScopedKey key;
    DWORD dwDisposition = 0;
    ASSERT_EQ(ERROR_SUCCESS, CreateKey(Base(), u"", key.Out(), &dwDisposition));
    EXPECT_EQ(DWORD(REG_OPENED_EXISTING_KEY), dwDisposition) << "an empty subkey is the key";
    const struct
    {
        std::u16string path;
        LONG expected;
    } cases[] = {{u"A\\\\B", ERROR_BAD_PATHNAME},
                 {std::u16string(256, u'k'), ERROR_INVALID_PARAMETER}};
    for (const auto& c : cases) {
        SCOPED_TRACE(orvtest::Narrow(c.path.substr(0, 8)));
        EXPECT_WIN32(c.expected,
                     CreateKey(Base(), c.path.c_str(), key.Out(), nullptr, 0, KEY_READ));
        EXPECT_WIN32(c.expected, OpenKey(Base(), c.path.c_str(), key.Out()));
    }
    EXPECT_WIN32(ERROR_INVALID_PARAMETER, CreateKey(Base(), nullptr, key.Out()));
    EXPECT_WIN32(ERROR_INVALID_PARAMETER, CreateKey(Base(), u"x", key.Out(), nullptr, 0x1000));
    EXPECT_WIN32(ERROR_NOT_SUPPORTED,
                 CreateKey(Base(), u"x", key.Out(), nullptr, REG_OPTION_BACKUP_RESTORE));
}

// Linux only: on Windows these would delete the machine's own keys wherever they are allowed.
TEST_F(RegistryMachineTest, DeleteTreeNeverDeletesARoot)
{
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteTreeW(HKEY_LOCAL_MACHINE, u"Software"));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteTreeW(HKEY_LOCAL_MACHINE, u"Software\\Classes"));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteKeyW(HKEY_CLASSES_ROOT, u""));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, RegDeleteTreeW(HKEY_LOCAL_MACHINE, nullptr));
}

} // namespace
