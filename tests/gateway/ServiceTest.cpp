#include "tests/gateway/Program.h"

#include <gmock/gmock.h>

#include <csignal>

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

namespace {

std::string Spec(const std::string& name, const std::string& fileName, const std::string& rest) {
    return R"("name": ")" + name + R"(", "logPath": "logs", "fileName": ")" + fileName +
           R"(", "maxFileSize": 100000, "numFiles": 2, )" + rest;
}

const std::string PLAIN = R"("fileFormat": 0, "unicode": 0, "deliveryMode": 1, "keepCopy": 0, "mailName": "")";
const std::string CSV = R"("fileFormat": 1, "unicode": 0, "deliveryMode": 1, "keepCopy": 0, "mailName": "")";
const std::string UPLOADED = R"("fileFormat": 1, "unicode": 0, "deliveryMode": 2, "keepCopy": 0, "mailName": "")";

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t begin = 0;
    for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', begin)) {
        lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

} // namespace

TEST(ServiceTest, ReportsLinesThatCannotBeUsedWithTheirNumbers) {
    const Place place({Spec("Alarms", "a-%i.csv", CSV)});
    Program program = Program::Run(place);
    program.Write(R"({"alarm": {"name": "first"}, "log": "Alarms"}

{"alarm": {"name": "x"}, "log": "Nothing"}
{"alarm": {"name": "x"
{"alarm": {"name": "x", "time": "yesterday"}, "log": "Alarms"}
{"action": "DoLogDelivery", "log": "Alarms"}
)");
    program.Write("{\"alarm\": {\"name\": \"" + std::string(1'100'000, 'x') + "\"}, \"log\": \"Alarms\"}\n");
    program.Write("\xFF\n");
    program.Write(R"({"alarm": {"name": "last, without an end of line"}, "log": "Alarms"})");
    EXPECT_EQ(program.Wait(), 1);
    EXPECT_THAT(Lines(program.Errors()),
                ElementsAre(AllOf(HasSubstr("line 3: "), HasSubstr("no log file \"Nothing\"")),
                            AllOf(HasSubstr("line 4: column 23: "), HasSubstr("end of the file")),
                            AllOf(HasSubstr("line 5: column 33: \"time\""), HasSubstr("\"yesterday\"")),
                            AllOf(HasSubstr("line 6: "), HasSubstr("does not deliver")),
                            HasSubstr("line 7: longer than"), HasSubstr("line 8: column 1: "),
                            HasSubstr("2 reports, 6 skipped lines"), HasSubstr("Alarms: 2 rows")));
    EXPECT_THAT(place.Rows("logs/a-", ".csv"),
                ElementsAre(StartsWith("Date,Time,Name"), HasSubstr(",first,"), HasSubstr(",last, without an end")));
}

// Headings of another language, an identifier's log file with its own rows, texts beyond ASCII, two schedules.
TEST(ServiceTest, FollowsGatewayJson) {
    if (!WITH_TRANSPORTS) {
        GTEST_SKIP();
    }
    const Place place({Spec("Alarms@7", "seven-%i.html", R"("fileFormat": 2, "unicode": 0, "deliveryMode": 1,
                            "keepCopy": 0, "mailName": "")"),
                       Spec("Trend", "trend-%i.csv", UPLOADED), Spec("Beat", "beat-%i.log", PLAIN)},
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

    const std::string html = place.Read("logs/seven-0.html");
    EXPECT_THAT(html, AllOf(HasSubstr("<TH>Datum</TH>\n<TH>Zeit</TH>\n<TH>Name</TH>"), HasSubstr("<TH>Größe</TH>"),
                            HasSubstr("<TD>mine</TD>"), HasSubstr("<TD>mine too</TD>"), Not(HasSubstr("other"))));
    EXPECT_THAT(program.Errors(), HasSubstr("Alarms@7: 2 rows"));
    const std::vector<std::string> trend = Lines(place.Read("there/trend-0.csv"));
    EXPECT_THAT(trend, ElementsAre("Datum,Zeit,F\xFCllstand", AllOf(StartsWith("2024-01-31,"), EndsWith(",1.25"))));
    EXPECT_FALSE(place.Has("Spool/trend-0.csv"));
    EXPECT_THAT(place.Rows("logs/beat-", ".log"), testing::Each(EndsWith("kvgateway Beat: scheduled")));
}

// The module deletes what is not delivered when it goes; the gateway's next start goes on with it.
TEST(ServiceTest, KeepsUndeliveredFilesOverAStop) {
    if (!WITH_TRANSPORTS) {
        GTEST_SKIP();
    }
    const Place place({Spec("Trend", "trend-%i.csv", UPLOADED)}, R"({"upload": {"directory": "there"}})");
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
        EXPECT_THAT(place.Rows(value < 3 ? "Spool/trend-" : "there/trend-", ".csv"), SizeIs(1U + value));
    }
    EXPECT_THAT(place.Rows("there/trend-", ".csv"),
                ElementsAre("Date,Time,n", EndsWith(",1"), EndsWith(",2"), EndsWith(",3")));
}

// One event's saved request: name of the log file, action 1, one record of the name. See the module's format.
std::string SavedEvent(char name) {
    const auto number = [](std::uint32_t value) { return std::string(reinterpret_cast<const char*>(&value), 4); };
    std::string bytes = number(9);
    for (const char c : std::string("KernelLog")) {
        bytes += number(static_cast<unsigned char>(c));
    }
    bytes += number(1) + number(1) + number(1'700'000'000) + std::string(55, '\0');
    return bytes + number(static_cast<std::uint32_t>(1)) + std::string(16, '\0') +
           number(static_cast<unsigned char>(name));
}

TEST(ServiceTest, TakesUpSavedRequestsWithoutAnyInput) {
    const std::string whole = std::string("\3\0\0\0", 4) + SavedEvent('A') + SavedEvent('B') + SavedEvent('C');
    struct Case {
        std::string m_Bytes;
        std::string m_Names; // of the rows that are written
        bool m_bDamaged;
    };
    const Case cases[] = {
        {whole, "ABC", false},
        {std::string("\1\0\0\0", 4) + SavedEvent('A'), "A", false},
        {std::string("\0\0\0\0", 4), "", false},
        {whole.substr(0, whole.size() - 1), "AB", true},           // cut off in the last request
        {std::string("\2\0\0\0", 4) + SavedEvent('A'), "A", true}, // fewer than it says
        {std::string("\xFF\xFF\xFF\xFF", 4) + SavedEvent('A') + SavedEvent('B'), "AB", true},
        {"", "", true},
    };
    for (const Case& test : cases) {
        const Place place({Spec("KernelLog", "k-%i.log", PLAIN)}); // its directory is "logs", in front of the name
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
    const std::string utf16 = R"("fileFormat": 0, "unicode": 1, "deliveryMode": 1, "keepCopy": 0, "mailName": "")";
    const std::string html = R"("fileFormat": 2, "unicode": 0, "deliveryMode": 1, "keepCopy": 0, "mailName": "")";
    const std::string page = "<HTML>\n<THEAD>\n</THEAD>\n<TBODY>\n<TR>\n<TD>1</TD>\n</TR>\n";
    struct Case {
        std::string m_File;
        std::string m_Format;
        std::string m_Before;
        std::string m_Kept; // of it
    };
    const Case cases[] = {
        {"a-%i.log", PLAIN, "one\ntwo", "one\n"},
        {"a-%i.log", PLAIN, "one\n", "one\n"},
        {"a-%Y%i.csv", CSV, "Date,Time\n1,2\n" + std::string(5000, '\0'), "Date,Time\n1,2\n"},
        {"a-%i.log", utf16, std::string("\xFF\xFEx\0\n\0y", 7), std::string("\xFF\xFEx\0\n\0", 6)},
        {"a-%i.html", html, page + "<TR>\n<TD>2", page},
        {"a-%i.html", html, page + "</TBODY>\n</TABLE>\n<P>\n</BODY>\n</HTML>\n", page},
    };
    for (const Case& test : cases) {
        const Place place({Spec("A", test.m_File, test.m_Format)});
        const std::string name = std::string("logs/a-") + (test.m_Format == CSV ? "20260" : "0") +
                                 test.m_File.substr(test.m_File.rfind('.'));
        std::filesystem::create_directory(place.Path("logs"));
        place.Write(name, test.m_Before);
        Program program = Program::Run(place);
        ASSERT_EQ(program.Wait(), 0) << program.Errors();
        EXPECT_EQ(place.Read(name), test.m_Kept);
        EXPECT_EQ(program.Errors().find("is cut off") != std::string::npos, test.m_Before != test.m_Kept);
    }
}

TEST(ServiceTest, RefusesToStart) {
    const Place place({Spec("A", "a-%i.log", PLAIN)});
    place.Write("file", "");
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"--module", place.Path("none.so")}, "cannot be loaded"},
        {{"--input", place.Path("none.jsonl")}, "No such file"},
        {{"--input", place.Path()}, "directory"},
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

    place.Write("logs/x", ""); // the directory of the log file is there: now a file stands in its way
    std::filesystem::remove_all(place.Path("logs"));
    place.Write("logs", "");
    Program blocked = Program::Run(place);
    EXPECT_EQ(blocked.Wait(), 2);
    EXPECT_THAT(blocked.Errors(), HasSubstr("error 303"));
}
