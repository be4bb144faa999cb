// What EFileIO costs above the bare system calls when a row of 100 bytes is appended to a file: open, size, write at the
// end, close.

#include "base/EFileIO.h"
#include "bench/Ratio.h"
#include "tests/TempDir.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char ROW[] =
    "2024-02-05;03:04:09.007;Pump 1;pressure above the upper limit;192;4.75;acknowledged by operator;Hall 2\n";
constexpr std::size_t ROW_LENGTH = 100;
static_assert(sizeof ROW > ROW_LENGTH);

const TempDir& Directory() {
    static const TempDir dir;
    return dir;
}

bool AppendBare(const char* path) {
    const int file = open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    struct stat status {};
    const bool done = file >= 0 && fstat(file, &status) == 0 &&
                      pwrite(file, ROW, ROW_LENGTH, status.st_size) == static_cast<ssize_t>(ROW_LENGTH);
    return file >= 0 && close(file) == 0 && done;
}

bool AppendByFileIO(const wchar_t* path) {
    EFileIO file(path, EFileIO::OPEN_FOR_WRITING);
    if (!file.IsOpen()) {
        return false;
    }
    file.GetFileSize();
    unsigned long written = 0;
    return file.PositionFile(0, FILE_POSITION_END) != 0 && file.WriteToFile(ROW, ROW_LENGTH, written) != 0;
}

// Every round begins with an empty file and ends with the check that each row has arrived.
template <class Append, class Path>
void Rounds(benchmark::State& state, const std::string& file, Append append, const Path& path) {
    WriteWhole(file, "");
    bool done = true;
    for (auto iteration : state) {
        done = append(path) && done;
    }
    if (!done || std::filesystem::file_size(file) != ROW_LENGTH * static_cast<std::size_t>(state.iterations())) {
        state.SkipWithError("rows are missing");
    }
}

} // namespace

int main(int argc, char** argv) {
    const Ratio ratio{.m_pszGoal = "1.05", .m_nRounds = 1000, .m_nIterations = 200};
    return RunRatio(argc, argv, ratio,
                    {"append by EFileIO",
                     [](benchmark::State& state) {
                         const std::string file = Directory().Path("rows.csv");
                         Rounds(state, file, AppendByFileIO, Wide(file));
                     }},
                    {"bare open, fstat, pwrite, close", [](benchmark::State& state) {
                         const std::string file = Directory().Path("rows.csv");
                         Rounds(state, file, AppendBare, file.c_str());
                     }});
}
