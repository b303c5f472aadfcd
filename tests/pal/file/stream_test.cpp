// _wfopen's modes, text-mode line ends on disk, failures and fputws.
#include "pal/crt.h"
#include "pal/errhandlingapi.h"
#include "tests/support/paltest.h"

#include <cerrno>
#include <fstream>
#include <sstream>

namespace {

class StreamTest : public orvtest::PalTest
{
protected:
    std::filesystem::path File(const std::string& name) const { return Root() / name; }

    static FILE* Open(const std::filesystem::path& path, const char16_t* mode)
    {
        return _wfopen(orvtest::Wide(path.string()).c_str(), mode);
    }

    static std::string Bytes(const std::filesystem::path& path)
    {
        std::ostringstream bytes;
        bytes << std::ifstream(path, std::ios::binary).rdbuf();
        return bytes.str();
    }

    static void Put(const std::filesystem::path& path, const std::string& bytes)
    {
        std::ofstream(path, std::ios::binary) << bytes;
    }

    static std::string ReadAll(FILE* stream)
    {
        std::string text;
        char buffer[1000];
        for (size_t n; (n = std::fread(buffer, 1, sizeof(buffer), stream)) > 0;)
            text.append(buffer, n);
        return text;
    }
};

TEST_F(StreamTest, TextModeWritesCrLfOnDiskAndBinaryModeTheBytes)
{
    for (const char16_t* mode : {u"w", u"wt"}) {
        FILE* stream = Open(File("text.log"), mode);
        ASSERT_NE(nullptr, stream);
        EXPECT_GE(std::fputs("one\ntwo\n", stream), 0);
        EXPECT_EQ(7, std::fprintf(stream, "n=%d\r\n\n", 42));
        EXPECT_EQ(0, std::fflush(stream));
        EXPECT_EQ("one\r\ntwo\r\nn=42\r\r\n\r\n", Bytes(File("text.log")));
        EXPECT_EQ(0, std::fclose(stream));
    }
    FILE* stream = Open(File("bin.dat"), u"wb");
    ASSERT_NE(nullptr, stream);
    std::fputs("one\ntwo\r\n", stream);
    EXPECT_EQ(0, std::fclose(stream));
    EXPECT_EQ("one\ntwo\r\n", Bytes(File("bin.dat")));
}

TEST_F(StreamTest, AppendAndWritePlusModes)
{
    Put(File("app.log"), "first\r\n");
    FILE* stream = Open(File("app.log"), u"a+");
    ASSERT_NE(nullptr, stream);
    std::fputs("second\n", stream);
    // A write after moving still goes to the end.
    EXPECT_EQ(0, std::fseek(stream, 0, SEEK_SET));
    std::fputs("third\n", stream);
    EXPECT_EQ(0, std::fseek(stream, 0, SEEK_SET));
    EXPECT_EQ("first\nsecond\nthird\n", ReadAll(stream));
    EXPECT_EQ(0, std::fclose(stream));
    EXPECT_EQ("first\r\nsecond\r\nthird\r\n", Bytes(File("app.log")));

    stream = Open(File("new.log"), u"ab"); // append creates the file
    ASSERT_NE(nullptr, stream);
    std::fputs("x\n", stream);
    std::fclose(stream);
    EXPECT_EQ("x\n", Bytes(File("new.log")));

    Put(File("trunc.log"), "old content that is long");
    stream = Open(File("trunc.log"), u"w+");
    ASSERT_NE(nullptr, stream);
    EXPECT_EQ("", Bytes(File("trunc.log")));
    std::fputs("new\n", stream);
    std::rewind(stream);
    EXPECT_EQ("new\n", ReadAll(stream));
    std::fclose(stream);
    EXPECT_EQ("new\r\n", Bytes(File("trunc.log")));
}

TEST_F(StreamTest, ReadModesTranslateOnlyInText)
{
    Put(File("in.txt"), "a\r\nb\r\rc\n\r");
    FILE* stream = Open(File("in.txt"), u"r");
    ASSERT_NE(nullptr, stream);
    EXPECT_EQ("a\nb\r\rc\n\r", ReadAll(stream));
    std::fclose(stream);
    stream = Open(File("in.txt"), u"rb");
    ASSERT_NE(nullptr, stream);
    EXPECT_EQ("a\r\nb\r\rc\n\r", ReadAll(stream));
    std::fclose(stream);
    // "r+" may write too; nothing is truncated.
    stream = Open(File("in.txt"), u"r+t");
    ASSERT_NE(nullptr, stream);
    std::fputs("Z\n", stream);
    std::fclose(stream);
    EXPECT_EQ("Z\r\nb\r\rc\n\r", Bytes(File("in.txt")));

    // A CR LF split across the reader's chunks is still joined.
    std::string raw, expected;
    for (int i = 0; i < 3000; ++i) {
        raw += std::string(static_cast<size_t>(i % 7), 'x') + "\r\n";
        expected += std::string(static_cast<size_t>(i % 7), 'x') + "\n";
    }
    Put(File("long.txt"), raw);
    stream = Open(File("long.txt"), u"rt");
    ASSERT_NE(nullptr, stream);
    EXPECT_EQ(expected, ReadAll(stream));
    std::fclose(stream);
}

TEST_F(StreamTest, BackslashesSeparatePathComponentsAndNamesAreUtf8)
{
    std::filesystem::create_directory(Root() / "dir");
    FILE* stream = _wfopen((orvtest::Wide(Root().string()) + u"\\dir\\file.txt").c_str(), u"wb");
    ASSERT_NE(nullptr, stream);
    std::fclose(stream);
    EXPECT_TRUE(std::filesystem::exists(Root() / "dir" / "file.txt"));

    stream = _wfopen(
        (orvtest::Wide(Root().string()) + u"/r\u00E9sum\u00E9 \u65E5\u672C.txt").c_str(), u"w");
    ASSERT_NE(nullptr, stream);
    std::fclose(stream);
    EXPECT_TRUE(
        std::filesystem::exists(Root() / "r\xC3\xA9sum\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC.txt"));
}

TEST_F(StreamTest, FailuresSetErrnoAndTheLastError)
{
    std::filesystem::create_directory(Root() / "adir");
    Put(File("exists.txt"), "x");
    const struct
    {
        std::filesystem::path path;
        const char16_t* mode;
        int err;
        DWORD error;
    } cases[] = {
        {File("missing.txt"), u"r", ENOENT, ERROR_FILE_NOT_FOUND},
        {File("missing.txt"), u"r+", ENOENT, ERROR_FILE_NOT_FOUND},
        {File("nodir") / "f.txt", u"w", ENOENT, ERROR_PATH_NOT_FOUND},
        {File("nodir") / "f.txt", u"r", ENOENT, ERROR_PATH_NOT_FOUND},
        {File("exists.txt") / "f.txt", u"w", ENOENT, ERROR_PATH_NOT_FOUND},
        {File("adir"), u"r", EACCES, ERROR_ACCESS_DENIED},
        {File("adir"), u"w", EACCES, ERROR_ACCESS_DENIED},
        {File("exists.txt"), u"wx", EEXIST, ERROR_FILE_EXISTS},
        {File("exists.txt"), u"q", EINVAL, ERROR_INVALID_PARAMETER},
        {File("exists.txt"), u"rbt", EINVAL, ERROR_INVALID_PARAMETER},
        {File("exists.txt"), u"r++", EINVAL, ERROR_INVALID_PARAMETER},
        {File("exists.txt"), u"", EINVAL, ERROR_INVALID_PARAMETER},
        {File("exists.txt"), u"rx", EINVAL, ERROR_INVALID_PARAMETER},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path.string() + " " + orvtest::Narrow(c.mode));
        errno = 0;
        SetLastError(0);
        EXPECT_EQ(nullptr, Open(c.path, c.mode));
        EXPECT_EQ(c.err, errno);
        EXPECT_WIN32(c.error, GetLastError());
    }
    errno = 0;
    EXPECT_EQ(nullptr, _wfopen(nullptr, u"r"));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_CALL_ERROR(nullptr, ERROR_INVALID_PARAMETER, _wfopen(u"x", nullptr));

    // An injected fault matches the path, and sets errno as the error would.
    pal::InjectFault("_wfopen", ERROR_SHARING_VIOLATION, 0,
                     orvtest::Wide(File("locked.log").string()).c_str());
    errno = 0;
    EXPECT_CALL_ERROR(nullptr, ERROR_SHARING_VIOLATION, Open(File("locked.log"), u"a"));
    EXPECT_EQ(EACCES, errno);
    EXPECT_FALSE(std::filesystem::exists(File("locked.log")));
    FILE* other = Open(File("other.log"), u"w");
    ASSERT_NE(nullptr, other);
    std::fclose(other);
    EXPECT_EQ(1u, pal::FaultHits("_wfopen"));
}

TEST_F(StreamTest, FputwsWritesUtf8)
{
    FILE* stream = Open(File("utf8.txt"), u"wb");
    ASSERT_NE(nullptr, stream);
    EXPECT_GE(fputws(u"caf\u00E9 \u20AC \U0001F600\n", stream), 0);
    EXPECT_GE(fputws(u"", stream), 0);
    std::fclose(stream);
    EXPECT_EQ("caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80\n", Bytes(File("utf8.txt")));

    stream = Open(File("utf8t.txt"), u"w");
    ASSERT_NE(nullptr, stream);
    fputws(u"line\u00E9\n", stream);
    std::fclose(stream);
    EXPECT_EQ("line\xC3\xA9\r\n", Bytes(File("utf8t.txt")));

    EXPECT_EQ(EOF, fputws(static_cast<const WCHAR*>(nullptr), stdout));
    EXPECT_EQ(EOF, fputws(u"x", nullptr));
}

} // namespace
