#include "tests/gateway/Program.h"

#include <gmock/gmock.h>

#include <ctime>

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST(ServiceTest, ReportsLinesThatCannotBeUsedWithTheirNumbers) {
    auto lines = Table("lines.txt");
    lines.insert(lines.begin(), {{std::string(1'100'000, 'x'), "longer than 1048576 bytes"},
                                 {"\xFF", "column 1: found the byte 0xFF, expected an object"}});
    const Place place({{"Alarms", "logs", "a-%i.csv"}});
    Program program = Program::Run();
    program.Write("{\"alarm\": {\"name\": \"first\"}, \"log\": \"Alarms\"}\n\n");
    std::vector<testing::Matcher<std::string>> errors;
    for (const auto& line : lines) {
        program.Write(line.at(0) + '\n');
        errors.emplace_back(EndsWith("line " + std::to_string(errors.size() + 3) + ": " + line.at(1)));
    }
    program.Write(R"({"alarm": {"name": "last, without an end of line"}, "log": "Alarms"})");
    EXPECT_EQ(program.Wait(), 1);
    errors.emplace_back(HasSubstr("2 reports, " + std::to_string(lines.size()) + " skipped lines"));
    errors.emplace_back(HasSubstr("Alarms: 2 rows"));
    EXPECT_THAT(Lines(program.Errors()), testing::ElementsAreArray(errors));
    EXPECT_THAT(Rows("logs/a-", ".csv"),
                ElementsAre(StartsWith("Date,Time,Name"), HasSubstr(",first,"), HasSubstr(",last, without an end")));
}

#ifndef KV_WITHOUT_TRANSPORTS

// Headings of another language, an identifier's log file with its own rows, texts beyond ASCII, two schedules.
TEST(ServiceTest, FollowsGatewayJson) {
    const Place place({{.m_Name = "Alarms@7", .m_File = "seven-%i.html", .m_nFormat = 2},
                       {.m_Name = "Trend", .m_File = "trend-%i.csv", .m_nDelivery = 2},
                       {.m_Name = "Beat", .m_File = "beat-%i.log", .m_nFormat = 0}},
                      R"({"headings": {"date": "Datum", "time": "Zeit", "value": "Größe"},
                          "identifiers": [{"id": 7}], "upload": {"directory": "there"},
                          "schedule": [{"log": "Trend", "action": "DoLogDelivery", "every": "300ms"},
                                       {"log": "Beat", "action": "DoLogEventToFile", "every": "100ms"}]})");
    Program program = Program::Run();
    program.Write(R"({"action": "DoLogAlarmToFile", "log": "Alarms@7", "records": [{"name": "mine"}]}
{"action": "DoLogAlarmToFile", "log": "Alarms@7", "records": [{"name": "other", "identifier": 8}]}
{"action": "DoLogAlarmToFile", "log": "Alarms@7", "records": [{"name": "mine too", "identifier": 7}]}
{"snapshot": [{"name": "Füllstand", "value": 1.25, "time": "2024-01-31T12:00:00Z"}], "log": "Trend"}
)");
    EXPECT_TRUE(Eventually([&] { return fs::exists("there/trend-0.csv"); })) << program.Errors();
    EXPECT_TRUE(Eventually([&] { return Rows("logs/beat-", ".log").size() >= 4; }));
    ASSERT_EQ(program.Wait(), 0) << program.Errors();

    EXPECT_THAT(ReadWhole("logs/seven-0.html"),
                AllOf(HasSubstr("<TH>Datum</TH>\n<TH>Zeit</TH>\n<TH>Name</TH>"), HasSubstr("<TH>Größe</TH>"),
                      HasSubstr("<TD>mine</TD>"), HasSubstr("<TD>mine too</TD>"), Not(HasSubstr("other"))));
    EXPECT_THAT(program.Errors(), HasSubstr("Alarms@7: 2 rows"));
    EXPECT_THAT(Lines(ReadWhole("there/trend-0.csv")),
                ElementsAre("Datum,Zeit,F\xFCllstand", AllOf(StartsWith("01-31-2024,"), EndsWith(",1.25"))));
    EXPECT_FALSE(fs::exists("Spool/trend-0.csv"));
    EXPECT_THAT(Rows("logs/beat-", ".log"), testing::Each(EndsWith("kvgateway Beat: scheduled")));
}

// The module deletes what is not delivered when it goes; the gateway's next start goes on with it.
TEST(ServiceTest, KeepsUndeliveredFilesOverAStop) {
    const Place place({{.m_File = "trend-%i.csv", .m_nDelivery = 2}}, R"({"upload": {"directory": "there"}})");
    for (const int value : {1, 2, 3}) {
        Program program = Program::Run();
        program.Write(R"({"snapshot": [{"name": "n", "value": )" + std::to_string(value) + "}], \"log\": \"Log\"}\n");
        if (value == 3) {
            program.Write(R"({"action": "DoLogDelivery", "log": "Log"})");
        } else if (value == 2) {
            Eventually([&] { return Rows("Spool/trend-", ".csv").size() == 3; });
            program.Signal(SIGTERM);
        }
        ASSERT_EQ(program.Wait(), 0) << program.Errors();
        EXPECT_THAT(Rows(value < 3 ? "Spool/trend-" : "there/trend-", ".csv"), testing::SizeIs(1U + value));
    }
    EXPECT_THAT(Rows("there/trend-", ".csv"),
                ElementsAre("Date,Time,n", EndsWith(",1"), EndsWith(",2"), EndsWith(",3")));
}

#endif

// The saved request of one event: name of the log file, action 1, one record of the name. See docs/file-formats.md.
static std::string SavedEvent(char name) {
    const auto number = [](std::uint32_t value) { return std::string(reinterpret_cast<const char*>(&value), 4); };
    std::string bytes = number(9);
    for (const char c : std::string("KernelLog")) {
        bytes += number(static_cast<unsigned char>(c));
    }
    return bytes + number(1) + number(1) + number(1'700'000'000) + std::string(55, '\0') + number(1) +
           std::string(16, '\0') + number(static_cast<unsigned char>(name));
}

TEST(ServiceTest, TakesUpSavedRequestsWithoutAnyInput) {
    const std::string whole = std::string("\3\0\0\0", 4) + SavedEvent('A') + SavedEvent('B') + SavedEvent('C');
    const struct {
        std::string m_Bytes;
        std::string m_Names; // of the rows that are written
        bool m_bDamaged;
    } cases[] = {
        {whole, "ABC", false},
        {std::string("\1\0\0\0", 4) + SavedEvent('A'), "A", false},
        {std::string("\0\0\0\0", 4), "", false},
        {whole.substr(0, whole.size() - 1), "AB", true},           // cut off in the last request
        {std::string("\2\0\0\0", 4) + SavedEvent('A'), "A", true}, // fewer than it says
        {std::string("\xFF\xFF\xFF\xFF", 4) + SavedEvent('A') + SavedEvent('B'), "AB", true},
        {"", "", true},
    };
    for (const auto& test : cases) {
        const Place place({{.m_Name = "KernelLog",
                            .m_File = "k-%i.log",
                            .m_nFormat = 0}}); // its directory is "logs", in front of the name
        WriteWhole("config/kvLogFile.warm", test.m_Bytes);
        Program program = Program::Run();
        ASSERT_EQ(program.Wait(), 0) << program.Errors();
        std::string names;
        for (const std::string& row : Rows("logsk-", ".log")) {
            names += row.size() > 3 ? row.substr(row.size() - 3, 1) : row;
        }
        EXPECT_EQ(names, test.m_Names) << program.Errors();
        EXPECT_EQ(fs::exists("config/kvLogFile.warm.damaged"), test.m_bDamaged);
        EXPECT_EQ(program.Errors().find("error 138") != std::string::npos, test.m_bDamaged) << program.Errors();
        EXPECT_FALSE(fs::exists("config/kvLogFile.warm"));
    }
}

// What the system had written of a row when the program was killed, or the machine lost its power.
TEST(ServiceTest, CutsOffUnfinishedRowsBeforeItGoesOn) {
    const std::time_t now = std::time(nullptr);
    const std::string name = "work/logs/a-" + std::to_string(1900 + std::localtime(&now)->tm_year) + "0";
    const std::string head = "<HTML>\n<THEAD>\n<TR>\n<TH>Date</TH>\n</TR>\n";
    const std::string page = head + "</THEAD>\n<TBODY>\n";
    const std::string row = "<TR>\n<TD>1</TD>\n</TR>\n";
    const struct {
        int m_nFormat;
        int m_nUnicode;
        std::string m_Whole; // what stays of the file
        std::string m_Torn;  // what stood behind it
        std::string m_Next;  // what stands there when a row has been added
    } cases[] = {
        {0, 0, "one\n", "two", "11-1"},
        {0, 0, "one\n", "", "11-1"},
        {1, 0, "Date\n1\n", std::string(5000, '\0'), "11-1"},
        {0, 1, std::string("\xFF\xFEx\0\n\0", 6), "y", std::string("1\0", 2)},
        {2, 0, page + row, "<TR>\n<TD>2", "<TR>\n<TH>11-1"},
        {2, 0, page + row, "</TBODY>\n</TABLE>\n", "<TR>\n<TH>11-1"},
        {2, 0, page, "<TR>", "<TR>\n<TH>11-1"},
        {2, 0, "", head + "</THEAD>\n<TB", "<!DOCTYPE HTML"},
        {2, 0, "", head.substr(0, 20), "<!DOCTYPE HTML"},
    };
    for (const auto& test : cases) {
        const Place place({{.m_File = "a-%Y%i", .m_nFormat = test.m_nFormat, .m_nUnicode = test.m_nUnicode}});
        fs::create_directories("work/logs");
        WriteWhole(name, test.m_Whole + test.m_Torn);
        Program program = Program::Run("--directory work");
        program.Write(R"({"alarm": {"time": 1700000000}, "log": "Log"})");
        ASSERT_EQ(program.Wait(), 0) << program.Errors();
        EXPECT_THAT(ReadWhole(name), StartsWith(test.m_Whole + test.m_Next));
        EXPECT_EQ(program.Errors().find("is cut off") != std::string::npos, !test.m_Torn.empty());
    }
}

TEST(ServiceTest, RefusesToStart) {
    const Place place({SpecItems()});
    const std::pair<const char*, const char*> cases[] = {{"--module none.so", "cannot be loaded"},
                                                         {"--input none.jsonl", "none.jsonl: No such file"},
                                                         {"--input .", "Is a directory"},
                                                         {"--nonsense", "--nonsense"}};
    for (const auto& [arguments, reason] : cases) {
        Program program = Program::Run(arguments);
        EXPECT_EQ(program.Wait(), 2);
        EXPECT_THAT(program.Errors() + program.Output(), HasSubstr(reason));
    }
    const Program first = Program::Run();
    ASSERT_TRUE(Eventually([] { return fs::exists("config/kvgateway.work"); }));
    Program second = Program::Run();
    EXPECT_EQ(second.Wait(), 2);
    EXPECT_THAT(second.Errors(), HasSubstr("another kvgateway"));

    const Place other({SpecItems()});
    WriteWhole("logs", ""); // a file stands in the way of the directory
    Program blocked = Program::Run();
    EXPECT_EQ(blocked.Wait(), 2);
    EXPECT_THAT(blocked.Errors(), HasSubstr("error 303"));
}
