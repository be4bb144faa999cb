#include "gateway/FlowControl.h"
#include "gateway/Moments.h"
#include "gateway/Report.h"
#include "gateway/Schedule.h"
#include "gateway/Text.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <limits>

using std::chrono::seconds;
using testing::ElementsAre;

namespace {

// Seconds and milliseconds of a moment, such as "1706706309.042".
std::string Print(const ETimeStamp& stamp) {
    char text[32];
    std::snprintf(text, sizeof text, "%u.%03u", stamp.m_nSeconds, stamp.m_nMilliseconds);
    return text;
}

void SetTimeZone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
}

} // namespace

TEST(MomentsTest, ReadsMoments) {
    const std::pair<const char*, const char*> texts[] = {{"2024-01-31T13:05:09.042Z", "1706706309.042"},
                                                         {"2024-01-31t13:05:09z", "1706706309.000"},
                                                         {"2024-01-31 14:05:09.04298+01:00", "1706706309.042"},
                                                         {"2024-01-30T23:35:09.9-13:30", "1706706309.900"},
                                                         {"2016-12-31T23:59:60Z", "1483228800.000"},
                                                         {"2106-02-07T06:28:15Z", "4294967295.000"}};
    for (const auto& [text, expected] : texts) {
        ETimeStamp stamp;
        EXPECT_TRUE(Moments::ParseRfc3339(text, stamp)) << text;
        EXPECT_EQ(Print(stamp), expected) << text;
    }
    ETimeStamp stamp;
    for (const char* const text :
         {"2106-02-07T06:28:16Z", "1970-01-01T00:00:00+00:01", "2023-02-29T00:00:00Z", "2024-01-31T24:00:00Z",
          "2024-01-31T13:05:09", "2024-01-31T13:05:09.Z", "2024-01-31T13:05Z", "2024-01-31T13:05:09+1:00", "2024-01-31",
          "2024-01-31T13:05:09Z ", "2024-01-31T 3:05:09Z", ""}) {
        EXPECT_FALSE(Moments::ParseRfc3339(text, stamp)) << text;
    }
    EXPECT_TRUE(Moments::FromSeconds(1706706309.042, stamp));
    EXPECT_EQ(Print(stamp), "1706706309.042");
    EXPECT_TRUE(Moments::FromSeconds(4294967295.9999, stamp));
    EXPECT_EQ(Print(stamp), "4294967295.999");
    for (const double number : {-0.001, 4294967296.0, std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_FALSE(Moments::FromSeconds(number, stamp)) << number;
    }
}

TEST(MomentsTest, FindsTheNextTimeOfDayAcrossClockChanges) {
    SetTimeZone("CET-1CEST,M3.5.0,M10.5.0/3");
    constexpr int HALF_PAST_TWO = 2 * 3600 + 1800;
    const std::pair<std::time_t, std::time_t> cases[] = {
        {1706664600, 1706751000}, // 31 January 2024, at the moment itself: the next day
        {1711762200, 1711848600}, // 31 March has no 02:30: half an hour after the clock was put forward
        {1711845900, 1711848600}, // 31 March, 01:45, just before
        {1711848600, 1711931400}, // and the day after
        {1729989000, 1730079000}, // 27 October, 02:30 for the first time -> 28 October
    };
    for (const auto& [now, expected] : cases) {
        const std::time_t next = Moments::NextTimeOfDay(now, HALF_PAST_TWO);
        EXPECT_EQ(next, expected) << now;
    }
    SetTimeZone("UTC0");
}

TEST(ScheduleTest, IsDueAtSpansAndTimesOfDay) {
    SetTimeZone("UTC0");
    const Schedule::Steady start{};
    constexpr std::time_t MIDNIGHT = 1706659200;
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
    EXPECT_EQ(due(74, -7 * 86400 + 6 * 3600), "At ");
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
        while (flow.HasRoom(now)) {
            flow.Take();
            ++fed;
            most = std::max(most, ++*waiting);
        }
    }
    EXPECT_LE(most, 512U);
    EXPECT_GT(fed, 60'000U) << "the worker hardly got anything to do";
    waiting.reset();
    EXPECT_FALSE(flow.HasRoom(now + seconds(1)));
    EXPECT_FALSE(flow.HasRoom(now + seconds(12)) || !flow.IsBlind(now + seconds(12))) << "the queue cannot be seen";
}

TEST(ReportTest, TakesEveryMember) {
    Report report;
    std::string reason;
    ASSERT_TRUE(report.Parse(R"({"log": "Trend@3", "snapshot": [
        {"name": "Größe", "text": "t", "source": "s", "detail": "d", "time": 1.5, "code": -274, "alarmNumber": 9,
         "identifier": 4, "prefix": [1, -2, 3, 4], "state": {"active": true, "acked": true}, "value": true},
        {"state": 65535, "value": {"value": 12345678901234567890, "quality": 64, "time": "1970-01-01T00:00:02Z"}},
        {"value": "text"}, {"value": -9007199254740993}, {"value": null}]})",
                             {100, 0}, reason))
        << reason;
    std::vector<std::string> records;
    for (const EONEVENTSTRUCT& record : report.m_Records) {
        EString value;
        record.m_Value.GetString(value, 0, 0, 0);
        std::string text = Narrow(record.m_pszName) + Narrow(record.m_pszText) + Narrow(record.m_pszSource) +
                           Narrow(record.m_pszDetail) + ' ' + Print(record.m_TimeStamp) + ' ' + Narrow(value) + ' ' +
                           Print(record.m_Value.GetTimestamp());
        for (const std::int64_t number : {std::int64_t(record.m_Value.GetQuality()), std::int64_t(record.m_nCode),
                                          std::int64_t(record.m_nAlarmNumber), std::int64_t(record.m_nIdentifier),
                                          std::int64_t(record.m_wState), std::int64_t(record.m_nPrefixNumbers[1])}) {
            text += ' ' + std::to_string(number);
        }
        records.push_back(text);
    }
    EXPECT_THAT(records,
                ElementsAre("Größetsd 1.500 true 0.000 192 -274 9 4 6 -2",
                            " 0.000 12345678901234567168 2.000 64 0 0 3 65535 0", // its value's time dates it
                            " 100.000 text 0.000 192 0 0 3 0 0", " 100.000 -9007199254740993 0.000 192 0 0 3 0 0",
                            " 100.000  0.000 192 0 0 3 0 0"));
}
