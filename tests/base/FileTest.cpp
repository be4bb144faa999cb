#include "base/EFileIO.h"
#include "tests/TempDir.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

namespace fs = std::filesystem;

TEST(File, RenamingReplacesAndCrossesFileSystemsWithoutALeftover) {
    const TempDir dir;
    const EString here = Wide(dir.Path("here"));
    const std::string shm = "/dev/shm/kvBase39-test-" + std::to_string(getpid()); // seldom the same file system
    const std::string far = shm + '/' + std::string(252, 'n');                    // nearly as long as names can be
    fs::create_directory(shm);
    for (const std::string& target : {dir.Path("near"), far}) {
        WriteWhole(dir.Path("here"), "aaaa");
        WriteWhole(target, "old");
        EXPECT_TRUE(EFileIO::SetFileSize(here, 2));
        EXPECT_TRUE(EFileIO::RenameFile(here, Wide(target)));
        EXPECT_FALSE(EFileIO::RenameFile(here, Wide(target))) << "it is there no longer";
        EXPECT_EQ(ReadWhole(target), "aa");
    }
    EXPECT_TRUE(EFileIO::RenameFile(Wide(far), here));
    EXPECT_TRUE(fs::is_empty(shm));
    fs::remove_all(shm);
    EXPECT_FALSE(EFileIO::RenameFile(here, L"/dev/shm/no/such"));
    EXPECT_EQ(ReadWhole(dir.Path("here")), "aa") << "the file stays";
}

TEST(File, IsClosedInOtherPrograms) {
    const int next = dup(STDIN_FILENO); // the lowest free number, which the file gets
    close(next);
    const EFileIO file(L"/dev/null", EFileIO::OPEN_FOR_READING);
    EXPECT_EQ(fcntl(next, F_GETFD), FD_CLOEXEC);
}
