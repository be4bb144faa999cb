// What a restart of a set of log files costs above the bare system calls that move its files one place along: a file is
// removed, the others are renamed over what stood in their way, and a new one gets its headings.

#include "bench/Ratio.h"
#include "config/EFileSpec.h"
#include "service/ELogFile.h"
#include "tests/TempDir.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const TempDir& Directory() {
    static const TempDir dir;
    return dir;
}

std::string File(int index) {
    return Directory().Path("alarms-" + std::to_string(index) + ".csv");
}

constexpr char HEADINGS[] = "Date\n";

void MakeFiles(int count) {
    for (int i = 0; i < count; ++i) {
        WriteWhole(File(i), HEADINGS);
    }
}

// The set must be complete, and its last file no longer the one that stood there.
void CheckFiles(benchmark::State& state, int count) {
    for (int i = 0; i < count; ++i) {
        if (ReadWhole(File(i)) != HEADINGS) {
            state.SkipWithError("a file is missing");
        }
    }
}

template <int COUNT>
void Restart(benchmark::State& state) {
    ELogFile service(nullptr);
    EFileSpec spec;
    spec.m_LogPath = Wide(Directory().Path() + '/');
    spec.m_FileName = L"alarms-%i.csv";
    spec.m_NumFiles = COUNT;
    spec.m_Unicode = 0;
    spec.MakeFilter(false);
    spec.m_Headers.SetAtGrow(0, L"Date");
    spec.m_bHeadersSet = true;
    MakeFiles(COUNT);
    for (auto iteration : state) {
        service.RestartFile(&spec);
    }
    CheckFiles(state, COUNT);
}

template <int COUNT>
void MoveBare(benchmark::State& state) {
    std::vector<std::string> files;
    for (int i = 0; i < COUNT; ++i) {
        files.push_back(File(i));
    }
    MakeFiles(COUNT);
    for (auto iteration : state) {
        unlink(files.back().c_str());
        for (std::size_t i = files.size() - 1; i > 0; --i) {
            unlink(files[i].c_str()); // finds something only where a set has a gap, and is asked for each time
            std::rename(files[i - 1].c_str(), files[i].c_str());
        }
        const int file = open(files[0].c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
        struct stat status {};
        if (fstat(file, &status) != 0 || pwrite(file, HEADINGS, sizeof HEADINGS - 1, 0) < 0 || close(file) != 0) {
            state.SkipWithError("a bare call failed");
        }
    }
    CheckFiles(state, COUNT);
}

} // namespace

int main(int argc, char** argv) {
    return RunRatios(argc, argv,
                     {{{.m_pszGoal = "1.2", .m_nRounds = 300, .m_nIterations = 40},
                       {"restart of 2 files", Restart<2>},
                       {"bare moves of 2", MoveBare<2>}},
                      {{.m_pszGoal = "1.2", .m_nRounds = 100, .m_nIterations = 10},
                       {"restart of 20 files", Restart<20>},
                       {"bare moves of 20", MoveBare<20>}},
                      {{.m_pszGoal = "1.2", .m_nRounds = 50, .m_nIterations = 2},
                       {"restart of 200 files", Restart<200>},
                       {"bare moves of 200", MoveBare<200>}}});
}
