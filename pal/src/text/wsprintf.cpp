// user32's wsprintf family.
//
// A conversion directive has the documented form %[-][#][0][width][.precision][size]type, its
// flags in that order. Conventions (from the Windows documentation, and the behaviour that
// Wine's conformance tests record on Windows):
// - type c/C: a character, s/S: a string. In the W variants c and s are wide (WCHAR) and C and
//   S narrow; in the A variants the reverse. The size prefix 'h' forces narrow, 'l' and 'w'
//   force wide (%hs, %ls, %ws, %hc, %lc, %wc, ...). Narrow text is in CP_ACP (UTF-8 here) and
//   is converted to the output's encoding. A NULL string prints "(null)"; a character of value
//   0 prints nothing at all.
// - type d/i (signed), u (unsigned), x/X (hexadecimal, lower/upper case): 32-bit by default
//   and with 'l' (LONG and ULONG are 32-bit); 'h' takes the low 16 bits (a short); 'I64' reads
//   a 64-bit value, 'I' alone a pointer-sized (64-bit) one, 'I32' a 32-bit one.
// - type p: the pointer in upper-case hexadecimal, zero-padded to 16 digits (its width is
//   always 16).
// - '-' justifies left (and cancels '0'); '0' pads numbers with zeros to the width, after
//   the sign and the prefix (strings and characters are always padded with blanks); '#'
//   prefixes hexadecimal values with 0x or 0X, also for zero. The width counts every
//   character of the field, sign and prefix included, and never truncates.
// - Precision: for numbers the minimum number of digits (0, or a period without a number,
//   means 1, so zero always prints "0"); for strings the maximum number of output
//   characters - units of the output, so in wsprintfA a multi-byte character can be cut, as
//   Windows does; 0 means no limit.
// - "%%" prints '%'. A '%' followed by a character that is no type prints that character
//   unformatted: the flags, width, precision and size read before it are dropped and no
//   argument is consumed ("%y" gives "y", "%5ly" gives "y", "%lld" gives "ld", "%-%" gives
//   "%"). A '%' ending the format prints nothing. There are no floating-point types.
// - The output stops at 1024 characters (bytes in wsprintfA, WCHARs in wsprintfW) and is
//   always terminated, so the buffer must hold 1025; the result is the number of characters
//   stored, without the terminator.
// Windows leaves the behaviour of a NULL output buffer or format undefined (it faults); here a
// NULL output buffer writes nothing and a NULL format prints nothing, both returning 0.
#include "pal/src/base/internal.h"
#include "pal/src/text/utf.h"
#include "pal/winuser.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace {

constexpr size_t kMaxOutput = 1024;

constexpr unsigned kLeft = 0x01;
constexpr unsigned kPrefixHex = 0x02;
constexpr unsigned kZeroPad = 0x04;
constexpr unsigned kLong = 0x08;
constexpr unsigned kShort = 0x10;
constexpr unsigned kWide = 0x20;
constexpr unsigned kIntPtr = 0x40;
constexpr unsigned kI64 = 0x80;
constexpr unsigned kUpper = 0x100;

// Saturating, so that absurd widths cannot overflow; the output is bounded anyway.
constexpr unsigned kMaxField = 1u << 20;

// ---- Conversions of one character ----

// Decodes one UTF-8 character from a NUL-terminated string, reading no byte past the first one
// that does not continue the sequence (a sequence is at most 4 bytes). Invalid input gives
// U+FFFD for its maximal subpart.
char32_t NextUtf8(const unsigned char*& s)
{
    size_t n = 1;
    while (n < 4 && s[n] != 0)
        ++n;
    char32_t cp;
    s += pal::detail::DecodeUtf8(s, n, &cp);
    return cp == pal::detail::UTF_INVALID ? pal::detail::UTF_REPLACEMENT : cp;
}

// Decodes one UTF-16 character of a NUL-terminated string; an unpaired surrogate gives U+FFFD.
char32_t NextUtf16(const char16_t*& s)
{
    char32_t cp;
    s += pal::detail::DecodeUtf16(s, s[0] != 0 && s[1] != 0 ? 2 : 1, &cp);
    return cp == pal::detail::UTF_INVALID ? pal::detail::UTF_REPLACEMENT : cp;
}

size_t Encode(char32_t cp, char* out)
{
    return pal::detail::EncodeUtf8(cp, out);
}
size_t Encode(char32_t cp, char16_t* out)
{
    return pal::detail::EncodeUtf16(cp, out);
}

// ---- Field bodies ----

// A converted field before padding, at most kMaxOutput units (more could never be stored).
template <typename Ch>
struct Body
{
    std::array<Ch, kMaxOutput> units;
    size_t size = 0;
};

// Appends the units of a string of type Src to a body of type Ch, at most `limit` units,
// converting between UTF-8 and UTF-16 as needed. A character whose encoding does not fit the
// limit is cut.
template <typename Ch, typename Src>
void AppendString(Body<Ch>& body, const Src* s, size_t limit)
{
    if (limit > kMaxOutput)
        limit = kMaxOutput;
    if constexpr (std::is_same_v<Ch, Src>) {
        while (body.size < limit && *s)
            body.units[body.size++] = *s++;
    } else {
        Ch encoded[4];
        while (body.size < limit && *s) {
            if (static_cast<std::make_unsigned_t<Src>>(*s) < 0x80) { // ASCII: the same unit
                body.units[body.size++] = static_cast<Ch>(*s++);
                continue;
            }
            char32_t cp;
            if constexpr (std::is_same_v<Src, char>) {
                const auto* p = reinterpret_cast<const unsigned char*>(s);
                cp = NextUtf8(p);
                s = reinterpret_cast<const char*>(p);
            } else {
                cp = NextUtf16(s);
            }
            size_t n = Encode(cp, encoded);
            for (size_t k = 0; k < n && body.size < limit; ++k)
                body.units[body.size++] = encoded[k];
        }
    }
}

// Appends one character (the promoted varargs value) given as a narrow or a wide character.
template <typename Ch>
void AppendChar(Body<Ch>& body, unsigned value, bool fWideArg)
{
    if (fWideArg) {
        const char16_t s[2] = {static_cast<char16_t>(value), 0};
        AppendString(body, s, kMaxOutput);
    } else {
        const char s[2] = {static_cast<char>(value), 0};
        AppendString(body, s, kMaxOutput);
    }
}

// ---- Output ----

template <typename Ch>
class Output
{
public:
    explicit Output(Ch* out) : m_out(out) {}

    void Put(Ch c)
    {
        if (m_size < kMaxOutput)
            m_out[m_size++] = c;
    }
    void Fill(Ch c, size_t count)
    {
        size_t room = kMaxOutput - m_size;
        if (count > room)
            count = room;
        for (size_t k = 0; k < count; ++k)
            m_out[m_size++] = c;
    }
    void Write(const Ch* s, size_t count)
    {
        size_t room = kMaxOutput - m_size;
        if (count > room)
            count = room;
        std::memcpy(m_out + m_size, s, count * sizeof(Ch));
        m_size += count;
    }
    bool Full() const { return m_size >= kMaxOutput; }
    int Finish()
    {
        m_out[m_size] = 0;
        return static_cast<int>(m_size);
    }

private:
    Ch* m_out;
    size_t m_size = 0;
};

template <typename Ch>
void EmitPadded(Output<Ch>& out, const Ch* units, size_t size, unsigned flags, unsigned width)
{
    size_t pad = width > size ? width - size : 0;
    if (!(flags & kLeft))
        out.Fill(Ch(' '), pad);
    out.Write(units, size);
    if (flags & kLeft)
        out.Fill(Ch(' '), pad);
}

enum class Kind
{
    Unknown,
    NarrowChar,
    WideChar,
    NarrowString,
    WideString,
    Signed,
    Unsigned,
    Hex,
};

template <typename Ch>
void EmitNumber(Output<Ch>& out, Kind kind, unsigned long long magnitude, bool fNegative,
                unsigned flags, unsigned width, unsigned precision)
{
    // Digits, least significant first.
    char digits[24];
    size_t ndigits = 0;
    const unsigned base = kind == Kind::Hex ? 16 : 10;
    const char* alphabet = (flags & kUpper) ? "0123456789ABCDEF" : "0123456789abcdef";
    do {
        digits[ndigits++] = alphabet[magnitude % base];
        magnitude /= base;
    } while (magnitude != 0);

    Ch head[3];
    size_t nhead = 0;
    if (fNegative)
        head[nhead++] = Ch('-');
    if (kind == Kind::Hex && (flags & kPrefixHex)) {
        head[nhead++] = Ch('0');
        head[nhead++] = Ch((flags & kUpper) ? 'X' : 'x');
    }
    size_t minDigits = precision == 0 ? 1 : precision;
    size_t zeros = minDigits > ndigits ? minDigits - ndigits : 0;
    size_t size = nhead + zeros + ndigits;
    if ((flags & kZeroPad) && width > size) {
        zeros += width - size;
        size = width;
    }
    size_t pad = width > size ? width - size : 0;
    if (!(flags & kLeft))
        out.Fill(Ch(' '), pad);
    out.Write(head, nhead);
    out.Fill(Ch('0'), zeros);
    while (ndigits != 0 && !out.Full())
        out.Put(Ch(digits[--ndigits]));
    if (flags & kLeft)
        out.Fill(Ch(' '), pad);
}

template <typename Ch>
bool IsDigit(Ch c)
{
    return c >= Ch('0') && c <= Ch('9');
}

template <typename Ch>
unsigned ParseNumber(const Ch*& p)
{
    unsigned value = 0;
    while (IsDigit(*p)) {
        value = value * 10 + static_cast<unsigned>(*p - Ch('0'));
        if (value > kMaxField)
            value = kMaxField;
        ++p;
    }
    return value;
}

// The formatter of both variants; Ch is the type of the format and of the output. Reads the
// arguments from `args` only here, as a va_list must be used by one function.
template <typename Ch>
int Format(Ch* lpOut, const Ch* lpFmt, va_list args)
{
    constexpr bool kWideOutput = std::is_same_v<Ch, char16_t>;
    if (!lpOut)
        return 0;
    Output<Ch> out(lpOut);
    if (!lpFmt)
        return out.Finish();

    Body<Ch> body;
    const Ch* p = lpFmt;
    while (*p && !out.Full()) {
        if (*p != Ch('%')) {
            out.Put(*p++);
            continue;
        }
        ++p;
        if (*p == Ch('%')) {
            out.Put(*p++);
            continue;
        }

        unsigned flags = 0;
        unsigned width = 0;
        unsigned precision = 0;
        if (*p == Ch('-')) {
            flags |= kLeft;
            ++p;
        }
        if (*p == Ch('#')) {
            flags |= kPrefixHex;
            ++p;
        }
        if (*p == Ch('0')) {
            flags |= kZeroPad;
            ++p;
        }
        width = ParseNumber(p);
        if (*p == Ch('.')) {
            ++p;
            precision = ParseNumber(p);
        }
        if (*p == Ch('l')) {
            flags |= kLong;
            ++p;
        } else if (*p == Ch('h')) {
            flags |= kShort;
            ++p;
        } else if (*p == Ch('w')) {
            flags |= kWide;
            ++p;
        } else if (*p == Ch('I')) {
            if (p[1] == Ch('6') && p[2] == Ch('4')) {
                flags |= kI64;
                p += 3;
            } else if (p[1] == Ch('3') && p[2] == Ch('2')) {
                p += 3;
            } else {
                flags |= kIntPtr;
                ++p;
            }
        }

        // 'h' asks for narrow text and 'l' or 'w' for wide; else the type's case and the
        // variant decide.
        const bool fForceNarrow = (flags & kShort) != 0;
        const bool fForceWide = (flags & (kLong | kWide)) != 0;
        Kind kind = Kind::Unknown;
        switch (*p) {
        case Ch('c'):
        case Ch('C'): {
            bool fWide = fForceWide || (!fForceNarrow && ((*p == Ch('c')) == kWideOutput));
            kind = fWide ? Kind::WideChar : Kind::NarrowChar;
            break;
        }
        case Ch('s'):
        case Ch('S'): {
            bool fWide = fForceWide || (!fForceNarrow && ((*p == Ch('s')) == kWideOutput));
            kind = fWide ? Kind::WideString : Kind::NarrowString;
            break;
        }
        case Ch('d'):
        case Ch('i'):
            kind = Kind::Signed;
            break;
        case Ch('u'):
            kind = Kind::Unsigned;
            break;
        case Ch('p'):
            width = 2 * sizeof(void*);
            flags |= kZeroPad | kIntPtr | kUpper;
            kind = Kind::Hex;
            break;
        case Ch('X'):
            flags |= kUpper;
            kind = Kind::Hex;
            break;
        case Ch('x'):
            kind = Kind::Hex;
            break;
        default:
            // Not a type: the character is printed as it is and no argument is consumed; a
            // terminator ends the format.
            if (*p)
                out.Put(*p++);
            continue;
        }
        const bool fPointer = *p == Ch('p');
        ++p;
        if (flags & kLeft)
            flags &= ~kZeroPad;

        switch (kind) {
        case Kind::NarrowChar:
        case Kind::WideChar: {
            unsigned value = static_cast<unsigned>(va_arg(args, int));
            value &= kind == Kind::WideChar ? 0xFFFFu : 0xFFu;
            if (value == 0)
                break;
            body.size = 0;
            AppendChar(body, value, kind == Kind::WideChar);
            EmitPadded(out, body.units.data(), body.size, flags, width);
            break;
        }
        case Kind::NarrowString:
        case Kind::WideString: {
            body.size = 0;
            size_t limit = precision == 0 ? kMaxOutput : precision;
            if (kind == Kind::WideString) {
                const char16_t* s = va_arg(args, const char16_t*);
                AppendString(body, s ? s : u"(null)", limit);
            } else {
                const char* s = va_arg(args, const char*);
                AppendString(body, s ? s : "(null)", limit);
            }
            EmitPadded(out, body.units.data(), body.size, flags, width);
            break;
        }
        case Kind::Signed:
        case Kind::Unsigned:
        case Kind::Hex: {
            unsigned long long magnitude;
            bool fNegative = false;
            if (fPointer) {
                magnitude = reinterpret_cast<uintptr_t>(va_arg(args, void*));
            } else if (flags & (kI64 | kIntPtr)) {
                auto v = static_cast<unsigned long long>(va_arg(args, long long));
                if (kind == Kind::Signed && static_cast<long long>(v) < 0) {
                    fNegative = true;
                    v = 0 - v;
                }
                magnitude = v;
            } else {
                auto v = static_cast<unsigned>(va_arg(args, int));
                if (flags & kShort)
                    v = kind == Kind::Signed
                            ? static_cast<unsigned>(static_cast<int>(static_cast<int16_t>(v)))
                            : (v & 0xFFFFu);
                if (kind == Kind::Signed && static_cast<int>(v) < 0) {
                    fNegative = true;
                    v = 0 - v;
                }
                magnitude = v;
            }
            EmitNumber(out, kind, magnitude, fNegative, flags, width, precision);
            break;
        }
        case Kind::Unknown:
            break;
        }
    }
    return out.Finish();
}

} // namespace

int WINAPI wvsprintfW(LPWSTR lpOut, LPCWSTR lpFmt, va_list arglist)
{
    va_list args;
    va_copy(args, arglist);
    int n = Format<char16_t>(lpOut, lpFmt, args);
    va_end(args);
    return n;
}

int WINAPI wvsprintfA(LPSTR lpOut, LPCSTR lpFmt, va_list arglist)
{
    va_list args;
    va_copy(args, arglist);
    int n = Format<char>(lpOut, lpFmt, args);
    va_end(args);
    return n;
}

int wsprintfW(LPWSTR lpOut, LPCWSTR lpFmt, ...)
{
    va_list args;
    va_start(args, lpFmt);
    int n = Format<char16_t>(lpOut, lpFmt, args);
    va_end(args);
    return n;
}

int wsprintfA(LPSTR lpOut, LPCSTR lpFmt, ...)
{
    va_list args;
    va_start(args, lpFmt);
    int n = Format<char>(lpOut, lpFmt, args);
    va_end(args);
    return n;
}
