// Type names and the text forms of registry data.
#include "reg_data.h"

#include "pal/palcontrol.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <cstring>

namespace orvsim::reg {

namespace {

struct TypeEntry
{
    const char* name;
    DWORD dwType;
};

const TypeEntry kTypes[] = {
    {"REG_SZ", REG_SZ},
    {"REG_MULTI_SZ", REG_MULTI_SZ},
    {"REG_EXPAND_SZ", REG_EXPAND_SZ},
    {"REG_DWORD", REG_DWORD},
    {"REG_QWORD", REG_QWORD},
    {"REG_BINARY", REG_BINARY},
    {"REG_NONE", REG_NONE},
    {"REG_DWORD_BIG_ENDIAN", REG_DWORD_BIG_ENDIAN},
};

void AppendUtf16(std::vector<BYTE>* pBytes, std::u16string_view text)
{
    for (char16_t c : text) {
        pBytes->push_back(static_cast<BYTE>(c & 0xFF));
        pBytes->push_back(static_cast<BYTE>(c >> 8));
    }
}

template <class T>
std::optional<T> ParseNumber(std::string_view text)
{
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    T value{};
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (ec != std::errc() || end != text.data() + text.size() || text.empty())
        return std::nullopt;
    return value;
}

std::optional<std::vector<BYTE>> ParseHex(std::string_view text)
{
    if (text.size() % 2 != 0)
        return std::nullopt;
    std::vector<BYTE> bytes;
    for (size_t i = 0; i < text.size(); i += 2) {
        BYTE b = 0;
        auto [end, ec] = std::from_chars(text.data() + i, text.data() + i + 2, b, 16);
        if (ec != std::errc() || end != text.data() + i + 2)
            return std::nullopt;
        bytes.push_back(b);
    }
    return bytes;
}

// UTF-16 units of `data`; an odd last byte is ignored.
std::u16string Units(const std::vector<BYTE>& data)
{
    std::u16string units;
    for (size_t i = 0; i + 1 < data.size(); i += 2)
        units += static_cast<char16_t>(data[i] | (data[i + 1] << 8));
    return units;
}

std::string Hex(const std::vector<BYTE>& data)
{
    std::string text;
    char buffer[3];
    for (BYTE b : data) {
        std::snprintf(buffer, sizeof(buffer), "%02X", b);
        text += buffer;
    }
    return text;
}

} // namespace

std::optional<DWORD> TypeFromName(std::string_view name)
{
    std::string upper(name);
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    for (const TypeEntry& entry : kTypes)
        if (upper == entry.name)
            return entry.dwType;
    return std::nullopt;
}

std::string TypeName(DWORD dwType)
{
    for (const TypeEntry& entry : kTypes)
        if (entry.dwType == dwType)
            return entry.name;
    return "REG_UNKNOWN";
}

std::optional<std::vector<BYTE>> EncodeData(DWORD dwType, std::string_view text,
                                            std::string_view separator)
{
    std::vector<BYTE> bytes;
    switch (dwType) {
    case REG_SZ:
    case REG_EXPAND_SZ:
        AppendUtf16(&bytes, pal::Utf8ToUtf16(text));
        AppendUtf16(&bytes, std::u16string(1, u'\0'));
        return bytes;
    case REG_MULTI_SZ: {
        size_t start = 0;
        while (start < text.size()) {
            size_t end = text.find(separator, start);
            std::string_view item =
                text.substr(start, end == std::string_view::npos ? end : end - start);
            AppendUtf16(&bytes, pal::Utf8ToUtf16(item));
            AppendUtf16(&bytes, std::u16string(1, u'\0'));
            if (end == std::string_view::npos)
                break;
            start = end + separator.size();
        }
        // The list ends with an empty string.
        AppendUtf16(&bytes, std::u16string(1, u'\0'));
        return bytes;
    }
    case REG_DWORD:
    case REG_DWORD_BIG_ENDIAN: {
        auto value = ParseNumber<DWORD>(text.empty() ? "0" : text);
        if (!value)
            return std::nullopt;
        for (int i = 0; i < 4; ++i) {
            int shift = dwType == REG_DWORD ? 8 * i : 8 * (3 - i);
            bytes.push_back(static_cast<BYTE>(*value >> shift));
        }
        return bytes;
    }
    case REG_QWORD: {
        auto value = ParseNumber<ULONGLONG>(text.empty() ? "0" : text);
        if (!value)
            return std::nullopt;
        for (int i = 0; i < 8; ++i)
            bytes.push_back(static_cast<BYTE>(*value >> (8 * i)));
        return bytes;
    }
    default:
        return ParseHex(text);
    }
}

std::string FormatData(DWORD dwType, const std::vector<BYTE>& data)
{
    switch (dwType) {
    case REG_SZ:
    case REG_EXPAND_SZ: {
        std::u16string units = Units(data);
        return pal::Utf16ToUtf8(units.substr(0, units.find(u'\0')));
    }
    case REG_MULTI_SZ: {
        std::u16string units = Units(data);
        while (!units.empty() && units.back() == u'\0')
            units.pop_back();
        std::string text;
        size_t start = 0;
        for (;;) {
            size_t end = units.find(u'\0', start);
            text += pal::Utf16ToUtf8(
                units.substr(start, end == std::u16string::npos ? end : end - start));
            if (end == std::u16string::npos)
                return text;
            text += "\\0";
            start = end + 1;
        }
    }
    case REG_DWORD:
    case REG_DWORD_BIG_ENDIAN:
        if (data.size() == 4) {
            DWORD value = 0;
            for (int i = 0; i < 4; ++i) {
                int shift = dwType == REG_DWORD ? 8 * i : 8 * (3 - i);
                value |= DWORD(data[i]) << shift;
            }
            char buffer[16];
            std::snprintf(buffer, sizeof(buffer), "0x%x", value);
            return buffer;
        }
        return Hex(data);
    case REG_QWORD:
        if (data.size() == 8) {
            ULONGLONG value = 0;
            for (int i = 0; i < 8; ++i)
                value |= ULONGLONG(data[i]) << (8 * i);
            char buffer[24];
            std::snprintf(buffer, sizeof(buffer), "0x%llx", static_cast<unsigned long long>(value));
            return buffer;
        }
        return Hex(data);
    default:
        return Hex(data);
    }
}

std::string FormatValueLine(std::u16string_view name, DWORD dwType, const std::vector<BYTE>& data)
{
    std::string shown = name.empty() ? "(Default)" : pal::Utf16ToUtf8(name);
    return "    " + shown + "    " + TypeName(dwType) + "    " + FormatData(dwType, data);
}

} // namespace orvsim::reg
