// Directory search. The entries that match are read when the search starts, sorted as NTFS
// returns them (by name, case-insensitively), and handed out one per call.
#include "pal/errhandlingapi.h"
#include "pal/fileapi.h"
#include "pal/src/base/internal.h"
#include "pal/winerror.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <sys/stat.h>
#include <unordered_map>
#include <vector>

namespace {

struct FindSearch
{
    std::vector<WIN32_FIND_DATAW> entries;
    size_t next = 0;
};

// Find handles are the layer's own objects: a handle is valid while it is in this map.
std::mutex g_findLock;
std::unordered_map<HANDLE, std::unique_ptr<FindSearch>> g_searches;

char16_t FoldCase(char16_t c)
{
    if (c >= u'a' && c <= u'z')
        return char16_t(c - 32);
    // Latin-1 lower-case letters, except the division sign and y with diaeresis.
    if (c >= 0xE0 && c <= 0xFE && c != 0xF7)
        return char16_t(c - 32);
    return c;
}

// '*' matches any run of characters, '?' exactly one; the rest matches case-insensitively.
bool GlobMatch(std::u16string_view pattern, std::u16string_view name)
{
    size_t p = 0, s = 0;
    size_t starP = std::u16string_view::npos, starS = 0;
    while (s < name.size()) {
        if (p < pattern.size() && pattern[p] == u'*') {
            starP = p++;
            starS = s;
        } else if (p < pattern.size() &&
                   (pattern[p] == u'?' || FoldCase(pattern[p]) == FoldCase(name[s]))) {
            ++p;
            ++s;
        } else if (starP != std::u16string_view::npos) {
            p = starP + 1;
            s = ++starS;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == u'*')
        ++p;
    return p == pattern.size();
}

// As on Windows, a pattern ending in ".*" also matches names without that extension, so "*.*"
// matches every name.
bool NameMatches(std::u16string_view pattern, std::u16string_view name)
{
    if (GlobMatch(pattern, name))
        return true;
    if (pattern.size() >= 2 && pattern.substr(pattern.size() - 2) == u".*")
        return GlobMatch(pattern.substr(0, pattern.size() - 2), name);
    return false;
}

// 100-nanosecond intervals since 1601-01-01 UTC.
FILETIME ToFileTime(const timespec& ts)
{
    constexpr ULONGLONG kEpochDifference = 116444736000000000ULL; // 1601 to 1970.
    ULONGLONG ticks = kEpochDifference;
    if (ts.tv_sec >= 0)
        ticks += static_cast<ULONGLONG>(ts.tv_sec) * 10000000ULL +
                 static_cast<ULONGLONG>(ts.tv_nsec) / 100;
    FILETIME ft;
    ft.dwLowDateTime = static_cast<DWORD>(ticks);
    ft.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return ft;
}

bool FillFindData(int dirFd, const std::string& name, std::u16string_view wideName,
                  WIN32_FIND_DATAW* data)
{
    if (wideName.size() >= MAX_PATH)
        return false;
    struct stat st
    {};
    if (fstatat(dirFd, name.c_str(), &st, 0) != 0 &&
        fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
        return false;
    std::memset(data, 0, sizeof(*data));
    if (S_ISDIR(st.st_mode)) {
        data->dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
    } else {
        data->dwFileAttributes = FILE_ATTRIBUTE_ARCHIVE;
        auto size = static_cast<ULONGLONG>(st.st_size);
        data->nFileSizeHigh = static_cast<DWORD>(size >> 32);
        data->nFileSizeLow = static_cast<DWORD>(size);
    }
    if ((st.st_mode & S_IWUSR) == 0)
        data->dwFileAttributes |= FILE_ATTRIBUTE_READONLY;
    data->ftLastWriteTime = ToFileTime(st.st_mtim);
    data->ftLastAccessTime = ToFileTime(st.st_atim);
    // Linux keeps no creation time in struct stat; the earlier of the change and write times
    // stands in for it.
    data->ftCreationTime = ToFileTime(
        (st.st_ctim.tv_sec < st.st_mtim.tv_sec ||
         (st.st_ctim.tv_sec == st.st_mtim.tv_sec && st.st_ctim.tv_nsec < st.st_mtim.tv_nsec))
            ? st.st_ctim
            : st.st_mtim);
    std::memcpy(data->cFileName, wideName.data(), wideName.size() * sizeof(WCHAR));
    return true;
}

DWORD ErrorForDirectory(int error)
{
    switch (error) {
    case EACCES:
    case EPERM:
        return ERROR_ACCESS_DENIED;
    case ENAMETOOLONG:
        return ERROR_FILENAME_EXCED_RANGE;
    case EMFILE:
    case ENFILE:
        return ERROR_TOO_MANY_OPEN_FILES;
    case ENOMEM:
        return ERROR_NOT_ENOUGH_MEMORY;
    default: // ENOENT, ENOTDIR: the directory is not there.
        return ERROR_PATH_NOT_FOUND;
    }
}

FindSearch* LookUp(HANDLE hFindFile)
{
    auto it = g_searches.find(hFindFile);
    return it == g_searches.end() ? nullptr : it->second.get();
}

} // namespace

HANDLE WINAPI FindFirstFileW(LPCWSTR lpFileName, LPWIN32_FIND_DATAW lpFindFileData)
{
    if (lpFileName == nullptr || lpFindFileData == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    if (pal::detail::FailIfInjected("FindFirstFileW", lpFileName))
        return INVALID_HANDLE_VALUE;

    std::u16string path(lpFileName, pal::detail::WideLength(lpFileName));
    if (path.empty()) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    std::replace(path.begin(), path.end(), u'\\', u'/');
    size_t slash = path.rfind(u'/');
    std::u16string pattern = slash == std::u16string::npos ? path : path.substr(slash + 1);
    std::string directory;
    if (slash == std::u16string::npos)
        directory = ".";
    else if (slash == 0)
        directory = "/";
    else
        directory = pal::detail::ToUtf8(path.substr(0, slash));
    if (pattern.empty()) {
        // "dir/" names no file.
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }

    DIR* dir = opendir(directory.c_str());
    if (dir == nullptr) {
        SetLastError(ErrorForDirectory(errno));
        return INVALID_HANDLE_VALUE;
    }
    auto search = std::make_unique<FindSearch>();
    while (dirent* entry = readdir(dir)) {
        std::u16string wideName = pal::detail::ToUtf16(entry->d_name);
        if (!NameMatches(pattern, wideName))
            continue;
        WIN32_FIND_DATAW data;
        if (FillFindData(dirfd(dir), entry->d_name, wideName, &data))
            search->entries.push_back(data);
    }
    closedir(dir);

    if (search->entries.empty()) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    auto key = [](const WIN32_FIND_DATAW& d) {
        std::u16string k(d.cFileName);
        for (auto& c : k)
            c = FoldCase(c);
        return k;
    };
    std::stable_sort(search->entries.begin(), search->entries.end(),
                     [&](const WIN32_FIND_DATAW& a, const WIN32_FIND_DATAW& b) {
                         auto ka = key(a), kb = key(b);
                         return ka != kb ? ka < kb
                                         : std::u16string_view(a.cFileName) <
                                               std::u16string_view(b.cFileName);
                     });

    *lpFindFileData = search->entries[0];
    search->next = 1;
    HANDLE handle = search.get();
    std::lock_guard lock(g_findLock);
    g_searches.emplace(handle, std::move(search));
    return handle;
}

BOOL WINAPI FindNextFileW(HANDLE hFindFile, LPWIN32_FIND_DATAW lpFindFileData)
{
    std::lock_guard lock(g_findLock);
    FindSearch* search = LookUp(hFindFile);
    if (search == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (lpFindFileData == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (search->next >= search->entries.size()) {
        SetLastError(ERROR_NO_MORE_FILES);
        return FALSE;
    }
    *lpFindFileData = search->entries[search->next++];
    return TRUE;
}

BOOL WINAPI FindClose(HANDLE hFindFile)
{
    std::unique_ptr<FindSearch> search;
    {
        std::lock_guard lock(g_findLock);
        auto it = g_searches.find(hFindFile);
        if (it == g_searches.end()) {
            SetLastError(ERROR_INVALID_HANDLE);
            return FALSE;
        }
        search = std::move(it->second);
        g_searches.erase(it);
    }
    return TRUE;
}
