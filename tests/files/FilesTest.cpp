#include "tests/ServiceFixture.h"

#include <climits>

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
    // Each pattern, and what it makes of 13:05:09.042 on the 31st of January 2024, behind what stands there.
    void Expect(EString& pattern, EResult (ELogFile::*format)(ETime&, EString&),
                const std::vector<std::pair<const char*, std::string>>& cases) {
        for (const auto& [text, expected] : cases) {
            pattern = Wide(text);
            ETime time(MakeRecord().m_TimeStamp);
            EString out = L">";
            EXPECT_EQ((m_pService->*format)(time, out) | (m_pService->*format)(time, out), RC_OK);
            EXPECT_EQ(Narrow(out), '>' + expected + expected) << text;
        }
    }
};

// clang-format off
TEST_F(FilesTest, DatesAndTimesFollowTheirPatterns) {
    Expect(m_pService->m_DateFormat, &ELogFile::FormatDateStr,
           {{"MM-DD-YYYY", "01-31-2024"}, {"DD.MM.YY", "31.01.24"}, {"", ""}, {"dd mm yyyy", "dd mm yyyy"},
            {"YYYYY", "2024"}, {"YYYYYY", "202424"}, {"YYY", "2024"}, {"YYY-MM", "2024-01"}, {"Y-Y", "-"}, {"YMMY", "01"},
            {"MMM", "01"}, {"MMMM", "0101"}, {"MDMD", ""}, {"D.DD", ".31"}, {"M-M", "-"}, {"\u20AC%dDD", "\u20AC%d31"}});
    Expect(m_pService->m_TimeFormat, &ELogFile::FormatTimeStr,
           {{"HH:mm:SS.sss", "13:05:09.042"}, {"H:m", ":"}, {"HH hours", "13 hour"}, {"", ""}, {"SS.ss", "09."},
            {"HHHH", "1313"}, {"HHH", "13"}, {"HHmmSS", "130509"}, {"ssss", "042"}, {"ssssss", "042042"}, {"sHss", ""},
            {"MM hh", "MM hh"}, {"s.sss", ".042"}, {"H-H", "-"}});
}
// clang-format on

TEST_F(FilesTest, FileNamesStayInTheirDirectory) {
    Configure({SpecItems{}});
    const ETimeStamp stamp = MakeRecord().m_TimeStamp;
    for (const auto& [pattern, file] : {std::pair{"Kavro.log", "Kavro.log"},
                                        {"../%i/x%", "..-12-x%"},
                                        {"%y%%i%i %q", "24%i12 %q"},
                                        {"%Y-%m-%d %H:%M:%S.%s", "2024-01-31 13-05-09.042"},
                                        {"\u00E9\U0001F600%i", "\u00E9\U0001F60012"},
                                        {"", ""}}) {
        Spec()->m_FileName = Wide(pattern);
        EString name;
        m_pService->CalcFileName(Spec(), 12, &stamp, true, name);
        EXPECT_EQ(Narrow(name), std::string("logs/") + file);
    }
}

TEST_F(FilesTest, KeepsToTheSizeLimit) {
    // Rows of these lengths with their ends, "aaa...", "bbb..." and so on, make these files, the newest first, in which
    // each row stands as one letter.
    const auto expect = [&](int limit, int files, const std::vector<std::size_t>& lengths, const char* expected) {
        StartColumn({.m_nMaxSize = limit, .m_nFiles = files});
        char letter = 'a';
        for (const std::size_t length : lengths) {
            WriteRow(std::string(length - 1, letter++));
        }
        std::string found;
        for (const auto& [path, bytes] : Found()) {
            std::ranges::unique_copy(bytes, std::back_inserter(found));
        }
        EXPECT_EQ(found, expected) << limit << ' ' << files << ' ' << lengths.back();
    };
    expect(100, 3, {88, 10}, "H\na\nb\n"); // filled to the last byte
    expect(100, 3, {88, 11}, "H\nb\nH\na\n");
    expect(1, 3, {150}, "H\na\nH\n"); // it never fits
    expect(100, 2, {60, 60, 60, 30}, "H\nc\nd\nH\nb\n");
    expect(100, 1, {60, 60, 30}, "H\nb\nc\n");
    expect(0, 3, {60, 60}, "H\na\nb\n"); // no limit
    expect(-1, 3, {60, 60}, "H\na\nb\n");
    expect(100, 0, {60, 60}, "H\na\nb\n"); // no set
    expect(100, INT_MIN, {60, 60}, "H\na\nb\n");
}

TEST_F(FilesTest, MovesASetAlongUnderItsNewTime) {
    StartColumn({.m_File = "%i at %H:%M:%S.%s", .m_nMaxSize = 12, .m_nFiles = 3});
    for (const int number : UpTo(5)) {
        WriteRow("row no " + std::to_string(number));
        ETimeStamp now; // the next file gets another time
        EXPECT_TRUE(Eventually([&] {
            ETime::GetTimeStamp(&now);
            return now.m_nMilliseconds != Spec()->m_FileTime.m_nMilliseconds;
        }));
    }
    Files expected;
    for (const int index : UpTo(3)) { // all under the newest one's time
        EString name;
        m_pService->CalcFileName(Spec(), index, &Spec()->m_FileTime, true, name);
        expected[Narrow(name)] = "H\nrow no " + std::to_string(4 - index) + '\n';
    }
    EXPECT_EQ(Found(), expected);
}

TEST_F(FilesTest, ContinuesFilesAndPages) {
    const EONEVENTSTRUCT record = MakeRecord();
    const std::string row = EventRow("T");
    for (int run = 0; run < 2; ++run) {
        StartAnew({SpecItems{.m_File = "a"}, SpecItems{.m_Name = "Page", .m_File = "%i.html", .m_nFormat = 2}});
        EXPECT_EQ(m_pService->StopFile(Spec(L"Page")), 0) << "without headings there is nothing to end";
        WriteWhole("logs/a", ReadWhole("logs/a") + "x\n"); // as if rows stood there: never empty
        Process(ACTION_LOG_EVENT, &record);
        Process(ACTION_LOG_EVENT, &record, 1, L"Page");
    }
    EXPECT_EQ(m_pService->StopFile(Spec(L"Page")), 1);
    EXPECT_EQ(m_pService->StopFile(Spec(L"Page")), 1) << "nothing more to end";
    Process(ACTION_LOG_EVENT, &record, 1, L"Page"); // behind the end of the page: it is continued, whatever it holds
    EXPECT_EQ(m_pService->RestartFile(Spec(L"Page")), 1);
    // A filter that has written no header makes heading cells.
    const std::string first = PageBegin("") + PageRow(row);
    const std::string later = PageRow(row, "TH") + PAGE_END;
    EXPECT_EQ(Found(), (Files{{"logs/0.html", PageBegin("")},
                              {"logs/1.html", first + later + later},
                              {"logs/a", "x\n" + row + "x\n" + row}}));
    std::filesystem::remove_all("logs");
    EXPECT_EQ(m_pService->RestartFile(Spec(L"Page")), 0) << "no end can be written";
}

// A link that leads to no file is the operator's, as every link is.
TEST_F(FilesTest, AFullDiskIsNotLitteredWithEmptyFilesAndLosesNoLink) {
    StartColumn({.m_File = "a-%S%s.csv"});
    std::filesystem::create_directory("elsewhere");
    std::filesystem::create_symlink("../elsewhere/b.csv", "logs/b.csv");
    {
        const FullDisk disk(0);
        WriteRow("1");
        Spec()->m_FileName = L"b.csv";
        WriteRow("1");
    }
    EXPECT_EQ(Found(), (Files{{"elsewhere/", ""}, {"elsewhere/b.csv", ""}, {"logs/b.csv", ""}}));
}

TEST_F(FilesTest, TakesFilesAsItFindsThem) {
    const std::string first = "logs/log-0.csv";
    const std::string second = "logs/log-1.csv";
    const std::string grown(50, 'x');
    // What happens between two rows, and the files afterwards.
    const std::pair<std::function<void()>, Files> cases[] = {
        {[&] { WriteWhole(first, ""); }, {{first, "H\n2\n"}, {second, ""}}},
        {[&] { WriteWhole(first, "H\n1"); }, {{first, "H\n12\n"}}},
        {[&] { WriteWhole(first, grown); }, {{first, "H\n2\n"}, {second, grown}}},
        {[&] { std::filesystem::remove(first); }, {{first, "H\n2\n"}, {second, ""}}},
        {[&] { // there is no way to rotate
             WriteWhole(first, grown);
             std::filesystem::create_directories(second + "/d");
         },
         {{first, grown + "2\n"}, {second + '/', ""}, {second + "/d/", ""}}},
        {[] { std::filesystem::remove_all("logs"); }, {}}};
    for (const auto& [happens, expected] : cases) {
        StartColumn({.m_nMaxSize = 50});
        WriteRow("1");
        happens();
        WriteRow("2");
        EXPECT_EQ(Found(), expected);
    }
    std::filesystem::create_directory("logs"); // the row after a lost one is tried again
    WriteRow("3");
    EXPECT_EQ(Found(), (Files{{first, "H\n3\n"}, {second, ""}}));
    const std::uintmax_t large = 0x100000003; // more than 32 bits hold
    std::filesystem::resize_file(first, large);
    WriteRow("4");
    EXPECT_EQ(std::filesystem::file_size(first), 4U);
    EXPECT_EQ(std::filesystem::file_size(second), large);
    std::filesystem::resize_file(first, large);
    Spec()->m_MaxFileSize = 0;
    WriteRow("5");
    EXPECT_EQ(std::filesystem::file_size(first), large + 2) << "there is no limit";
}

} // namespace
