#include "base/ETime.h"
#include "tests/ServiceFixture.h"

#include <cstdlib>

namespace {

class DateTimeTest : public ServiceTest {
protected:
    // `each` is the pattern and what it makes of the time. It goes behind a text that stands there, twice.
    void Expect(bool date, const std::string& each, const ETimeStamp& stamp) {
        const std::size_t arrow = each.find("->");
        (date ? m_pService->m_DateFormat : m_pService->m_TimeFormat) = Wide(each.substr(0, arrow));
        ETime time(stamp);
        EString out = L">";
        for (int i = 0; i < 2; ++i) {
            const EResult result = date ? m_pService->FormatDateStr(time, out) : m_pService->FormatTimeStr(time, out);
            EXPECT_EQ(result, RC_OK);
        }
        const std::string text = each.substr(arrow + 2);
        EXPECT_EQ(Narrow(out), '>' + text + text) << each;
    }
    void ExpectDate(const char* each, const ETimeStamp& stamp = MakeRecord().m_TimeStamp) { Expect(true, each, stamp); }
    void ExpectTime(const char* each, const ETimeStamp& stamp = MakeRecord().m_TimeStamp) {
        Expect(false, each, stamp);
    }
};

} // namespace

TEST_F(DateTimeTest, FollowsThePatterns) {
    for (const char* date :
         {"MM-DD-YYYY->01-31-2024", "DD.MM.YY->31.01.24", "YYYY/MM/DD->2024/01/31", "->", "dd mm yyyy->dd mm yyyy",
          "YYYYY->2024", "YYYYYY->202424", "YYY->2024", "YYY-MM->2024-01", "Y-Y->-", "YMMY->01", "MMM->01",
          "MMMM->0101", "MDMD->", "D.DD->.31", "\u20AC%dDD->\u20AC%d31"}) {
        ExpectDate(date);
    }
    for (const char* time :
         {"HH:mm:SS.sss->13:05:09.042", "H:m->:", "HH hours->13 hour", "->", "SS.ss->09.", "HHHH->1313", "HHH->13",
          "HHmmSS->130509", "ssss->042", "ssssss->042042", "sHss->", "MM hh->MM hh", "s.sss->.042"}) {
        ExpectTime(time);
    }
}

TEST_F(DateTimeTest, PrintsLocalTimeFromTheFirstToTheLastStamp) {
    const auto stamp = [](std::uint32_t seconds, std::uint16_t milliseconds) {
        ETimeStamp made;
        made.m_nSeconds = seconds;
        made.m_nMilliseconds = milliseconds;
        return made;
    };
    ExpectTime("HH:mm:SS.sss->00:00:00.000", stamp(0, 0));
    ExpectDate("YYYY-MM-DD YY->2106-02-07 06", stamp(UINT32_MAX, 999));
    ExpectTime("HH:mm:SS.sss->06:28:15.999", stamp(UINT32_MAX, 999));
    setenv("TZ", "EST5EDT,M3.2.0,M11.1.0", 1);
    tzset();
    ExpectTime("HH:mm:SS->01:59:59", stamp(1710053999, 0)); // clocks go forward a second later
    ExpectTime("HH:mm:SS->03:00:00", stamp(1710054000, 0));
    ExpectDate("MM/DD/YY->12/31/23", stamp(1704085199, 0));
}
