#include "tests/gateway/Program.h"

#include <gmock/gmock.h>

#include <csignal>
#include <ctime>

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST(ServiceTest, ReportsLinesThatCannotBeUsedWithTheirNumbers) {
    const std::pair<std::string, const char*> lines[] = {
        {R"({"alarm": {"name": "first"}, "log": "Alarms"})", nullptr},
        {"", nullptr},
        {R"({"alarm": {"name": "x"}, "log": "Nothing"})", "there is no log file \"Nothing\""},
        {R"({"action": "DoLogDelivery", "log": "Alarms"})", "does not deliver"},
        {std::string(1'100'000, 'x'), "longer than"},
        {"\xFF", "column 1: "},
        {R"({"alarm": {"name": "x")", "column 23: found the end of the file"},
        {"[]", "column 1: "},
        {R"({"log": "A"})", "column 1: report: found none of"},
        {R"({"event": 1})", "column 11: \"event\": found 1, expected an object"},
        {R"({"event": {}, "log": "A"})", "column 15: report: found \"log\""},
        {R"({"alarm": {}})", "column 13: report: found no \"log\""},
        {R"({"snapshot": {}, "log": "A"})", "column 14: \"snapshot\": found an object, expected a list"},
        {R"({"snapshot": [{}, 1], "log": "A"})", "column 19: found 1"},
        {R"({"action": "DoIt", "log": "A"})", "column 12: \"action\": found \"DoIt\""},
        {R"({"action": "DoLogEventToFile", "log": "A"})", "found no \"records\""},
        {R"({"action": "DoLogDelivery", "log": "A", "records": []})", "at least one record"},
        {R"({"event": {"colour": 1}})", "column 12: event: found \"colour\""},
        {R"({"event": {"name": "a\u0000b"}})", "null character"},
        {R"({"event": {"code": 2147483648}})", "from -2147483648 to 2147483647"},
        {R"({"event": {"prefix": [1, 2, 3]}})", "four integers"},
        {R"({"event": {"state": {"active": 1}}})", "true or false"},
        {R"({"event": {"time": -1}})", "\"time\": found -1"},
        {R"({"event": {"value": [1]}})", "column 21: \"value\": found a list"},
        {R"({"event": {"value": {"quality": 1}}})", "found no \"value\""},
        {R"({"event": {}} x)", "column 15: found"}};
    const Place place({Spec{"Alarms", "a-%i.csv"}});
    Program program = Program::Run(place);
    std::vector<testing::Matcher<std::string>> errors;
    int number = 0;
    for (const auto& [line, error] : lines) {
        ++number;
        program.Write(line + '\n');
        if (error != nullptr) {
            errors.push_back(AllOf(HasSubstr("line " + std::to_string(number) + ": "), HasSubstr(error)));
        }
    }
    program.Write(R"({"alarm": {"name": "last, without an end of line"}, "log": "Alarms"})");
    EXPECT_EQ(program.Wait(), 1);
    errors.emplace_back(HasSubstr("2 reports, " + std::to_string(errors.size()) + " skipped lines"));
    errors.emplace_back(HasSubstr("Alarms: 2 rows"));
    EXPECT_THAT(Lines(program.Errors()), testing::ElementsAreArray(errors));
    EXPECT_THAT(place.Rows("logs/a-", ".csv"),
                ElementsAre(StartsWith("Date,Time,Name"), HasSubstr(",first,"), HasSubstr(",last, without an end")));
}

#ifndef KV_WITHOUT_TRANSPORTS

// Headings of another language, an identifier's log file with its own rows, texts beyond ASCII, two schedules.
TEST(ServiceTest, FollowsGatewayJson) {
    const Place place(
        {{"Alarms@7", "seven-%i.html", 2}, {"Trend", "trend-%i.csv", 1, 0, 2}, {"Beat", "beat-%i.log", 0}},
        R"({"headings": {"date": "Datum", "time": "Zeit", "value": "Größe"},
                          "identifiers": [{"id": 7}], "upload": {"directory": "there"},
                          "schedule": [{"log": "Trend", "action": "DoLogDelivery", "every": "300ms"},
                                       {"log": "Beat", "action": "DoLogEventToFile", "every": "100ms"}]})");
    Program program = Program::Run(place);
    program.Write(R"({"action": "DoLogAlarmToFile", "log": "Alarms@7", "records": [{"name": "mine"}]}
{"action": "DoLogAlarmToFile", "log": "Alarms@7", "records": [{"name": "other", "identifier": 8}]}
{"action": "DoLogAlarmToFile", "log": "Alarms@7", "records": [{"name": "mine too", "identifier": 7}]}
{"snapshot": [{"name": "Füllstand", "value": 1.25, "time": "2024-01-31T12:00:00Z"}], "log": "Trend"}
)");
    EXPECT_TRUE(Eventually([&] { return place.Has("there/trend-0.csv"); })) << program.Errors();
    EXPECT_TRUE(Eventually([&] { return place.Rows("logs/beat-", ".log").size() >= 4; }));
    ASSERT_EQ(program.Wait(), 0) << program.Errors();

    EXPECT_THAT(place.Read("logs/seven-0.html"),
                AllOf(HasSubstr("<TH>Datum</TH>\n<TH>Zeit</TH>\n<TH>Name</TH>"), HasSubstr("<TH>Größe</TH>"),
                      HasSubstr("<TD>mine</TD>"), HasSubstr("<TD>mine too</TD>"), Not(HasSubstr("other"))));
    EXPECT_THAT(program.Errors(), HasSubstr("Alarms@7: 2 rows"));
    EXPECT_THAT(Lines(place.Read("there/trend-0.csv")),
                ElementsAre("Datum,Zeit,F\xFCllstand", AllOf(StartsWith("2024-01-31,"), EndsWith(",1.25"))));
    EXPECT_FALSE(place.Has("Spool/trend-0.csv"));
    EXPECT_THAT(place.Rows("logs/beat-", ".log"), testing::Each(EndsWith("kvgateway Beat: scheduled")));
}

// The module deletes what is not delivered when it goes; the gateway's next start goes on with it.
TEST(ServiceTest, KeepsUndeliveredFilesOverAStop) {
    const Place place({{"Trend", "trend-%i.csv", 1, 0, 2}}, R"({"upload": {"directory": "there"}})");
    for (const int value : {1, 2, 3}) {
        Program program = Program::Run(place);
        program.Write(R"({"snapshot": [{"name": "n", "value": )" + std::to_string(value) + "}], \"log\": \"Trend\"}\n");
        if (value == 3) {
            program.Write(R"({"action": "DoLogDelivery", "log": "Trend"})");
        } else if (value == 2) {
            Eventually([&] { return place.Rows("Spool/trend-", ".csv").size() == 3; });
            program.Signal(SIGTERM);
        }
        ASSERT_EQ(program.Wait(), 0) << program.Errors();
        EXPECT_THAT(place.Rows(value < 3 ? "Spool/trend-" : "there/trend-", ".csv"), testing::SizeIs(1U + value));
    }
    EXPECT_THAT(place.Rows("there/trend-", ".csv"),
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
        const Place place({{"KernelLog", "k-%i.log", 0}}); // its directory is "logs", in front of the name
        place.Write("config/kvLogFile.warm", test.m_Bytes);
        Program program = Program::Run(place);
        ASSERT_EQ(program.Wait(), 0) << program.Errors();
        std::string names;
        for (const std::string& row : place.Rows("logsk-", ".log")) {
            names += row.size() > 3 ? row.substr(row.size() - 3, 1) : row;
        }
        EXPECT_EQ(names, test.m_Names) << program.Errors();
        EXPECT_EQ(place.Has("config/kvLogFile.warm.damaged"), test.m_bDamaged);
        EXPECT_EQ(program.Errors().find("error 138") != std::string::npos, test.m_bDamaged) << program.Errors();
        EXPECT_FALSE(place.Has("config/kvLogFile.warm"));
    }
}

// What the system had written of a row when the program was killed, or the machine lost its power.
TEST(ServiceTest, CutsOffUnfinishedRowsBeforeItGoesOn) {
    const std::time_t now = std::time(nullptr);
    const std::string year = std::to_string(1900 + std::localtime(&now)->tm_year);
    const std::string head = "<HTML>\n<THEAD>\n<TR>\n<TH>Date</TH>\n</TR>\n";
    const std::string page = head + "</THEAD>\n<TBODY>\n";
    const std::string row = "<TR>\n<TD>1</TD>\n</TR>\n";
    const struct {
        Spec m_Spec;
        std::string m_Name;
        std::string m_Whole; // what stays of the file
        std::string m_Torn;  // what stood behind it
        std::string m_Next;  // what stands there when a row has been added
    } cases[] = {
        {{"A", "a-%i.log", 0}, "a-0.log", "one\n", "two", "2023-11-1"},
        {{"A", "a-%i.log", 0}, "a-0.log", "one\n", "", "2023-11-1"},
        {{"A", "a-%Y%i.csv", 1}, "a-" + year + "0.csv", "Date\n1\n", std::string(5000, '\0'), "2023-11-1"},
        {{"A", "a-%i.log", 0, 1}, "a-0.log", std::string("\xFF\xFEx\0\n\0", 6), "y", std::string("2\0", 2)},
        {{"A", "a-%i.html", 2}, "a-0.html", page + row, "<TR>\n<TD>2", "<TR>\n<TH>2023-11-1"},
        {{"A", "a-%i.html", 2}, "a-0.html", page + row, "</TBODY>\n</TABLE>\n", "<TR>\n<TH>2023-11-1"},
        {{"A", "a-%i.html", 2}, "a-0.html", page, "<TR>", "<TR>\n<TH>2023-11-1"},
        {{"A", "a-%i.html", 2}, "a-0.html", "", head + "</THEAD>\n<TB", "<!DOCTYPE HTML"},
        {{"A", "a-%i.html", 2}, "a-0.html", "", head.substr(0, 20), "<!DOCTYPE HTML"},
        // Written with another configuration.
        {{"A", "a-%i.log", 0, 1}, "a-0.log", "one\n", "", std::string("2\0", 2)},
        {{"A", "a-%i.log", 0}, "a-0.log", std::string("\xFF\xFEx\0\n\0", 6), "", "2023-11-1"},
        {{"A", "a-%i.html", 2}, "a-0.html", "Date\n1\n", "", "<TR>\n<TH>2023-11-1"},
    };
    for (const auto& test : cases) {
        const Place place({test.m_Spec});
        std::filesystem::create_directory(place.Path("logs"));
        place.Write("logs/" + test.m_Name, test.m_Whole + test.m_Torn);
        Program program = Program::Run(place);
        program.Write(R"({"alarm": {"time": 1700000000}, "log": "A"})");
        ASSERT_EQ(program.Wait(), 0) << program.Errors();
        EXPECT_THAT(place.Read("logs/" + test.m_Name), StartsWith(test.m_Whole + test.m_Next));
        EXPECT_EQ(program.Errors().find("is cut off") != std::string::npos, !test.m_Torn.empty());
    }
}

TEST(ServiceTest, SaysThatRowsCannotBeWritten) {
    const Place place({Spec{"Full", "full-%i.csv"}, Spec{"Well", "well-%i.csv"}});
    std::filesystem::create_directory(place.Path("logs"));
    std::filesystem::create_symlink("/dev/full", place.Path("logs/full-0.csv"));
    Program program = Program::Run(place);
    program.Write(R"({"alarm": {}, "log": "Full"}
{"alarm": {}, "log": "Full"}
{"alarm": {}, "log": "Well"})");
    EXPECT_EQ(program.Wait(), 1);
    EXPECT_THAT(program.Errors(), AllOf(HasSubstr("/dev/full: No space left on device; rows are lost, 1 so far"),
                                        HasSubstr("rows that could not be written: 2\n")));
    EXPECT_THAT(place.Rows("logs/well-", ".csv"), testing::SizeIs(2));
}

TEST(ServiceTest, RefusesToStart) {
    const Place place({{"A", "a-%i.log", 0}});
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"--module", place.Path("none.so")}, "cannot be loaded"},
        {{"--input", place.Path("none.jsonl")}, "none.jsonl: No such file"},
        {{"--input", place.Path()}, "Is a directory"},
        {{"--nonsense"}, "--nonsense"},
    };
    for (const auto& [arguments, reason] : cases) {
        Program program = Program::Run(place, arguments);
        EXPECT_EQ(program.Wait(), 2);
        EXPECT_THAT(program.Errors() + program.Output(), HasSubstr(reason));
    }
    Program first = Program::Run(place);
    ASSERT_TRUE(Eventually([&] { return place.Has("config/kvgateway.work"); }));
    Program second = Program::Run(place);
    EXPECT_EQ(second.Wait(), 2);
    EXPECT_THAT(second.Errors(), HasSubstr("another kvgateway"));
    EXPECT_EQ(first.Wait(), 0) << first.Errors();

    std::filesystem::remove_all(place.Path("logs"));
    place.Write("logs", ""); // a file stands in the way of the directory
    Program blocked = Program::Run(place);
    EXPECT_EQ(blocked.Wait(), 2);
    EXPECT_THAT(blocked.Errors(), HasSubstr("error 303"));
}
