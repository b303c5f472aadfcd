// A service's image path as a program and its arguments.
#include "pal/src/service/imagepath.h"

#include "pal/shellapi.h"
#include "pal/src/base/internal.h"
#include "pal/winbase.h"
#include "pal/winerror.h"

#include <new>
#include <sys/stat.h>

namespace pal::detail::service {

namespace {

bool IsBlank(char16_t c)
{
    return c == u' ' || c == u'\t';
}

bool IsFile(std::u16string_view path)
{
    struct stat st;
    return !path.empty() && stat(ToUtf8(path).c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

// The arguments in `rest`, split as the command line's arguments after the program name.
std::vector<std::string> SplitArguments(std::u16string_view rest)
{
    std::vector<std::string> args;
    std::u16string line = u"x " + std::u16string(rest);
    int cArgs = 0;
    LPWSTR* argv = CommandLineToArgvW(line.c_str(), &cArgs);
    if (!argv)
        throw std::bad_alloc();
    for (int i = 1; i < cArgs; ++i)
        args.push_back(ToUtf8(argv[i]));
    LocalFree(argv);
    return args;
}

} // namespace

DWORD ResolveImagePath(std::u16string_view imagePath, std::string* pProgram,
                       std::vector<std::string>* pArgs)
{
    size_t start = 0;
    while (start < imagePath.size() && IsBlank(imagePath[start]))
        ++start;
    std::u16string_view text = imagePath.substr(start);
    if (!text.empty() && text[0] == u'"') {
        size_t close = text.find(u'"', 1);
        std::u16string_view program = text.substr(
            1, close == std::u16string_view::npos ? std::u16string_view::npos : close - 1);
        if (!IsFile(program))
            return ERROR_FILE_NOT_FOUND;
        *pProgram = ToUtf8(program);
        *pArgs = close == std::u16string_view::npos ? std::vector<std::string>()
                                                    : SplitArguments(text.substr(close + 1));
        return ERROR_SUCCESS;
    }
    for (size_t end = 0; end <= text.size(); ++end) {
        if (end < text.size() && !IsBlank(text[end]))
            continue;
        if (IsFile(text.substr(0, end))) {
            *pProgram = ToUtf8(text.substr(0, end));
            *pArgs = SplitArguments(text.substr(end));
            return ERROR_SUCCESS;
        }
    }
    return ERROR_FILE_NOT_FOUND;
}

} // namespace pal::detail::service
