// Ids as VSS's tools and documents write them.
#include "vsssim.h"

#include <cctype>
#include <cstdio>

namespace vsssim {

std::string GuidText(const GUID& id)
{
    char sz[40];
    std::snprintf(sz, sizeof(sz), "{%.8x-%.4x-%.4x-%.2x%.2x-%.2x%.2x%.2x%.2x%.2x%.2x}",
                  static_cast<unsigned>(id.Data1), id.Data2, id.Data3, id.Data4[0], id.Data4[1],
                  id.Data4[2], id.Data4[3], id.Data4[4], id.Data4[5], id.Data4[6], id.Data4[7]);
    return sz;
}

bool ParseGuid(const std::string& text, GUID* pId)
{
    std::string braced = !text.empty() && text.front() == '{' ? text : "{" + text + "}";
    unsigned d1 = 0, d2 = 0, d3 = 0, b[8] = {};
    int cch = 0;
    // %x would take a sign or a "0x" too: only hexadecimal digits may stand where they go.
    for (size_t i = 1; i + 1 < braced.size(); ++i) {
        bool fDash = i == 9 || i == 14 || i == 19 || i == 24;
        if (fDash ? braced[i] != '-' : !std::isxdigit(static_cast<unsigned char>(braced[i])))
            return false;
    }
    if (braced.size() != 38 ||
        std::sscanf(braced.c_str(), "{%8x-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x}%n", &d1, &d2, &d3,
                    &b[0], &b[1], &b[2], &b[3], &b[4], &b[5], &b[6], &b[7], &cch) != 11 ||
        static_cast<size_t>(cch) != braced.size())
        return false;
    pId->Data1 = d1;
    pId->Data2 = static_cast<unsigned short>(d2);
    pId->Data3 = static_cast<unsigned short>(d3);
    for (int i = 0; i < 8; ++i)
        pId->Data4[i] = static_cast<unsigned char>(b[i]);
    return true;
}

} // namespace vsssim
