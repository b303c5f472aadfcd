// The C runtime's wide-string functions on UTF-16 (char16_t) strings, with C semantics:
// comparisons stop at the first difference or terminator and return the difference of the two
// code units as unsigned values (negative, zero or positive); the case-insensitive variants fold
// ASCII letters to lower case first, as the "C" locale does. Searching for 0 finds the
// terminator.
#include "pal/crt.h"

namespace {

inline int Unit(WCHAR c)
{
    return static_cast<int>(static_cast<uint16_t>(c));
}

inline int LowerAscii(WCHAR c)
{
    int u = Unit(c);
    return (u >= 'A' && u <= 'Z') ? u + ('a' - 'A') : u;
}

} // namespace

size_t wcslen(const WCHAR* s)
{
    const WCHAR* p = s;
    while (*p)
        ++p;
    return static_cast<size_t>(p - s);
}

int wcscmp(const WCHAR* a, const WCHAR* b)
{
    for (;; ++a, ++b) {
        int d = Unit(*a) - Unit(*b);
        if (d != 0 || *a == 0)
            return d;
    }
}

int wcsncmp(const WCHAR* a, const WCHAR* b, size_t count)
{
    for (; count != 0; --count, ++a, ++b) {
        int d = Unit(*a) - Unit(*b);
        if (d != 0 || *a == 0)
            return d;
    }
    return 0;
}

int _wcsicmp(const WCHAR* a, const WCHAR* b)
{
    for (;; ++a, ++b) {
        int d = LowerAscii(*a) - LowerAscii(*b);
        if (d != 0 || *a == 0)
            return d;
    }
}

int _wcsnicmp(const WCHAR* a, const WCHAR* b, size_t count)
{
    for (; count != 0; --count, ++a, ++b) {
        int d = LowerAscii(*a) - LowerAscii(*b);
        if (d != 0 || *a == 0)
            return d;
    }
    return 0;
}

const WCHAR* wcschr(const WCHAR* s, WCHAR c)
{
    for (;; ++s) {
        if (*s == c)
            return s;
        if (*s == 0)
            return nullptr;
    }
}

WCHAR* wcschr(WCHAR* s, WCHAR c)
{
    return const_cast<WCHAR*>(wcschr(static_cast<const WCHAR*>(s), c));
}

const WCHAR* wcsrchr(const WCHAR* s, WCHAR c)
{
    const WCHAR* found = nullptr;
    for (;; ++s) {
        if (*s == c)
            found = s;
        if (*s == 0)
            return found;
    }
}

WCHAR* wcsrchr(WCHAR* s, WCHAR c)
{
    return const_cast<WCHAR*>(wcsrchr(static_cast<const WCHAR*>(s), c));
}
