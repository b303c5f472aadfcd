// kernel32's lstr* string helpers.
//
// lstrcmpW/lstrcmpA are CompareString with the user's locale: a linguistic "word sort", not a
// code-unit comparison. This platform approximates the Windows default sort table with a
// multi-level comparison; a level is consulted only when every earlier level found the strings
// equal:
//
//   1. Primary (alphabetic) level. The hyphen '-', the apostrophe '\'' and the ASCII control
//      characters other than the white space '\t'..'\r' are ignored here (word sort). The other
//      characters compare by class, then within the class:
//        - punctuation, symbols and white space: first the ASCII ones in the order of the
//          Windows table (kAsciiSymbols below: white space, then punctuation, then "+<=>"), then
//          the others (U+0080..U+00BF, U+00D7, U+00F7, U+2000..U+2BFF, U+3000..U+303F) by code
//          point;
//        - then digits '0'..'9' - character by character, not numerically, so "10" < "3";
//        - then the letters a..z, case-insensitively;
//        - then every other character, by its case-folded code point (Latin-1, Greek and
//          Cyrillic capitals fold to their small letters). Accented letters therefore sort
//          after z instead of beside their base letter, and no character is ignored entirely
//          (Windows ignores some, e.g. U+FFFD): the main departures from Windows, whose full
//          tables this does not carry.
//      The strings compare as sequences of these weights; a proper prefix sorts first.
//   2. Case level: the first character that differs only in case decides, the lowercase one
//      first ("a" < "A" < "b").
//   3. Word-sort level: the ignored characters decide, compared as lists of (position in the
//      string, character) in string order. A string without any sorts before one with some
//      ("coop" < "co-op"); where the lists agree until one ends, the shorter list sorts first
//      ("co-op" < "co-op-"); at the first differing entry the one at the LATER position sorts
//      first ("coop-" < "co-op" < "-coop"), and at the same position the control characters
//      sort first by code point, then the apostrophe, then the hyphen ("co'op" < "co-op").
//   4. Finally the code units themselves, so that 0 means identical strings.
//
// The result is -1, 0 or +1 (CompareString's CSTR_* minus 2). As on Windows a NULL string
// sorts before every other string, even the empty one, and two NULLs are equal.
// lstrcmpiW/lstrcmpiA compare the same way with both strings case-folded, so level 2 never
// decides. The A variants convert from CP_ACP (UTF-8 here; invalid bytes become U+FFFD).
#include "pal/errhandlingapi.h"
#include "pal/src/base/internal.h"
#include "pal/winbase.h"
#include "pal/winerror.h"

#include <cstring>

namespace {

constexpr bool IsIgnored(char16_t c)
{
    return c == u'-' || c == u'\'' || (c < 0x20 && (c < u'\t' || c > u'\r')) || c == 0x7F;
}

// The order of the ignored characters at the word-sort level.
constexpr uint32_t WordSortWeight(char16_t c)
{
    return c == u'\'' ? 0x80u : (c == u'-' ? 0x81u : c);
}

// The ASCII characters of the symbol class, in the order of the Windows sort table.
constexpr char kAsciiSymbols[] = " \t\n\v\f\r!\"#$%&()*,./:;?@[\\]^_`{|}~+<=>";
static_assert(sizeof(kAsciiSymbols) - 1 == 33 - 2 + 5, "every ASCII symbol but ' and -");

constexpr uint32_t AsciiSymbolRank(char16_t c)
{
    uint32_t rank = 0;
    while (kAsciiSymbols[rank] != c)
        ++rank;
    return rank;
}

// The simple lowercase mapping this sort uses.
constexpr char16_t Fold(char16_t c)
{
    if (c < 0x80)
        return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 0x20) : c;
    if ((c >= 0xC0 && c <= 0xDE && c != 0xD7) ||    // Latin-1 capitals
        (c >= 0x391 && c <= 0x3AB && c != 0x3A2) || // Greek capitals
        (c >= 0x410 && c <= 0x42F))                 // Cyrillic capitals
        return static_cast<char16_t>(c + 0x20);
    if (c >= 0x400 && c <= 0x40F) // Cyrillic capitals with diacritics
        return static_cast<char16_t>(c + 0x50);
    return c;
}

constexpr bool IsSymbol(char16_t c)
{
    if (c < 0x80)
        return !((c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z'));
    return c <= 0xBF || c == 0xD7 || c == 0xF7 || (c >= 0x2000 && c <= 0x2BFF) ||
           (c >= 0x3000 && c <= 0x303F);
}

// The primary weight of a folded, non-ignored code unit.
constexpr uint32_t Primary(char16_t c)
{
    if (c < 0x80 && IsSymbol(c))
        return 0x10000u | AsciiSymbolRank(c);
    if (IsSymbol(c))
        return 0x10000u | c;
    if (c >= u'0' && c <= u'9')
        return 0x20000u | c;
    if (c >= u'a' && c <= u'z')
        return 0x30000u | c;
    return 0x40000u | c;
}

constexpr int Sign(long long d)
{
    return d < 0 ? -1 : (d > 0 ? 1 : 0);
}

// Compares a[0..na) and b[0..nb) by the levels above; fIgnoreCase folds both strings first.
// Char is char16_t, or char for strings that are pure ASCII (whose UTF-16 form is the same
// code units), so that the A variants need not convert them.
template <typename Char>
int CompareWordSort(const Char* a, size_t na, const Char* b, size_t nb, bool fIgnoreCase)
{
    // Levels 1 and 2 in one pass over the non-ignored characters.
    int caseResult = 0;
    size_t i = 0;
    size_t j = 0;
    for (;;) {
        while (i < na && IsIgnored(a[i]))
            ++i;
        while (j < nb && IsIgnored(b[j]))
            ++j;
        if (i == na || j == nb) {
            if (i != na)
                return 1;
            if (j != nb)
                return -1;
            break;
        }
        char16_t fa = Fold(a[i]);
        char16_t fb = Fold(b[j]);
        if (fa != fb) {
            uint32_t pa = Primary(fa);
            uint32_t pb = Primary(fb);
            return pa < pb ? -1 : 1;
        }
        if (caseResult == 0 && !fIgnoreCase && a[i] != b[j]) {
            // Same letter in a different case: the lowercase one (equal to its fold) first.
            caseResult = (a[i] == fa) ? -1 : 1;
        }
        ++i;
        ++j;
    }
    if (caseResult != 0)
        return caseResult;

    // Level 3: the ignored characters, as (position, character) lists.
    i = 0;
    j = 0;
    for (;;) {
        while (i < na && !IsIgnored(a[i]))
            ++i;
        while (j < nb && !IsIgnored(b[j]))
            ++j;
        if (i == na || j == nb) {
            if (i != na)
                return 1;
            if (j != nb)
                return -1;
            break;
        }
        if (i != j)
            return i < j ? 1 : -1;
        if (a[i] != b[j])
            return WordSortWeight(a[i]) < WordSortWeight(b[j]) ? -1 : 1;
        ++i;
        ++j;
    }

    // Level 4: the code units.
    size_t n = na < nb ? na : nb;
    for (size_t k = 0; k < n; ++k) {
        char16_t ca = fIgnoreCase ? Fold(a[k]) : a[k];
        char16_t cb = fIgnoreCase ? Fold(b[k]) : b[k];
        if (ca != cb)
            return ca < cb ? -1 : 1;
    }
    return Sign(static_cast<long long>(na) - static_cast<long long>(nb));
}

int CompareW(LPCWSTR a, LPCWSTR b, bool fIgnoreCase)
{
    if (!a || !b)
        return (a ? 1 : 0) - (b ? 1 : 0);
    return CompareWordSort(a, pal::detail::WideLength(a), b, pal::detail::WideLength(b),
                           fIgnoreCase);
}

bool IsAscii(const char* psz, size_t cch)
{
    for (size_t i = 0; i < cch; ++i)
        if (static_cast<unsigned char>(psz[i]) >= 0x80)
            return false;
    return true;
}

int CompareA(LPCSTR a, LPCSTR b, bool fIgnoreCase)
{
    if (!a || !b)
        return (a ? 1 : 0) - (b ? 1 : 0);
    const size_t na = std::strlen(a);
    const size_t nb = std::strlen(b);
    if (IsAscii(a, na) && IsAscii(b, nb))
        return CompareWordSort(a, na, b, nb, fIgnoreCase);
    std::u16string wa = pal::detail::ToUtf16(a);
    std::u16string wb = pal::detail::ToUtf16(b);
    return CompareWordSort(wa.data(), wa.size(), wb.data(), wb.size(), fIgnoreCase);
}

} // namespace

int WINAPI lstrlenW(LPCWSTR lpString)
{
    return lpString ? static_cast<int>(pal::detail::WideLength(lpString)) : 0;
}

int WINAPI lstrlenA(LPCSTR lpString)
{
    return lpString ? static_cast<int>(std::strlen(lpString)) : 0;
}

int WINAPI lstrcmpW(LPCWSTR lpString1, LPCWSTR lpString2)
{
    return CompareW(lpString1, lpString2, false);
}

int WINAPI lstrcmpA(LPCSTR lpString1, LPCSTR lpString2)
{
    return CompareA(lpString1, lpString2, false);
}

int WINAPI lstrcmpiW(LPCWSTR lpString1, LPCWSTR lpString2)
{
    return CompareW(lpString1, lpString2, true);
}

int WINAPI lstrcmpiA(LPCSTR lpString1, LPCSTR lpString2)
{
    return CompareA(lpString1, lpString2, true);
}

// As on Windows: copies at most iMaxLength - 1 characters and always terminates when
// iMaxLength is non-zero; iMaxLength is taken as unsigned (a negative value does not limit the
// copy); with iMaxLength 0 nothing is written. A NULL pointer that would be used fails with
// ERROR_INVALID_PARAMETER and returns NULL, where Windows catches the access violation.
LPWSTR WINAPI lstrcpynW(LPWSTR lpString1, LPCWSTR lpString2, int iMaxLength)
{
    auto count = static_cast<unsigned int>(iMaxLength);
    if (count == 0)
        return lpString1;
    if (!lpString1 || !lpString2) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    LPWSTR d = lpString1;
    LPCWSTR s = lpString2;
    while (count > 1 && *s) {
        *d++ = *s++;
        --count;
    }
    *d = 0;
    return lpString1;
}
