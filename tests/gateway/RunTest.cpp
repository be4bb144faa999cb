#include "tests/gateway/Program.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <numeric>
#include <random>
#include <regex>
#include <thread>

using testing::AllOf;
using testing::HasSubstr;

namespace {

// Small files and large sets: many rotations, and nothing that falls out at the end.
const Spec KERNEL_LOG{"KernelLog", "events-%i.log", 0, 0, 1, 40'000, 900};
const Spec ALARMS{"Alarms", "alarms-%i.csv", 1, 0, 1, 50'000, 900};
const Spec TREND{"Trend", "trend-%i.csv", 1, 0, 1, 0, 1};

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
        const bool whole = std::regex_match(row, match, expression);
        EXPECT_TRUE(whole) << row;
        numbers.push_back(whole ? std::stoi(match[1]) : -1);
    }
    return numbers;
}

std::vector<int> EventNumbers(const Place& place) {
    return Numbers(place.Rows("logsevents-", ".log"), " *E([0-9]+): t");
}

std::vector<int> AlarmNumbers(const Place& place) {
    return Numbers(
        place.Rows("logs/alarms-", ".csv", "Date,Time,Name,Text,Source,Detail,Active,Acknowledged,Alarm number,Value"),
        "A([0-9]+),,,,Not Active,Not ACKED,0,");
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

} // namespace

TEST(RunTest, FindsEveryRowOfALongMixedInputInOrderAcrossRotations) {
    constexpr int LINES = 200'000;
    const Place place({KERNEL_LOG, ALARMS, TREND});
    Program program = Program::Run(place);
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

    EXPECT_EQ(EventNumbers(place), halves);
    EXPECT_EQ(AlarmNumbers(place), quarters);
    EXPECT_EQ(Numbers(place.Rows("logs/trend-", ".csv", "Date,Time,n,half"), "([0-9]+),\\1\\.5"), quarters);
    EXPECT_TRUE(place.Has("logsevents-20.log") && place.Has("logs/alarms-20.csv")) << "hardly rotated";
    EXPECT_THAT(program.Errors(), AllOf(HasSubstr("200000 reports, 0 skipped lines"), HasSubstr("Alarms: 50000 rows")));
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
            while (program.Write(Event(number) + Alarm(number))) { // until the pipe breaks with the program
                ++number;
            }
        });
        if (writes) {
            Eventually([&] { return LogBytes(place) != before; });
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
            saved += place.Has("config/kvLogFile.warm") ? 1 : 0;
        }
        runFor(!meetsSaved, meetsSaved ? 60'000 : 20'000, SIGKILL);
    }
    Program last = Program::Run(place);
    ASSERT_EQ(last.Wait(), 0) << last.Errors();
    for (const std::vector<int>& numbers : {EventNumbers(place), AlarmNumbers(place)}) {
        EXPECT_EQ(std::adjacent_find(numbers.begin(), numbers.end(), std::greater_equal<>()), numbers.end());
        EXPECT_GT(numbers.size(), 1000U);
    }
    EXPECT_GT(saved, 0) << "no start met saved requests";
}

TEST(RunTest, SavesWhatWaitsAtASignalAndWritesItOnceAfterTheNextStart) {
    bool sawSaved = false;
    for (int attempt = 0; attempt < 20 && !sawSaved; ++attempt) {
        const Place place({KERNEL_LOG, ALARMS});
        Program program = Program::Run(place);
        std::thread feeder([&] {
            for (int i = 0; i < 20'000 && program.Write(Event(i)); ++i) {
            }
        });
        Eventually([&] { return place.Has("logsevents-0.log"); });
        program.Signal(attempt % 2 == 0 ? SIGTERM : SIGINT);
        feeder.join();
        ASSERT_EQ(program.Wait(), 0) << program.Errors();
        const std::string errors = program.Errors();
        std::smatch match;
        ASSERT_TRUE(std::regex_search(errors, match, std::regex("([0-9]+) reports")));
        std::vector<int> all(std::stoul(match[1]));
        std::iota(all.begin(), all.end(), 0);
        sawSaved = place.Has("config/kvLogFile.warm");
        ASSERT_EQ(sawSaved, EventNumbers(place).size() < all.size());

        for (int start = 0; start < 2; ++start) { // the second one has nothing to bring back
            Program next = Program::Run(place);
            ASSERT_EQ(next.Wait(), 0) << next.Errors();
            EXPECT_EQ(EventNumbers(place), all) << "after start " << start;
            EXPECT_FALSE(place.Has("config/kvLogFile.warm"));
        }
    }
    EXPECT_TRUE(sawSaved);
}
