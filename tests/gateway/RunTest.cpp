#include "tests/gateway/Program.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <numeric>
#include <random>
#include <regex>
#include <thread>

using testing::HasSubstr;

namespace {

// Small files and large sets: many rotations, and nothing that falls out at the end.
const std::string KERNEL_LOG = R"("name": "KernelLog", "logPath": "logs/", "fileName": "events-%i.log",
    "maxFileSize": 40000, "numFiles": 900, "fileFormat": 0, "unicode": 0, "deliveryMode": 1, "keepCopy": 0, "mailName": "")";
const std::string ALARMS = R"("name": "Alarms", "logPath": "logs", "fileName": "alarms-%i.csv",
    "maxFileSize": 50000, "numFiles": 900, "fileFormat": 1, "unicode": 0, "deliveryMode": 1, "keepCopy": 0, "mailName": "")";
const std::string TREND = R"("name": "Trend", "logPath": "logs", "fileName": "trend-%i.csv",
    "maxFileSize": 0, "numFiles": 1, "fileFormat": 1, "unicode": 0, "deliveryMode": 1, "keepCopy": 0, "mailName": "")";

const std::string ALARM_HEADER = "Date,Time,Name,Text,Source,Detail,Active,Acknowledged,Alarm number,Value";

std::string Event(int number) {
    return R"({"event": {"name": "E)" + std::to_string(number) +
           R"(", "text": "t", "source": "s", "time": 1700000000}})"
           "\n";
}

std::string Alarm(int number) {
    return R"({"alarm": {"name": "A)" + std::to_string(number) +
           R"(", "time": 1700000000}, "log": "Alarms"})"
           "\n";
}

// The numbers in whole rows of the form; a row of another form is a failure.
std::vector<int> Numbers(const std::vector<std::string>& rows, const std::regex& form) {
    std::vector<int> numbers;
    for (const std::string& row : rows) {
        std::smatch match;
        const bool whole = std::regex_match(row, match, form);
        EXPECT_TRUE(whole) << row;
        if (whole) {
            numbers.push_back(std::stoi(match[1]));
        }
    }
    return numbers;
}

std::vector<int> EventNumbers(const Place& place) {
    static const std::regex form("[0-9-]{10} [0-9:]{8}\\.000 s E([0-9]+): t");
    return Numbers(place.Rows("logs/events-", ".log"), form);
}

std::vector<int> AlarmNumbers(const Place& place) {
    static const std::regex form("[0-9-]{10},[0-9:]{8}\\.000,A([0-9]+),,,,Not Active,Not ACKED,0,");
    return Numbers(place.Rows("logs/alarms-", ".csv", ALARM_HEADER), form);
}

// Every number once, and in order.
void ExpectRising(const std::vector<int>& numbers) {
    EXPECT_EQ(std::adjacent_find(numbers.begin(), numbers.end(), std::greater_equal<>()), numbers.end());
}

std::uintmax_t LogBytes(const Place& place) {
    std::uintmax_t bytes = 0;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(place.Path("logs"), error)) {
        const std::uintmax_t size = entry.file_size(error); // a rotation may have moved the file
        bytes += error ? 0 : size;
    }
    return bytes;
}

std::uint64_t ReportsOf(const Program& program) {
    std::smatch match;
    const std::string errors = program.Errors();
    return std::regex_search(errors, match, std::regex("([0-9]+) reports")) ? std::stoull(match[1]) : 0;
}

} // namespace

TEST(RunTest, FindsEveryRowOfALongMixedInputInOrderAcrossRotations) {
    constexpr int LINES = 200'000;
    const Place place({KERNEL_LOG, ALARMS, TREND});
    Program program = Program::Run(place);
    std::string text;
    for (int i = 0; i < LINES; i += 4) {
        text += Event(i) + Alarm(i) + R"({"snapshot": [{"name": "n", "value": )" + std::to_string(i) +
                R"(}, {"name": "half", "value": )" + std::to_string(i) + R"(.5}], "log": "Trend"})" + "\n" +
                R"({"action": "DoLogEventToFile", "log": "KernelLog", "records": [{"name": "E)" +
                std::to_string(i + 1) + R"(", "text": "t", "source": "s", "time": 1700000000}]})" + "\n";
        if (text.size() > 100'000) {
            ASSERT_TRUE(program.Write(text));
            text.clear();
        }
    }
    ASSERT_TRUE(program.Write(text));
    ASSERT_EQ(program.Wait(), 0) << program.Errors();

    std::vector<int> quarters;
    std::vector<int> halves;
    for (int i = 0; i < LINES; i += 4) {
        quarters.push_back(i);
        halves.insert(halves.end(), {i, i + 1});
    }
    EXPECT_EQ(EventNumbers(place), halves);
    EXPECT_EQ(AlarmNumbers(place), quarters);
    static const std::regex form("[0-9-]{10},[0-9:]{8}\\.[0-9]{3},([0-9]+),\\1\\.5");
    EXPECT_EQ(Numbers(place.Rows("logs/trend-", ".csv", "Date,Time,n,half"), form), quarters);
    EXPECT_TRUE(place.Has("logs/events-20.log") && place.Has("logs/alarms-20.csv")) << "hardly rotated";
    EXPECT_THAT(program.Errors(), HasSubstr("200000 reports, 0 skipped lines"));
    EXPECT_THAT(program.Errors(), HasSubstr("Alarms: 50000 rows"));
    EXPECT_FALSE(place.Has("config/kvLogFile.warm") || place.Has("config/kvgateway.work"));
}

// What is written when: nothing torn, nothing twice, whatever the moment of the kill, also while saved requests come back.
TEST(RunTest, LeavesWholeRowsAndWritesNoneTwiceWhenKilled) {
    const Place place({KERNEL_LOG, ALARMS});
    std::mt19937 random(20240131);
    int number = 0;
    int saved = 0;
    // The signal comes some time after the start, or after the program has begun to write.
    const auto runFor = [&](bool writes, unsigned microseconds, int signal) {
        const std::uintmax_t before = LogBytes(place);
        Program program = Program::Run(place);
        std::thread feeder([&] {
            std::string text;
            do {
                text.clear();
                for (int i = 0; i < 200; ++i, ++number) {
                    text += Event(number) + Alarm(number);
                }
            } while (program.Write(text));
        });
        if (writes) {
            Eventually([&] { return LogBytes(place) != before; });
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % microseconds));
        program.Signal(signal);
        feeder.join(); // the pipe breaks with the program
        const int status = program.Wait();
        EXPECT_EQ(status, signal == SIGKILL ? -SIGKILL : 0) << program.Errors();
    };
    for (int round = 0; round < 50; ++round) {
        const bool meetsSaved = round % 3 == 0;
        if (meetsSaved) {
            runFor(true, 10'000, SIGTERM);
            saved += place.Has("config/kvLogFile.warm") ? 1 : 0;
        }
        runFor(!meetsSaved, meetsSaved ? 60'000 : 20'000, SIGKILL);
    }
    Program last = Program::Run(place);
    ASSERT_EQ(last.Wait(), 0) << last.Errors();
    const std::vector<int> events = EventNumbers(place);
    const std::vector<int> alarms = AlarmNumbers(place);
    ExpectRising(events);
    ExpectRising(alarms);
    EXPECT_GT(events.size(), 1000U);
    EXPECT_GT(alarms.size(), 1000U);
    EXPECT_GT(saved, 0) << "no start met saved requests";
}

TEST(RunTest, SavesWhatWaitsAtASignalAndWritesItOnceAfterTheNextStart) {
    bool sawSaved = false;
    for (int attempt = 0; attempt < 20 && !sawSaved; ++attempt) {
        const Place place({KERNEL_LOG, ALARMS});
        Program program = Program::Run(place);
        std::string text;
        for (int i = 0; i < 20'000; ++i) {
            text += Event(i);
        }
        std::thread feeder([&] { program.Write(text); });
        Eventually([&] { return place.Has("logs/events-0.log"); });
        program.Signal(attempt % 2 == 0 ? SIGTERM : SIGINT);
        feeder.join();
        ASSERT_EQ(program.Wait(), 0) << program.Errors();
        const std::uint64_t reports = ReportsOf(program);
        const std::size_t written = EventNumbers(place).size();
        sawSaved = place.Has("config/kvLogFile.warm");
        ASSERT_EQ(sawSaved, written < reports);

        for (int start = 0; start < 2; ++start) { // the second one has nothing to bring back
            Program next = Program::Run(place);
            ASSERT_EQ(next.Wait(), 0) << next.Errors();
            std::vector<int> all(reports);
            std::iota(all.begin(), all.end(), 0);
            EXPECT_EQ(EventNumbers(place), all) << "after start " << start;
            EXPECT_FALSE(place.Has("config/kvLogFile.warm"));
        }
    }
    EXPECT_TRUE(sawSaved);
}
