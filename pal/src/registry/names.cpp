// Case folding and path handling for registry names.
#include "pal/src/registry/names.h"

#include "pal/src/base/internal.h"
#include "pal/winerror.h"

namespace pal::detail::registry {

WCHAR FoldChar(WCHAR c)
{
    if (c < 0x80)
        return (c >= u'a' && c <= u'z') ? WCHAR(c - 0x20) : c;
    if (c >= 0xE0 && c <= 0xFE && c != 0xF7)
        return WCHAR(c - 0x20); // Latin-1 small letters
    if (c == 0xFF)
        return 0x178;
    if (c >= 0x3B1 && c <= 0x3C9 && c != 0x3C2)
        return WCHAR(c - 0x20); // Greek
    if (c >= 0x430 && c <= 0x44F)
        return WCHAR(c - 0x20); // Cyrillic
    if (c >= 0x450 && c <= 0x45F)
        return WCHAR(c - 0x50);
    return c;
}

std::u16string FoldName(std::u16string_view name)
{
    std::u16string folded(name);
    for (auto& c : folded)
        c = FoldChar(c);
    return folded;
}

LONG SplitSubKey(const WCHAR* lpSubKey, std::vector<std::u16string_view>* pParts)
{
    pParts->clear();
    if (!lpSubKey || !*lpSubKey)
        return ERROR_SUCCESS;
    std::u16string_view path(lpSubKey);
    if (path.front() == u'\\')
        return ERROR_BAD_PATHNAME;
    if (path.back() == u'\\')
        path.remove_suffix(1);
    size_t start = 0;
    for (;;) {
        size_t end = path.find(u'\\', start);
        std::u16string_view part =
            path.substr(start, end == std::u16string_view::npos ? end : end - start);
        if (part.empty())
            return ERROR_BAD_PATHNAME;
        if (part.size() > kMaxKeyNameChars)
            return ERROR_INVALID_PARAMETER;
        pParts->push_back(part);
        if (end == std::u16string_view::npos)
            return ERROR_SUCCESS;
        start = end + 1;
    }
}

std::u16string JoinPath(std::u16string_view base, const std::vector<std::u16string_view>& parts)
{
    std::u16string path(base);
    for (auto part : parts) {
        path += u'\\';
        path += part;
    }
    return path;
}

std::u16string JoinPath(std::u16string_view base, std::u16string_view name)
{
    std::u16string path(base);
    path += u'\\';
    path += name;
    return path;
}

std::string FoldedPathUtf8(std::u16string_view path)
{
    return ToUtf8(FoldName(path));
}

} // namespace pal::detail::registry
