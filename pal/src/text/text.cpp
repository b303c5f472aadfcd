// UTF-8 and UTF-16 conversions for the layer's own use (file names, captured output).
#include "pal/src/base/internal.h"
#include "pal/src/text/utf.h"

namespace pal {

std::string Utf16ToUtf8(std::u16string_view s)
{
    std::string out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size();) {
        char32_t cp;
        i += detail::DecodeUtf16(s.data() + i, s.size() - i, &cp);
        char bytes[4];
        out.append(bytes, detail::EncodeUtf8(
                              cp == detail::UTF_INVALID ? detail::UTF_REPLACEMENT : cp, bytes));
    }
    return out;
}

std::u16string Utf8ToUtf16(std::string_view s)
{
    std::u16string out;
    out.reserve(s.size());
    const auto* bytes = reinterpret_cast<const unsigned char*>(s.data());
    for (size_t i = 0; i < s.size();) {
        char32_t cp;
        i += detail::DecodeUtf8(bytes + i, s.size() - i, &cp);
        char16_t units[2];
        out.append(units, detail::EncodeUtf16(
                              cp == detail::UTF_INVALID ? detail::UTF_REPLACEMENT : cp, units));
    }
    return out;
}

} // namespace pal

namespace pal::detail {

size_t WideLength(const WCHAR* s)
{
    size_t n = 0;
    while (s[n])
        ++n;
    return n;
}

} // namespace pal::detail

namespace pal::detail {

bool EqualNoCase(std::u16string_view a, std::u16string_view b)
{
    auto fold = [](char16_t c) { return (c >= u'a' && c <= u'z') ? char16_t(c - 32) : c; };
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (fold(a[i]) != fold(b[i]))
            return false;
    return true;
}

} // namespace pal::detail
