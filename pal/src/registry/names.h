// Key and value names: case folding, subkey paths and the canonical full key path.
//
// The canonical full path of a key is the root's abbreviation followed by the key's path as the
// caller spelt it, components joined by single backslashes: u"HKLM\\Software\\Orvane". Keys
// under HKEY_CLASSES_ROOT have their real place, u"HKLM\\Software\\Classes\\...". Fault rules
// and change notifications match paths case-insensitively.
#pragma once

#include "pal/windef.h"

#include <string>
#include <string_view>
#include <vector>

namespace pal::detail::registry {

constexpr size_t kMaxKeyNameChars = 255;
constexpr size_t kMaxValueNameChars = 16383;

// Upper-cases for comparison: ASCII, Latin-1, Greek and Cyrillic letters. Names that differ
// only in case elsewhere in Unicode stay distinct.
WCHAR FoldChar(WCHAR c);
std::u16string FoldName(std::u16string_view name);

// Splits lpSubKey into components. A null or empty path has none; one trailing backslash is
// allowed. ERROR_BAD_PATHNAME for a leading backslash or an empty component,
// ERROR_INVALID_PARAMETER for a component longer than 255 characters.
LONG SplitSubKey(const WCHAR* lpSubKey, std::vector<std::u16string_view>* pParts);

// `base` + "\" + each part.
std::u16string JoinPath(std::u16string_view base, const std::vector<std::u16string_view>& parts);
std::u16string JoinPath(std::u16string_view base, std::u16string_view name);

// A value name from the API: null is the default value (empty).
inline std::u16string_view ValueName(const WCHAR* lpValueName)
{
    return lpValueName ? std::u16string_view(lpValueName) : std::u16string_view();
}

// The folded path in UTF-8, the form the change log stores.
std::string FoldedPathUtf8(std::u16string_view path);

} // namespace pal::detail::registry
