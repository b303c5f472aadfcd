// Message rendering in FormatMessageW's manner; see res/msgrender.h.
#include "res/msgrender.h"

namespace {

bool IsDigit(char16_t c)
{
    return c >= u'0' && c <= u'9';
}

} // namespace

std::u16string RenderMessage(std::u16string_view text, const std::vector<std::u16string>& strings)
{
    std::u16string out;
    out.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        char16_t c = text[i];
        if (c != u'%') {
            out.push_back(c);
            ++i;
            continue;
        }
        if (i + 1 >= text.size()) {
            // A lone % at the very end has nothing to escape.
            out.push_back(c);
            break;
        }
        char16_t next = text[i + 1];
        if (next == u'0')
            break;
        if (IsDigit(next)) {
            size_t start = i;
            size_t n = static_cast<size_t>(next - u'0');
            i += 2;
            if (i < text.size() && IsDigit(text[i])) {
                n = n * 10 + static_cast<size_t>(text[i] - u'0');
                ++i;
            }
            if (i < text.size() && text[i] == u'!') {
                size_t close = text.find(u'!', i + 1);
                if (close != std::u16string_view::npos)
                    i = close + 1;
            }
            if (n <= strings.size())
                out += strings[n - 1];
            else
                out += text.substr(start, i - start);
            continue;
        }
        switch (next) {
        case u'n':
            out += u"\r\n";
            break;
        case u'r':
            out.push_back(u'\r');
            break;
        case u't':
            out.push_back(u'\t');
            break;
        default:
            out.push_back(next);
            break;
        }
        i += 2;
    }
    return out;
}
