#include "gateway/FlowControl.h"
#include "gateway/Moments.h"
#include "gateway/Report.h"
#include "gateway/Schedule.h"
#include "gateway/Text.h"
#include "tests/gateway/Program.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

using std::chrono::seconds;

namespace {

class ClockTest : public testing::Test {
protected:
    ClockTest() {
        setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        tzset();
    }
};

std::int64_t Milliseconds(const ETimeStamp& stamp) {
    return std::int64_t(stamp.m_nSeconds) * 1000 + stamp.m_nMilliseconds;
}

std::string Print(const EONEVENTSTRUCT& record) {
    EString value;
    record.m_Value.GetString(value, 0, 0, 0);
    std::ostringstream text;
    text << Milliseconds(record.m_TimeStamp) << ' ' << Milliseconds(record.m_Value.GetTimestamp()) << "; "
         << record.m_Value.GetQuality() << ' ' << record.m_nCode << ' ' << record.m_nAlarmNumber << ' '
         << record.m_nIdentifier << ' ' << record.m_wState << ' ' << record.m_nPrefixNumbers[1] << "; "
         << Narrow(record.m_pszName) << '|' << Narrow(record.m_pszText) << '|' << Narrow(record.m_pszSource) << '|'
         << Narrow(record.m_pszDetail) << '|' << Narrow(value);
    return text.str();
}

std::string Print(const Report& report) {
    std::string text = std::to_string(static_cast<int>(report.m_Kind)) + ' ' + report.m_Log + ' ' +
                       std::to_string(report.m_nIdentifier) + ' ' + report.m_Action;
    for (const EONEVENTSTRUCT& record : report.m_Records) {
        text += '\n' + Print(record);
    }
    return text;
}

} // namespace

TEST_F(ClockTest, FindsTheNextTimeOfDayAcrossClockChanges) {
    constexpr int HALF_PAST_TWO = 2 * 3600 + 1800;
    const std::pair<std::time_t, std::time_t> cases[] = {
        {1706664600, 1706751000}, // 31 January 2024, at the moment itself: the next day
        {1711762200, 1711848600}, // 31 March has no 02:30: half an hour after the clock was put forward
        {1711845900, 1711848600}, // 31 March, 01:45, just before
        {1711848600, 1711931400}, // and the day after
        {1729989000, 1730079000}, // 27 October, 02:30 for the first time -> 28 October
    };
    for (const auto& [now, expected] : cases) {
        EXPECT_EQ(Moments::NextTimeOfDay(now, HALF_PAST_TWO), expected) << now;
    }
}

TEST_F(ClockTest, ASchedulesActionsAreDueAtSpansAndTimesOfDay) {
    const Schedule::Steady start{};
    constexpr std::time_t MIDNIGHT = 1706655600;
    Schedule schedule({{"a", "Every", seconds(10), 0}, {"b", "At", std::nullopt, 6 * 3600}}, start, MIDNIGHT);
    const auto due = [&](int steady, std::time_t clock) {
        std::string logs;
        while (schedule.HasDue(start + seconds(steady), MIDNIGHT + clock)) {
            logs += schedule.TakeDue().m_Log + ' ';
        }
        return logs;
    };
    EXPECT_EQ(schedule.UntilNext(start, MIDNIGHT), seconds(10));
    EXPECT_EQ(due(9, 9), "");
    EXPECT_EQ(due(10, 10), "Every ");
    EXPECT_EQ(due(45, 45), "Every ") << "the missed ones are not made up for";
    EXPECT_EQ(schedule.UntilNext(start + seconds(45), MIDNIGHT + 45), seconds(5)) << "the beat is kept";
    EXPECT_EQ(due(50, 6 * 3600), "Every At ");
    EXPECT_EQ(due(52, 30 * 3600), "At ");
    EXPECT_TRUE(schedule.HasDue(start + seconds(60), MIDNIGHT + 30 * 3600 + 8));
    EXPECT_EQ(due(70, 30 * 3600 + 18), "Every ") << "what waits is not due twice";
    // The clock is set back by a week: the next morning of that week counts, not the one that was expected.
    EXPECT_EQ(due(73, -7 * 86400), "");
    EXPECT_TRUE(schedule.HasDue(start + seconds(74), MIDNIGHT - 7 * 86400 + 6 * 3600));
    EXPECT_EQ(due(75, -14 * 86400), "At ") << "what waits stays due when the clock is set back";
}

TEST(NameTest, SplitsWhatItJoins) {
    const std::pair<const char*, int> cases[] = {{"Alarms@7", 7}, {"a@b@0", 0}, {"Alarms@2147483647", 2147483647},
                                                 {"Alarms", -1},  {"a@", -1},   {"@7", -1},
                                                 {"a@07", -1},    {"a@7b", -1}, {"a@2147483648", -1},
                                                 {"", -1},        {"a@-1", -1}, {"a@+1", -1}};
    for (const auto& [text, id] : cases) {
        std::string name = text;
        EXPECT_EQ(SplitName(name), id) << text;
        EXPECT_EQ(JoinName(name, id), text);
    }
}

TEST(FlowControlTest, NeverLetsMoreWaitThanTheQueueHolds) {
    std::optional<std::uint32_t> waiting = 100;
    FlowControl flow([&] { return waiting; }, 512, true);
    FlowControl::Steady now{seconds(1)};
    std::uint32_t most = 0;
    std::uint32_t fed = 0;
    for (int i = 0; i < 20'000; ++i, now += std::chrono::microseconds(100)) {
        *waiting -= std::min(*waiting, i % 3000 < 1000 ? 0U : 9U); // a worker that stands still now and then
        for (; flow.HasRoom(now); ++fed) {
            flow.Take();
            most = std::max(most, ++*waiting);
        }
    }
    EXPECT_LE(most, 512U);
    EXPECT_GT(fed, 60'000U) << "the worker hardly got anything to do";
    waiting.reset();
    EXPECT_FALSE(flow.HasRoom(now + seconds(1)));
    EXPECT_FALSE(flow.HasRoom(now + seconds(12)) || !flow.IsCountMissing(now + seconds(12)))
        << "the queue cannot be seen";
}

TEST(ReportTest, TakesEveryMember) {
    for (const auto& row : Table("records.txt")) {
        Report report;
        std::string reason;
        ASSERT_TRUE(report.Parse("{\"log\": \"Trend@3\", \"snapshot\": [" + row.at(0) + "]}", {100, 0}, reason))
            << reason;
        EXPECT_EQ(Print(report.m_Records.at(0)), row.at(1)) << row.at(0);
    }
}

// The reader of right lines and the one that finds faults have to agree on every line.
TEST(ReportTest, IsRefusedExactlyForAFault) {
    std::vector<std::string> lines{
        R"({"snapshot": [{"identifier": 1}, {"value": {"time": 2, "value": 1}}], "log": "Trend@3"})",
        R"({"records": [{"state": {"acked": true}}], "action": "DoLogAlarmToFile", "log": "A"})",
        R"({"log": "A", "alarm": {}, "action": "DoLogDelivery"})",
        R"({"event": {"value": {"value": {"value": 1}}}})",
        "\xEF\xBB\xBF"
        R"({"log": "\u00e4", "action": "DoLogDelivery"})",
        R"({"event": {"text": "\ud83d\ude00", "name": "\ud83d", "source": "\ude00", "detail": "a\nb"}} // comment)",
        "{\"log\": \"A\xFF\", \"alarm\": {\"text\": \"\xC3\", \"value\": \"\xED\xA0\x80\"}}",
        R"({"event": {"value": 0e999, "time": -0}, /* \r */ "log": "\udead"})",
        R"({"event": {"value": 9223372036854775808, "code": -2147483648, "time": 1e-400}})",
        R"({"event": {"value": 5708990770823839524233143877797980545530986496.5, "state": 65536}})",
        R"({"event": {"value": -9223372036854775808, "state": 01, "time": 1.7976931348623159e308}})"};
    for (const char* const file : {"lines.txt", "records.txt"}) {
        for (const auto& row : Table(file)) {
            lines.push_back(file[0] == 'l' ? row.at(0) : R"({"log": "Trend", "alarm": )" + row.at(0) + "}");
        }
    }
    std::mt19937 random;
    const auto below = [&](std::size_t limit) { return random() % limit; };
    const auto piece = [&](const std::string& line) { // mostly a member, with the comma before it
        const std::size_t begin = std::min(line.find_first_of("{},[]:", below(line.size())), line.size() - 1);
        const std::size_t end = std::min(line.find_first_of("{},[]", begin + 1), line.size());
        return std::pair(begin, end - begin);
    };
    Report report;
    std::string reason;
    int taken = 0;
    for (int i = 0; i < 20'000; ++i) { // the lines as they are, and pieces of them in others' places
        std::string line = lines[static_cast<std::size_t>(i) % lines.size()];
        for (std::size_t changes = i < 1000 ? 0 : 1 + below(3); changes > 0 && !line.empty(); --changes) {
            const std::string& from = lines[below(lines.size())];
            const auto [begin, length] = piece(from);
            const auto [to, replaced] = piece(line);
            line.replace(to, below(2) * replaced, from, begin, length);
        }
        const bool isRight = report.Parse(line, {100, 0}, reason);
        ASSERT_EQ(isRight, FindReportFault(line).empty()) << line;
        taken += isRight ? 1 : 0;
    }
    EXPECT_GT(taken, 400);
    ASSERT_TRUE(report.Parse(lines[0], {100, 0}, reason));
    EXPECT_EQ(Print(report), "2 Trend@3 3 \n100000 0; 192 0 0 1 0 0; ||||\n0 2000; 192 0 0 3 0 0; ||||1");
}
