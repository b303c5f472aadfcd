// reg.exe's argument syntax.
#include "reg_args.h"

#include "pal/palcontrol.h"

#include <algorithm>
#include <cctype>
#include <set>

namespace orvsim::reg {

namespace {

std::string Lower(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

struct Root
{
    const char* abbreviation;
    const char* fullName;
    HKEY hKey;
};

const Root* FindRoot(std::string_view name)
{
    static const Root kRoots[] = {
        {"hklm", "HKEY_LOCAL_MACHINE", HKEY_LOCAL_MACHINE},
        {"hkcu", "HKEY_CURRENT_USER", HKEY_CURRENT_USER},
        {"hkcr", "HKEY_CLASSES_ROOT", HKEY_CLASSES_ROOT},
    };
    std::string lower = Lower(name);
    for (const Root& root : kRoots)
        if (lower == root.abbreviation || lower == Lower(root.fullName))
            return &root;
    return nullptr;
}

// An option is '/' or '-' followed by letters or '?'; anything else is an operand.
std::optional<std::string> OptionName(const std::string& arg)
{
    if (arg.size() < 2 || (arg[0] != '/' && arg[0] != '-'))
        return std::nullopt;
    return Lower(std::string_view(arg).substr(1));
}

// The options one subcommand accepts: flags, and those that take the next argument.
struct Grammar
{
    std::set<std::string> flags;
    std::set<std::string> withValue;
};

struct Parsed
{
    std::optional<std::string> key;
    std::vector<std::pair<std::string, std::string>> options; // name, value ("" for flags)

    bool Has(const std::string& name) const
    {
        return std::any_of(options.begin(), options.end(),
                           [&](const auto& o) { return o.first == name; });
    }
    std::optional<std::string> Value(const std::string& name) const
    {
        for (const auto& o : options)
            if (o.first == name)
                return o.second;
        return std::nullopt;
    }
};

ParseResult Tokenize(const std::vector<std::string>& args, const Grammar& grammar, Parsed* p)
{
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "/?" || arg == "-?" || arg == "--help" || arg == "-h")
            return ParseResult::kHelp;
        std::optional<std::string> name = OptionName(arg);
        if (!name) {
            if (p->key)
                return ParseResult::kInvalidSyntax;
            p->key = arg;
            continue;
        }
        if (p->Has(*name))
            return ParseResult::kInvalidSyntax;
        if (grammar.flags.count(*name)) {
            p->options.emplace_back(*name, "");
        } else if (grammar.withValue.count(*name)) {
            if (i + 1 >= args.size())
                return ParseResult::kInvalidSyntax;
            p->options.emplace_back(*name, args[++i]);
        } else {
            return ParseResult::kInvalidSyntax;
        }
    }
    return p->key ? ParseResult::kOk : ParseResult::kInvalidSyntax;
}

// /v, /ve and (where allowed) /va exclude one another.
ParseResult SelectValue(const Parsed& p, ValueSelector* pValue)
{
    int count = int(p.Has("v")) + int(p.Has("ve")) + int(p.Has("va"));
    if (count > 1)
        return ParseResult::kInvalidSyntax;
    if (p.Has("v")) {
        pValue->kind = ValueSelector::kNamed;
        pValue->name = pal::Utf8ToUtf16(*p.Value("v"));
    } else if (p.Has("ve")) {
        pValue->kind = ValueSelector::kDefault;
    } else if (p.Has("va")) {
        pValue->kind = ValueSelector::kAll;
    }
    return ParseResult::kOk;
}

ParseResult ParseKey(const Parsed& p, KeyPath* pKey)
{
    auto key = ParseKeyPath(*p.key);
    if (!key)
        return ParseResult::kInvalidKey;
    *pKey = std::move(*key);
    return ParseResult::kOk;
}

} // namespace

std::string KeyPath::Display() const
{
    return subKey.empty() ? rootName : rootName + "\\" + pal::Utf16ToUtf8(subKey);
}

std::optional<KeyPath> ParseKeyPath(std::string_view text)
{
    size_t slash = text.find('\\');
    const Root* root = FindRoot(text.substr(0, slash));
    if (!root)
        return std::nullopt;
    KeyPath key;
    key.hRoot = root->hKey;
    key.rootName = root->fullName;
    if (slash != std::string_view::npos) {
        std::string_view rest = text.substr(slash + 1);
        if (!rest.empty() && rest.back() == '\\')
            rest.remove_suffix(1);
        key.subKey = pal::Utf8ToUtf16(rest);
    }
    return key;
}

ParseResult ParseQueryArgs(const std::vector<std::string>& args, QueryArgs* pArgs)
{
    Parsed p;
    ParseResult result = Tokenize(args, Grammar{{"ve", "s"}, {"v"}}, &p);
    if (result != ParseResult::kOk)
        return result;
    if ((result = SelectValue(p, &pArgs->value)) != ParseResult::kOk)
        return result;
    pArgs->fRecurse = p.Has("s");
    return ParseKey(p, &pArgs->key);
}

ParseResult ParseAddArgs(const std::vector<std::string>& args, AddArgs* pArgs)
{
    Parsed p;
    ParseResult result = Tokenize(args, Grammar{{"ve", "f"}, {"v", "t", "d", "s"}}, &p);
    if (result != ParseResult::kOk)
        return result;
    if ((result = SelectValue(p, &pArgs->value)) != ParseResult::kOk)
        return result;
    pArgs->type = p.Value("t");
    pArgs->data = p.Value("d");
    pArgs->separator = p.Value("s");
    pArgs->fForce = p.Has("f");
    // Like reg.exe: a type or data without a name sets the default value.
    if (pArgs->value.kind == ValueSelector::kNone && (pArgs->type || pArgs->data))
        pArgs->value.kind = ValueSelector::kDefault;
    if (pArgs->separator && pArgs->separator->size() != 1)
        return ParseResult::kInvalidSyntax;
    return ParseKey(p, &pArgs->key);
}

ParseResult ParseDeleteArgs(const std::vector<std::string>& args, DeleteArgs* pArgs)
{
    Parsed p;
    ParseResult result = Tokenize(args, Grammar{{"ve", "va", "f"}, {"v"}}, &p);
    if (result != ParseResult::kOk)
        return result;
    if ((result = SelectValue(p, &pArgs->value)) != ParseResult::kOk)
        return result;
    pArgs->fForce = p.Has("f");
    return ParseKey(p, &pArgs->key);
}

} // namespace orvsim::reg
