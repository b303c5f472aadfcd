// The C runtime's _wfopen and fputws for UTF-16 callers. A binary stream is a plain
// fd-backed FILE; a text stream wraps the fd with fopencookie so that "\n" is written as
// "\r\n" and "\r\n" is read back as "\n", while callers keep using fputs, fprintf, fflush and
// fclose on the FILE* as usual.
#include "pal/crt.h"
#include "pal/errhandlingapi.h"
#include "pal/src/base/internal.h"
#include "pal/winerror.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <new>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// ---- Text-mode cookie ----------------------------------------------------------------------

struct TextFile
{
    int fd = -1;
    // A '\r' read last, held back until the next byte shows whether it starts "\r\n".
    bool fPendingCr = false;
    // Translated bytes that did not fit the caller's buffer.
    std::string carry;
    // Every open text stream is linked here until it is closed: a stream the program leaves
    // for the runtime to close at exit stays reachable and is not reported as a leak.
    TextFile* pPrev = nullptr;
    TextFile* pNext = nullptr;
};

std::mutex g_openTextLock;
TextFile* g_pOpenText = nullptr;

void LinkOpenText(TextFile* file)
{
    std::lock_guard lock(g_openTextLock);
    file->pNext = g_pOpenText;
    if (g_pOpenText)
        g_pOpenText->pPrev = file;
    g_pOpenText = file;
}

void UnlinkOpenText(TextFile* file)
{
    std::lock_guard lock(g_openTextLock);
    if (file->pPrev)
        file->pPrev->pNext = file->pNext;
    else
        g_pOpenText = file->pNext;
    if (file->pNext)
        file->pNext->pPrev = file->pPrev;
}

bool WriteAll(int fd, const char* data, size_t size)
{
    while (size > 0) {
        ssize_t n = write(fd, data, size);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

ssize_t TextWrite(void* cookie, const char* buf, size_t size)
{
    auto* file = static_cast<TextFile*>(cookie);
    std::string out;
    out.reserve(size + size / 8 + 1);
    for (size_t i = 0; i < size; ++i) {
        if (buf[i] == '\n')
            out += '\r';
        out += buf[i];
    }
    if (!WriteAll(file->fd, out.data(), out.size()))
        return -1;
    return static_cast<ssize_t>(size);
}

ssize_t TextRead(void* cookie, char* buf, size_t size)
{
    auto* file = static_cast<TextFile*>(cookie);
    if (size == 0)
        return 0;
    std::string out;
    if (!file->carry.empty()) {
        out.swap(file->carry);
    } else {
        char raw[4096];
        while (out.empty()) {
            ssize_t n = read(file->fd, raw, sizeof(raw));
            if (n < 0) {
                if (errno == EINTR)
                    continue;
                return -1;
            }
            if (n == 0) {
                if (file->fPendingCr) {
                    file->fPendingCr = false;
                    out += '\r';
                }
                break;
            }
            for (ssize_t i = 0; i < n; ++i) {
                char c = raw[i];
                if (file->fPendingCr) {
                    file->fPendingCr = false;
                    if (c == '\n') {
                        out += '\n';
                        continue;
                    }
                    out += '\r';
                }
                if (c == '\r')
                    file->fPendingCr = true;
                else
                    out += c;
            }
        }
    }
    size_t count = std::min(size, out.size());
    std::memcpy(buf, out.data(), count);
    file->carry.assign(out, count, std::string::npos);
    return static_cast<ssize_t>(count);
}

// Positions are the file's raw byte offsets, as the runtime's text-mode ftell reports them.
int TextSeek(void* cookie, off64_t* offset, int whence)
{
    auto* file = static_cast<TextFile*>(cookie);
    off64_t result = lseek64(file->fd, *offset, whence);
    if (result < 0)
        return -1;
    file->fPendingCr = false;
    file->carry.clear();
    *offset = result;
    return 0;
}

int TextClose(void* cookie)
{
    auto* file = static_cast<TextFile*>(cookie);
    int result = close(file->fd);
    UnlinkOpenText(file);
    delete file;
    return result;
}

// ---- Errors ----------------------------------------------------------------------------------

// The runtime's errno for a Win32 error, as its _dosmaperr table gives it.
int ErrnoForError(DWORD error)
{
    switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_FILENAME_EXCED_RANGE:
    case ERROR_INVALID_NAME:
    case ERROR_BAD_PATHNAME:
        return ENOENT;
    case ERROR_TOO_MANY_OPEN_FILES:
        return EMFILE;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
        return EACCES;
    case ERROR_INVALID_HANDLE:
        return EBADF;
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY:
        return ENOMEM;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
        return EEXIST;
    case ERROR_DISK_FULL:
        return ENOSPC;
    default:
        return EINVAL;
    }
}

bool IsDirectory(const std::string& path)
{
    struct stat st
    {};
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// The Win32 error for a failed open(2) of `path`.
DWORD ErrorForOpen(int error, const std::string& path)
{
    switch (error) {
    case ENOENT: {
        // Windows tells a missing file in an existing directory from a missing directory.
        size_t slash = path.rfind('/');
        std::string parent = slash == std::string::npos ? "."
                             : slash == 0               ? "/"
                                                        : path.substr(0, slash);
        return IsDirectory(parent) ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
    }
    case ENOTDIR:
        return ERROR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EISDIR:
    case EROFS:
    case ETXTBSY:
        return ERROR_ACCESS_DENIED;
    case EEXIST:
        return ERROR_FILE_EXISTS;
    case EMFILE:
    case ENFILE:
        return ERROR_TOO_MANY_OPEN_FILES;
    case ENAMETOOLONG:
        return ERROR_FILENAME_EXCED_RANGE;
    case ENOSPC:
        return ERROR_DISK_FULL;
    case ENOMEM:
        return ERROR_NOT_ENOUGH_MEMORY;
    case EINVAL:
        return ERROR_INVALID_PARAMETER;
    default:
        return ERROR_ACCESS_DENIED;
    }
}

FILE* Fail(DWORD error)
{
    SetLastError(error);
    errno = ErrnoForError(error);
    return nullptr;
}

// ---- Modes -----------------------------------------------------------------------------------

struct OpenMode
{
    int flags = 0;
    bool fText = true;
    const char* stdioMode = "r"; // The equivalent mode for fdopen and fopencookie.
};

bool ParseMode(std::u16string_view mode, OpenMode* parsed)
{
    if (mode.empty())
        return false;
    char16_t kind = mode[0];
    if (kind != u'r' && kind != u'w' && kind != u'a')
        return false;
    bool fPlus = false, fBinary = false, fText = false, fExclusive = false;
    for (char16_t c : mode.substr(1)) {
        switch (c) {
        case u'+':
            if (fPlus)
                return false;
            fPlus = true;
            break;
        case u'b':
            if (fBinary || fText)
                return false;
            fBinary = true;
            break;
        case u't':
            if (fBinary || fText)
                return false;
            fText = true;
            break;
        case u'x':
            if (kind != u'w')
                return false;
            fExclusive = true;
            break;
        // Commit, no-commit, no-inherit and the caching and temporary-file hints change
        // nothing here.
        case u'c':
        case u'n':
        case u'N':
        case u'S':
        case u'R':
        case u'T':
        case u'D':
        case u' ':
            break;
        default:
            return false; // Including ",ccs=": encoded text streams are not offered.
        }
    }
    int access = fPlus ? O_RDWR : (kind == u'r' ? O_RDONLY : O_WRONLY);
    int create = kind == u'w'   ? (O_CREAT | O_TRUNC | (fExclusive ? O_EXCL : 0))
                 : kind == u'a' ? (O_CREAT | O_APPEND)
                                : 0;
    parsed->flags = access | create | O_CLOEXEC;
    parsed->fText = !fBinary;
    static const char* const kModes[3][2] = {{"r", "r+"}, {"w", "w+"}, {"a", "a+"}};
    parsed->stdioMode = kModes[kind == u'r' ? 0 : kind == u'w' ? 1 : 2][fPlus ? 1 : 0];
    return true;
}

} // namespace

FILE* _wfopen(const WCHAR* filename, const WCHAR* mode)
{
    if (filename == nullptr || mode == nullptr)
        return Fail(ERROR_INVALID_PARAMETER);
    DWORD injected = 0;
    if (pal::detail::ConsumeFault("_wfopen", filename, &injected))
        return Fail(injected);
    OpenMode parsed;
    if (!ParseMode(std::u16string_view(mode, pal::detail::WideLength(mode)), &parsed))
        return Fail(ERROR_INVALID_PARAMETER);
    std::u16string widePath(filename, pal::detail::WideLength(filename));
    if (widePath.empty())
        return Fail(ERROR_PATH_NOT_FOUND);
    // Windows callers separate with backslashes.
    std::replace(widePath.begin(), widePath.end(), u'\\', u'/');
    std::string path = pal::detail::ToUtf8(widePath);

    int fd = open(path.c_str(), parsed.flags, 0666);
    if (fd < 0)
        return Fail(ErrorForOpen(errno, path));
    struct stat st
    {};
    if (fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
        // Linux lets a directory be opened for reading; the runtime refuses.
        close(fd);
        return Fail(ERROR_ACCESS_DENIED);
    }

    FILE* stream = nullptr;
    if (!parsed.fText) {
        stream = fdopen(fd, parsed.stdioMode);
    } else {
        // Not `new (std::nothrow)`: the layer's own allocations stay out of the failure sweeps
        // that tests run over the system's.
        TextFile* cookie = nullptr;
        try {
            cookie = new TextFile;
        } catch (const std::bad_alloc&) {
        }
        if (cookie != nullptr) {
            cookie->fd = fd;
            cookie_io_functions_t functions{TextRead, TextWrite, TextSeek, TextClose};
            stream = fopencookie(cookie, parsed.stdioMode, functions);
            if (stream == nullptr)
                delete cookie;
            else
                LinkOpenText(cookie);
        }
    }
    if (stream == nullptr) {
        close(fd);
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    return stream;
}

int fputws(const WCHAR* str, FILE* stream)
{
    if (str == nullptr || stream == nullptr) {
        errno = EINVAL;
        return EOF;
    }
    std::string text = pal::detail::ToUtf8(std::u16string_view(str, pal::detail::WideLength(str)));
    if (!text.empty() && std::fwrite(text.data(), 1, text.size(), stream) != text.size())
        return EOF;
    return 0;
}
