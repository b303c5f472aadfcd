// UTF-8 and UTF-16 conversions for the layer's own use (file names, captured output).
#include "internal.h"

namespace pal {

std::string Utf16ToUtf8(std::u16string_view s)
{
    std::string out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size(); ++i) {
        char32_t c = s[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < s.size() && s[i + 1] >= 0xDC00 &&
            s[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (s[i + 1] - 0xDC00);
            ++i;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            c = 0xFFFD;
        }
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (c >> 18));
            out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

std::u16string Utf8ToUtf16(std::string_view s)
{
    std::u16string out;
    out.reserve(s.size());
    size_t i = 0;
    while (i < s.size()) {
        auto b = static_cast<unsigned char>(s[i]);
        char32_t c = 0xFFFD;
        size_t len = 1;
        if (b < 0x80) {
            c = b;
        } else if ((b & 0xE0) == 0xC0) {
            len = 2;
        } else if ((b & 0xF0) == 0xE0) {
            len = 3;
        } else if ((b & 0xF8) == 0xF0) {
            len = 4;
        }
        if (len > 1) {
            if (i + len > s.size()) {
                len = 1;
            } else {
                c = b & (0x3F >> (len - 1));
                for (size_t k = 1; k < len; ++k) {
                    auto cb = static_cast<unsigned char>(s[i + k]);
                    if ((cb & 0xC0) != 0x80) {
                        c = 0xFFFD;
                        len = 1;
                        break;
                    }
                    c = (c << 6) | (cb & 0x3F);
                }
            }
        }
        if (c >= 0x10000 && c <= 0x10FFFF) {
            c -= 0x10000;
            out += static_cast<char16_t>(0xD800 + (c >> 10));
            out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
        } else {
            out += static_cast<char16_t>(c);
        }
        i += len;
    }
    return out;
}

}  // namespace pal

namespace pal::detail {

size_t WideLength(const WCHAR* s)
{
    size_t n = 0;
    while (s[n])
        ++n;
    return n;
}

}  // namespace pal::detail
