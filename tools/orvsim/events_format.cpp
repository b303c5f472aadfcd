// `orvsim events`: how one event is shown.
#include "events_format.h"

#include "pal/eventlog.h"
#include "pal/palcontrol.h"
#include "pal/winuser.h"
#include "res/messages.h"
#include "res/msgrender.h"
#include "res/strings.h"

#include <cstdio>
#include <ctime>

namespace orvsim::events {

namespace {

std::u16string FoldCase(std::u16string s)
{
    for (char16_t& c : s)
        if (c >= u'a' && c <= u'z')
            c = static_cast<char16_t>(c - 32);
    return s;
}

// The source whose messages are this program's own message table: the service's name, which
// is also its event source.
const std::u16string& OwnSource()
{
    static const std::u16string source = [] {
        OrvRegisterStringTable();
        WCHAR szName[MAX_PATH] = {};
        LoadStringW(nullptr, IDS_SERVICENAME, szName, ARRAYSIZE(szName));
        return FoldCase(szName);
    }();
    return source;
}

// The lines of a rendered message for a terminal: CR LF ends a line, and so does a carriage
// return alone (%r), except just before a line end, where it adds nothing.
std::vector<std::string> MessageLines(const std::u16string& message)
{
    std::vector<std::string> lines;
    std::u16string line;
    auto flush = [&] {
        lines.push_back(pal::Utf16ToUtf8(line));
        line.clear();
    };
    for (size_t i = 0; i < message.size(); ++i) {
        char16_t c = message[i];
        if (c == u'\n') {
            flush();
        } else if (c == u'\r') {
            size_t next = i + 1;
            while (next < message.size() && message[next] == u'\r')
                ++next;
            if (next < message.size() && message[next] == u'\n') {
                flush();
                i = next;
            } else if (next < message.size()) {
                flush();
                i = next - 1;
            }
        } else {
            line.push_back(c);
        }
    }
    if (!line.empty())
        flush();
    return lines;
}

void AppendJsonString(std::string* out, std::u16string_view text)
{
    out->push_back('"');
    for (unsigned char c : pal::Utf16ToUtf8(text)) {
        switch (c) {
        case '"':
            *out += "\\\"";
            break;
        case '\\':
            *out += "\\\\";
            break;
        case '\r':
            *out += "\\r";
            break;
        case '\n':
            *out += "\\n";
            break;
        case '\t':
            *out += "\\t";
            break;
        default:
            if (c < 0x20) {
                char buffer[8];
                std::snprintf(buffer, sizeof(buffer), "\\u%04x", c);
                *out += buffer;
            } else {
                out->push_back(static_cast<char>(c));
            }
        }
    }
    out->push_back('"');
}

std::string Hex32(DWORD value)
{
    char buffer[16];
    std::snprintf(buffer, sizeof(buffer), "0x%08X", value);
    return buffer;
}

} // namespace

std::string LevelName(WORD wType)
{
    switch (wType) {
    case EVENTLOG_ERROR_TYPE:
        return "Error";
    case EVENTLOG_WARNING_TYPE:
        return "Warning";
    case EVENTLOG_INFORMATION_TYPE:
        return "Information";
    case EVENTLOG_SUCCESS:
        return "Success";
    case EVENTLOG_AUDIT_SUCCESS:
        return "Audit Success";
    case EVENTLOG_AUDIT_FAILURE:
        return "Audit Failure";
    default:
        return "Type " + std::to_string(wType);
    }
}

std::u16string Describe(const pal::EventLogRecord& record)
{
    if (FoldCase(record.source) == OwnSource()) {
        if (const ORV_MESSAGE* pMessage = OrvFindMessage(record.dwEventId))
            return RenderMessage(pMessage->pszText, record.strings);
    }
    std::u16string text = u"The description for Event ID " +
                          pal::Utf8ToUtf16(std::to_string(record.dwEventId & 0xFFFF)) +
                          u" from source " + record.source +
                          u" cannot be found. Either the component that raises this event is "
                          u"not installed on this computer or the installation is corrupted.";
    if (!record.strings.empty()) {
        text += u"\r\n\r\nThe following information was included with the event:\r\n\r\n";
        for (const std::u16string& s : record.strings)
            text += s + u"\r\n";
    } else {
        text += u"\r\n";
    }
    return text;
}

std::string HexBytes(const std::vector<BYTE>& bytes)
{
    std::string text;
    char buffer[4];
    for (BYTE b : bytes) {
        std::snprintf(buffer, sizeof(buffer), "%02X", b);
        if (!text.empty())
            text.push_back(' ');
        text += buffer;
    }
    return text;
}

std::string LocalTimeText(ULONGLONG ullFileTime)
{
    constexpr ULONGLONG kUnixEpochAsFileTime = 116444736000000000ull;
    ULONGLONG ullSince1970 =
        ullFileTime > kUnixEpochAsFileTime ? ullFileTime - kUnixEpochAsFileTime : 0;
    auto seconds = static_cast<std::time_t>(ullSince1970 / 10000000);
    auto ms = static_cast<unsigned>((ullSince1970 / 10000) % 1000);
    std::tm tm{};
    localtime_r(&seconds, &tm);
    char buffer[64];
    std::snprintf(buffer, sizeof(buffer), "%04d-%02d-%02d %02d:%02d:%02d.%03u", tm.tm_year + 1900,
                  tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, ms);
    return buffer;
}

std::string FormatText(const pal::EventLogRecord& record)
{
    std::string text = "[" + std::to_string(record.ullRecordNumber) + "] " +
                       LocalTimeText(record.ullTimeGenerated) + "  " + LevelName(record.wType) +
                       "  " + pal::Utf16ToUtf8(record.source) + "  Event ID " +
                       std::to_string(record.dwEventId & 0xFFFF) + " (" + Hex32(record.dwEventId) +
                       ")\n";
    for (const std::string& line : MessageLines(Describe(record)))
        text += line.empty() ? "\n" : "    " + line + "\n";
    if (!record.data.empty())
        text += "    Data: " + HexBytes(record.data) + "\n";
    return text + "\n";
}

std::string FormatJson(const pal::EventLogRecord& record)
{
    std::string json = "{\"record\":" + std::to_string(record.ullRecordNumber) + ",\"time\":";
    AppendJsonString(&json, pal::Utf8ToUtf16(LocalTimeText(record.ullTimeGenerated)));
    json += ",\"level\":";
    AppendJsonString(&json, pal::Utf8ToUtf16(LevelName(record.wType)));
    json += ",\"type\":" + std::to_string(record.wType) + ",\"source\":";
    AppendJsonString(&json, record.source);
    json += ",\"computer\":";
    AppendJsonString(&json, record.computer);
    json += ",\"eventId\":" + std::to_string(record.dwEventId & 0xFFFF) + ",\"id\":\"" +
            Hex32(record.dwEventId) + "\",\"category\":" + std::to_string(record.wCategory) +
            ",\"strings\":[";
    for (size_t i = 0; i < record.strings.size(); ++i) {
        if (i)
            json.push_back(',');
        AppendJsonString(&json, record.strings[i]);
    }
    json += "],\"message\":";
    AppendJsonString(&json, Describe(record));
    json += ",\"data\":\"" + HexBytes(record.data) + "\"}";
    return json;
}

} // namespace orvsim::events
