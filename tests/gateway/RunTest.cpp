#include "tests/gateway/Program.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <numeric>
#include <random>
#include <regex>
#include <thread>

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;

namespace {

// Small files and large sets: many rotations, and nothing that falls out at the end.
const SpecItems KERNEL_LOG{"KernelLog", "logs", "events-%i.log", 40'000, 900, 0};
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
        const bool whole = std::regex_match(row, match, expression);
        EXPECT_TRUE(whole) << row;
        numbers.push_back(whole ? std::stoi(match[1]) : -1);
    }
    return numbers;
}

std::vector<int> EventNumbers() {
    return Numbers(Rows("logsevents-", ".log"), " *E([0-9]+): t");
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
    EXPECT_TRUE(fs::exists("logsevents-20.log") && fs::exists("logs/alarms-20.csv")) << "hardly rotated";
    EXPECT_THAT(program.Errors(), AllOf(HasSubstr("200000 reports, 0 skipped lines"), HasSubstr("Alarms: 50000 rows")));
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

TEST(RunTest, SavesWhatWaitsAtASignalAndWritesItOnceAfterTheNextStart) {
    bool sawSaved = false;
    for (int attempt = 0; attempt < 20 && !sawSaved; ++attempt) {
        const Place place({KERNEL_LOG, ALARMS});
        Program program = Program::Run();
        std::thread feeder([&] {
            for (int i = 0; i < 20'000 && program.Write(Event(i)); ++i) {
            }
        });
        Eventually([&] { return fs::exists("logsevents-0.log"); });
        program.Signal(attempt % 2 == 0 ? SIGTERM : SIGINT);
        feeder.join();
        ASSERT_EQ(program.Wait(), 0) << program.Errors();
        const std::string errors = program.Errors();
        std::smatch match;
        ASSERT_TRUE(std::regex_search(errors, match, std::regex("([0-9]+) reports")));
        std::vector<int> all(std::stoul(match[1]));
        std::iota(all.begin(), all.end(), 0);
        sawSaved = fs::exists("config/kvLogFile.warm");
        ASSERT_EQ(sawSaved, EventNumbers().size() < all.size());

        for (int start = 0; start < 2; ++start) { // the second one has nothing to bring back
            Program next = Program::Run();
            ASSERT_EQ(next.Wait(), 0) << next.Errors();
            EXPECT_EQ(EventNumbers(), all) << "after start " << start;
            EXPECT_FALSE(fs::exists("config/kvLogFile.warm"));
        }
    }
    EXPECT_TRUE(sawSaved);
}
