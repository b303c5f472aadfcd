// MultiByteToWideChar and WideCharToMultiByte for the code pages of this platform: CP_UTF8, and
// CP_ACP and CP_OEMCP, which are both UTF-8 here.
//
// The Win32 contract kept here (stringapiset.h documentation, checked against Windows' tests):
// - A NULL source, a zero source length, a negative output size, a NULL output buffer with a
//   non-zero size, or the same buffer as source and output fail with ERROR_INVALID_PARAMETER.
//   Any negative source length means "null-terminated": the terminator is converted too and
//   counted in the result. An explicit length converts exactly that many units, embedded
//   nulls included, and adds no terminator.
// - An output size of 0 returns the size needed. Too small a buffer fails with
//   ERROR_INSUFFICIENT_BUFFER after filling it with the whole characters that fit.
// - CP_UTF8 accepts only the flags 0 and MB_ERR_INVALID_CHARS / WC_ERR_INVALID_CHARS, else
//   ERROR_INVALID_FLAGS; WideCharToMultiByte with CP_UTF8 requires lpDefaultChar and
//   lpUsedDefaultChar to be NULL, else ERROR_INVALID_PARAMETER.
// - CP_ACP and CP_OEMCP are validated as the ANSI/OEM code pages of Windows are: they accept
//   MB_PRECOMPOSED (or MB_COMPOSITE, not both), MB_USEGLYPHCHARS and MB_ERR_INVALID_CHARS, and
//   WC_COMPOSITECHECK, WC_DISCARDNS, WC_SEPCHARS, WC_DEFAULTCHAR and WC_NO_BEST_FIT_CHARS
//   together with a default character; WC_ERR_INVALID_CHARS is for UTF-8 only and fails with
//   ERROR_INVALID_FLAGS there. The conversion itself is UTF-8 (the composition flags have no
//   effect: input is taken as it is).
// - Any other code page fails with ERROR_INVALID_PARAMETER.
// - Invalid UTF-8 (stray continuation bytes, truncated or overlong sequences, encoded
//   surrogates, values above U+10FFFF, bytes C0, C1, F5..FF) fails with
//   ERROR_NO_UNICODE_TRANSLATION under MB_ERR_INVALID_CHARS; without it each maximal invalid
//   subpart becomes one U+FFFD, as Windows (Vista and later) does. An unpaired UTF-16
//   surrogate likewise fails under WC_ERR_INVALID_CHARS, else becomes U+FFFD (EF BF BD); for
//   CP_ACP/CP_OEMCP it becomes *lpDefaultChar when given, and sets *lpUsedDefaultChar.
// - The last error is left unchanged on success.
#include "pal/errhandlingapi.h"
#include "pal/src/base/internal.h"
#include "pal/src/text/utf.h"
#include "pal/stringapiset.h"
#include "pal/winerror.h"

#include <cstring>

namespace {

// Flags of Windows that this header does not define.
constexpr DWORD kMbComposite = 0x00000002;
constexpr DWORD kMbUseGlyphChars = 0x00000004;
constexpr DWORD kWcDiscardNs = 0x00000010;
constexpr DWORD kWcSepChars = 0x00000020;
constexpr DWORD kWcDefaultChar = 0x00000040;
constexpr DWORD kWcCompositeCheck = 0x00000200;

using pal::detail::DecodeUtf16;
using pal::detail::DecodeUtf8;
using pal::detail::EncodeUtf8;
constexpr char32_t kInvalid = pal::detail::UTF_INVALID;
constexpr char32_t kReplacement = pal::detail::UTF_REPLACEMENT;

enum class PageKind
{
    Utf8, // CP_UTF8: strict flag and parameter rules
    Ansi, // CP_ACP, CP_OEMCP: UTF-8 with the rules of a legacy code page
    Unsupported,
};

PageKind Classify(UINT codePage)
{
    switch (codePage) {
    case CP_UTF8:
        return PageKind::Utf8;
    case CP_ACP:
    case CP_OEMCP:
        return PageKind::Ansi;
    default:
        return PageKind::Unsupported;
    }
}

int Fail(DWORD dwError)
{
    SetLastError(dwError);
    return 0;
}

} // namespace

int WINAPI MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCCH lpMultiByteStr, int cbMultiByte,
                               LPWSTR lpWideCharStr, int cchWideChar)
{
    if (pal::detail::FailIfInjected("MultiByteToWideChar"))
        return 0;
    if (!lpMultiByteStr || cbMultiByte == 0 || cchWideChar < 0 ||
        (!lpWideCharStr && cchWideChar != 0) ||
        (lpWideCharStr &&
         static_cast<const void*>(lpMultiByteStr) == static_cast<const void*>(lpWideCharStr)))
        return Fail(ERROR_INVALID_PARAMETER);

    switch (Classify(CodePage)) {
    case PageKind::Utf8:
        if (dwFlags & ~static_cast<DWORD>(MB_ERR_INVALID_CHARS))
            return Fail(ERROR_INVALID_FLAGS);
        break;
    case PageKind::Ansi:
        if ((dwFlags & ~static_cast<DWORD>(MB_PRECOMPOSED | kMbComposite | kMbUseGlyphChars |
                                           MB_ERR_INVALID_CHARS)) ||
            ((dwFlags & MB_PRECOMPOSED) && (dwFlags & kMbComposite)))
            return Fail(ERROR_INVALID_FLAGS);
        break;
    case PageKind::Unsupported:
        return Fail(ERROR_INVALID_PARAMETER);
    }

    const auto* src = reinterpret_cast<const unsigned char*>(lpMultiByteStr);
    size_t cbSrc =
        cbMultiByte < 0 ? std::strlen(lpMultiByteStr) + 1 : static_cast<size_t>(cbMultiByte);
    const bool fStrict = (dwFlags & MB_ERR_INVALID_CHARS) != 0;
    const size_t cchOut = static_cast<size_t>(cchWideChar);

    size_t cchNeeded = 0;
    bool fOverflow = false;
    for (size_t i = 0; i < cbSrc;) {
        char32_t cp;
        i += DecodeUtf8(src + i, cbSrc - i, &cp);
        if (cp == kInvalid) {
            if (fStrict)
                return Fail(ERROR_NO_UNICODE_TRANSLATION);
            cp = kReplacement;
        }
        size_t units = cp >= 0x10000 ? 2 : 1;
        if (cchOut != 0 && !fOverflow) {
            if (cchNeeded + units > cchOut) {
                // Keep scanning only to report invalid input before the buffer error.
                fOverflow = true;
                if (!fStrict)
                    break;
            } else if (units == 1) {
                lpWideCharStr[cchNeeded] = static_cast<WCHAR>(cp);
            } else {
                cp -= 0x10000;
                lpWideCharStr[cchNeeded] = static_cast<WCHAR>(0xD800 + (cp >> 10));
                lpWideCharStr[cchNeeded + 1] = static_cast<WCHAR>(0xDC00 + (cp & 0x3FF));
            }
        }
        cchNeeded += units;
    }
    if (fOverflow)
        return Fail(ERROR_INSUFFICIENT_BUFFER);
    return static_cast<int>(cchNeeded);
}

int WINAPI WideCharToMultiByte(UINT CodePage, DWORD dwFlags, LPCWCH lpWideCharStr, int cchWideChar,
                               LPSTR lpMultiByteStr, int cbMultiByte, LPCCH lpDefaultChar,
                               LPBOOL lpUsedDefaultChar)
{
    if (pal::detail::FailIfInjected("WideCharToMultiByte"))
        return 0;
    if (!lpWideCharStr || cchWideChar == 0 || cbMultiByte < 0 ||
        (!lpMultiByteStr && cbMultiByte != 0) ||
        (lpMultiByteStr &&
         static_cast<const void*>(lpWideCharStr) == static_cast<const void*>(lpMultiByteStr)))
        return Fail(ERROR_INVALID_PARAMETER);

    const PageKind kind = Classify(CodePage);
    switch (kind) {
    case PageKind::Utf8:
        if (lpDefaultChar || lpUsedDefaultChar)
            return Fail(ERROR_INVALID_PARAMETER);
        if (dwFlags & ~static_cast<DWORD>(WC_ERR_INVALID_CHARS))
            return Fail(ERROR_INVALID_FLAGS);
        break;
    case PageKind::Ansi:
        if (dwFlags & ~static_cast<DWORD>(kWcCompositeCheck | kWcDiscardNs | kWcSepChars |
                                          kWcDefaultChar | WC_NO_BEST_FIT_CHARS))
            return Fail(ERROR_INVALID_FLAGS);
        break;
    case PageKind::Unsupported:
        return Fail(ERROR_INVALID_PARAMETER);
    }

    size_t cchSrc = cchWideChar < 0 ? pal::detail::WideLength(lpWideCharStr) + 1
                                    : static_cast<size_t>(cchWideChar);
    const bool fStrict = (dwFlags & WC_ERR_INVALID_CHARS) != 0;
    const size_t cbOut = static_cast<size_t>(cbMultiByte);

    // The replacement of an unpaired surrogate.
    char replacement[4];
    size_t cbReplacement = EncodeUtf8(kReplacement, replacement);
    if (kind == PageKind::Ansi && lpDefaultChar) {
        replacement[0] = *lpDefaultChar;
        cbReplacement = 1;
    }

    size_t cbNeeded = 0;
    bool fOverflow = false;
    bool fUsedDefault = false;
    for (size_t i = 0; i < cchSrc;) {
        char32_t cp;
        i += DecodeUtf16(lpWideCharStr + i, cchSrc - i, &cp);
        char bytes[4];
        size_t cb;
        if (cp == kInvalid) {
            if (fStrict)
                return Fail(ERROR_NO_UNICODE_TRANSLATION);
            fUsedDefault = true;
            std::memcpy(bytes, replacement, cbReplacement);
            cb = cbReplacement;
        } else {
            cb = EncodeUtf8(cp, bytes);
        }
        if (cbOut != 0 && !fOverflow) {
            if (cbNeeded + cb > cbOut) {
                fOverflow = true;
                if (!fStrict)
                    break;
            } else {
                std::memcpy(lpMultiByteStr + cbNeeded, bytes, cb);
            }
        }
        cbNeeded += cb;
    }
    if (fOverflow)
        return Fail(ERROR_INSUFFICIENT_BUFFER);
    if (lpUsedDefaultChar)
        *lpUsedDefaultChar = fUsedDefault ? TRUE : FALSE;
    return static_cast<int>(cbNeeded);
}
