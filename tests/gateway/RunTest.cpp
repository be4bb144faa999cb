#include "tests/gateway/Program.h"

#include <gmock/gmock.h>

#include <chrono>
#include <ctime>
#include <numeric>
#include <random>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

// Small files and large sets: many rotations, and nothing that falls out at the end.
const SpecItems KERNEL_LOG{"KernelLog", "kernel/my", "events-%i.log", 40'000, 900, 0};
const SpecItems ALARMS{"Alarms", "logs", "alarms-%i.csv", 50'000, 900};
const SpecItems TREND{"Trend", "logs", "trend-%i.csv", 0, 1};

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

// In the configured kernel log, or in the default one.
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
    constexpr int LINES = 200'000;
    const Place place({KERNEL_LOG, ALARMS, TREND});
    Program program = Program::Run();
    std::string text;
    std::vector<int> quarters;
    std::vector<int> halves;
    for (int i = 0; i < LINES; i += 4) {
        const std::string number = std::to_string(i);
        text += Event(i) + Alarm(i) + R"({"snapshot": [{"name": "n", "value": )" + number +
                R"(}, {"name": "half", "value": )" + number + ".5}], \"log\": \"Trend\"}\n" +
                R"({"action": "DoLogEventToFile", "log": "KernelLog", "records": [{"name": "E)" +
                std::to_string(i + 1) + "\", \"text\": \"t\"}]}\n";
        quarters.push_back(i);
        halves.insert(halves.end(), {i, i + 1});
    }
    ASSERT_TRUE(program.Write(text));
    ASSERT_EQ(program.Wait(), 0) << program.Errors();

    EXPECT_EQ(EventNumbers(), halves);
    EXPECT_EQ(AlarmNumbers(), quarters);
    EXPECT_EQ(Numbers(Rows("logs/trend-", ".csv", "Date,Time,n,half"), "([0-9]+),\\1\\.5"), quarters);
    EXPECT_TRUE(fs::exists("kernel/myevents-20.log") && fs::exists("logs/alarms-20.csv")) << "hardly rotated";
    EXPECT_THAT(program.Errors(), AllOf(HasSubstr("200000 reports, 0 skipped lines"), HasSubstr("Alarms: 50000 rows"),
                                        Not(HasSubstr("\x1b"))));
    EXPECT_FALSE(fs::exists("config/kvLogFile.warm") || fs::exists("config/kvgateway.work"));
}

// What is written when: nothing torn, nothing twice, whatever the moment of the kill, also while saved requests come back.
TEST(RunTest, LeavesWholeRowsAndWritesNoneTwiceWhenKilled) {
    const Place place({KERNEL_LOG, ALARMS});
    std::mt19937 random(20240131);
    int number = 0;
    int saved = 0;
    // The signal comes some time after the start, or after the program has begun to write.
    const auto runFor = [&](bool writes, unsigned microseconds, int signal) {
        std::error_code none; // of a file: there is not one yet, or a rotation has just moved it
        const auto before = fs::last_write_time("logs/alarms-0.csv", none);
        Program program = Program::Run();
        std::thread feeder([&] {
            while (program.Write(Event(number) + Alarm(number))) { // until the pipe breaks with the program
                ++number;
            }
        });
        if (writes) {
            Eventually([&] { return fs::last_write_time("logs/alarms-0.csv", none) != before; });
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % microseconds));
        program.Signal(signal);
        feeder.join();
        EXPECT_EQ(program.Wait(), signal == SIGKILL ? -SIGKILL : 0) << program.Errors();
        ++number; // what the pipe took of the last ones is not known
    };
    for (int round = 0; round < 50; ++round) {
        const bool meetsSaved = round % 3 == 0;
        if (meetsSaved) {
            runFor(true, 10'000, SIGTERM);
            saved += fs::exists("config/kvLogFile.warm") ? 1 : 0;
        }
        runFor(!meetsSaved, meetsSaved ? 60'000 : 20'000, SIGKILL);
    }
    Program last = Program::Run();
    ASSERT_EQ(last.Wait(), 0) << last.Errors();
    for (const std::vector<int>& numbers : {EventNumbers(), AlarmNumbers()}) {
        EXPECT_EQ(std::adjacent_find(numbers.begin(), numbers.end(), std::greater_equal<>()), numbers.end());
        EXPECT_GT(numbers.size(), 1000U);
    }
    EXPECT_GT(saved, 0) << "no start met saved requests";
}

// Also when the kernel log is the default one, which the service only has when it is started.
TEST(RunTest, SavesWhatWaitsAtASignalAndWritesItOnceAndFirstAfterTheNextStart) {
    constexpr int LINES = 6000;
    constexpr int SIGNALS[] = {SIGTERM, SIGINT, SIGHUP};
    std::string text;
    for (int i = 0; i < LINES; ++i) {
        text += Event(i);
    }
    for (const std::vector<SpecItems>& specs : {std::vector{KERNEL_LOG}, {}}) {
        const auto logFile = specs.empty() ? "Kavro.log" : "kernel/myevents-0.log";
        bool sawSaved = false;
        for (int attempt = 0; attempt < 20 && !(sawSaved && attempt > 2); ++attempt) {
            const Place place(specs);
            WriteWhole("input", text);
            Program program = Program::Run("--input input");
            Eventually([&] { return fs::exists(logFile); });
            program.Signal(SIGNALS[attempt % 3]);
            ASSERT_EQ(program.Wait(), 0) << program.Errors();
            const std::string said = program.Errors();
            std::smatch reports;
            ASSERT_TRUE(std::regex_search(said, reports, std::regex("([0-9]+) reports"))) << said;
            std::vector<int> all(std::stoul(reports.str(1)));
            std::iota(all.begin(), all.end(), 0);
            const bool isSaved = fs::exists("config/kvLogFile.warm");
            EXPECT_EQ(isSaved, EventNumbers().size() < all.size());
            sawSaved = sawSaved || isSaved;
            for (const int newer : {LINES, LINES + 1}) { // the second start has nothing to bring back
                Program next = Program::Run();
                next.Write(Event(newer));
                ASSERT_EQ(next.Wait(), 0) << next.Errors();
                all.push_back(newer);
                EXPECT_EQ(EventNumbers(), all) << next.Errors();
                EXPECT_FALSE(fs::exists("config/kvLogFile.warm"));
            }
        }
        EXPECT_TRUE(sawSaved);
    }
}

TEST(RunTest, ReportsLinesThatCannotBeUsedWithTheirNumbers) {
    auto lines = Table("lines.txt");
    lines.insert(lines.begin(), {{std::string(2'000'000, 'x'), "longer than 1048576 bytes"},
                                 {"\xFF", "column 1: syntax error while parsing value - invalid literal"}});
    const Place place({{"Alarms", "logs", "a-%i.csv"}});
    Program program = Program::Run();
    program.Write("{\"alarm\": {\"name\": \"first\"}, \"log\": \"Alarms\"}\n\n");
    std::vector<testing::Matcher<std::string>> errors;
    for (const auto& line : lines) {
        program.Write(line.at(0) + '\n');
        errors.emplace_back(HasSubstr("line " + std::to_string(errors.size() + 3) + ": " + line.at(1)));
    }
    program.Write(R"({"alarm": {"name": "last, without an end of line"}, "log": "Alarms"})");
    EXPECT_EQ(program.Wait(), 1);
    errors.emplace_back(HasSubstr("2 reports, " + std::to_string(lines.size()) + " skipped lines"));
    errors.emplace_back(HasSubstr("Alarms: 2 rows"));
    EXPECT_THAT(Lines(program.Errors()), testing::ElementsAreArray(errors));
    EXPECT_THAT(Rows("logs/a-", ".csv"),
                ElementsAre(StartsWith("Date,Time,Name"), HasSubstr(",first,"), HasSubstr(",last, without an end")));
}

// Headings of another language, an identifier's log file with its own rows, texts beyond ASCII, two schedules.
TEST(RunTest, FollowsGatewayJson) {
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
TEST(RunTest, KeepsUndeliveredFilesOverAStop) {
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
        EXPECT_THAT(program.Errors(), HasSubstr(value < 3 ? "upload: 0 sent, 0 waiting" : "upload: 1 sent, 0 waiting"));
        EXPECT_THAT(Rows(value < 3 ? "Spool/trend-" : "there/trend-", ".csv"), testing::SizeIs(1U + value));
    }
    EXPECT_THAT(Rows("there/trend-", ".csv"),
                ElementsAre("Date,Time,n", EndsWith(",1"), EndsWith(",2"), EndsWith(",3")));
}

// In a directory with nothing but the program, and in whatever time zone.
TEST(RunTest, TheReadmesCommandsEndWithTheRowThatItShows) {
    std::string text = ReadWhole(KVTEST_SOURCES "../../README.md");
    text = text.substr(text.find("\n## In two minutes\n") + 1);
    text.resize(text.find("\n## "));
    const std::regex block("(    .*\n)+");
    const std::vector<std::string> blocks(std::sregex_token_iterator(text.begin(), text.end(), block), {});
    ASSERT_EQ(blocks.size(), 3U) << "commands, an element of the configuration, the rows";
    const Place place({});
    fs::create_directories("build/release");
    WriteWhole("build/release/kvgateway", std::string("#!/bin/sh\nexec ") + Program::GATEWAY + "\"$@\"\n");
    fs::permissions("build/release/kvgateway", fs::perms(0755));
    WriteWhole("commands", blocks[0]);
    Program program("env TZ=EST5 sh -e commands");
    ASSERT_EQ(program.Wait(), 0) << program.Errors();
    EXPECT_THAT(program.Output(), EndsWith('\n' + std::regex_replace(blocks[2], std::regex("    (.*\n)"), "$1")));
    EXPECT_THAT(ReadWhole("build/first/config/kvLogFile.json"), HasSubstr(blocks[1]));
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
        {Bytes({1}) + SavedEvent('A'), "A", false},
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
        WriteWhole("config/kvLogFile.warm", test.m_Bytes);
        Program program = Program::Run();
        ASSERT_EQ(program.Wait(), 0) << program.Errors();
        std::string names;
        for (const std::string& row : Rows("kernel/myevents-", ".log")) {
            names += row.at(row.size() - 3);
        }
        EXPECT_EQ(names, test.m_Names) << program.Errors();
        EXPECT_EQ(fs::exists("config/kvLogFile.warm.damaged"), test.m_bDamaged);
        EXPECT_EQ(program.Errors().find("could not all be read back") != std::string::npos, test.m_bDamaged)
            << program.Errors();
        EXPECT_FALSE(fs::exists("config/kvLogFile.warm"));
    }
}

// What the system had written of a row when the program was killed, or the machine lost its power.
TEST(RunTest, CutsOffUnfinishedRowsBeforeItGoesOn) {
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
        // Written with another configuration.
        {0, 1, "one\n", "", std::string("1\0", 2)},
        {0, 0, std::string("\xFF\xFEx\0\n\0", 6), "", "11-1"},
        {2, 0, "Date\n1\n", "", "<TR>\n<TH>11-1"},
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

TEST(RunTest, SaysWhatCannotBeWritten) {
    const Place place(
        {SpecItems{.m_Name = "Full", .m_File = "full-%i.csv"}, {.m_Name = "Well", .m_File = "well-%i.csv"}});
    fs::create_directory("logs");
    fs::create_symlink("/dev/full", "logs/full-0.csv");
    Program program = Program::Run();
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
                                        HasSubstr("kvgateway: goes on\n"), HasSubstr("  Well: 1 row\n"),
                                        HasSubstr("rows that could not be written: 2\n")));
    EXPECT_THAT(Rows("logs/well-", ".csv"), testing::SizeIs(2));
}

// While a row waits to be written the queue runs full, and then the pipe.
TEST(RunTest, UsesUpThePipeAtASignalAndDropsReportsOnlyWithoutFlowControl) {
    constexpr int QUEUE = 512;
    std::string begin = R"({"alarm": {}, "log": "Stuck"})"
                        "\n";
    std::string rest;
    std::vector<int> all(1500);
    std::iota(all.begin(), all.end(), 0);
    for (const int number : all) {
        (number < 600 ? begin : rest) += Alarm(number);
    }
    for (const bool isLive : {false, true}) {
        const Place place({ALARMS, {.m_Name = "Stuck", .m_File = "stuck"}});
        fs::create_directory("logs");
        ASSERT_EQ(mkfifo("logs/stuck", 0600), 0);
        Program program = Program::Run(isLive ? "--no-flow-control" : "");
        program.Write(begin);
        ASSERT_TRUE(Eventually([&] { return program.HasReadAll(); }));
        program.Write(rest + (isLive ? "end\n" : ""));
        EXPECT_TRUE(!isLive || program.Says("line 1502: "));
        program.Signal(SIGTERM);
        const int reader = open("logs/stuck", O_RDONLY | O_NONBLOCK | O_CLOEXEC); // lets the first row go on, and fail
        EXPECT_EQ(program.Wait(), 1) << program.Errors();
        EXPECT_EQ(program.Errors().find("; without flow control") != std::string::npos, isLive);
        close(reader);
        fs::remove("logs/stuck");
        Program next = Program::Run();
        ASSERT_EQ(next.Wait(), 0) << next.Errors();
        if (isLive) {
            EXPECT_THAT(AlarmNumbers(), testing::SizeIs(AllOf(testing::Gt(0), testing::Le(QUEUE))));
        } else {
            EXPECT_EQ(AlarmNumbers(), all);
        }
    }
}

TEST(RunTest, GoesOnAfterAHangUpWithNohup) {
    const Place place({ALARMS});
    Program program(std::string("nohup ") + Program::GATEWAY + "run --config config");
    for (const int number : {0, 1, 2}) {
        program.Write(Alarm(number));
        EXPECT_TRUE(Eventually([&] { return AlarmNumbers().size() == number + 1U; })) << number;
        program.Signal(SIGHUP);
    }
    EXPECT_EQ(program.Wait(), 0);
}

// The line of progress stays below the messages, and goes in the end.
TEST(RunTest, ShowsItsProgressOnATerminal) {
    const Place place({ALARMS});
    std::string text;
    for (int i = 1; i <= 3000; ++i) {
        text += i == 2000 ? "end\n" : Alarm(i);
    }
    WriteWhole("input", text);
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_TRUE(grantpt(terminal) == 0 && unlockpt(terminal) == 0);
    Program program(std::string("sh -c 'exec ") + Program::GATEWAY + "run --config config --input input 2>" +
                    ptsname(terminal) + "'");
    EXPECT_EQ(program.Wait(), 1);
    std::string shown(65536, '\0');
    shown.resize(static_cast<std::size_t>(std::max<ssize_t>(read(terminal, shown.data(), shown.size()), 0)));
    close(terminal);
    const std::string line = R"([0-9]+ lines \([0-9]+%\)(, 1 skipped)?)";
    const std::string lines = "(\r\x1b\\[K" + line + ")*";
    const std::string message = "\r\x1b\\[Kkvgateway: line 2000: [^\r]+\r\n";
    EXPECT_TRUE(std::regex_match(shown, std::regex(lines + message + line + lines + "\r\x1b\\[K[^\x1b]+"))) << shown;
}

TEST(RunTest, RefusesToStart) {
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
