// Debugger output, message boxes and string resources.
#include "pal/debugapi.h"
#include "pal/errhandlingapi.h"
#include "pal/palresource.h"
#include "pal/winuser.h"
#include "tests/support/paltest.h"

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

// Registers a test's own string table and takes it away again afterwards.
class StringResourceTest : public orvtest::PalTest
{
protected:
    static constexpr PAL_STRING_RESOURCE kTable[] = {
        {100, W("Hello")},
        {101, W("")},
        {102, W("Shadow copy \u00E9")},
    };
    void SetUp() override
    {
        PalTest::SetUp();
        PalRegisterStringTable(kTable, ARRAYSIZE(kTable));
    }
    void TearDown() override
    {
        PalRegisterStringTable(nullptr, 0);
        PalTest::TearDown();
    }
};

TEST_F(StringResourceTest, CopiesTruncatesToTheBufferLessOneAndTerminates)
{
    const struct
    {
        UINT id;
        int cchBuffer;
        int iResult;
        std::u16string text;
    } cases[] = {
        {100, 32, 5, u"Hello"}, {102, 32, 13, u"Shadow copy \u00E9"},
        {101, 32, 0, u""},     // found, and empty
        {100, 6, 5, u"Hello"}, // exactly fits
        {100, 5, 4, u"Hell"},   {100, 1, 0, u""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.id << " in " << c.cchBuffer);
        WCHAR buffer[40];
        std::fill(std::begin(buffer), std::end(buffer), u'#');
        SetLastError(0xDEADBEEF);
        EXPECT_EQ(c.iResult, LoadStringW(nullptr, c.id, buffer, c.cchBuffer));
        EXPECT_EQ(c.text, std::u16string(buffer));
        EXPECT_EQ(u'#', buffer[c.text.size() + 1]);
        EXPECT_WIN32(0xDEADBEEF, GetLastError());
    }
}

TEST_F(StringResourceTest, ZeroLengthBufferGetsAPointerMissingStringsFailAndANewTableReplaces)
{
    LPCWSTR text = nullptr;
    EXPECT_EQ(5, LoadStringW(nullptr, 100, reinterpret_cast<LPWSTR>(&text), 0));
    EXPECT_EQ(kTable[0].pszText, text);
    EXPECT_EQ(0, LoadStringW(nullptr, 101, reinterpret_cast<LPWSTR>(&text), 0));
    EXPECT_EQ(kTable[1].pszText, text);

    WCHAR buffer[16] = u"untouched";
    EXPECT_CALL_ERROR(0, ERROR_RESOURCE_NAME_NOT_FOUND,
                      LoadStringW(nullptr, 999, buffer, ARRAYSIZE(buffer)));
    EXPECT_EQ(0, buffer[0]);
    text = nullptr;
    EXPECT_CALL_ERROR(0, ERROR_RESOURCE_NAME_NOT_FOUND,
                      LoadStringW(nullptr, 999, reinterpret_cast<LPWSTR>(&text), 0));
    EXPECT_EQ(nullptr, text);
    EXPECT_EQ(0, LoadStringW(nullptr, 100, nullptr, 16));
    EXPECT_EQ(0, LoadStringW(nullptr, 100, nullptr, 0));

    // A new table replaces the old.
    static constexpr PAL_STRING_RESOURCE kOther[] = {{7, W("seven")}};
    PalRegisterStringTable(kOther, ARRAYSIZE(kOther));
    EXPECT_EQ(0, LoadStringW(nullptr, 100, buffer, ARRAYSIZE(buffer)));
    EXPECT_EQ(5, LoadStringW(nullptr, 7, buffer, ARRAYSIZE(buffer)));
    EXPECT_EQ(u"seven", std::u16string(buffer));
}

} // namespace
