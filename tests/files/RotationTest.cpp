#include "tests/files/LogFiles.h"

#include <regex>
#include <thread>

namespace {

class RotationTest : public LogFilesTest {};

constexpr const char* PAGE_END = "</TBODY>\n</TABLE>\n<P>\n</BODY>\n</HTML>\n";

} // namespace

TEST_F(RotationTest, KeepsToTheSizeLimit) {
    struct Case {
        int m_nLimit;
        int m_nFiles;
        std::vector<std::size_t> m_Rows;  // lengths in bytes; the first row consists of 'a', the next of 'b'...
        std::vector<std::string> m_Files; // their first characters by line, from index 0
    };
    const Case cases[] = {{100, 3, {88, 10}, {"Hab"}},      // filled to the last byte
                          {100, 3, {88, 11}, {"Hb", "Ha"}}, // one byte too many
                          {100, 3, {150}, {"Ha", "H"}},     // never fits, and is written all the same
                          {100, 3, {150, 99, 2}, {"Hc", "Hb", "Ha"}},
                          {100, 3, {98, 1}, {"Hb", "Ha"}},
                          {100, 2, {60, 60, 60, 30}, {"Hcd", "Hb"}},
                          {0, 3, {60, 60, 200}, {"Habc"}},
                          {-1, 3, {60, 60, 200}, {"Habc"}},
                          {100, 1, {60, 60, 30}, {"Hbc"}},
                          {100, 0, {60, 60, 200}, {"Habc"}}, // no set to rotate: the one file goes on
                          {100, -5, {60, 60}, {"Hab"}}};
    for (const Case& each : cases) {
        StartColumn({.m_nMaxSize = each.m_nLimit, .m_nFiles = each.m_nFiles});
        char letter = 'a';
        std::map<char, std::string> lines{{'H', "H\n"}};
        for (const std::size_t length : each.m_Rows) {
            lines[letter] = std::string(length - 1, letter) + '\n';
            WriteRow(std::string(length - 1, letter));
            ++letter;
        }
        Files expected;
        for (std::size_t i = 0; i < each.m_Files.size(); ++i) {
            for (const char line : each.m_Files[i]) {
                expected["logs/log-" + std::to_string(i) + ".csv"] += lines[line];
            }
        }
        EXPECT_EQ(Found(), expected) << &each - cases;
    }
}

TEST_F(RotationTest, MovesASetAlongUnderItsNewTime) {
    // Five files' worth through three files.
    for (const auto& [file, pattern] :
         {std::pair{"a-%i.csv", "logs/a-(.)()\\.csv"},
          std::pair{"b-%Y%m%d%H%M%S%s-%i.csv", "logs/b-(\\d{17})-(.)\\.csv"},
          std::pair{"%i at %H:%M:%S.%s", "logs/(.) at (\\d\\d-\\d\\d-\\d\\d\\.\\d{3})"}}) {
        StartColumn({.m_File = file, .m_nMaxSize = 12, .m_nFiles = 3});
        for (int row = 1; row <= 5; ++row) {
            WriteRow("row no " + std::to_string(row));
            std::this_thread::sleep_for(std::chrono::milliseconds(2)); // the next file gets another time
        }
        std::vector<std::string> contents;
        std::set<std::string> fixedParts;
        for (const auto& [path, content] : Found()) {
            std::smatch parts;
            ASSERT_TRUE(std::regex_match(path, parts, std::regex(pattern))) << path;
            contents.push_back(content);
            fixedParts.insert(parts[1].length() > 1 ? parts[1] : parts[2]);
        }
        EXPECT_EQ(contents, (std::vector<std::string>{"H\nrow no 5\n", "H\nrow no 4\n", "H\nrow no 3\n"}));
        EXPECT_EQ(fixedParts.size(), 1U) << "all files of a set carry one time";
    }
}

TEST_F(RotationTest, ShrinksASetWhoseFilesShareOneName) {
    for (const int files : {1, 2}) {
        StartColumn({.m_File = "only.csv", .m_nMaxSize = 0, .m_nFiles = files});
        WriteRow("old");
        EXPECT_EQ(Process(ACTION_RESTART_FILE), RC_OK);
        EXPECT_EQ(Found(), (Files{{"logs/only.csv", "H\n"}}));
        WriteRow("new");
        EXPECT_EQ(Found(), (Files{{"logs/only.csv", "H\nnew\n"}}));
    }
}

TEST_F(RotationTest, ContinuesTheFileOfAnEarlierRun) {
    const EONEVENTSTRUCT record = MakeRecord();
    const std::string row = "01-31-2024 13:05:09.042 S N: T";
    const SpecItems plain{.m_File = "a.csv", .m_nFiles = 1};
    const SpecItems html{.m_Name = "Page", .m_File = "b.html", .m_nFiles = 1, .m_nFormat = 2};
    for (int run = 0; run < 2; ++run) {
        StartAnew({plain, html});
        WriteWhole("logs/a.csv", ReadWhole("logs/a.csv") + "x\n"); // as if rows stood there: never empty
        Process(ACTION_LOG_EVENT, &record);
        Process(ACTION_LOG_EVENT, &record, 1, L"Page");
    }
    EXPECT_EQ(ReadWhole("logs/a.csv"), "x\n" + row + "\nx\n" + row + '\n');
    const std::string page = ReadWhole("logs/b.html");
    EXPECT_EQ(page.substr(page.find("<TBODY>")),
              "<TBODY>\n<TR>\n<TD>" + row + "</TD>\n</TR>\n<TR>\n<TH>" + row + "</TH>\n</TR>\n")
        << "a filter that has written no header makes heading cells";
}

TEST_F(RotationTest, StopsAndStartsPages) {
    StartColumn({.m_File = "%i.html", .m_nFormat = 2});
    WriteRow("1");
    const std::string begun = ReadWhole("logs/0.html");
    EXPECT_EQ(m_pService->StopFile(Spec()), 1);
    EXPECT_EQ(Found(), (Files{{"logs/0.html", begun + PAGE_END}}));
    EXPECT_EQ(m_pService->StopFile(Spec()), 1) << "nothing more to end";
    WriteRow("2"); // behind the end of the page: the file is continued, whatever it holds
    const std::string stopped = begun + PAGE_END + "<TR>\n<TD>2</TD>\n</TR>\n";
    EXPECT_EQ(Found(), (Files{{"logs/0.html", stopped}}));
    EXPECT_EQ(m_pService->RestartFile(Spec()), 1);
    const std::string head = begun.substr(0, begun.find("<TBODY>\n") + 8);
    EXPECT_EQ(Found(), (Files{{"logs/0.html", head}, {"logs/1.html", stopped + PAGE_END}}));
}
