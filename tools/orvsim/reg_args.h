// The arguments of `orvsim reg query|add|delete`, in reg.exe's syntax.
//
// reg.exe's options start with '/' ("/v Name", "/ve", "/f"), which CLI11 does not take for
// options. So CLI11 only dispatches the subcommand and hands its remaining arguments over
// untouched (prefix_command); this parser reads them as reg.exe does: options start with '/'
// or '-', are case-insensitive and may come before or after the key.
#pragma once

#include "pal/windows.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvsim::reg {

struct KeyPath
{
    HKEY hRoot = nullptr;
    std::string rootName;  // HKEY_LOCAL_MACHINE, ...
    std::u16string subKey; // without leading or trailing backslash; empty for the root
    // As reg.exe prints it: the full root name, then the path as the user wrote it.
    std::string Display() const;
};

// Accepts HKLM, HKCU, HKCR and the full names, alone or followed by '\' and a path.
std::optional<KeyPath> ParseKeyPath(std::string_view text);

// Which value an operation is about.
struct ValueSelector
{
    enum Kind
    {
        kNone,    // the key itself
        kNamed,   // /v Name
        kDefault, // /ve
        kAll,     // /va
    } kind = kNone;
    std::u16string name;
};

struct QueryArgs
{
    KeyPath key;
    ValueSelector value;
    bool fRecurse = false; // /s
};

struct AddArgs
{
    KeyPath key;
    ValueSelector value;
    std::optional<std::string> type;      // /t
    std::optional<std::string> data;      // /d
    std::optional<std::string> separator; // /s, for REG_MULTI_SZ
    bool fForce = false;                  // /f
};

struct DeleteArgs
{
    KeyPath key;
    ValueSelector value;
    bool fForce = false; // /f
};

enum class ParseResult
{
    kOk,
    kHelp,          // /? asked for the usage
    kInvalidSyntax, // unknown, repeated, conflicting or missing arguments
    kInvalidKey,    // the key does not start with a known root
};

ParseResult ParseQueryArgs(const std::vector<std::string>& args, QueryArgs* pArgs);
ParseResult ParseAddArgs(const std::vector<std::string>& args, AddArgs* pArgs);
ParseResult ParseDeleteArgs(const std::vector<std::string>& args, DeleteArgs* pArgs);

} // namespace orvsim::reg
