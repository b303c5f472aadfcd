// The ANSI and OEM code pages: here both are UTF-8 (a design choice: Windows uses a code page of
// the language, e.g. 1252 and 437), so other code page numbers do not exist, and the conversions
// fail as injected. The CP_UTF8 cases are shared: conformance/codepage_test.cpp.
#include "pal/errhandlingapi.h"
#include "pal/stringapiset.h"
#include "tests/pal/text/codepagecheck.h"
#include "tests/support/paltest.h"

#include <algorithm>
#include <string>

namespace {

using namespace orvtest::codepagecheck;

using CodePagePalTest = orvtest::PalTest;

TEST_F(CodePagePalTest, AnsiAndOemCodePagesConvertAsUtf8)
{
    for (const auto& c : kFromUtf8) {
        for (UINT cp : {CP_ACP, CP_OEMCP}) {
            SCOPED_TRACE(std::string(c.name) + ", code page " + std::to_string(cp));
            EXPECT_EQ(c.lenient, ToWide(cp, 0, c.input));
            DWORD dwError = 0;
            EXPECT_EQ(c.fValid ? c.lenient : W("<error>"),
                      ToWide(cp, MB_ERR_INVALID_CHARS, c.input, &dwError));
            EXPECT_WIN32(c.fValid ? ERROR_SUCCESS : ERROR_NO_UNICODE_TRANSLATION, dwError);
        }
    }
    for (const auto& c : kToUtf8) {
        SCOPED_TRACE(c.name);
        for (UINT cp : {CP_ACP, CP_OEMCP})
            EXPECT_EQ(c.lenient, ToNarrow(cp, 0, c.input)) << cp;
    }
}

TEST_F(CodePagePalTest, AnsiCodePageFlagsAndTheDefaultCharacter)
{
    WCHAR wide[16];
    auto mbError = [&](UINT cp, DWORD flags) {
        return ErrorOf([&] { return MultiByteToWideChar(cp, flags, "abc", -1, wide, 16); });
    };
    EXPECT_WIN32(ERROR_INVALID_PARAMETER, mbError(1252, 0)); // no such code page here
    // The ANSI code pages take the ANSI flags, which change nothing in UTF-8.
    for (DWORD flags : {DWORD{MB_PRECOMPOSED | 0x2}, DWORD{0x100}})
        EXPECT_WIN32(ERROR_INVALID_FLAGS, mbError(CP_ACP, flags)) << flags;
    for (UINT cp : {CP_ACP, CP_OEMCP}) {
        for (DWORD flags : {DWORD{MB_PRECOMPOSED}, DWORD{0x2}, DWORD{MB_PRECOMPOSED | 0x4},
                            DWORD{MB_PRECOMPOSED | MB_ERR_INVALID_CHARS}}) {
            EXPECT_EQ(3, MultiByteToWideChar(cp, flags, "h\xC3\xA9", -1, wide, 8)) << flags;
            EXPECT_EQ(orvtest::WString(W("h\u00E9")), orvtest::WString(wide));
        }
    }

    char buffer[16];
    BOOL fUsed = FALSE;
    auto wcError = [&](UINT cp, DWORD flags) {
        return ErrorOf([&] {
            return WideCharToMultiByte(cp, flags, W("abc"), -1, buffer, 16, nullptr, nullptr);
        });
    };
    EXPECT_WIN32(ERROR_INVALID_PARAMETER, wcError(437, 0)); // no such code page here
    EXPECT_WIN32(ERROR_INVALID_FLAGS, wcError(CP_ACP, WC_ERR_INVALID_CHARS));
    EXPECT_WIN32(ERROR_INVALID_FLAGS, wcError(CP_ACP, 0x1));
    // The default character replaces unpaired surrogates.
    fUsed = TRUE;
    ASSERT_EQ(
        3, WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, W("ab"), -1, buffer, 8, "?", &fUsed));
    EXPECT_STREQ("ab", buffer);
    EXPECT_FALSE(fUsed);
    ASSERT_EQ(4, WideCharToMultiByte(CP_ACP, 0, W("a\xD800z"), -1, buffer, 8, "?", &fUsed));
    EXPECT_STREQ("a?z", buffer);
    EXPECT_TRUE(fUsed);
    fUsed = FALSE;
    ASSERT_EQ(6, WideCharToMultiByte(CP_OEMCP, 0, W("a\xDC00z"), -1, buffer, 8, nullptr, &fUsed));
    EXPECT_STREQ("a\xEF\xBF\xBDz", buffer);
    EXPECT_TRUE(fUsed);
}

// The documented checks of UTF-8 conversions that Wine leaves out: UTF-8 takes no flag but the
// invalid-characters one, no default character and no flag for its use, and the source and
// destination must differ. Here also only whole characters are stored when the buffer is short
// (Wine stores half a surrogate pair), and invalid input is reported before a short buffer.
TEST_F(CodePagePalTest, Utf8ChecksThatWineDiffersOn)
{
    for (const auto& c : kFromUtf8Subparts) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.lenient, ToWide(CP_UTF8, 0, c.input));
        EXPECT_EQ(W("<error>"), ToWide(CP_UTF8, MB_ERR_INVALID_CHARS, c.input));
    }

    WCHAR wide[16];
    char bytes[32] = "abc";
    for (DWORD flags : {DWORD{MB_PRECOMPOSED}, DWORD{0x4}, DWORD{0x100}}) {
        EXPECT_WIN32(ERROR_INVALID_FLAGS, ErrorOf([&] {
                         return MultiByteToWideChar(CP_UTF8, flags, "abc", -1, wide, 16);
                     }))
            << flags;
    }
    EXPECT_CALL_ERROR(
        0, ERROR_INVALID_PARAMETER,
        MultiByteToWideChar(CP_UTF8, 0, bytes, -1, reinterpret_cast<WCHAR*>(bytes), 16));
    const char* text = "x\xC3\xA9\xF0\x9F\x8D\xB7"; // the pair does not fit after "xé"
    std::fill(std::begin(wide), std::end(wide), kSentinelW);
    EXPECT_CALL_ERROR(0, ERROR_INSUFFICIENT_BUFFER,
                      MultiByteToWideChar(CP_UTF8, 0, text, -1, wide, 3));
    EXPECT_EQ(W("x\u00E9"), orvtest::WString(wide, 2));
    EXPECT_EQ(kSentinelW, wide[2]);
    EXPECT_CALL_ERROR(
        0, ERROR_NO_UNICODE_TRANSLATION,
        MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, "abcdef\xFF", -1, wide, 2));

    char buffer[16];
    WCHAR units[16] = W("abc");
    BOOL fUsed = FALSE;
    EXPECT_CALL_ERROR(0, ERROR_INVALID_PARAMETER,
                      WideCharToMultiByte(CP_UTF8, 0, W("abc"), -1, buffer, 16, "?", nullptr));
    EXPECT_CALL_ERROR(0, ERROR_INVALID_PARAMETER,
                      WideCharToMultiByte(CP_UTF8, 0, W("abc"), -1, buffer, 16, nullptr, &fUsed));
    EXPECT_CALL_ERROR(0, ERROR_INVALID_FLAGS,
                      WideCharToMultiByte(CP_UTF8, WC_NO_BEST_FIT_CHARS, W("abc"), -1, buffer, 16,
                                          nullptr, nullptr));
    EXPECT_CALL_ERROR(0, ERROR_INVALID_PARAMETER,
                      WideCharToMultiByte(CP_UTF8, 0, units, -1, reinterpret_cast<char*>(units), 16,
                                          nullptr, nullptr));
}

TEST_F(CodePagePalTest, InjectedFaultsFail)
{
    WCHAR wide[8];
    char narrow[8];
    pal::InjectFault("MultiByteToWideChar", ERROR_NOT_ENOUGH_MEMORY, 2);
    EXPECT_EQ(4, MultiByteToWideChar(CP_UTF8, 0, "abc", -1, wide, 8));
    EXPECT_CALL_ERROR(0, ERROR_NOT_ENOUGH_MEMORY,
                      MultiByteToWideChar(CP_UTF8, 0, "abc", -1, wide, 8));
    pal::InjectFault("WideCharToMultiByte", ERROR_OUTOFMEMORY);
    EXPECT_CALL_ERROR(0, ERROR_OUTOFMEMORY,
                      WideCharToMultiByte(CP_UTF8, 0, W("abc"), -1, narrow, 8, nullptr, nullptr));
}

} // namespace
