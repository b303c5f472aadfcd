// LoadStringW on the program's own string table (res/orvprov.rc): on Windows the image's, here
// the table the fixture registers.
#include "pal/errhandlingapi.h"
#include "pal/libloaderapi.h"
#include "pal/winuser.h"
#include "res/resource.h"
#include "tests/support/conformance.h"

#include <algorithm>

namespace {

using StringResourceTest = orvtest::ConformanceTest;
using orvtest::LAST_ERROR_UNTOUCHED;
using orvtest::WString;

TEST_F(StringResourceTest, CopiesWhatFitsAndTerminates)
{
    const struct
    {
        UINT id;
        int cchBuffer;
        const WCHAR* text; // what the buffer holds; its length is the result
    } cases[] = {
        {IDS_SERVICENAME, 64, W("Orvhwsvc")},
        {IDS_PARSE_REGISTER_MODE, 64, W("Parsing error: -r (exe|service)\n")},
        {IDS_SERVICENAME, 9, W("Orvhwsvc")}, // exactly fits
        {IDS_SERVICENAME, 8, W("Orvhwsv")},
        {0x10000 | IDS_SERVICENAME, 64, W("Orvhwsvc")}, // an id is a WORD
        {IDS_SERVICEDISPLAYNAME + 1, 64, W("")},        // left out of a block that exists
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.id << " in " << c.cchBuffer);
        WCHAR buffer[64];
        std::fill(std::begin(buffer), std::end(buffer), W('#'));
        WString text(c.text);
        EXPECT_CALL_ERROR(static_cast<int>(text.size()), LAST_ERROR_UNTOUCHED,
                          LoadStringW(GetModuleHandleW(nullptr), c.id, buffer, c.cchBuffer));
        EXPECT_EQ(text, WString(buffer));
        EXPECT_EQ(W('#'), buffer[text.size() + 1]);
    }
}

TEST_F(StringResourceTest, ZeroSizeGivesAPointerToTheResourceAndAnUnknownIdNothing)
{
    HINSTANCE hInstance = GetModuleHandleW(nullptr);
    const WCHAR* text = nullptr;
    EXPECT_CALL_ERROR(
        29, LAST_ERROR_UNTOUCHED,
        LoadStringW(hInstance, IDS_PROVIDER_NAME, reinterpret_cast<LPWSTR>(&text), 0));
    // The resource need not be terminated: its length is the result.
    ASSERT_NE(nullptr, text);
    EXPECT_EQ(WString(W("Verdane VSS Hardware Provider")), WString(text, 29));

    text = nullptr;
    EXPECT_CALL_ERROR(0, ERROR_RESOURCE_NAME_NOT_FOUND,
                      LoadStringW(hInstance, 5000, reinterpret_cast<LPWSTR>(&text), 0));
    EXPECT_EQ(nullptr, text);
    WCHAR buffer[8];
    EXPECT_CALL_ERROR(0, ERROR_RESOURCE_NAME_NOT_FOUND,
                      LoadStringW(hInstance, 5000, buffer, ARRAYSIZE(buffer)));
    EXPECT_EQ(0, LoadStringW(hInstance, IDS_PROVIDER_NAME, nullptr, 0));
    EXPECT_EQ(0, LoadStringW(hInstance, IDS_PROVIDER_NAME, nullptr, 64));
}

} // namespace
