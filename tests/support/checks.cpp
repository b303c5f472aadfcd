#include "tests/support/checks.h"

#include "pal/stringapiset.h"

#include <cstdio>

namespace orvtest {

std::string HexCode(DWORD value)
{
    char buffer[16];
    std::snprintf(buffer, sizeof(buffer), "0x%08X", static_cast<unsigned>(value));
    return buffer;
}

::testing::AssertionResult HrEqual(const char* expectedExpr, const char* actualExpr,
                                   HRESULT expected, HRESULT actual)
{
    if (expected == actual)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "Expected equality of these values:\n  " << expectedExpr
           << "\n    Which is: " << HexCode(static_cast<DWORD>(expected)) << "\n  " << actualExpr
           << "\n    Which is: " << HexCode(static_cast<DWORD>(actual));
}

std::string Narrow(WStringView s)
{
    if (s.empty())
        return {};
    int cb = WideCharToMultiByte(CP_UTF8, 0, s.data(), static_cast<int>(s.size()), nullptr, 0,
                                 nullptr, nullptr);
    std::string out(static_cast<size_t>(cb), '\0');
    WideCharToMultiByte(CP_UTF8, 0, s.data(), static_cast<int>(s.size()), out.data(), cb, nullptr,
                        nullptr);
    return out;
}

WString Wide(std::string_view s)
{
    if (s.empty())
        return {};
    int cch = MultiByteToWideChar(CP_UTF8, 0, s.data(), static_cast<int>(s.size()), nullptr, 0);
    WString out(static_cast<size_t>(cch), WCHAR(0));
    MultiByteToWideChar(CP_UTF8, 0, s.data(), static_cast<int>(s.size()), out.data(), cch);
    return out;
}

} // namespace orvtest
