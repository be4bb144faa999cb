#include "base/EFileIO.h"
#include "tests/TempDir.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

bool Write(EFileIO& file, const std::string& bytes) {
    unsigned long written = 77;
    const bool done = file.WriteToFile(bytes.data(), bytes.size(), written) != 0;
    EXPECT_EQ(written, done ? bytes.size() : 0);
    return done;
}

void Append(const std::string& path, const std::string& bytes) {
    EFileIO file(Wide(path), EFileIO::OPEN_FOR_WRITING);
    ASSERT_TRUE(file.IsOpen());
    file.GetFileSize();
    ASSERT_TRUE(file.PositionFile(0, FILE_POSITION_END));
    ASSERT_TRUE(Write(file, bytes));
}

std::string Read(EFileIO& file, unsigned long length) {
    std::string bytes(length, '#');
    unsigned long read = 77;
    EXPECT_TRUE(file.ReadFrmFile(bytes.data(), length, read));
    return bytes.substr(0, read);
}

TEST(File, OpeningNeverCutsAndCreatesOnlyForWriting) {
    const TempDir dir;
    WriteWhole(dir.Path("there"), "old");
    const struct {
        const char* m_pszName;
        bool m_bWritable;
        bool m_bReadable;
    } cases[] = {{"there", true, true}, {"missing", true, false}, {".", false, true}, {"no/such", false, false}};
    for (const auto& [name, writable, readable] : cases) {
        EXPECT_EQ(EFileIO(Wide(dir.Path(name)), 10).IsOpen(), readable) << name;
        EXPECT_EQ(EFileIO(Wide(dir.Path(name)), 20).IsOpen(), writable) << name;
        EXPECT_EQ(fs::exists(dir.Path(name)), writable || readable) << name;
    }
    char byte = 0;
    unsigned long read = 77;
    EXPECT_FALSE(EFileIO(Wide(dir.Path()), 10).ReadFrmFile(&byte, 1, read)) << "a directory";
    EXPECT_EQ(read, 0U);
    const int next = dup(STDIN_FILENO); // the lowest free number, which the file gets
    close(next);
    {
        EFileIO reader(Wide(dir.Path("there")), 10);
        EXPECT_EQ(fcntl(next, F_GETFD), FD_CLOEXEC);
        EXPECT_FALSE(Write(reader, "new"));
    }
    EXPECT_EQ(fcntl(next, F_GETFD), -1);
    EXPECT_EQ(ReadWhole(dir.Path("there")), "old");
}

TEST(File, NamesAreUtf8OnDisk) {
    const TempDir dir;
    const EString base = Wide(dir.Path() + "/");
    const EString good = base + EString(L"M\u00e4rz \U0001F600.csv");
    const EString lone = base + EString(std::wstring(1, static_cast<wchar_t>(0xD83D)).c_str());
    EXPECT_TRUE(EFileIO(good, 20).IsOpen());
    EXPECT_TRUE(fs::exists(dir.Path("M\xC3\xA4rz \xF0\x9F\x98\x80.csv")));
    EXPECT_FALSE(EFileIO(lone, 20).IsOpen());
    EXPECT_FALSE(EFileIO::CreateDir(lone));
    EXPECT_FALSE(EFileIO::CreateRecursiveDir(lone));
    EXPECT_FALSE(EFileIO::RenameFile(good, lone));
    EXPECT_FALSE(EFileIO(base + EString(std::wstring(5000, L'x').c_str()), 20).IsOpen());
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.Path()), fs::directory_iterator()), 1);
}

TEST(File, AppendsAndReadsAtItsPosition) {
    const TempDir dir;
    const std::string path = dir.Path("file");
    Append(path, "one,");
    Append(path, "two,");
    {
        EFileIO file(Wide(path), 20);
        ASSERT_TRUE(file.PositionFile(0, FILE_POSITION_END));
        ASSERT_TRUE(Write(file, "three"));
        ASSERT_TRUE(file.PositionFile(-2, FILE_POSITION_END)); // of what it has written itself
        ASSERT_TRUE(Write(file, "EE,four"));
        ASSERT_TRUE(file.PositionFile(0, FILE_POSITION_BEGIN));
        ASSERT_TRUE(Write(file, "ONE"));
        EXPECT_FALSE(file.PositionFile(-1, FILE_POSITION_BEGIN));
        EXPECT_EQ(file.GetFileSize(), 18U);
    }
    EXPECT_EQ(ReadWhole(path), "ONE,two,thrEE,four");
    EFileIO file(Wide(path), 10);
    EXPECT_EQ(Read(file, 4), "ONE,");
    ASSERT_TRUE(file.PositionFile(4, FILE_POSITION_CURRENT));
    EXPECT_EQ(file.GetBytesLeft(), 10U);
    EXPECT_EQ(Read(file, 100), "thrEE,four") << "short only at the end";
    EXPECT_EQ(Read(file, 100), "");
}

TEST(File, AFullDiskLeavesTheFileAsItWas) {
    const TempDir dir;
    const std::string before(8'000, 'a');
    const std::string bytes(4'000, 'b');
    WriteWhole(dir.Path("file"), before);
    EFileIO file(Wide(dir.Path("file")), 20);
    rlimit old{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{10'000, old.rlim_max}; // 2000 of the 4000 bytes find room
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    file.PositionFile(0, FILE_POSITION_END);
    const bool tooLong = Write(file, bytes);
    const std::string between = ReadWhole(dir.Path("file"));
    const bool fitting = Write(file, bytes.substr(2'000)); // the position has not moved
    const bool full = Write(file, "b");
    setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, oldHandler);
    EXPECT_FALSE(tooLong);
    EXPECT_EQ(between, before);
    EXPECT_TRUE(fitting);
    EXPECT_FALSE(full);
    EXPECT_EQ(ReadWhole(dir.Path("file")), before + bytes.substr(2'000));
}

TEST(File, PastFourGigabytesTheSizeSaturatesAndAppendingFindsTheEnd) {
    const TempDir dir;
    const std::string path = dir.Path("sparse");
    for (const auto& [size, told] : {std::pair<std::uintmax_t, std::uint32_t>{0xFFFFFFFE, 0xFFFFFFFE},
                                     {0xFFFFFFFF, 0xFFFFFFFF},
                                     {5'368'709'123, 0xFFFFFFFF}}) {
        WriteWhole(path, "");
        fs::resize_file(path, size);
        EXPECT_EQ(EFileIO(Wide(path), 10).GetFileSize(), told);
        Append(path, "tail");
        EXPECT_EQ(fs::file_size(path), size + 4);
        std::ifstream file(path, std::ios::binary);
        file.seekg(-5, std::ios::end);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), std::string("\0tail", 5)) << size;
    }
}

TEST(File, OperationsByName) {
    const TempDir dir;
    const EString a = Wide(dir.Path("a"));
    const EString b = Wide(dir.Path("b"));
    const EString d = Wide(dir.Path("d"));
    WriteWhole(dir.Path("a"), "aaaa");
    WriteWhole(dir.Path("b"), "b");
    EXPECT_TRUE(EFileIO::RenameFile(a, b));
    EXPECT_EQ(ReadWhole(dir.Path("b")), "aaaa");
    EXPECT_FALSE(EFileIO::RenameFile(a, b));
    EXPECT_TRUE(EFileIO::SetFileSize(b, 2));
    EXPECT_TRUE(EFileIO::SetFileSize(b, 3));
    EXPECT_EQ(ReadWhole(dir.Path("b")), std::string("aa\0", 3));
    EXPECT_FALSE(EFileIO::SetFileSize(a, 0));
    EXPECT_FALSE(EFileIO::DeleteFile(a, false));
    EXPECT_FALSE(EFileIO::Exists(a, nullptr));

    EXPECT_TRUE(EFileIO::CreateDir(d));
    EXPECT_FALSE(EFileIO::CreateDir(d));
    EXPECT_FALSE(EFileIO::CreateDir(a + EString(L"/d")));
    EXPECT_TRUE(EFileIO::RenameFile(b, d + EString(L"/c")));
    unsigned long mode = 0;
    EXPECT_TRUE(EFileIO::Exists(d + EString(L"/c"), &mode));
    EXPECT_TRUE(S_ISREG(mode));
    EXPECT_FALSE(EFileIO::RemoveDir(d));
    EXPECT_TRUE(EFileIO::DeleteFile(d + EString(L"/c"), false));
    EXPECT_TRUE(EFileIO::RemoveDir(d));
    EXPECT_TRUE(fs::is_empty(dir.Path()));

    wchar_t separators[] = L"c:\\logs\\\\a/b\\";
    EFileIO::ConvertPathString(separators);
    EXPECT_STREQ(separators, L"c:/logs//a/b/");
}

TEST(File, CreateRecursiveDir) {
    const TempDir dir;
    WriteWhole(dir.Path("file"), "x");
    for (const auto& [path, made] : {std::pair{"a/b/c", true},
                                     {"a/b/c", true},
                                     {"e/f/", true},
                                     {"a//g///h//", true},
                                     {"file", false},
                                     {"file/", false},
                                     {"file/x/y", false}}) {
        EXPECT_EQ(EFileIO::CreateRecursiveDir(Wide(dir.Path(path))) != 0, made) << path;
        EXPECT_EQ(fs::is_directory(dir.Path(path)), made) << path;
    }
    EXPECT_EQ(ReadWhole(dir.Path("file")), "x");
}

} // namespace
