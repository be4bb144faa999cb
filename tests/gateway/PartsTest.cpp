#include "gateway/FlowControl.h"
#include "gateway/Moments.h"
#include "gateway/NameService.h"
#include "gateway/Report.h"
#include "gateway/Schedule.h"
#include "gateway/Text.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <ctime>
#include <deque>
#include <limits>

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::HasSubstr;

namespace {

// Seconds and milliseconds of a moment, such as "1706706309.042"; what is no moment is "-".
std::string Print(bool taken, const ETimeStamp& stamp) {
    char text[32];
    std::snprintf(text, sizeof text, "%u.%03u", stamp.m_nSeconds, stamp.m_nMilliseconds);
    return taken ? text : "-";
}

class BerlinTest : public testing::Test {
protected:
    void SetUp() override { Set("CET-1CEST,M3.5.0,M10.5.0/3"); }
    void TearDown() override { Set("UTC0"); }
    static void Set(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
};

} // namespace

TEST(MomentsTest, ReadsMoments) {
    const std::pair<const char*, const char*> texts[] = {
        {"2024-01-31T13:05:09.042Z", "1706706309.042"},
        {"2024-01-31t13:05:09z", "1706706309.000"},
        {"2024-01-31 14:05:09.04298+01:00", "1706706309.042"},
        {"2024-01-30T23:35:09.9-13:30", "1706706309.900"},
        {"2024-02-29T00:00:00Z", "1709164800.000"},
        {"2016-12-31T23:59:60Z", "1483228800.000"},
        {"1970-01-01T00:00:00Z", "0.000"},
        {"2106-02-07T06:28:15Z", "4294967295.000"},
        {"2106-02-07T06:28:16Z", "-"},
        {"1970-01-01T00:00:00+00:01", "-"},
        {"2023-02-29T00:00:00Z", "-"},
        {"2024-01-31T24:00:00Z", "-"},
        {"2024-01-31T13:05:09", "-"},
        {"2024-01-31T13:05:09.Z", "-"},
        {"2024-01-31T13:05Z", "-"},
        {"2024-01-31", "-"},
        {"2024-01-31T13:05:09Z ", "-"},
        {"", "-"},
    };
    for (const auto& [text, expected] : texts) {
        ETimeStamp stamp;
        const bool taken = Moments::ParseRfc3339(text, stamp);
        EXPECT_EQ(Print(taken, stamp), expected) << text;
    }
    const std::pair<double, const char*> numbers[] = {{1706706309.042, "1706706309.042"},
                                                      {0.0009, "0.000"},
                                                      {4294967295.999, "4294967295.999"},
                                                      {-1, "-"},
                                                      {4294967296, "-"},
                                                      {std::numeric_limits<double>::quiet_NaN(), "-"}};
    for (const auto& [number, expected] : numbers) {
        ETimeStamp stamp;
        const bool taken = Moments::FromSeconds(number, stamp);
        EXPECT_EQ(Print(taken, stamp), expected) << number;
    }
}

TEST_F(BerlinTest, FindsTheNextTimeOfDayAcrossClockChanges) {
    constexpr int HALF_PAST_TWO = 2 * 3600 + 1800;
    const std::pair<std::time_t, std::time_t> cases[] = {
        {1706655600, 1706664600}, // 31 January 2024, 00:00 -> 02:30
        {1706664600, 1706751000}, // at the moment itself: the next day
        {1711749600, 1711762200}, // 29 March, 23:00 -> 30 March, 02:30
        {1711762200, 1711848600}, // 31 March has no 02:30: half an hour after the clock was put forward
        {1711845900, 1711848600}, // 31 March, 01:45, just before
        {1711848600, 1711931400}, // and the day after
        {1729989000, 1730079000}, // 27 October, 02:30 for the first time -> 28 October
    };
    for (const auto& [now, expected] : cases) {
        const std::time_t next = Moments::NextTimeOfDay(now, HALF_PAST_TWO);
        EXPECT_EQ(next, expected) << now;
    }
}

TEST(ScheduleTest, IsDueAtSpansAndTimesOfDay) {
    setenv("TZ", "UTC0", 1);
    tzset();
    const Schedule::Steady start{};
    constexpr std::time_t MIDNIGHT = 1706659200;
    Schedule schedule({{"a", "Every", seconds(10), 0}, {"b", "At", std::nullopt, 6 * 3600}}, start, MIDNIGHT);
    const auto due = [&](seconds steady, std::time_t clock) {
        std::string logs;
        for (const ScheduleEntry& entry : schedule.TakeDue(start + steady, MIDNIGHT + clock)) {
            logs += entry.m_Log + ' ';
        }
        return logs;
    };
    EXPECT_EQ(schedule.UntilNext(start, MIDNIGHT), seconds(10));
    EXPECT_EQ(due(seconds(9), 9), "");
    EXPECT_EQ(due(seconds(10), 10), "Every ");
    EXPECT_EQ(due(seconds(10), 10), "");
    EXPECT_EQ(due(seconds(45), 45), "Every ") << "the missed ones are not made up for";
    EXPECT_EQ(schedule.UntilNext(start + seconds(45), MIDNIGHT + 45), seconds(5)) << "the beat is kept";
    EXPECT_EQ(due(seconds(50), 6 * 3600), "Every At ");
    EXPECT_EQ(due(seconds(51), 6 * 3600 + 1), "");
    EXPECT_EQ(due(seconds(52), 30 * 3600), "At ");
    // The clock is set back by a week: the next morning of that week counts, not the one that was expected.
    EXPECT_EQ(due(seconds(53), -7 * 86400), "");
    EXPECT_EQ(due(seconds(54), -7 * 86400 + 6 * 3600), "At ");
}

TEST(NameServiceTest, SplitsWhatItJoins) {
    const std::pair<const wchar_t*, int> cases[] = {
        {L"Alarms@7", 7}, {L"a@b@0", 0}, {L"Alarms@2147483647", 2147483647},
        {L"Alarms", -1},  {L"a@", -1},   {L"@7", -1},
        {L"a@07", -1},    {L"a@7b", -1}, {L"a@2147483648", -1},
        {L"", -1},        {L"a@-1", -1}, {L"a@99999999999999999999999", -1}};
    for (const auto& [text, id] : cases) {
        EString name = text;
        EXPECT_EQ(NameService::Split(name), id) << Narrow(text);
        EXPECT_EQ(NameService::Join(name, id), text) << Narrow(text);
    }
}

TEST(FlowControlTest, NeverLetsMoreWaitThanTheQueueHolds) {
    std::uint32_t waiting = 100;
    FlowControl flow([&] { return waiting; }, 512, true);
    FlowControl::Steady now{seconds(1)};
    std::uint32_t most = 0;
    std::uint32_t fed = 0;
    for (int i = 0; i < 20'000; ++i, now += std::chrono::microseconds(100)) {
        waiting -= std::min(waiting, i % 3000 < 1000 ? 0U : 9U); // a worker that stands still now and then
        while (flow.HasRoom(now)) {
            flow.Take();
            ++fed;
            most = std::max(most, ++waiting);
        }
    }
    EXPECT_LE(most, 512U);
    EXPECT_GT(fed, 60'000U) << "the worker hardly got anything to do";
}

TEST(FlowControlTest, GivesUpOnAQueueThatCannotBeSeen) {
    FlowControl flow([]() -> std::optional<std::uint32_t> { return std::nullopt; }, 512, true);
    FlowControl::Steady now{seconds(1)};
    EXPECT_FALSE(flow.HasRoom(now));
    EXPECT_FALSE(flow.HasRoom(now + seconds(5)));
    EXPECT_THROW(flow.HasRoom(now + seconds(11)), std::runtime_error);
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
    ASSERT_EQ(report.m_Records.size(), 5U);
    const EONEVENTSTRUCT& first = report.m_Records[0];
    EXPECT_STREQ(first.m_pszName, L"Größe");
    EXPECT_STREQ(first.m_pszDetail, L"d");
    EXPECT_EQ(Print(true, first.m_TimeStamp), "1.500");
    EXPECT_EQ(first.m_nCode, -274);
    EXPECT_EQ(first.m_nAlarmNumber, 9);
    EXPECT_EQ(first.m_nIdentifier, 4);
    EXPECT_THAT(first.m_nPrefixNumbers, testing::ElementsAre(1, -2, 3, 4));
    EXPECT_EQ(first.m_wState, 6);
    const EONEVENTSTRUCT& second = report.m_Records[1];
    EXPECT_EQ(second.m_nIdentifier, 3) << "the log file's, unless the record says otherwise";
    EXPECT_FALSE(second.m_TimeStamp.IsSet()) << "the value's time dates the row";
    EXPECT_EQ(Print(true, second.m_Value.GetTimestamp()), "2.000");
    EXPECT_EQ(second.m_Value.GetQuality(), 64U);
    EXPECT_EQ(Print(true, report.m_Records[2].m_TimeStamp), "100.000");
    std::string values;
    for (const EONEVENTSTRUCT& record : report.m_Records) {
        EString text;
        record.m_Value.GetString(text, 0, 0, 0);
        values += Narrow(text) + ' ';
    }
    EXPECT_EQ(values, "true 12345678901234567168 text -9007199254740993  ");
}

TEST(ReportTest, RefusesWithTheColumnAndTheReason) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "column 1: found the end"},
        {"[]", "column 1: "},
        {"{}", "column 2: report: found no \"log\""},
        {R"({"log": "A"})", "found no report"},
        {R"({"event": 1})", "column 11: \"event\": found 1, expected an object"},
        {R"({"event": {}, "log": "A"})", "column 15: report: found \"log\""},
        {R"({"event": {}, "alarm": {}})", "column 15: report: found \"alarm\""},
        {R"({"alarm": {}, "log": 5})", "column 22: \"log\": found 5, expected a text"},
        {R"({"snapshot": {}, "log": "A"})", "column 14: \"snapshot\": found an object, expected a list"},
        {R"({"snapshot": [], "log": "A"})", "at least one record"},
        {R"({"snapshot": [{}, 1], "log": "A"})", "column 19: found 1"},
        {R"({"action": "DoIt", "log": "A"})", "column 12: \"action\": found \"DoIt\""},
        {R"({"action": "DoLogEventToFile", "log": "A"})", "found no \"records\""},
        {R"({"action": "DoLogDelivery", "log": "A", "records": []})", "at least one record"},
        {R"({"event": {"colour": 1}})", "column 12: record: found \"colour\""},
        {R"({"event": {"name": "a\u0000b"}})", "null character"},
        {R"({"event": {"code": 2147483648}})", "from -2147483648 to 2147483647"},
        {R"({"event": {"code": 1.5}})", "found 1.5"},
        {R"({"event": {"prefix": [1, 2, 3]}})", "four integers"},
        {R"({"event": {"state": 65536}})", "from 0 to 65535"},
        {R"({"event": {"state": {"active": 1}}})", "true or false"},
        {R"({"event": {"time": -1}})", "\"time\": found -1"},
        {R"({"event": {"time": true}})", "\"time\": found true"},
        {R"({"event": {"value": [1]}})", "column 21: \"value\": found a list"},
        {R"({"event": {"value": {"quality": 1}}})", "found no \"value\""},
        {R"({"event": {"value": {"value": 1, "quality": -1}}})", "\"quality\": found -1"},
        {R"({"event": {}} x)", "column 15: found"},
    };
    for (const auto& [line, expected] : cases) {
        Report report;
        std::string reason;
        EXPECT_FALSE(report.Parse(line, {100, 0}, reason)) << line;
        EXPECT_THAT(reason, HasSubstr(expected)) << line;
    }
}
