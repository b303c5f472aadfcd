// Directory search with FindFirstFileW, FindNextFileW and FindClose.
#include "pal/errhandlingapi.h"
#include "pal/fileapi.h"
#include "tests/support/paltest.h"

#include <cstring>
#include <fstream>
#include <sys/stat.h>
#include <vector>

namespace {

using NameList = std::vector<std::string>;

class FindTest : public orvtest::PalTest
{
protected:
    void SetUp() override
    {
        PalTest::SetUp();
        m_dir = MakeDir("logs");
        const std::pair<const char*, size_t> files[] = {
            {"a.log", 10}, {"B.LOG", 0}, {"c.txt", 5000}, {"noext", 3}, {"report.log.old", 1}};
        for (auto [name, size] : files)
            std::ofstream(m_dir / name, std::ios::binary) << std::string(size, 'x');
        std::filesystem::create_directory(m_dir / "sub");
    }

    // `name` under the test directory, as a UTF-16 pattern.
    std::u16string Pattern(const std::string& name) const
    {
        return orvtest::Wide((m_dir / name).string());
    }

    // Every name the search finds, in order; checks the end and closes the handle.
    static NameList Names(const std::u16string& pattern)
    {
        NameList names;
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

TEST_F(FindTest, WildcardsMatchCaseInsensitivelyInNameOrder)
{
    EXPECT_EQ((NameList{"a.log", "B.LOG"}), Names(Pattern("*.LoG")));
    EXPECT_EQ((NameList{"a.log", "B.LOG"}), Names(Pattern("?.l?G")));
    EXPECT_EQ((NameList{"c.txt"}), Names(Pattern("?.txt")));
    EXPECT_EQ((NameList{"report.log.old"}), Names(Pattern("*.old")));
    EXPECT_EQ((NameList{"report.log.old"}), Names(Pattern("r*g*")));
    EXPECT_EQ((NameList{"noext"}), Names(Pattern("NOEXT")));
    // "*" lists the dot entries and directories too; "*.*" and "x.*" match names without a dot.
    EXPECT_EQ((NameList{".", "..", "a.log", "B.LOG", "c.txt", "noext", "report.log.old", "sub"}),
              Names(Pattern("*")));
    EXPECT_EQ(Names(Pattern("*")), Names(Pattern("*.*")));
    EXPECT_EQ((NameList{"noext"}), Names(Pattern("noext.*")));
}

TEST_F(FindTest, BackslashesSeparateAndRelativePatternsSearchTheCurrentDirectory)
{
    EXPECT_EQ((NameList{"c.txt"}), Names(orvtest::Wide(m_dir.string()) + u"\\*.txt"));
    EXPECT_EQ((NameList{"c.txt"}), Names(orvtest::Wide(Root().string()) + u"\\logs/c.*"));

    auto previous = std::filesystem::current_path();
    std::filesystem::current_path(m_dir);
    auto names = Names(u"*.txt");
    auto nested = Names(u"../logs/a.*");
    std::filesystem::current_path(previous);
    EXPECT_EQ((NameList{"c.txt"}), names);
    EXPECT_EQ((NameList{"a.log"}), nested);
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
    EXPECT_EQ(expected, (ULONGLONG(data.ftLastWriteTime.dwHighDateTime) << 32) |
                            data.ftLastWriteTime.dwLowDateTime);
    for (int i = 0; i < 2; ++i) // the end stays the end
        EXPECT_CALL_ERROR(FALSE, ERROR_NO_MORE_FILES, FindNextFileW(handle, &data));
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
    std::filesystem::resize_file(big, (5ULL << 30) + 7, ec); // sparse where supported
    if (ec)
        GTEST_SKIP() << "cannot make a 5 GiB sparse file here: " << ec.message();
    WIN32_FIND_DATAW data;
    HANDLE handle = FindFirstFileW(Pattern("big.vhd").c_str(), &data);
    ASSERT_NE(INVALID_HANDLE_VALUE, handle);
    EXPECT_EQ(1u, data.nFileSizeHigh);
    EXPECT_EQ((1u << 30) + 7, data.nFileSizeLow);
    FindClose(handle);
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

    // A closed handle, like one that never was, is invalid for both calls.
    int local = 0;
    for (HANDLE bad : {a, HANDLE(nullptr), INVALID_HANDLE_VALUE, HANDLE(&local)}) {
        EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_HANDLE, FindNextFileW(bad, &first));
        EXPECT_CALL_ERROR(FALSE, ERROR_INVALID_HANDLE, FindClose(bad));
    }
}

TEST_F(FindTest, NoMatchMissingDirectoryAndInjectedFault)
{
    const std::pair<std::u16string, DWORD> cases[] = {
        {Pattern("*.none"), ERROR_FILE_NOT_FOUND},
        {Pattern("missing.log"), ERROR_FILE_NOT_FOUND},
        {Pattern("nodir/*.log"), ERROR_PATH_NOT_FOUND},
        {Pattern("nodir\\deeper\\*"), ERROR_PATH_NOT_FOUND},
        {u"", ERROR_PATH_NOT_FOUND},
    };
    WIN32_FIND_DATAW data;
    for (const auto& [pattern, dwError] : cases) {
        SCOPED_TRACE(orvtest::Narrow(pattern));
        EXPECT_CALL_ERROR(INVALID_HANDLE_VALUE, dwError, FindFirstFileW(pattern.c_str(), &data));
    }

    pal::InjectFault("FindFirstFileW", ERROR_ACCESS_DENIED, 0, Pattern("*.log").c_str());
    EXPECT_CALL_ERROR(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED,
                      FindFirstFileW(Pattern("*.log").c_str(), &data));
    EXPECT_EQ((NameList{"c.txt"}), Names(Pattern("*.txt")));
    EXPECT_EQ(1u, pal::FaultHits("FindFirstFileW"));
}

} // namespace
