#include "base/EFileIO.h"
#include "tests/TempDir.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

TEST(File, OpeningNeverCutsAndCreatesOnlyForWriting) {
    const TempDir dir;
    WriteWhole(dir.Path("there"), "old");
    for (const auto& [name, writable, readable] :
         {std::tuple{"there", true, true}, {"missing", true, false}, {".", false, true}, {"no/such", false, false}}) {
        EXPECT_EQ(EFileIO(Wide(dir.Path(name)), 10).IsOpen(), readable) << name;
        EXPECT_EQ(EFileIO(Wide(dir.Path(name)), 20).IsOpen(), writable) << name;
        EXPECT_EQ(fs::exists(dir.Path(name)), writable || readable) << name;
    }
    EXPECT_EQ(ReadWhole(dir.Path("there")), "old");
    const int next = dup(STDIN_FILENO); // the lowest free number, which the file gets
    close(next);
    {
        const EFileIO file(Wide(dir.Path("there")), 10);
        EXPECT_EQ(fcntl(next, F_GETFD), FD_CLOEXEC);
    }
    EXPECT_EQ(fcntl(next, F_GETFD), -1);
}

TEST(File, NamesAreUtf8OnDisk) {
    const TempDir dir;
    EString lone = Wide(dir.Path(""));
    lone += static_cast<wchar_t>(0xD83D);
    EXPECT_TRUE(EFileIO(Wide(dir.Path("M\u00e4rz \U0001F600.csv")), 20).IsOpen());
    EXPECT_FALSE(EFileIO(lone, 20).IsOpen() || EFileIO(Wide(dir.Path(std::string(5000, 'x'))), 20).IsOpen());
    EXPECT_EQ(fs::directory_iterator(dir.Path())->path().filename(), "M\u00e4rz \U0001F600.csv");
}

TEST(File, PastFourGigabytesTheSizeSaturatesAndAppendingFindsTheEnd) {
    const TempDir dir;
    const EString path = Wide(dir.Path("sparse"));
    for (const std::uintmax_t size : {0xFFFFFFFEULL, 0xFFFFFFFFULL, 5'368'709'123ULL}) {
        WriteWhole(dir.Path("sparse"), "");
        fs::resize_file(dir.Path("sparse"), size);
        EFileIO file(path, EFileIO::MODE_READ | EFileIO::MODE_WRITE);
        EXPECT_EQ(file.GetFileSize(), std::min<std::uintmax_t>(size, 0xFFFFFFFF));
        unsigned long count = 0;
        EXPECT_TRUE(file.PositionFile(0, FILE_POSITION_END) && file.WriteToFile("tail", 4, count));
        EXPECT_EQ(fs::file_size(dir.Path("sparse")), size + 4);
        char end[9] = {};
        EXPECT_TRUE(file.PositionFile(-5, FILE_POSITION_END) && file.ReadFrmFile(end, sizeof end, count));
        EXPECT_EQ(std::string(end, count), std::string("\0tail", 5)) << size;
    }
}

TEST(File, RenamingReplacesAndCrossesFileSystemsWithoutALeftover) {
    const TempDir dir;
    const EString b = Wide(dir.Path("b"));
    WriteWhole(dir.Path("a"), "aaaa");
    WriteWhole(dir.Path("b"), "b");
    EXPECT_TRUE(EFileIO::RenameFile(Wide(dir.Path("a")), b));
    EXPECT_TRUE(EFileIO::SetFileSize(b, 2));
    const std::string shm = "/dev/shm/kvBase39-test-" + std::to_string(getpid()); // seldom the same file system
    fs::create_directory(shm);
    const std::string other = shm + '/' + std::string(252, 'n'); // nearly as long as names can be
    WriteWhole(other, "old");
    EXPECT_TRUE(EFileIO::RenameFile(b, Wide(other)));
    EXPECT_FALSE(fs::exists(dir.Path("b")) || EFileIO::RenameFile(b, Wide(other)));
    EXPECT_EQ(ReadWhole(other), "aa");
    EXPECT_TRUE(EFileIO::RenameFile(Wide(other), b));
    EXPECT_TRUE(fs::is_empty(shm));
    fs::remove_all(shm);
    EXPECT_FALSE(EFileIO::RenameFile(b, L"/dev/shm/no/such"));
    EXPECT_EQ(ReadWhole(dir.Path("b")), "aa") << "the file stays";
    for (const auto& [path, made] : {std::pair{"d//f///g//", true}, {"d/f", true}, {"b/x/y", false}}) {
        EXPECT_EQ(EFileIO::CreateRecursiveDir(Wide(dir.Path(path))) != 0, made) << path;
        EXPECT_EQ(fs::is_directory(dir.Path(path)), made) << path;
    }
}

} // namespace
