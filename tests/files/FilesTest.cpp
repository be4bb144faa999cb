#include "base/ETime.h"
#include "tests/ServiceFixture.h"

#include <climits>
#include <csignal>
#include <sys/resource.h>

namespace {

class FilesTest : public ServiceTest {
protected:
    // Another service, without files, with a heading line of "H\n" and rows of one cell: lengths that a test can count.
    void StartColumn(const SpecItems& spec) {
        std::filesystem::remove_all("logs");
        StartAnew({spec});
        Spec()->m_Headers.SetAtGrow(0, L"H");
        Spec()->m_bHeadersSet = true;
    }
    void WriteRow(const std::string& text) {
        EStringArray row;
        row.SetAtGrow(0, Wide(text));
        m_pService->WriteToFile(Spec(), &row);
    }
    // Each case: a pattern, and what it makes of 13:05:09.042 on the 31st of January 2024, behind what stands there.
    void Expect(EString& pattern, EResult (ELogFile::*format)(ETime&, EString&), const Texts& cases) {
        for (const std::string& each : cases) {
            const std::size_t arrow = each.find("->");
            pattern = Wide(each.substr(0, arrow));
            ETime time(MakeRecord().m_TimeStamp);
            EString out = L">";
            EXPECT_EQ((m_pService->*format)(time, out) | (m_pService->*format)(time, out), RC_OK);
            EXPECT_EQ(Narrow(out), '>' + each.substr(arrow + 2) + each.substr(arrow + 2)) << each;
        }
    }
};

TEST_F(FilesTest, DatesAndTimesFollowTheirPatterns) {
    Expect(m_pService->m_DateFormat, &ELogFile::FormatDateStr,
           {"MM-DD-YYYY->01-31-2024", "DD.MM.YY->31.01.24", "->", "dd mm yyyy->dd mm yyyy", "YYYYY->2024",
            "YYYYYY->202424", "YYY->2024", "YYY-MM->2024-01", "Y-Y->-", "YMMY->01", "MMM->01", "MMMM->0101", "MDMD->",
            "D.DD->.31", "\u20AC%dDD->\u20AC%d31"});
    Expect(m_pService->m_TimeFormat, &ELogFile::FormatTimeStr,
           {"HH:mm:SS.sss->13:05:09.042", "H:m->:", "HH hours->13 hour", "->", "SS.ss->09.", "HHHH->1313", "HHH->13",
            "HHmmSS->130509", "ssss->042", "ssssss->042042", "sHss->", "MM hh->MM hh", "s.sss->.042"});
}

TEST_F(FilesTest, FileNamesStayInTheirDirectory) {
    Configure({SpecItems{}});
    const ETimeStamp stamp = MakeRecord().m_TimeStamp;
    for (const std::string each :
         {"Kavro.log->Kavro.log", "a:b/c.txt->a-b-c.txt", "../%i/x%->..-12-x%", "%y%%i%i %q->24%i12 %q",
          "%Y-%m-%d %H:%M:%S.%s->2024-01-31 13-05-09.042", "\u00E9\U0001F600%i->\u00E9\U0001F60012", "->"}) {
        const std::size_t arrow = each.find("->");
        Spec()->m_FileName = Wide(each.substr(0, arrow));
        EString name;
        for (const char* path : {"", "logs/"}) {
            m_pService->CalcFileName(Spec(), 12, &stamp, *path != '\0', name);
            EXPECT_EQ(Narrow(name), path + each.substr(arrow + 2));
            EXPECT_STREQ(Spec()->m_CurrentFile, name);
        }
    }
}

TEST_F(FilesTest, KeepsToTheSizeLimit) {
    // Rows of so many bytes: the first one of 'a', the next of 'b'. The files by the first characters of their lines.
    // clang-format off
    struct Case { int m_nLimit, m_nFiles; std::vector<std::size_t> m_Rows; std::string m_Files; };
    const Case cases[] = {
        {100, 3, {88, 10}, "Hab"}, {100, 3, {88, 11}, "Hb|Ha"}, // filled to the last byte, and one byte too many
        {100, 3, {150}, "Ha|H"}, {100, 3, {150, 99, 2}, "Hc|Hb|Ha"}, // never fits, and is written all the same
        {100, 3, {98, 1}, "Hb|Ha"}, {100, 2, {60, 60, 60, 30}, "Hcd|Hb"}, {100, 1, {60, 60, 30}, "Hbc"},
        {0, 3, {60, 60, 200}, "Habc"}, {-1, 3, {60, 60, 200}, "Habc"}, // no limit
        {100, 0, {60, 60, 200}, "Habc"}, {100, INT_MIN, {60, 60}, "Hab"}}; // no set to rotate: the one file goes on
    // clang-format on
    for (const auto& [limit, files, rows, letters] : cases) {
        StartColumn({.m_nMaxSize = limit, .m_nFiles = files});
        std::map<char, std::string> lines{{'H', "H\n"}};
        for (const std::size_t length : rows) {
            const char letter = static_cast<char>('a' + lines.size() - 1);
            lines[letter] = std::string(length - 1, letter) + '\n';
            WriteRow(std::string(length - 1, letter));
        }
        Files expected;
        int index = 0;
        for (const char letter : letters) {
            index += letter == '|' ? 1 : 0;
            expected["logs/log-" + std::to_string(index) + ".csv"] += lines[letter];
        }
        EXPECT_EQ(Found(), expected) << letters;
    }
}

TEST_F(FilesTest, MovesASetAlongUnderItsNewTime) {
    for (const std::string file : {"a-%i.csv", "b-%Y%m%d%H%M%S%s-%i.csv", "%i at %H:%M:%S.%s"}) {
        StartColumn({.m_File = file, .m_nMaxSize = 12, .m_nFiles = 3});
        EString before;
        for (const char* row : {"row no 1", "row no 2", "row no 3", "row no 4", "row no 5"}) {
            before = Spec()->m_CurrentFile;
            WriteRow(row);
            std::this_thread::sleep_for(std::chrono::milliseconds(2)); // the next file gets another time
        }
        EXPECT_EQ(before == Spec()->m_CurrentFile, file == "a-%i.csv");
        EXPECT_EQ(Found().size(), 3U) << file;
        for (int index = 0; index < 3; ++index) { // all under the newest one's time
            EString name;
            m_pService->CalcFileName(Spec(), index, &Spec()->m_FileTime, true, name);
            EXPECT_EQ(ReadWhole(Narrow(name)), "H\nrow no " + std::to_string(5 - index) + '\n') << file;
        }
    }
}

TEST_F(FilesTest, ContinuesFilesAndPages) {
    const EONEVENTSTRUCT record = MakeRecord();
    const std::string row = EventRow("T");
    const std::string cell = row.substr(0, row.size() - 1);
    const std::string end = "</TBODY>\n</TABLE>\n<P>\n</BODY>\n</HTML>\n";
    for (int run = 0; run < 2; ++run) {
        StartAnew({SpecItems{.m_File = "a"}, SpecItems{.m_Name = "Page", .m_File = "%i.html", .m_nFormat = 2}});
        WriteWhole("logs/a", ReadWhole("logs/a") + "x\n"); // as if rows stood there: never empty
        Process(ACTION_LOG_EVENT, &record);
        Process(ACTION_LOG_EVENT, &record, 1, L"Page");
    }
    EXPECT_EQ(m_pService->StopFile(Spec(L"Page")), 1);
    EXPECT_EQ(m_pService->StopFile(Spec(L"Page")), 1) << "nothing more to end";
    Process(ACTION_LOG_EVENT, &record, 1, L"Page"); // behind the end of the page: it is continued, whatever it holds
    EXPECT_EQ(m_pService->RestartFile(Spec(L"Page")), 1);
    const std::string head = ReadWhole("logs/0.html");
    EXPECT_TRUE(head.ends_with("<TBODY>\n"));
    // A filter that has written no header makes heading cells.
    const std::string headingRow = "<TR>\n<TH>" + cell + "</TH>\n</TR>\n";
    EXPECT_EQ(Found(), (Files{{"logs/0.html", head},
                              {"logs/1.html",
                               head + "<TR>\n<TD>" + cell + "</TD>\n</TR>\n" + headingRow + end + headingRow + end},
                              {"logs/a", "x\n" + row + "x\n" + row}}));
}

// A link that leads to no file is the operator's, as every link is.
TEST_F(FilesTest, AFullDiskIsNotLitteredWithEmptyFilesAndLosesNoLink) {
    StartColumn({.m_File = "a-%S%s.csv"});
    std::filesystem::create_directory("elsewhere");
    std::filesystem::create_symlink("../elsewhere/b.csv", "logs/b.csv");
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit none{0, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &none);
    WriteRow("1");
    Spec()->m_FileName = L"b.csv";
    WriteRow("1");
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(Found(), (Files{{"elsewhere/", ""}, {"elsewhere/b.csv", ""}, {"logs/b.csv", ""}}));
}

TEST_F(FilesTest, TakesFilesAsItFindsThem) {
    const std::string first = "logs/log-0.csv";
    const std::string second = "logs/log-1.csv";
    const std::string grown(50, 'x');
    const auto rowsAround = [&](auto happens, const Files& expected) {
        StartColumn({.m_nMaxSize = 50});
        WriteRow("1");
        happens();
        WriteRow("2");
        EXPECT_EQ(Found(), expected);
    };
    for (const auto& [found, files] : {std::pair{std::string(), Files{{first, "H\n2\n"}, {second, ""}}},
                                       {"H\n1", {{first, "H\n12\n"}}},
                                       {grown, {{first, "H\n2\n"}, {second, grown}}}}) {
        rowsAround([&] { WriteWhole(first, found); }, files);
    }
    rowsAround([&] { std::filesystem::remove(first); }, {{first, "H\n2\n"}, {second, ""}});
    const auto block = [&] { // there is no way to rotate
        WriteWhole(first, grown);
        std::filesystem::create_directories(second + "/d");
    };
    rowsAround(block, {{first, grown + "2\n"}, {second + '/', ""}, {second + "/d/", ""}});
    for (const std::uintmax_t size : {0xFFFFFFFEULL, 0xFFFFFFFFULL, 5'368'709'123ULL}) { // past every limit
        StartColumn({.m_nMaxSize = 50});
        WriteRow("1");
        std::filesystem::resize_file(first, size);
        WriteRow("2");
        ASSERT_EQ(std::filesystem::file_size(first), 4U) << size;
        EXPECT_EQ(std::filesystem::file_size(second), size);
    }
    rowsAround([] { std::filesystem::remove_all("logs"); }, {});
    std::filesystem::create_directory("logs"); // the row after a lost one is tried again
    WriteRow("3");
    EXPECT_EQ(Found(), (Files{{first, "H\n3\n"}, {second, ""}}));
}

} // namespace
