// resgen: the build's resource compiler. Reads the message table source (message compiler
// syntax, .mc) and the string table source (resource-script syntax, .rc) and writes what mc.exe
// and rc.exe would give the Windows build, as C++ the programs compile in:
//
//   resgen MESSAGES.mc STRINGS.rc OUTDIR
//     OUTDIR/orvmsg.h          the ids, as mc.exe writes its header
//     OUTDIR/messagetable.cpp  g_rgOrvMessages (res/messages.h), sorted by id
//     OUTDIR/stringtable.cpp   g_rgOrvStrings (res/strings.h), sorted by id
//
// Only the parts of the two syntaxes that this repository uses are accepted; anything else is
// an error with the file and line, so the sources cannot silently say more than the tables do.
// Files are written only when their content changes.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

[[noreturn]] void Fail(const std::string& where, const std::string& message)
{
    std::fprintf(stderr, "%s: error: %s\n", where.c_str(), message.c_str());
    std::exit(1);
}

std::string Where(const fs::path& file, size_t line)
{
    return file.string() + ":" + std::to_string(line);
}

std::string ReadText(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    if (!in)
        Fail(file.string(), "cannot open");
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::vector<std::string> SplitLines(const std::string& text)
{
    std::vector<std::string> lines;
    std::string line;
    for (char c : text) {
        if (c == '\n') {
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            lines.push_back(line);
            line.clear();
        } else {
            line.push_back(c);
        }
    }
    if (!line.empty())
        lines.push_back(line);
    return lines;
}

std::string Trim(const std::string& s)
{
    size_t b = s.find_first_not_of(" \t");
    if (b == std::string::npos)
        return "";
    size_t e = s.find_last_not_of(" \t");
    return s.substr(b, e - b + 1);
}

std::string Upper(std::string s)
{
    for (char& c : s)
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 32);
    return s;
}

bool IsIdentifier(const std::string& s)
{
    if (s.empty() || !(std::isalpha(static_cast<unsigned char>(s[0])) || s[0] == '_'))
        return false;
    return std::all_of(s.begin(), s.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
    });
}

// A C integer constant: decimal, 0x hexadecimal or 0 octal, with an optional L or U suffix.
std::optional<uint64_t> ParseNumber(std::string s)
{
    while (!s.empty() && (s.back() == 'L' || s.back() == 'l' || s.back() == 'U' || s.back() == 'u'))
        s.pop_back();
    if (s.empty())
        return std::nullopt;
    int base = 10;
    size_t start = 0;
    if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
        base = 16;
        start = 2;
    } else if (s.size() > 1 && s[0] == '0') {
        base = 8;
        start = 1;
    }
    uint64_t value = 0;
    for (size_t i = start; i < s.size(); ++i) {
        int digit;
        char c = s[i];
        if (c >= '0' && c <= '9')
            digit = c - '0';
        else if (c >= 'a' && c <= 'f')
            digit = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F')
            digit = c - 'A' + 10;
        else
            return std::nullopt;
        if (digit >= base)
            return std::nullopt;
        value = value * static_cast<uint64_t>(base) + static_cast<uint64_t>(digit);
        if (value > 0xFFFFFFFFu)
            return std::nullopt;
    }
    return value;
}

// UTF-8 to code points; the sources are UTF-8 (ASCII in practice).
std::u32string DecodeUtf8(const std::string& s, const std::string& where)
{
    std::u32string out;
    for (size_t i = 0; i < s.size();) {
        auto b = static_cast<unsigned char>(s[i]);
        char32_t cp;
        size_t n;
        if (b < 0x80) {
            cp = b;
            n = 1;
        } else if ((b & 0xE0) == 0xC0) {
            cp = b & 0x1F;
            n = 2;
        } else if ((b & 0xF0) == 0xE0) {
            cp = b & 0x0F;
            n = 3;
        } else if ((b & 0xF8) == 0xF0) {
            cp = b & 0x07;
            n = 4;
        } else {
            Fail(where, "text is not UTF-8");
        }
        if (i + n > s.size())
            Fail(where, "text is not UTF-8");
        for (size_t k = 1; k < n; ++k) {
            auto c = static_cast<unsigned char>(s[i + k]);
            if ((c & 0xC0) != 0x80)
                Fail(where, "text is not UTF-8");
            cp = (cp << 6) | (c & 0x3F);
        }
        if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
            Fail(where, "text is not UTF-8");
        out.push_back(cp);
        i += n;
    }
    return out;
}

// A wide literal for the generated C++: W("..."), with CR, LF, tab, quotes and backslashes
// escaped and everything outside printable ASCII as a universal character name.
std::string WideLiteral(const std::u32string& text)
{
    std::string out = "W(\"";
    char buffer[16];
    for (char32_t c : text) {
        switch (c) {
        case U'\r':
            out += "\\r";
            break;
        case U'\n':
            out += "\\n";
            break;
        case U'\t':
            out += "\\t";
            break;
        case U'"':
            out += "\\\"";
            break;
        case U'\\':
            out += "\\\\";
            break;
        default:
            if (c >= 0x20 && c < 0x7F) {
                out.push_back(static_cast<char>(c));
            } else if (c <= 0xFFFF) {
                std::snprintf(buffer, sizeof(buffer), "\\u%04X", static_cast<unsigned>(c));
                out += buffer;
            } else {
                std::snprintf(buffer, sizeof(buffer), "\\U%08X", static_cast<unsigned>(c));
                out += buffer;
            }
        }
    }
    return out + "\")";
}

std::string Hex8(uint32_t value)
{
    char buffer[16];
    std::snprintf(buffer, sizeof(buffer), "0x%08X", value);
    return buffer;
}

void WriteIfChanged(const fs::path& file, const std::string& content)
{
    std::error_code ec;
    if (fs::exists(file, ec)) {
        std::ifstream in(file, std::ios::binary);
        std::ostringstream old;
        old << in.rdbuf();
        if (old.str() == content)
            return;
    }
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out << content;
    if (!out)
        Fail(file.string(), "cannot write");
}

const char* const kGeneratedNote = "Generated by res/gen/resgen.cpp from ";

// ---- The message table source ------------------------------------------------------------

struct NamedValue
{
    uint32_t value;
    std::string symbol; // the optional ":symbol" of the header section; empty when none
};

struct Message
{
    uint32_t dwId;
    uint16_t wLanguage;
    std::string symbolicName;
    std::string typedefName;
    std::string text;                  // UTF-8, each line ending in CR LF
    std::vector<std::string> comments; // the ";" lines written before it, for the header
};

struct MessageFile
{
    std::vector<std::string> headerComments; // ";" lines before the first message
    std::map<std::string, NamedValue> severities;
    std::vector<std::string> severityOrder;
    std::map<std::string, NamedValue> facilities;
    std::vector<std::string> facilityOrder;
    std::map<std::string, NamedValue> languages;
    std::vector<Message> messages;
};

// Keyword/value statements of one or more lines, split into "keyword", "=", "value" and
// parenthesised lists.
class McStatements
{
public:
    McStatements(const fs::path& file, const std::vector<std::string>& lines)
        : m_file(file), m_lines(lines)
    {}

    MessageFile Parse()
    {
        MessageFile mc;
        // The message compiler's defaults.
        mc.severities = {{"SUCCESS", {0, ""}},
                         {"INFORMATIONAL", {1, ""}},
                         {"WARNING", {2, ""}},
                         {"ERROR", {3, ""}}};
        mc.facilities = {{"SYSTEM", {0x0FF, ""}}, {"APPLICATION", {0xFFF, ""}}};
        mc.languages = {{"ENGLISH", {0x409, "MSG00001"}}};
        std::string typedefName;
        std::optional<uint32_t> lastId;
        uint32_t severity = 0;
        uint32_t facility = 0;
        std::vector<std::string> pendingComments;
        bool fAnyStatement = false;
        // The message being defined: from MessageId= to the end of its last text.
        struct Pending
        {
            uint32_t code = 0;
            std::string symbolicName;
            size_t line = 0;
            bool fHasText = false;
        };
        std::optional<Pending> current;

        while (m_iLine < m_lines.size()) {
            std::string line = m_lines[m_iLine];
            std::string trimmed = Trim(line);
            if (trimmed.empty()) {
                ++m_iLine;
                continue;
            }
            if (trimmed[0] == ';') {
                // Copied to the header without the semicolon, as mc.exe does.
                std::string comment = trimmed.substr(1);
                if (!fAnyStatement)
                    mc.headerComments.push_back(comment);
                else
                    pendingComments.push_back(comment);
                ++m_iLine;
                continue;
            }
            size_t statementLine = m_iLine + 1;
            fAnyStatement = true;
            auto [keyword, value] = NextStatement();
            std::string key = Upper(keyword);
            std::string where = Where(m_file, statementLine);
            if (key == "MESSAGEIDTYPEDEF") {
                if (!value.empty() && !IsIdentifier(value))
                    Fail(where, "MessageIdTypedef must name a type");
                typedefName = value;
            } else if (key == "SEVERITYNAMES") {
                ParseNameList(value, 3, where, &mc.severities, &mc.severityOrder);
            } else if (key == "FACILITYNAMES") {
                ParseNameList(value, 0xFFF, where, &mc.facilities, &mc.facilityOrder);
            } else if (key == "LANGUAGENAMES") {
                std::vector<std::string> order;
                ParseNameList(value, 0xFFFF, where, &mc.languages, &order);
            } else if (key == "OUTPUTBASE") {
                if (value != "10" && value != "16")
                    Fail(where, "OutputBase must be 10 or 16");
            } else if (key == "MESSAGEID") {
                if (current && !current->fHasText)
                    Fail(where, "the previous message has no text");
                uint32_t id;
                if (value.empty() || value[0] == '+') {
                    uint32_t step = 1;
                    if (value.size() > 1) {
                        auto n = ParseNumber(value.substr(1));
                        if (!n)
                            Fail(where, "bad MessageId increment '" + value + "'");
                        step = static_cast<uint32_t>(*n);
                    }
                    id = lastId ? *lastId + step : 0;
                } else {
                    auto n = ParseNumber(value);
                    if (!n)
                        Fail(where, "bad MessageId '" + value + "'");
                    id = static_cast<uint32_t>(*n);
                }
                if (id > 0xFFFF)
                    Fail(where, "MessageId does not fit in 16 bits");
                lastId = id;
                current = Pending{};
                current->code = id;
                current->line = statementLine;
            } else if (key == "SEVERITY" || key == "FACILITY" || key == "SYMBOLICNAME") {
                if (!current)
                    Fail(where, keyword + " outside a message definition");
                if (key == "SYMBOLICNAME") {
                    if (!IsIdentifier(value))
                        Fail(where, "SymbolicName must be an identifier");
                    current->symbolicName = value;
                } else {
                    auto& names = key == "SEVERITY" ? mc.severities : mc.facilities;
                    auto it = names.find(Upper(value));
                    if (it == names.end())
                        Fail(where, "unknown " + keyword + " '" + value + "'");
                    (key == "SEVERITY" ? severity : facility) = it->second.value;
                }
            } else if (key == "LANGUAGE") {
                if (!current)
                    Fail(where, "Language outside a message definition");
                auto it = mc.languages.find(Upper(value));
                if (it == mc.languages.end())
                    Fail(where, "unknown Language '" + value + "'");
                Message message;
                message.dwId = (severity << 30) | (facility << 16) | current->code;
                message.wLanguage = static_cast<uint16_t>(it->second.value);
                message.symbolicName = current->symbolicName;
                message.typedefName = typedefName;
                message.text = ReadMessageText(where);
                if (!current->fHasText)
                    message.comments = std::move(pendingComments);
                pendingComments.clear();
                for (const Message& other : mc.messages)
                    if (other.dwId == message.dwId && other.wLanguage == message.wLanguage)
                        Fail(where, "message " + Hex8(message.dwId) + " is defined twice");
                current->fHasText = true;
                mc.messages.push_back(std::move(message));
            } else {
                Fail(where, "unknown keyword '" + keyword + "'");
            }
        }
        if (current && !current->fHasText)
            Fail(Where(m_file, current->line), "the message has no text");
        return mc;
    }

private:
    // The keyword and value starting at the current line; the value may be a parenthesised
    // list that runs over several lines. Leaves the position after the statement.
    std::pair<std::string, std::string> NextStatement()
    {
        std::string where = Where(m_file, m_iLine + 1);
        std::string rest = Trim(m_lines[m_iLine]);
        size_t eq = rest.find('=');
        if (eq == std::string::npos)
            Fail(where, "expected keyword=value");
        std::string keyword = Trim(rest.substr(0, eq));
        std::string value = Trim(rest.substr(eq + 1));
        ++m_iLine;
        if (!value.empty() && value[0] == '(') {
            while (value.find(')') == std::string::npos) {
                if (m_iLine >= m_lines.size())
                    Fail(where, "unterminated list");
                value += " " + Trim(m_lines[m_iLine++]);
            }
            if (Trim(value.substr(value.find(')') + 1)) != "")
                Fail(where, "text after the list");
        } else if (value.find_first_of(" \t") != std::string::npos) {
            Fail(where, "one statement per line");
        }
        return {keyword, value};
    }

    // "(name=number[:symbol] ...)" into `names`.
    void ParseNameList(const std::string& value, uint32_t maxValue, const std::string& where,
                       std::map<std::string, NamedValue>* names, std::vector<std::string>* order)
    {
        if (value.size() < 2 || value.front() != '(' || value.back() != ')')
            Fail(where, "expected a parenthesised list");
        std::istringstream items(value.substr(1, value.size() - 2));
        std::string item;
        while (items >> item) {
            size_t eq = item.find('=');
            if (eq == std::string::npos)
                Fail(where, "expected name=number in '" + item + "'");
            std::string name = item.substr(0, eq);
            std::string number = item.substr(eq + 1);
            std::string symbol;
            if (size_t colon = number.find(':'); colon != std::string::npos) {
                symbol = number.substr(colon + 1);
                number = number.substr(0, colon);
            }
            auto n = ParseNumber(number);
            if (!IsIdentifier(name) || !n || *n > maxValue)
                Fail(where, "bad list item '" + item + "'");
            (*names)[Upper(name)] = NamedValue{static_cast<uint32_t>(*n), symbol};
            order->push_back(Upper(name));
        }
    }

    // The lines after Language= up to the line holding only ".", each ending in CR LF.
    std::string ReadMessageText(const std::string& where)
    {
        std::string text;
        for (;;) {
            if (m_iLine >= m_lines.size())
                Fail(where, "message text without its terminating '.' line");
            const std::string& line = m_lines[m_iLine++];
            if (line == ".")
                break;
            DecodeUtf8(line, Where(m_file, m_iLine));
            text += line + "\r\n";
        }
        if (text.empty())
            Fail(where, "empty message text");
        return text;
    }

    const fs::path& m_file;
    const std::vector<std::string>& m_lines;
    size_t m_iLine = 0;
};

std::string GenerateHeader(const fs::path& source, const MessageFile& mc)
{
    std::ostringstream h;
    h << "// " << kGeneratedNote << source.filename().string() << "; do not edit.\n";
    // winerror.h first, so that its FACILITY_* names win over the guarded ones below.
    h << "#pragma once\n\n#include \"pal/windef.h\"\n#include \"pal/winerror.h\"\n\n";
    for (const std::string& comment : mc.headerComments)
        h << comment << "\n";
    h << "\n"
         "//\n"
         "//  Values are 32 bit values laid out as follows:\n"
         "//\n"
         "//   3 3 2 2 2 2 2 2 2 2 2 2 1 1 1 1 1 1 1 1 1 1\n"
         "//   1 0 9 8 7 6 5 4 3 2 1 0 9 8 7 6 5 4 3 2 1 0 9 8 7 6 5 4 3 2 1 0\n"
         "//  +---+-+-+-----------------------+-------------------------------+\n"
         "//  |Sev|C|R|     Facility          |               Code            |\n"
         "//  +---+-+-+-----------------------+-------------------------------+\n"
         "//\n"
         "//  Sev - the severity code (00 success, 01 informational, 10 warning, 11 error)\n"
         "//  C - the customer code flag\n"
         "//  R - a reserved bit\n"
         "//  Facility - the facility code\n"
         "//  Code - the facility's status code\n"
         "//\n\n";
    auto defineNames = [&h](const std::map<std::string, NamedValue>& names,
                            const std::vector<std::string>& order) {
        for (const std::string& name : order) {
            const NamedValue& v = names.at(name);
            if (v.symbol.empty())
                continue;
            char value[16];
            std::snprintf(value, sizeof(value), "0x%X", v.value);
            // Windows' own headers may define the same names (FACILITY_ITF, ...).
            h << "#ifndef " << v.symbol << "\n#define " << v.symbol << " " << value << "\n#endif\n";
        }
    };
    h << "// Facility codes\n";
    defineNames(mc.facilities, mc.facilityOrder);
    h << "\n// Severity codes\n";
    defineNames(mc.severities, mc.severityOrder);
    for (const Message& m : mc.messages) {
        if (m.symbolicName.empty())
            continue;
        h << "\n";
        for (const std::string& comment : m.comments)
            h << comment << "\n";
        h << "//\n// MessageId: " << m.symbolicName << "\n//\n// MessageText:\n//\n";
        for (const std::string& line : SplitLines(m.text))
            h << "// " << line << "\n";
        h << "//\n#define " << m.symbolicName << " ";
        if (m.typedefName.empty())
            h << Hex8(m.dwId) << "L\n";
        else
            h << "((" << m.typedefName << ")" << Hex8(m.dwId) << "L)\n";
    }
    return h.str();
}

std::string GenerateMessageTable(const fs::path& source, MessageFile mc)
{
    std::sort(mc.messages.begin(), mc.messages.end(), [](const Message& a, const Message& b) {
        return a.dwId != b.dwId ? a.dwId < b.dwId : a.wLanguage < b.wLanguage;
    });
    std::ostringstream out;
    out << "// " << kGeneratedNote << source.filename().string() << "; do not edit.\n";
    out << "#include \"res/messages.h\"\n\nconst ORV_MESSAGE g_rgOrvMessages[] = {\n";
    char language[16];
    for (const Message& m : mc.messages) {
        std::snprintf(language, sizeof(language), "0x%04X", m.wLanguage);
        out << "    {" << Hex8(m.dwId) << ", " << language << ", "
            << (m.symbolicName.empty() ? std::string("nullptr")
                                       : WideLiteral(DecodeUtf8(m.symbolicName, "")))
            << ",\n     " << WideLiteral(DecodeUtf8(m.text, source.string())) << "},\n";
    }
    out << "};\n\nconst size_t g_cOrvMessages = " << mc.messages.size() << ";\n";
    return out.str();
}

// ---- The string table source --------------------------------------------------------------

struct Token
{
    enum Kind
    {
        kWord,   // identifiers, keywords and numbers
        kString, // a string literal, escapes applied (UTF-8)
        kPunct,  // , { }
    } kind;
    std::string text;
    size_t line;
};

class RcReader
{
public:
    explicit RcReader(fs::path file) : m_file(std::move(file)) {}

    std::map<uint32_t, std::string> Parse()
    {
        std::vector<Token> tokens = Tokenize(ReadText(m_file), m_file);
        std::map<uint32_t, std::string> strings;
        for (size_t i = 0; i < tokens.size();) {
            const Token& t = tokens[i];
            std::string where = Where(m_file, t.line);
            std::string word = t.kind == Token::kWord ? Upper(t.text) : "";
            if (word == "LANGUAGE") {
                // LANGUAGE primary, sub: both numbers (or defined names).
                if (i + 3 >= tokens.size() || tokens[i + 2].text != ",")
                    Fail(where, "expected LANGUAGE primary, sublanguage");
                Value(tokens[i + 1]);
                Value(tokens[i + 3]);
                i += 4;
            } else if (word == "STRINGTABLE") {
                ++i;
                // Optional statements (LANGUAGE, CHARACTERISTICS, VERSION) are not used here.
                if (i >= tokens.size() ||
                    !(Upper(tokens[i].text) == "BEGIN" || tokens[i].text == "{"))
                    Fail(where, "expected BEGIN after STRINGTABLE");
                ++i;
                for (;;) {
                    if (i >= tokens.size())
                        Fail(where, "STRINGTABLE without END");
                    const Token& id = tokens[i];
                    if (Upper(id.text) == "END" || id.text == "}") {
                        ++i;
                        break;
                    }
                    uint32_t value = Value(id);
                    if (value > 0xFFFF)
                        Fail(Where(m_file, id.line), "string id does not fit in 16 bits");
                    ++i;
                    if (i < tokens.size() && tokens[i].text == "," &&
                        tokens[i].kind == Token::kPunct)
                        ++i;
                    if (i >= tokens.size() || tokens[i].kind != Token::kString)
                        Fail(Where(m_file, id.line), "expected the string of " + id.text);
                    if (!strings.emplace(value, tokens[i].text).second)
                        Fail(Where(m_file, id.line),
                             "string " + std::to_string(value) + " is defined twice");
                    ++i;
                }
            } else {
                Fail(where, "unexpected '" + t.text + "' (only LANGUAGE and STRINGTABLE)");
            }
        }
        return strings;
    }

private:
    uint32_t Value(const Token& t)
    {
        if (t.kind != Token::kWord)
            Fail(Where(m_file, t.line), "expected a number or a defined name");
        if (auto n = ParseNumber(t.text))
            return static_cast<uint32_t>(*n);
        auto it = m_defines.find(t.text);
        if (it == m_defines.end())
            Fail(Where(m_file, t.line), "'" + t.text + "' is not defined");
        return it->second;
    }

    std::vector<Token> Tokenize(const std::string& text, const fs::path& file)
    {
        std::vector<Token> tokens;
        size_t line = 1;
        for (size_t i = 0; i < text.size();) {
            char c = text[i];
            if (c == '\n') {
                ++line;
                ++i;
            } else if (c == ' ' || c == '\t' || c == '\r') {
                ++i;
            } else if (c == '/' && i + 1 < text.size() && text[i + 1] == '/') {
                while (i < text.size() && text[i] != '\n')
                    ++i;
            } else if (c == '/' && i + 1 < text.size() && text[i + 1] == '*') {
                size_t end = text.find("*/", i + 2);
                if (end == std::string::npos)
                    Fail(Where(file, line), "unterminated comment");
                line +=
                    static_cast<size_t>(std::count(text.begin() + static_cast<long>(i),
                                                   text.begin() + static_cast<long>(end), '\n'));
                i = end + 2;
            } else if (c == '#') {
                size_t end = text.find('\n', i);
                std::string directive =
                    Trim(text.substr(i, end == std::string::npos ? end : end - i));
                Directive(directive, file, line);
                i = end == std::string::npos ? text.size() : end;
            } else if (c == '"' ||
                       ((c == 'L' || c == 'l') && i + 1 < text.size() && text[i + 1] == '"')) {
                if (c != '"')
                    ++i;
                tokens.push_back({Token::kString, StringLiteral(text, &i, file, line), line});
            } else if (c == ',' || c == '{' || c == '}') {
                tokens.push_back({Token::kPunct, std::string(1, c), line});
                ++i;
            } else if (std::isalnum(static_cast<unsigned char>(c)) || c == '_') {
                size_t start = i;
                while (i < text.size() &&
                       (std::isalnum(static_cast<unsigned char>(text[i])) || text[i] == '_'))
                    ++i;
                tokens.push_back({Token::kWord, text.substr(start, i - start), line});
            } else {
                Fail(Where(file, line), std::string("unexpected character '") + c + "'");
            }
        }
        return tokens;
    }

    // #include "file" (its #defines are read), #define NAME NUMBER, #pragma once.
    void Directive(const std::string& directive, const fs::path& file, size_t line)
    {
        std::istringstream words(directive.substr(1));
        std::string name;
        words >> name;
        if (name == "include") {
            std::string target;
            words >> target;
            if (target.size() < 2 || target.front() != '"' || target.back() != '"')
                Fail(Where(file, line), "only #include \"file\" is supported");
            fs::path included = file.parent_path() / target.substr(1, target.size() - 2);
            std::vector<Token> ignored = Tokenize(ReadText(included), included);
            if (!ignored.empty())
                Fail(Where(included, ignored.front().line), "an included file may only #define");
        } else if (name == "define") {
            std::string symbol, value;
            words >> symbol >> value;
            auto n = ParseNumber(value);
            if (!IsIdentifier(symbol) || !n)
                Fail(Where(file, line), "only #define NAME NUMBER is supported");
            m_defines[symbol] = static_cast<uint32_t>(*n);
        } else if (name != "pragma") {
            Fail(Where(file, line), "unsupported directive #" + name);
        }
    }

    // A resource-script string: "" is a quote; \n \r \t \a \\ \" \ooo and \xhh are escapes.
    static std::string StringLiteral(const std::string& text, size_t* pi, const fs::path& file,
                                     size_t line)
    {
        std::string value;
        size_t i = *pi + 1;
        for (;;) {
            if (i >= text.size() || text[i] == '\n')
                Fail(Where(file, line), "unterminated string");
            char c = text[i++];
            if (c == '"') {
                if (i < text.size() && text[i] == '"') {
                    value.push_back('"');
                    ++i;
                    continue;
                }
                break;
            }
            if (c != '\\') {
                value.push_back(c);
                continue;
            }
            if (i >= text.size())
                Fail(Where(file, line), "unterminated string");
            char e = text[i++];
            switch (e) {
            case 'n':
                value.push_back('\n');
                break;
            case 'r':
                value.push_back('\r');
                break;
            case 't':
                value.push_back('\t');
                break;
            case 'a':
                value.push_back('\a');
                break;
            case '\\':
            case '"':
                value.push_back(e);
                break;
            case 'x': {
                unsigned code = 0;
                int digits = 0;
                while (digits < 4 && i < text.size() &&
                       std::isxdigit(static_cast<unsigned char>(text[i]))) {
                    code = code * 16 +
                           static_cast<unsigned>(std::stoi(std::string(1, text[i]), nullptr, 16));
                    ++i;
                    ++digits;
                }
                if (digits == 0 || code > 0x7F)
                    Fail(Where(file, line), "only ASCII \\x escapes are supported");
                value.push_back(static_cast<char>(code));
                break;
            }
            default:
                if (e >= '0' && e <= '7') {
                    unsigned code = static_cast<unsigned>(e - '0');
                    for (int k = 0; k < 2 && i < text.size() && text[i] >= '0' && text[i] <= '7';
                         ++k)
                        code = code * 8 + static_cast<unsigned>(text[i++] - '0');
                    if (code > 0x7F)
                        Fail(Where(file, line), "only ASCII octal escapes are supported");
                    value.push_back(static_cast<char>(code));
                } else {
                    Fail(Where(file, line), std::string("unknown escape \\") + e);
                }
            }
        }
        *pi = i;
        return value;
    }

    fs::path m_file;
    std::map<std::string, uint32_t> m_defines;
};

std::string GenerateStringTable(const fs::path& source,
                                const std::map<uint32_t, std::string>& strings)
{
    std::ostringstream out;
    out << "// " << kGeneratedNote << source.filename().string() << "; do not edit.\n";
    out << "#include \"res/strings.h\"\n\nconst PAL_STRING_RESOURCE g_rgOrvStrings[] = {\n";
    for (const auto& [id, text] : strings)
        out << "    {" << id << ", " << WideLiteral(DecodeUtf8(text, source.string())) << "},\n";
    out << "};\n\nconst size_t g_cOrvStrings = " << strings.size() << ";\n";
    return out.str();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: resgen MESSAGES.mc STRINGS.rc OUTDIR\n");
        return 2;
    }
    fs::path mcFile = argv[1];
    fs::path rcFile = argv[2];
    fs::path outDir = argv[3];

    std::vector<std::string> mcLines = SplitLines(ReadText(mcFile));
    MessageFile mc = McStatements(mcFile, mcLines).Parse();
    std::map<uint32_t, std::string> strings = RcReader(rcFile).Parse();

    std::error_code ec;
    fs::create_directories(outDir, ec);
    WriteIfChanged(outDir / "orvmsg.h", GenerateHeader(mcFile, mc));
    WriteIfChanged(outDir / "messagetable.cpp", GenerateMessageTable(mcFile, mc));
    WriteIfChanged(outDir / "stringtable.cpp", GenerateStringTable(rcFile, strings));
    return 0;
}
