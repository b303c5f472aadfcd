// The system's string conversions and copies: results in COM task memory, null only on failure
// (or for a null input to UnicodeToAnsi), never a block left behind.
#include "pal/combaseapi.h"
#include "pal/winerror.h"
#include "provider/strings.h"
#include "tests/support/paltest.h"

#include <string>

namespace {

using StringsTest = orvtest::PalTest;

// Takes ownership of a task-allocated result and returns its text.
template <class Char>
std::basic_string<Char> Take(Char* psz)
{
    EXPECT_NE(nullptr, psz);
    std::basic_string<Char> text = psz ? psz : std::basic_string<Char>();
    CoTaskMemFree(psz);
    return text;
}

TEST_F(StringsTest, ConversionsAndCopiesGiveNewBlocks)
{
    const struct
    {
        const char* pszAnsi;
        std::u16string wide;
    } cases[] = {
        {"ORVANE", u"ORVANE"},
        {"", u""},
        {"/vol/vol1/lun1-clone", u"/vol/vol1/lun1-clone"},
        {"Caf\xc3\xa9", u"Caf\u00e9"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.wide, Take(AnsiToUnicode(c.pszAnsi)));
        EXPECT_EQ(c.pszAnsi, Take(UnicodeToAnsi(c.wide.c_str())));
        LPWSTR pszCopy = DuplicateString(c.wide.c_str());
        EXPECT_NE(c.wide.c_str(), pszCopy);
        EXPECT_EQ(c.wide, Take(pszCopy));
    }
    EXPECT_EQ(u"", Take(AnsiToUnicode(nullptr))) << "null converts to the empty string";
    EXPECT_EQ(u"", Take(DuplicateString(nullptr))) << "null copies as the empty string";
    pal::FailTaskAllocAt(1);
    EXPECT_EQ(nullptr, UnicodeToAnsi(nullptr));
    EXPECT_EQ(0u, pal::TaskAllocations()) << "a null input fails before allocating";
}

TEST_F(StringsTest, EachOperationAllocatesOneBlockAndFailsToNullWhenItCannot)
{
    const struct
    {
        const char* pszName;
        void* (*pfnOperation)();
    } cases[] = {
        {"AnsiToUnicode", [] { return static_cast<void*>(AnsiToUnicode("ORVANE")); }},
        {"AnsiToUnicode(NULL)", [] { return static_cast<void*>(AnsiToUnicode(nullptr)); }},
        {"UnicodeToAnsi", [] { return static_cast<void*>(UnicodeToAnsi(W("ORVANE"))); }},
        {"DuplicateString", [] { return static_cast<void*>(DuplicateString(W("ORVANE"))); }},
        {"DuplicateString(NULL)", [] { return static_cast<void*>(DuplicateString(nullptr)); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pszName);
        pal::FailTaskAllocAt(1);
        EXPECT_EQ(nullptr, c.pfnOperation());
        EXPECT_EQ(1u, pal::TaskAllocations());
        pal::FailTaskAllocAt(2);
        void* pv = c.pfnOperation();
        EXPECT_NE(nullptr, pv);
        EXPECT_EQ(1u, pal::TaskAllocations());
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
