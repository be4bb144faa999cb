#include "tests/Reports.h"
#include "tests/gateway/Program.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace fs = std::filesystem;
using namespace testing;

namespace {

// Small files and large sets: many rotations, and nothing that falls out at the end.
const SpecItems KERNEL_LOG{"KernelLog", "kernel/my", "events-%i.log", 40'000, 900, 0};
const SpecItems ALARMS{"Alarms", "logs", "alarms-%i.csv", 50'000, 900};
const SpecItems TREND{"Trend", R"(logs\\values )", "trend-%i.csv", 0, 1}; // the service mends the path
const char* const SAVED = "config/kvLogFile.warm";

std::string Event(int number) {
    return R"({"event": {"name": "E)" + std::to_string(number) + "\", \"text\": \"t\", \"time\": 1700000000}}\n";
}

std::string Alarm(int number) {
    return R"({"alarm": {"name": "A)" + std::to_string(number) + "\", \"time\": 1700000000}, \"log\": \"Alarms\"}\n";
}

// The numbers in whole rows of the form; a row of another form is a failure.
std::vector<int> Numbers(const std::vector<std::string>& rows, const std::string& form) {
    const std::regex expression("[0-9-]{10}[ ,][0-9:]{8}\\.[0-9]{3}[ ,]" + form);
    std::vector<int> numbers;
    for (const std::string& row : rows) {
        std::smatch match;
        EXPECT_TRUE(std::regex_match(row, match, expression)) << row;
        numbers.push_back(std::atoi(match.str(1).c_str()));
    }
    return numbers;
}

std::vector<int> EventNumbers() {
    std::vector<std::string> rows = Rows("kernel/myevents-", ".log");
    if (std::string text = ReadWhole("Kavro.log"); !text.empty()) { // UTF-16
        std::erase(text, '\0');
        rows = Lines(text.substr(2));
    }
    return Numbers(rows, " *E([0-9]+): t");
}

std::vector<int> AlarmNumbers() {
    const std::string header = "Date,Time,Name,Text,Source,Detail,Active,Acknowledged,Alarm number,Value";
    return Numbers(Rows("logs/alarms-", ".csv", header), "A([0-9]+),,,,Not Active,Not ACKED,0,");
}

} // namespace

TEST(RunTest, FindsEveryRowOfALongMixedInputInOrderAcrossRotations) {
    constexpr int ROUNDS = 50'000; // of four lines
    const Place place({KERNEL_LOG, ALARMS, TREND});
    std::string text;
    for (const int i : UpTo(ROUNDS)) {
        const std::string number = std::to_string(i);
        text += Event(2 * i) + Alarm(i) + R"({"snapshot": [{"name": "n", "value": )" + number +
                R"(}, {"name": "half", "value": )" + number + ".5}], \"log\": \"Trend\"}\n" +
                R"({"action": "DoLogEventToFile", "log": "KernelLog", "records": [{"name": "E)" +
                std::to_string(2 * i + 1) + "\", \"text\": \"t\"}]}\n";
    }
    EXPECT_THAT(RunToEnd(RUN, text), AllOf(HasSubstr("200000 reports, 0 skipped lines"),
                                           HasSubstr("Alarms: 50000 reports"), Not(HasSubstr("\x1b"))));
    EXPECT_EQ(EventNumbers(), UpTo(2 * ROUNDS));
    EXPECT_EQ(AlarmNumbers(), UpTo(ROUNDS));
    EXPECT_EQ(Numbers(Rows("logs/values/trend-", ".csv", "Date,Time,n,half"), "([0-9]+),\\1\\.5"), UpTo(ROUNDS));
    EXPECT_TRUE(fs::exists("kernel/myevents-20.log") && fs::exists("logs/alarms-20.csv")) << "hardly rotated";
    EXPECT_FALSE(fs::exists(SAVED) || fs::exists("config/kvgateway.work"));
}

TEST(RunTest, WritesTheLinesThatItCanUseAndReportsTheOthersWithTheirNumbers) {
    auto lines = Table("lines.txt");
    lines.push_back({std::string(2'000'000, 'x'), "longer than 1048576 bytes"});
    lines.push_back({std::string(1'048'576, '['), "column 10: ", "levels"});
    lines.push_back({"\xFF", "column 1: ", "text that is not UTF-8"});
    const Place place({{"Alarms@7", "logs", "a-%i.csv"}},
                      R"({"headings": {"date": "Datum", "value": "Größe"}, "identifiers": [{"id": 7}]})");
    std::string text = R"({"alarm": {"name": "Füllstand", "time": "2024-01-31T12:00:00Z"}, "log": "Alarms@7"}
{"action": "DoLogAlarmToFile", "log": "Alarms@7", "records": [{"name": "another's", "identifier": 8}]}

)";
    std::vector<Matcher<std::string>> errors;
    for (const auto& line : lines) {
        text += line.at(0) + '\n';
        const std::string begin = "kvgateway: line " + std::to_string(errors.size() + 4) + ": " + line.at(1);
        errors.emplace_back(AllOf(StartsWith(begin), HasSubstr(line.back())));
    }
    text += R"({"alarm": {"name": "last, without an end of line", "identifier": 7}, "log": "Alarms@7"})";
    errors.emplace_back(HasSubstr("3 reports, " + std::to_string(lines.size()) + " skipped lines"));
    errors.emplace_back(HasSubstr("Alarms@7: 3 reports"));
    EXPECT_THAT(Lines(RunToEnd(RUN, text, 1)), ElementsAreArray(errors));
    EXPECT_THAT(Rows("logs/a-", ".csv"), ElementsAre(AllOf(StartsWith("Datum,Time,"), HasSubstr(",Gr\xF6\xDF")),
                                                     AllOf(StartsWith("01-31-2024,"), HasSubstr(",F\xFCllstand,")),
                                                     HasSubstr(",last, without an end")));
    EXPECT_THAT(RunToEnd(RUN, std::string(1'048'577, 'x'), 1), StartsWith("kvgateway: line 1: longer than 1048576"));
}

TEST(RunTest, TheReadmesCommandsEndWithTheRowThatItShows) {
    std::string text = ReadWhole(KVTEST_SOURCES "../../README.md");
    text = text.substr(text.find("\n## In two minutes\n") + 1);
    text.resize(text.find("\n## "));
    const std::regex block("(    .*\n)+");
    const std::vector<std::string> blocks(std::sregex_token_iterator(text.begin(), text.end(), block), {});
    ASSERT_EQ(blocks.size(), 3U) << "commands, an element of the configuration, the rows";
    const Place place({});
    fs::create_directories("build/release");
    WriteWhole("build/release/kvgateway", "#!/bin/sh\nexec " + GATEWAY + "\"$@\"\n");
    fs::permissions("build/release/kvgateway", fs::perms(0755));
    WriteWhole("commands", blocks[0]);
    EXPECT_THAT(RunToEnd("env TZ=EST5 sh -e commands"),
                EndsWith('\n' + std::regex_replace(blocks[2], std::regex("    (.*\n)"), "$1")));
    EXPECT_THAT(ReadWhole("build/first/config/kvLogFile.json"), HasSubstr(blocks[1]));
    EXPECT_THAT(RunToEnd(GATEWAY + "check --config build/first/config"), Not(HasSubstr("warning")));
    fs::remove("build/first/config/kvLogFile.json");
    RunToEnd(GATEWAY + "init build/first/config", "", 2);
    EXPECT_FALSE(fs::exists("build/first/config/kvLogFile.json")) << "another file is there";
}

static std::string Bytes(const std::u32string& words) {
    return {reinterpret_cast<const char*>(words.data()), sizeof(char32_t) * words.size()};
}

// The saved request of one event: name of the log file, action, one record of the name. See docs/file-formats.md.
static std::string SavedEvent(char32_t name, char32_t action = 1, const std::u32string& log = U"\tKernelLog") {
    return Bytes(log) + Bytes({action, 1, 1'700'000'000}) + std::string(55, '\0') + Bytes({1}) + std::string(16, '\0') +
           Bytes({name});
}

TEST(RunTest, TakesUpSavedRequestsWithoutAnyInput) {
    const std::string whole = Bytes({3}) + SavedEvent('A') + SavedEvent('B') + SavedEvent('C');
    const struct {
        std::string m_Bytes;
        std::string m_Names; // of the rows that are written
        bool m_bDamaged;
    } cases[] = {
        {whole, "ABC", false},
        {Bytes({0}), "", false},
        {Bytes({2}) + SavedEvent('A', 1, U"\4Gone") + SavedEvent('B'), "B", false},       // not configured any more
        {Bytes({3}) + SavedEvent('A') + SavedEvent('B', 5) + SavedEvent('C'), "A", true}, // there is no such action
        {whole.substr(0, whole.size() - 1), "AB", true},                                  // cut off in the last request
        {Bytes({2}) + SavedEvent('A'), "A", true},                                        // fewer than it says
        {Bytes({0xFFFFFFFF}) + SavedEvent('A') + SavedEvent('B'), "AB", true},
        {"", "", true},
    };
    for (const auto& test : cases) {
        const Place place({KERNEL_LOG});
        WriteWhole(SAVED, test.m_Bytes);
        const std::string said = RunToEnd(RUN);
        const std::string rows = ReadWhole("kernel/myevents-0.log");
        EXPECT_EQ(std::regex_replace(rows, std::regex(".*(.): \n"), "$1"), test.m_Names) << said;
        EXPECT_EQ(said.find(std::to_string(test.m_Names.size()) + " saved") != std::string::npos, test.m_Names != "");
        EXPECT_EQ(fs::exists("config/kvLogFile.warm.damaged"), test.m_bDamaged);
        EXPECT_EQ(said.find("could not all be read back") != std::string::npos, test.m_bDamaged) << said;
        EXPECT_FALSE(fs::exists(SAVED));
    }
}

TEST(RunTest, CutsOffUnfinishedRowsBeforeItGoesOn) {
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
        {0, 1, std::string("\xFF\xFEx\0\n\0", 6), std::string("\0\n\0\1y", 5), std::string("1\0", 2)},
        {2, 0, page + row, "<TR>\n<TD>2", "<TR>\n<TH>11-1"},
        {2, 0, page + row, "</TBODY>\n</TABLE>\n", "<TR>\n<TH>11-1"},
        {2, 0, page, "<TR>", "<TR>\n<TH>11-1"},
        {2, 0, "", head + "</THEAD>\n<TB", "<!DOCTYPE HTML"},
        {2, 0, "", head.substr(0, 20), "<!DOCTYPE HTML"},
        // Written with another configuration.
        {0, 1, "one\n", "", std::string("1\0", 2)},
        {0, 0, std::string("\xFF\xFEx\0\n\0", 6), "", "11-1"},
        {2, 0, "Date\n1\n", "", "<TR>\n<TH>11-1"},
    };
    for (const auto& test : cases) {
        const Place place({{.m_File = "a-%i", .m_nFormat = test.m_nFormat, .m_nUnicode = test.m_nUnicode}});
        fs::create_directories("work/logs");
        WriteWhole("work/logs/a-0", test.m_Whole + test.m_Torn);
        const std::string said = RunToEnd(RUN + "--directory work", R"({"alarm": {"time": 1700000000}, "log": "Log"})");
        EXPECT_THAT(ReadWhole("work/logs/a-0"), StartsWith(test.m_Whole + test.m_Next));
        EXPECT_EQ(said.find("is cut off") != std::string::npos, !test.m_Torn.empty());
    }
}

TEST(RunTest, SaysWhatCannotBeWritten) {
    const Place place(
        {SpecItems{.m_Name = "Full", .m_File = "full-%i.csv"}, {.m_Name = "Well", .m_File = "well-%i.csv"}});
    fs::create_directory("logs");
    fs::create_symlink("/dev/full", "logs/full-0.csv");
    Program program(RUN);
    ASSERT_TRUE(Eventually([] { return fs::exists("config/kvgateway.work"); }));
    fs::rename("config/kvgateway.work", "elsewhere"); // the list of what waits, which is no row
    program.Write(R"({"alarm": {}, "log": "Full"}
{"alarm": {}, "log": "Full"}
{"alarm": {}, "log": "Well"})");
    EXPECT_TRUE(program.Says("the input stands still"));
    EXPECT_FALSE(fs::exists("logs/well-0.csv"));
    fs::rename("elsewhere", "config/kvgateway.work");
    EXPECT_EQ(program.Wait(), 1);
    EXPECT_THAT(program.Errors(), AllOf(HasSubstr("/dev/full: No space left on device; rows are lost, 1 so far"),
                                        HasSubstr("kvgateway: goes on\n"), HasSubstr("  Well: 1 report\n"),
                                        Not(HasSubstr("2 so far")), HasSubstr("rows that could not be written: 2\n")));
    EXPECT_THAT(Rows("logs/well-", ".csv"), SizeIs(2));
}

// While a row waits to be written the queue runs full, and then the pipe. What waits at the end is written once and first
// after the next start, also to the default kernel log, which is there only when the service is started.
TEST(RunTest, UsesUpThePipeAtASignalAndDropsReportsOnlyWithoutFlowControl) {
    constexpr std::size_t QUEUE = 512;
    constexpr int REPORTS = 700; // of each kind: more than the queue holds, or the pipe
    std::string text = "{\"alarm\": {}, \"log\": \"Stuck\"}\n";
    for (const int number : UpTo(REPORTS)) {
        text += Event(number) + Alarm(number);
    }
    const std::pair<int, bool> ends[] = {{SIGTERM, false}, {SIGINT, false}, {SIGHUP, false}, {SIGTERM, true}};
    for (const auto& [signal, isLive] : ends) {
        const Place place({ALARMS, {.m_Name = "Stuck", .m_File = "stuck"}});
        fs::create_directory("logs");
        ASSERT_EQ(mkfifo("logs/stuck", 0600), 0);
        Program program(isLive ? RUN + "--no-flow-control" : RUN);
        program.Write(text + "end\n");
        EXPECT_TRUE(!isLive || program.Says("line 1402: ")); // otherwise the queue is full before
        program.Signal(signal);
        const int reader = open("logs/stuck", O_RDONLY | O_NONBLOCK | O_CLOEXEC); // lets the first row go on, and fail
        EXPECT_TRUE(program.Says("1401 reports, 1 skipped line")) << "it waits for more";
        EXPECT_EQ(program.Wait(), 1) << program.Errors();
        EXPECT_EQ(program.Errors().find("; without flow control") != std::string::npos, isLive);
        close(reader);
        fs::remove("logs/stuck");
        for (const int newer : {REPORTS, REPORTS + 1}) { // the second start has nothing to bring back
            RunToEnd(RUN, Event(newer));
        }
        if (isLive) {
            EXPECT_THAT(EventNumbers().size() + AlarmNumbers().size(), AllOf(Gt(2U), Le(QUEUE + 2)));
        } else {
            EXPECT_EQ(EventNumbers(), UpTo(REPORTS + 2));
            EXPECT_EQ(AlarmNumbers(), UpTo(REPORTS));
        }
    }
}

TEST(RunTest, ShowsItsProgressOnATerminalAndGoesOnAfterAHangUp) {
    const Place place({ALARMS});
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_TRUE(grantpt(terminal) == 0 && unlockpt(terminal) == 0);
    Program program("nohup sh -c 'exec " + RUN + "2>" + ptsname(terminal) + "'");
    for (const int number : UpTo(3000)) {
        program.Write(number == 2000 ? "end\n" + Alarm(number) : Alarm(number));
        if (number == 0) {
            ASSERT_TRUE(Eventually([] { return AlarmNumbers().size() == 1; }));
            program.Signal(SIGHUP);
        }
    }
    EXPECT_EQ(program.Wait(), 1);
    EXPECT_EQ(AlarmNumbers(), UpTo(3000));
    std::string shown(65536, '\0');
    shown.resize(static_cast<std::size_t>(std::max<ssize_t>(read(terminal, shown.data(), shown.size()), 0)));
    close(terminal);
    const std::string line = "[0-9]+ lines, [01] skipped";
    const std::string lines = "(\r\x1b\\[K" + line + ")*";
    const std::string message = "\r\x1b\\[Kkvgateway: line 2001: [^\r]+\r\n";
    EXPECT_TRUE(std::regex_match(shown, std::regex(lines + message + line + lines + "\r\x1b\\[K[^\x1b]+"))) << shown;
}

TEST(RunTest, RefusesToStart) {
    const Place place({SpecItems()});
    WriteWhole("logs", ""); // a file stands in the way of the directory
    EXPECT_THAT(RunToEnd(RUN, "", 2), HasSubstr("Not a directory"));
    fs::remove("logs");
    EXPECT_THAT(RunToEnd(GATEWAY, "", 2), HasSubstr("subcommand"));
    const std::pair<const char*, const char*> cases[] = {{"--module none.so", "cannot be loaded"},
                                                         {"--input none.jsonl", "none.jsonl: No such file"},
                                                         {"--input .", "Is a directory"}};
    for (const auto& [arguments, reason] : cases) {
        EXPECT_THAT(RunToEnd(RUN + arguments, "", 2), HasSubstr(reason));
    }
    const Program first(RUN);
    ASSERT_TRUE(Eventually([] { return fs::exists("config/kvgateway.work"); }));
    EXPECT_THAT(RunToEnd(RUN, "", 2), HasSubstr("another kvgateway"));
}
