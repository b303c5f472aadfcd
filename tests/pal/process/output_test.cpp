// Debugger output, message boxes and the registration of string resources.
#include "pal/debugapi.h"
#include "pal/errhandlingapi.h"
#include "pal/palresource.h"
#include "pal/winuser.h"
#include "tests/support/paltest.h"

#include <algorithm>
#include <utility>

namespace {

using OutputTest = orvtest::PalTest;

TEST_F(OutputTest, DebugOutputIsCapturedOnePiecePerCall)
{
    EXPECT_FALSE(IsDebuggerPresent());
    OutputDebugStringW(W("provider: start\n"));
    OutputDebugStringW(nullptr);
    OutputDebugStringA("caf\xC3\xA9 \xE2\x82\xAC\n");
    OutputDebugStringA(nullptr);
    OutputDebugStringW(W(""));
    EXPECT_EQ((std::vector<std::u16string>{u"provider: start\n", u"caf\u00E9 \u20AC\n", u""}),
              pal::TakeDebugOutput());
    EXPECT_TRUE(pal::TakeDebugOutput().empty());

    OutputDebugStringW(W("a"));
    OutputDebugStringA("b\n");
    EXPECT_EQ("ab\n", pal::TakeDebugOutputText());
}

TEST_F(OutputTest, MessageBoxIsRecordedAndAnsweredWithOk)
{
    EXPECT_EQ(IDOK, MessageBoxW(nullptr, W("Disk is full"), W("Provider"),
                                MB_OK | MB_ICONERROR | MB_SERVICE_NOTIFICATION));
    EXPECT_EQ(IDOK, MessageBoxW(nullptr, W("No caption"), nullptr, MB_OK));
    EXPECT_EQ(IDOK, MessageBoxW(nullptr, nullptr, W("No text"), MB_YESNO));
    auto boxes = pal::TakeMessageBoxes();
    ASSERT_EQ(3u, boxes.size());
    EXPECT_EQ(u"Provider", boxes[0].caption);
    EXPECT_EQ(u"Disk is full", boxes[0].text);
    EXPECT_EQ(static_cast<UINT>(MB_OK | MB_ICONERROR | MB_SERVICE_NOTIFICATION), boxes[0].type);
    EXPECT_EQ(u"Error", boxes[1].caption); // Windows' default title
    EXPECT_EQ(u"", boxes[2].text);
    EXPECT_EQ(static_cast<UINT>(MB_YESNO), boxes[2].type);
}

// The registration that stands in for the image; LoadStringW's contract is checked on both
// platforms by tests/pal/text/conformance/strres_test.cpp.
using StringTableRegistrationTest = orvtest::PalTest;

TEST_F(StringTableRegistrationTest, LoadStringReadsTheTableLastRegistered)
{
    WCHAR buffer[16];
    EXPECT_CALL_ERROR(0, ERROR_RESOURCE_NAME_NOT_FOUND,
                      LoadStringW(nullptr, 100, buffer, ARRAYSIZE(buffer)));
    static constexpr PAL_STRING_RESOURCE kTable[] = {{100, W("Hello")}, {101, nullptr}};
    PalRegisterStringTable(kTable, ARRAYSIZE(kTable));
    LPCWSTR text = nullptr;
    EXPECT_EQ(5, LoadStringW(nullptr, 100, reinterpret_cast<LPWSTR>(&text), 0));
    EXPECT_EQ(kTable[0].pszText, text);
    EXPECT_CALL_ERROR(0, orvtest::LAST_ERROR_UNTOUCHED,
                      LoadStringW(nullptr, 101, buffer, ARRAYSIZE(buffer)));
    // Linux only: Wine 8 leaves the buffer as it was when it copies nothing (a buffer of one,
    // an unknown id); Windows terminates it, as the documentation and Wine's later tests say.
    const std::pair<UINT, int> nothingCopied[] = {{100, 1}, {999, ARRAYSIZE(buffer)}};
    for (auto [uID, cchBuffer] : nothingCopied) {
        std::fill(std::begin(buffer), std::end(buffer), W('#'));
        EXPECT_EQ(0, LoadStringW(nullptr, uID, buffer, cchBuffer));
        EXPECT_EQ(0, buffer[0]);
        EXPECT_EQ(W('#'), buffer[1]);
    }

    static constexpr PAL_STRING_RESOURCE kOther[] = {{7, W("seven")}};
    PalRegisterStringTable(kOther, ARRAYSIZE(kOther));
    EXPECT_EQ(0, LoadStringW(nullptr, 100, buffer, ARRAYSIZE(buffer)));
    EXPECT_EQ(5, LoadStringW(nullptr, 7, buffer, ARRAYSIZE(buffer)));
    PalRegisterStringTable(nullptr, 0);
}

} // namespace
