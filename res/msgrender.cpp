// Message rendering in FormatMessageW's manner; see res/msgrender.h.
#include "res/msgrender.h"

namespace {

bool IsDigit(WCHAR c)
{
    return c >= W('0') && c <= W('9');
}

} // namespace

std::basic_string<WCHAR> RenderMessage(std::basic_string_view<WCHAR> text,
                                       const std::vector<std::basic_string<WCHAR>>& strings)
{
    std::basic_string<WCHAR> out;
    out.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        WCHAR c = text[i];
        if (c != W('%')) {
            out.push_back(c);
            ++i;
            continue;
        }
        if (i + 1 >= text.size()) {
            // A lone % at the very end has nothing to escape.
            out.push_back(c);
            break;
        }
        WCHAR next = text[i + 1];
        if (next == W('0'))
            break;
        if (IsDigit(next)) {
            size_t start = i;
            size_t n = static_cast<size_t>(next - W('0'));
            i += 2;
            if (i < text.size() && IsDigit(text[i])) {
                n = n * 10 + static_cast<size_t>(text[i] - W('0'));
                ++i;
            }
            if (i < text.size() && text[i] == W('!')) {
                size_t close = text.find(W('!'), i + 1);
                if (close != std::basic_string_view<WCHAR>::npos)
                    i = close + 1;
            }
            if (n <= strings.size())
                out += strings[n - 1];
            else
                out += text.substr(start, i - start);
            continue;
        }
        switch (next) {
        case W('n'):
            out += W("\r\n");
            break;
        case W('r'):
            out.push_back(W('\r'));
            break;
        case W('t'):
            out.push_back(W('\t'));
            break;
        default:
            out.push_back(next);
            break;
        }
        i += 2;
    }
    return out;
}
