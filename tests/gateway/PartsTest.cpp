#include "gateway/FlowControl.h"
#include "gateway/Moments.h"
#include "gateway/Report.h"
#include "gateway/Text.h"
#include "tests/gateway/Program.h"

namespace {

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

TEST(NameTest, SplitsWhatItJoins) {
    const std::pair<const char*, int> cases[] = {{"Alarms@7", 7}, {"a@b@0", 0}, {"Alarms@2147483647", 2147483647},
                                                 {"Alarms", -1},  {"a@", -1},   {"@7", -1},
                                                 {"a@07", -1},    {"a@-1", -1}, {"a@2147483648", -1}};
    for (const auto& [text, id] : cases) {
        std::string name = text;
        EXPECT_EQ(SplitName(name), id) << text;
        EXPECT_EQ(JoinName(name, id), text);
    }
}

TEST(FlowControlTest, NeverLetsMoreWaitThanTheQueueHolds) {
    std::optional<std::uint32_t> waiting = 100;
    FlowControl flow([&] { return waiting; }, 512, true);
    FlowControl::Steady now{std::chrono::seconds(1)};
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
    EXPECT_FALSE(flow.HasRoom(now + std::chrono::seconds(1)));
    EXPECT_FALSE(flow.HasRoom(now + std::chrono::seconds(12)) || !flow.IsCountMissing(now + std::chrono::seconds(12)))
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

TEST(ReportTest, KnowsARightLine) {
    const std::pair<const char*, const char*> cases[] = {
        {R"({"snapshot": [{"identifier": 1}, {"value": {"time": 2, "value": 1}}], "log": "Trend@3"})",
         "2 Trend@3 3 \n100000 0; 192 0 0 1 0 0; ||||\n0 2000; 192 0 0 3 0 0; ||||1"},
        {R"({"records": [{"state": {"acked": true}, "time": 0}], "action": "DoLogAlarmToFile", "log": "A"})",
         "3 A -1 DoLogAlarmToFile\n0 0; 192 0 0 -1 4 0; ||||"},
        {"\xEF\xBB\xBF"
         R"({"log": "\u00e4", /* " */ "action": "DoLogDelivery"} // comment)",
         "3 ä -1 DoLogDelivery\n100000 0; 192 0 0 -1 0 0; ||||"},
        {R"({"event": {"text": "\ud83d\ude00", "source": "a\nb", "value": 9223372036854775808, "time": 1e-400}})",
         "0  -1 \n0 0; 192 0 0 -1 0 0; |😀|a\nb||9.223372036854776e+18"},
        {R"({"event": {"value": 5708990770823839524233143877797980545530986496.5, "code": -2147483648}})",
         "0  -1 \n100000 0; 192 -2147483648 0 -1 0 0; ||||5.70899077082384e+45"},
        {R"({"log": "A", "action": "DoLogDelivery", "action": "DoLogDelivery"})", ""},
        {"{\"event\": {\"text\": \"\xED\xA0\x80\"}}", ""},
        {"{\"log\": \"A\xFF\", \"alarm\": {}}", ""},
        {R"({"event": {"state": 01}})", ""},
        {R"({"event": {"value": 1.7976931348623159e308}})", ""}};
    Report report; // one for all, as the gateway has it
    for (const auto& [line, expected] : cases) {
        std::string reason;
        const bool isRight = report.Parse(line, {100, 0}, reason);
        EXPECT_EQ(isRight ? Print(report) : "", expected) << line << reason;
    }
    std::string reason;
    EXPECT_FALSE(report.Parse(std::string("{\"event\": {}}\0", 14), {100, 0}, reason)) << "a null character";
}
