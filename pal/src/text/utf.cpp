// UTF-8 and UTF-16 coding shared by the code page functions, the formatter and the layer's own
// text conversions.
#include "pal/src/text/utf.h"

namespace pal::detail {

// Decodes one UTF-8 character of s[0..n) (n >= 1). Returns the bytes consumed and sets *pcp to
// the scalar value, or to UTF_INVALID for a maximal invalid subpart (at least one byte).
size_t DecodeUtf8(const unsigned char* s, size_t n, char32_t* pcp)
{
    unsigned char b = s[0];
    if (b < 0x80) {
        *pcp = b;
        return 1;
    }
    size_t len;
    char32_t cp;
    unsigned char lo = 0x80;
    unsigned char hi = 0xBF;
    if (b >= 0xC2 && b <= 0xDF) {
        len = 2;
        cp = b & 0x1F;
    } else if (b >= 0xE0 && b <= 0xEF) {
        len = 3;
        cp = b & 0x0F;
        if (b == 0xE0)
            lo = 0xA0; // overlong
        else if (b == 0xED)
            hi = 0x9F; // surrogates
    } else if (b >= 0xF0 && b <= 0xF4) {
        len = 4;
        cp = b & 0x07;
        if (b == 0xF0)
            lo = 0x90; // overlong
        else if (b == 0xF4)
            hi = 0x8F; // above U+10FFFF
    } else {
        *pcp = UTF_INVALID;
        return 1;
    }
    for (size_t i = 1; i < len; ++i) {
        if (i >= n) {
            *pcp = UTF_INVALID;
            return i;
        }
        unsigned char c = s[i];
        if (c < lo || c > hi) {
            *pcp = UTF_INVALID;
            return i;
        }
        lo = 0x80;
        hi = 0xBF;
        cp = (cp << 6) | (c & 0x3F);
    }
    *pcp = cp;
    return len;
}

// Decodes one UTF-16 character of s[0..n) (n >= 1). Returns the units consumed and sets *pcp,
// or UTF_INVALID for an unpaired surrogate.
size_t DecodeUtf16(const char16_t* s, size_t n, char32_t* pcp)
{
    char32_t c = s[0];
    if (c < 0xD800 || c > 0xDFFF) {
        *pcp = c;
        return 1;
    }
    if (c <= 0xDBFF && n >= 2 && s[1] >= 0xDC00 && s[1] <= 0xDFFF) {
        *pcp = 0x10000 + ((c - 0xD800) << 10) + (s[1] - 0xDC00);
        return 2;
    }
    *pcp = UTF_INVALID;
    return 1;
}

size_t EncodeUtf8(char32_t cp, char* out)
{
    if (cp < 0x80) {
        out[0] = static_cast<char>(cp);
        return 1;
    }
    if (cp < 0x800) {
        out[0] = static_cast<char>(0xC0 | (cp >> 6));
        out[1] = static_cast<char>(0x80 | (cp & 0x3F));
        return 2;
    }
    if (cp < 0x10000) {
        out[0] = static_cast<char>(0xE0 | (cp >> 12));
        out[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out[2] = static_cast<char>(0x80 | (cp & 0x3F));
        return 3;
    }
    out[0] = static_cast<char>(0xF0 | (cp >> 18));
    out[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out[3] = static_cast<char>(0x80 | (cp & 0x3F));
    return 4;
}

size_t EncodeUtf16(char32_t cp, char16_t* out)
{
    if (cp < 0x10000) {
        out[0] = static_cast<char16_t>(cp);
        return 1;
    }
    cp -= 0x10000;
    out[0] = static_cast<char16_t>(0xD800 + (cp >> 10));
    out[1] = static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
    return 2;
}

} // namespace pal::detail
