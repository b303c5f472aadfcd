// UTF-8 and UTF-16 coding of single characters.
#pragma once

#include <cstddef>

namespace pal::detail {

// The value a decoder gives for invalid input.
constexpr char32_t UTF_INVALID = 0xFFFFFFFF;
constexpr char32_t UTF_REPLACEMENT = 0xFFFD;

// Decodes one character of s[0..n) (n >= 1). Returns the units consumed (at least one) and sets
// *pcp to the scalar value, or to UTF_INVALID for a maximal invalid subpart (UTF-8) or an
// unpaired surrogate (UTF-16).
size_t DecodeUtf8(const unsigned char* s, size_t n, char32_t* pcp);
size_t DecodeUtf16(const char16_t* s, size_t n, char32_t* pcp);
// Encodes a scalar value; `out` has room for 4 bytes or 2 units. Returns the units written.
size_t EncodeUtf8(char32_t cp, char* out);
size_t EncodeUtf16(char32_t cp, char16_t* out);

} // namespace pal::detail
