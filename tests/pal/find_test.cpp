// Directory search with FindFirstFileW, FindNextFileW and FindClose.
#include "pal/errhandlingapi.h"
#include "pal/fileapi.h"
#include "tests/support/paltest.h"

#include <cstring>
#include <fstream>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

class FindTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        PalTest::SetUp();
        m_dir = MakeDir("logs");
        Write("a.log", 10);
        Write("B.LOG", 0);
        Write("c.txt", 5000);
        Write("noext", 3);
        Write("report.log.old", 1);
        std::filesystem::create_directory(m_dir / "sub");
    }

    void Write(const std::string& name, size_t size) const
    {
        std::ofstream(m_dir / name, std::ios::binary) << std::string(size, 'x');
    }

    // `name` under the test directory, as a UTF-16 pattern.
    std::u16string Pattern(const std::string& name) const
    {
        return orvtest::Wide((m_dir / name).string());
    }

    // Every name the search finds, in order; checks the end and closes the handle.
    static std::vector<std::string> Names(const std::u16string& pattern)
    {
        std::vector<std::string> names;
        WIN32_FIND_DATAW data;
        HANDLE handle = FindFirstFileW(pattern.c_str(), &data);
        if (handle == INVALID_HANDLE_VALUE)
            return names;
        do
            names.push_back(orvtest::Narrow(data.cFileName));
        while (FindNextFileW(handle, &data));
        EXPECT_WIN32(ERROR_NO_MORE_FILES, GetLastError());
        EXPECT_TRUE(FindClose(handle));
        return names;
    }

    std::filesystem::path m_dir;
};

using NameList = std::vector<std::string>;

TEST_F(FindTest, WildcardsMatchCaseInsensitivelyInNameOrder)
{
    EXPECT_EQ((NameList{"a.log", "B.LOG"}), Names(Pattern("*.log")));
    EXPECT_EQ((NameList{"a.log", "B.LOG"}), Names(Pattern("*.LoG")));
    EXPECT_EQ((NameList{"c.txt"}), Names(Pattern("?.txt")));
    EXPECT_EQ((NameList{"a.log", "B.LOG"}), Names(Pattern("?.l?G")));
    EXPECT_EQ((NameList{"report.log.old"}), Names(Pattern("*.old")));
    EXPECT_EQ((NameList{"report.log.old"}), Names(Pattern("r*g*")));
    EXPECT_EQ((NameList{"noext"}), Names(Pattern("NOEXT")));
}

TEST_F(FindTest, StarListsDotEntriesAndDirectoriesToo)
{
    EXPECT_EQ((NameList{".", "..", "a.log", "B.LOG", "c.txt", "noext", "report.log.old", "sub"}),
              Names(Pattern("*")));
    // "*.*" matches names without a dot as well, as on Windows.
    EXPECT_EQ(Names(Pattern("*")), Names(Pattern("*.*")));
    EXPECT_EQ((NameList{"noext"}), Names(Pattern("noext.*")));
}

TEST_F(FindTest, BackslashesSeparateToo)
{
    std::u16string pattern = orvtest::Wide(m_dir.string()) + u"\\*.txt";
    EXPECT_EQ((NameList{"c.txt"}), Names(pattern));
    std::u16string mixed = orvtest::Wide(Root().string()) + u"\\logs/c.*";
    EXPECT_EQ((NameList{"c.txt"}), Names(mixed));
}

TEST_F(FindTest, FillsAttributesSizesAndTimes)
{
    WIN32_FIND_DATAW data;
    std::memset(&data, 0xEE, sizeof(data));
    HANDLE handle = FindFirstFileW(Pattern("c.txt").c_str(), &data);
    ASSERT_NE(INVALID_HANDLE_VALUE, handle);
    EXPECT_EQ(u"c.txt", std::u16string(data.cFileName));
    EXPECT_EQ(0, data.cAlternateFileName[0]);
    EXPECT_EQ(static_cast<DWORD>(FILE_ATTRIBUTE_ARCHIVE), data.dwFileAttributes);
    EXPECT_EQ(0u, data.nFileSizeHigh);
    EXPECT_EQ(5000u, data.nFileSizeLow);
    struct stat st
    {};
    ASSERT_EQ(0, stat((m_dir / "c.txt").c_str(), &st));
    ULONGLONG expected = 116444736000000000ULL +
                         static_cast<ULONGLONG>(st.st_mtim.tv_sec) * 10000000 +
                         static_cast<ULONGLONG>(st.st_mtim.tv_nsec) / 100;
    ULONGLONG written =
        (ULONGLONG(data.ftLastWriteTime.dwHighDateTime) << 32) | data.ftLastWriteTime.dwLowDateTime;
    EXPECT_EQ(expected, written);
    EXPECT_FALSE(FindNextFileW(handle, &data));
    EXPECT_WIN32(ERROR_NO_MORE_FILES, GetLastError());
    EXPECT_FALSE(FindNextFileW(handle, &data));
    EXPECT_WIN32(ERROR_NO_MORE_FILES, GetLastError());
    EXPECT_TRUE(FindClose(handle));

    handle = FindFirstFileW(Pattern("sub").c_str(), &data);
    ASSERT_NE(INVALID_HANDLE_VALUE, handle);
    EXPECT_EQ(static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY),
              data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_EQ(0u, data.nFileSizeLow);
    EXPECT_TRUE(FindClose(handle));
}

TEST_F(FindTest, SizesAboveFourGigabytesUseTheHighPart)
{
    std::filesystem::path big = m_dir / "big.vhd";
    std::ofstream(big).close();
    std::error_code ec;
    std::filesystem::resize_file(big, (5ULL << 30) + 7, ec); // Sparse where supported.
    if (ec)
        GTEST_SKIP() << "cannot make a 5 GiB sparse file here: " << ec.message();
    WIN32_FIND_DATAW data;
    HANDLE handle = FindFirstFileW(Pattern("big.vhd").c_str(), &data);
    ASSERT_NE(INVALID_HANDLE_VALUE, handle);
    EXPECT_EQ(1u, data.nFileSizeHigh);
    EXPECT_EQ((1u << 30) + 7, data.nFileSizeLow);
    FindClose(handle);
}

TEST_F(FindTest, NoMatchAndMissingDirectory)
{
    WIN32_FIND_DATAW data;
    SetLastError(0);
    EXPECT_EQ(INVALID_HANDLE_VALUE, FindFirstFileW(Pattern("*.none").c_str(), &data));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, GetLastError());
    SetLastError(0);
    EXPECT_EQ(INVALID_HANDLE_VALUE, FindFirstFileW(Pattern("missing.log").c_str(), &data));
    EXPECT_WIN32(ERROR_FILE_NOT_FOUND, GetLastError());
    SetLastError(0);
    EXPECT_EQ(INVALID_HANDLE_VALUE, FindFirstFileW(Pattern("nodir/*.log").c_str(), &data));
    EXPECT_WIN32(ERROR_PATH_NOT_FOUND, GetLastError());
    SetLastError(0);
    EXPECT_EQ(INVALID_HANDLE_VALUE, FindFirstFileW(Pattern("nodir\\deeper\\*").c_str(), &data));
    EXPECT_WIN32(ERROR_PATH_NOT_FOUND, GetLastError());
    SetLastError(0);
    EXPECT_EQ(INVALID_HANDLE_VALUE, FindFirstFileW(W(""), &data));
    EXPECT_WIN32(ERROR_PATH_NOT_FOUND, GetLastError());
}

TEST_F(FindTest, HandlesAreValidatedAndClosedOnce)
{
    WIN32_FIND_DATAW data;
    HANDLE handle = FindFirstFileW(Pattern("*.log").c_str(), &data);
    ASSERT_NE(INVALID_HANDLE_VALUE, handle);
    EXPECT_TRUE(FindClose(handle));

    int local = 0;
    for (HANDLE bad : {handle, HANDLE(nullptr), INVALID_HANDLE_VALUE, HANDLE(&local)}) {
        SetLastError(0);
        EXPECT_FALSE(FindNextFileW(bad, &data));
        EXPECT_WIN32(ERROR_INVALID_HANDLE, GetLastError());
        SetLastError(0);
        EXPECT_FALSE(FindClose(bad));
        EXPECT_WIN32(ERROR_INVALID_HANDLE, GetLastError());
    }
}

TEST_F(FindTest, SearchesAreIndependent)
{
    WIN32_FIND_DATAW first, second;
    HANDLE a = FindFirstFileW(Pattern("*.log").c_str(), &first);
    HANDLE b = FindFirstFileW(Pattern("*.log").c_str(), &second);
    ASSERT_NE(INVALID_HANDLE_VALUE, a);
    ASSERT_NE(INVALID_HANDLE_VALUE, b);
    EXPECT_NE(a, b);
    EXPECT_TRUE(FindNextFileW(a, &first));
    EXPECT_EQ(u"B.LOG", std::u16string(first.cFileName));
    EXPECT_TRUE(FindClose(a));
    EXPECT_TRUE(FindNextFileW(b, &second));
    EXPECT_EQ(u"B.LOG", std::u16string(second.cFileName));
    EXPECT_TRUE(FindClose(b));
}

TEST_F(FindTest, RelativePatternSearchesTheCurrentDirectory)
{
    auto previous = std::filesystem::current_path();
    std::filesystem::current_path(m_dir);
    auto names = Names(u"*.txt");
    auto nested = Names(u"../logs/a.*");
    std::filesystem::current_path(previous);
    EXPECT_EQ((NameList{"c.txt"}), names);
    EXPECT_EQ((NameList{"a.log"}), nested);
}

TEST_F(FindTest, FaultHookMatchesThePattern)
{
    std::u16string pattern = Pattern("*.log");
    pal::InjectFault("FindFirstFileW", ERROR_ACCESS_DENIED, 0, pattern.c_str());
    WIN32_FIND_DATAW data;
    SetLastError(0);
    EXPECT_EQ(INVALID_HANDLE_VALUE, FindFirstFileW(pattern.c_str(), &data));
    EXPECT_WIN32(ERROR_ACCESS_DENIED, GetLastError());
    EXPECT_EQ((NameList{"c.txt"}), Names(Pattern("*.txt")));
    EXPECT_EQ(1u, pal::FaultHits("FindFirstFileW"));
}

} // namespace
