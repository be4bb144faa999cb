#include "tests/files/LogFiles.h"

#include <csignal>
#include <sys/resource.h>

namespace {

class OutputFaultTest : public LogFilesTest {};

// No file grows beyond so many bytes while it lives, as on a full disk.
class FullDisk {
public:
    explicit FullDisk(rlim_t bytes) {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_Before);
        const rlimit full{bytes, m_Before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &full);
    }
    ~FullDisk() { setrlimit(RLIMIT_FSIZE, &m_Before); }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    rlimit m_Before{};
};

} // namespace

TEST_F(OutputFaultTest, NeverLeavesPartOfARowOnAFullDisk) {
    for (rlim_t room = 0; room <= 14; ++room) {
        StartColumn({.m_File = "a.csv", .m_nMaxSize = 0});
        {
            const FullDisk disk(room);
            WriteRow("aaa");
            WriteRow("b");
            WriteRow("ccccc");
        }
        WriteRow("d");
        // What fits is there, whole; what does not is gone, and the row after it is tried again.
        std::string expected = "H\n";
        for (const std::string row : {"aaa\n", "b\n", "ccccc\n"}) {
            expected += expected.size() + row.size() <= room ? row : "";
        }
        EXPECT_EQ(ReadWhole("logs/a.csv"), expected + "d\n") << room << " bytes";
    }
}

TEST_F(OutputFaultTest, KeepsAPageThatCannotBeEnded) {
    StartColumn({.m_File = "%i.html", .m_nMaxSize = 400, .m_nFormat = 2});
    WriteRow(std::string(100, '1'));
    const Files before = Found();
    {
        const FullDisk disk(before.at("logs/0.html").size() + 3);
        WriteRow(std::string(300, '2')); // needs a new file
        Process(ACTION_RESTART_FILE);
    }
    EXPECT_EQ(Found(), before);
    WriteRow(std::string(10, '3'));
    Files after = Found();
    EXPECT_EQ(after.size(), 2U);
    EXPECT_EQ(after["logs/1.html"], before.at("logs/0.html") + "</TBODY>\n</TABLE>\n<P>\n</BODY>\n</HTML>\n");
    EXPECT_NE(after["logs/0.html"].find("<TD>3333333333</TD>"), std::string::npos);
}

TEST_F(OutputFaultTest, TakesFilesAsItFindsThem) {
    struct Case {
        const char* m_pszWhat;
        void (*m_pDo)();
        Files m_Files; // after one more row
    };
    const Case cases[] = {
        {"removed",
         [] { std::filesystem::remove("logs/log-0.csv"); },
         {{"logs/log-0.csv", "H\n2\n"}, {"logs/log-1.csv", ""}}},
        {"emptied",
         [] { std::filesystem::resize_file("logs/log-0.csv", 0); },
         {{"logs/log-0.csv", "H\n2\n"}, {"logs/log-1.csv", ""}}},
        {"cut", [] { std::filesystem::resize_file("logs/log-0.csv", 3); }, {{"logs/log-0.csv", "H\n12\n"}}},
        {"grown",
         [] { WriteWhole("logs/log-0.csv", std::string(50, 'x')); },
         {{"logs/log-0.csv", "H\n2\n"}, {"logs/log-1.csv", std::string(50, 'x')}}},
        {"no way to rotate",
         [] {
             WriteWhole("logs/log-0.csv", std::string(50, 'x'));
             std::filesystem::create_directories("logs/log-1.csv/d");
         },
         {{"logs/log-0.csv", std::string(50, 'x') + "2\n"}}},
        {"directory gone", [] { std::filesystem::remove_all("logs"); }, {}}};
    for (const Case& each : cases) {
        StartColumn({.m_nMaxSize = 50});
        WriteRow("1");
        each.m_pDo();
        WriteRow("2");
        EXPECT_EQ(Found(), each.m_Files) << each.m_pszWhat;
    }
    std::filesystem::create_directory("logs"); // the row after a lost one is tried again
    WriteRow("3");
    EXPECT_EQ(Found(), (Files{{"logs/log-0.csv", "H\n3\n"}, {"logs/log-1.csv", ""}}));
}

TEST_F(OutputFaultTest, WaitsForADirectoryToLeaveTheFilesPlace) {
    StartColumn({});
    std::filesystem::create_directory("logs/log-0.csv");
    WriteRow("1");
    EXPECT_EQ(Found(), Files{});
    EXPECT_EQ(m_pService->RestartFile(Spec()), 1);
    EXPECT_TRUE(std::filesystem::is_directory("logs/log-1.csv")) << "moved along like a file";
    WriteRow("2");
    EXPECT_EQ(Found(), (Files{{"logs/log-0.csv", "H\n2\n"}}));
}
