// The system's string conversions and copies: results in COM task memory, null only on failure
// (or for a null input to UnicodeToAnsi), never a block left behind.
#include "pal/combaseapi.h"
#include "pal/winerror.h"
#include "provider/strings.h"
#include "tests/support/paltest.h"

#include <cstring>
#include <string>

namespace {

using orvtest::Narrow;
using StringsTest = orvtest::PalTest;

// Takes ownership of a task-allocated result and returns its text.
std::u16string TakeWide(LPWSTR psz)
{
    std::u16string text = psz;
    CoTaskMemFree(psz);
    return text;
}

std::string TakeNarrow(LPSTR psz)
{
    std::string text = psz;
    CoTaskMemFree(psz);
    return text;
}

TEST_F(StringsTest, AnsiToUnicodeConvertsTheSystemCodePage)
{
    struct Case
    {
        const char* pszAnsi;
        std::u16string expected;
    };
    const Case cases[] = {
        {"ORVANE", u"ORVANE"},
        {"", u""},
        {"/vol/vol1/lun1", u"/vol/vol1/lun1"},
        {"Caf\xc3\xa9", u"Caf\u00e9"},
    };
    for (const Case& c : cases) {
        pal::FailTaskAllocAt(0);
        LPWSTR psz = AnsiToUnicode(c.pszAnsi);
        ASSERT_NE(nullptr, psz) << c.pszAnsi;
        EXPECT_EQ(c.expected, TakeWide(psz));
    }
}

TEST_F(StringsTest, AnsiToUnicodeOfNullIsAnEmptyStringNotNull)
{
    LPWSTR psz = AnsiToUnicode(nullptr);
    ASSERT_NE(nullptr, psz);
    EXPECT_EQ(u"", TakeWide(psz));
}

TEST_F(StringsTest, UnicodeToAnsiConvertsAndRejectsNull)
{
    EXPECT_EQ("/vol/vol1/lun1-clone", TakeNarrow(UnicodeToAnsi(W("/vol/vol1/lun1-clone"))));
    EXPECT_EQ("", TakeNarrow(UnicodeToAnsi(W(""))));
    EXPECT_EQ("Caf\xc3\xa9", TakeNarrow(UnicodeToAnsi(W("Caf\u00e9"))));
    pal::FailTaskAllocAt(1);
    EXPECT_EQ(nullptr, UnicodeToAnsi(nullptr));
    EXPECT_EQ(0u, pal::TaskAllocations()) << "a null input fails before allocating";
}

TEST_F(StringsTest, DuplicateStringCopiesIntoANewBlock)
{
    const WCHAR szSource[] = W("f1:/v1/lun1:snap");
    LPWSTR psz = DuplicateString(szSource);
    ASSERT_NE(nullptr, psz);
    EXPECT_NE(szSource, psz);
    EXPECT_EQ(u"f1:/v1/lun1:snap", TakeWide(psz));
    EXPECT_EQ(u"", TakeWide(DuplicateString(nullptr)));
    EXPECT_EQ(u"", TakeWide(DuplicateString(W(""))));
}

TEST_F(StringsTest, EachOperationAllocatesOneBlockAndFailsToNullWhenItCannot)
{
    struct Case
    {
        const char* pszName;
        void* (*pfnOperation)();
    };
    const Case cases[] = {
        {"AnsiToUnicode", [] { return static_cast<void*>(AnsiToUnicode("ORVANE")); }},
        {"AnsiToUnicode(NULL)", [] { return static_cast<void*>(AnsiToUnicode(nullptr)); }},
        {"UnicodeToAnsi", [] { return static_cast<void*>(UnicodeToAnsi(W("ORVANE"))); }},
        {"DuplicateString", [] { return static_cast<void*>(DuplicateString(W("ORVANE"))); }},
        {"DuplicateString(NULL)", [] { return static_cast<void*>(DuplicateString(nullptr)); }},
    };
    for (const Case& c : cases) {
        pal::FailTaskAllocAt(1);
        EXPECT_EQ(nullptr, c.pfnOperation()) << c.pszName;
        EXPECT_EQ(1u, pal::TaskAllocations()) << c.pszName;
        pal::FailTaskAllocAt(2);
        void* pv = c.pfnOperation();
        EXPECT_NE(nullptr, pv) << c.pszName;
        EXPECT_EQ(1u, pal::TaskAllocations()) << c.pszName;
        CoTaskMemFree(pv);
    }
}

TEST_F(StringsTest, AFailedConversionFreesItsBlockAndGivesNull)
{
    // The size query succeeds; the conversion itself is the second call.
    pal::InjectFault("MultiByteToWideChar", ERROR_NO_UNICODE_TRANSLATION, 2);
    EXPECT_EQ(nullptr, AnsiToUnicode("ORVANE"));
    pal::InjectFault("WideCharToMultiByte", ERROR_NO_UNICODE_TRANSLATION, 2);
    EXPECT_EQ(nullptr, UnicodeToAnsi(W("ORVANE")));
    // A failing size query allocates nothing.
    pal::InjectFault("MultiByteToWideChar", ERROR_INVALID_PARAMETER, 1);
    pal::FailTaskAllocAt(1000);
    EXPECT_EQ(nullptr, AnsiToUnicode("ORVANE"));
    EXPECT_EQ(0u, pal::TaskAllocations());
}

} // namespace
