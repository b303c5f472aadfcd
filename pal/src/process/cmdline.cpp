// The process's command line and its splitting into arguments by shell32's rules.
#include "pal/errhandlingapi.h"
#include "pal/libloaderapi.h"
#include "pal/processthreadsapi.h"
#include "pal/shellapi.h"
#include "pal/src/base/internal.h"
#include "pal/winbase.h"
#include "pal/winerror.h"

#include <cstring>
#include <deque>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <vector>

namespace {

bool IsBlank(char16_t c)
{
    return c == u' ' || c == u'\t';
}

// shell32's CommandLineToArgvW rules:
// - The program name (first argument) is taken literally: a leading quote makes it run to the
//   next quote, otherwise it runs to the next space or tab. Backslashes mean nothing there.
// - Later arguments are separated by spaces and tabs outside quotes.
// - 2n backslashes before a quote give n backslashes and the quote opens or closes quoting;
//   2n+1 backslashes before a quote give n backslashes and a literal quote. Backslashes not
//   followed by a quote are literal.
// - A run of quotes is counted: the opening quote, if any, and each quote of the run advance a
//   counter; every third produces a literal quote and leaves quoting. So "" inside quotes gives
//   a literal quote and ends the quoted part, and """ outside quotes gives a literal quote.
std::vector<std::u16string> SplitCommandLine(std::u16string_view line)
{
    std::vector<std::u16string> args;
    size_t i = 0;
    const size_t n = line.size();

    std::u16string program;
    if (i < n && line[i] == u'"') {
        ++i;
        while (i < n && line[i] != u'"')
            program += line[i++];
        if (i < n)
            ++i; // The closing quote.
    } else {
        while (i < n && !IsBlank(line[i]))
            program += line[i++];
    }
    args.push_back(std::move(program));

    for (;;) {
        while (i < n && IsBlank(line[i]))
            ++i;
        if (i >= n)
            break;
        std::u16string arg;
        int quotes = 0; // 0 outside quotes, 1 inside; 2 transiently within a run.
        while (i < n) {
            char16_t c = line[i];
            if (IsBlank(c) && quotes == 0)
                break;
            if (c == u'\\') {
                size_t backslashes = 0;
                while (i < n && line[i] == u'\\') {
                    ++backslashes;
                    ++i;
                }
                if (i < n && line[i] == u'"') {
                    arg.append(backslashes / 2, u'\\');
                    if (backslashes % 2 != 0) {
                        arg += u'"';
                        ++i;
                    }
                    // Even: the quote is handled as a quote on the next turn.
                } else {
                    arg.append(backslashes, u'\\');
                }
                continue;
            }
            if (c == u'"') {
                ++i;
                ++quotes;
                while (i < n && line[i] == u'"') {
                    ++i;
                    if (++quotes == 3) {
                        arg += u'"';
                        quotes = 0;
                    }
                }
                if (quotes == 2)
                    quotes = 0;
                continue;
            }
            arg += c;
            ++i;
        }
        args.push_back(std::move(arg));
    }
    return args;
}

// One argument after the first, quoted so that SplitCommandLine gives it back unchanged.
void AppendQuotedArgument(std::u16string& out, std::u16string_view arg)
{
    if (!arg.empty() && arg.find_first_of(u" \t\n\v\"") == std::u16string_view::npos) {
        out += arg;
        return;
    }
    out += u'"';
    for (size_t i = 0;; ++i) {
        size_t backslashes = 0;
        while (i < arg.size() && arg[i] == u'\\') {
            ++backslashes;
            ++i;
        }
        if (i == arg.size()) {
            // Doubled so that the closing quote stays a quote.
            out.append(backslashes * 2, u'\\');
            break;
        }
        if (arg[i] == u'"') {
            out.append(backslashes * 2 + 1, u'\\');
            out += u'"';
        } else {
            out.append(backslashes, u'\\');
            out += arg[i];
        }
    }
    out += u'"';
}

// The program name is taken literally up to a blank, or between quotes.
void AppendProgramName(std::u16string& out, std::u16string_view name)
{
    bool fQuote = name.empty() || name.find_first_of(u" \t") != std::u16string_view::npos ||
                  name.front() == u'"';
    if (fQuote)
        out += u'"';
    out += name;
    if (fQuote)
        out += u'"';
}

std::u16string BuildCommandLine(const std::vector<std::u16string>& args)
{
    std::u16string line;
    for (size_t i = 0; i < args.size(); ++i) {
        if (i == 0) {
            AppendProgramName(line, args[0]);
        } else {
            line += u' ';
            AppendQuotedArgument(line, args[i]);
        }
    }
    return line;
}

// The real process's arguments, from /proc/self/cmdline.
std::u16string RealCommandLine()
{
    std::ifstream file("/proc/self/cmdline", std::ios::binary);
    std::string raw((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::vector<std::u16string> args;
    size_t start = 0;
    while (start < raw.size()) {
        size_t end = raw.find('\0', start);
        if (end == std::string::npos)
            end = raw.size();
        args.push_back(pal::detail::ToUtf16(std::string_view(raw).substr(start, end - start)));
        start = end + 1;
    }
    return BuildCommandLine(args);
}

struct CommandLineCache
{
    bool fBuilt = false;
    std::optional<std::u16string> source; // The override the current text was built for.
    // Every text handed out stays alive, so an old pointer never dangles.
    std::deque<std::unique_ptr<std::u16string>> texts;
};

std::mutex g_cacheLock;
CommandLineCache g_cache;

} // namespace

LPWSTR* WINAPI CommandLineToArgvW(LPCWSTR lpCmdLine, int* pNumArgs)
{
    if (pNumArgs == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    std::vector<std::u16string> args;
    if (lpCmdLine == nullptr || lpCmdLine[0] == 0) {
        // An empty command line stands for the executable's path alone.
        std::vector<WCHAR> path(MAX_PATH);
        for (;;) {
            DWORD length =
                GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
            if (length == 0)
                return nullptr;
            if (length < path.size()) {
                args.emplace_back(path.data(), length);
                break;
            }
            path.resize(path.size() * 2);
        }
    } else {
        args = SplitCommandLine(std::u16string_view(lpCmdLine, pal::detail::WideLength(lpCmdLine)));
    }

    // One block: the pointer array (with a null after the last), then the strings.
    size_t cbPointers = (args.size() + 1) * sizeof(LPWSTR);
    size_t cchText = 0;
    for (const auto& arg : args)
        cchText += arg.size() + 1;
    auto* block = static_cast<BYTE*>(LocalAlloc(LMEM_FIXED, cbPointers + cchText * sizeof(WCHAR)));
    if (block == nullptr)
        return nullptr;
    auto* argv = reinterpret_cast<LPWSTR*>(block);
    auto* text = reinterpret_cast<LPWSTR>(block + cbPointers);
    for (size_t i = 0; i < args.size(); ++i) {
        argv[i] = text;
        std::memcpy(text, args[i].data(), args[i].size() * sizeof(WCHAR));
        text[args[i].size()] = 0;
        text += args[i].size() + 1;
    }
    argv[args.size()] = nullptr;
    *pNumArgs = static_cast<int>(args.size());
    return argv;
}

LPWSTR WINAPI GetCommandLineW()
{
    std::optional<std::u16string> source = pal::detail::CommandLineOverride();
    std::lock_guard lock(g_cacheLock);
    if (!g_cache.fBuilt || g_cache.source != source) {
        g_cache.texts.push_back(
            std::make_unique<std::u16string>(source ? *source : RealCommandLine()));
        g_cache.source = std::move(source);
        g_cache.fBuilt = true;
    }
    return g_cache.texts.back()->data();
}
