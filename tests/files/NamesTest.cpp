#include "base/ETime.h"
#include "tests/ServiceFixture.h"

namespace {

// What patterns make of 13:05:09.042 on the 31st of January 2024.
class NamesTest : public ServiceTest {
protected:
    void Expect(EString& pattern, EResult (ELogFile::*format)(ETime&, EString&), const Texts& cases) {
        for (const std::string& each : cases) {
            const std::size_t arrow = each.find("->");
            pattern = Wide(each.substr(0, arrow));
            ETime time(MakeRecord().m_TimeStamp);
            EString out = L">";
            EXPECT_EQ((m_pService->*format)(time, out) | (m_pService->*format)(time, out), RC_OK);
            EXPECT_EQ(Narrow(out), '>' + each.substr(arrow + 2) + each.substr(arrow + 2)) << each;
        }
    }
};

TEST_F(NamesTest, DatesAndTimesFollowTheirPatterns) {
    Expect(m_pService->m_DateFormat, &ELogFile::FormatDateStr,
           {"MM-DD-YYYY->01-31-2024", "DD.MM.YY->31.01.24", "->", "dd mm yyyy->dd mm yyyy", "YYYYY->2024",
            "YYYYYY->202424", "YYY->2024", "YYY-MM->2024-01", "Y-Y->-", "YMMY->01", "MMM->01", "MMMM->0101", "MDMD->",
            "D.DD->.31", "\u20AC%dDD->\u20AC%d31"});
    Expect(m_pService->m_TimeFormat, &ELogFile::FormatTimeStr,
           {"HH:mm:SS.sss->13:05:09.042", "H:m->:", "HH hours->13 hour", "->", "SS.ss->09.", "HHHH->1313", "HHH->13",
            "HHmmSS->130509", "ssss->042", "ssssss->042042", "sHss->", "MM hh->MM hh", "s.sss->.042"});
}

TEST_F(NamesTest, FileNamesStayInTheirDirectory) {
    Configure({SpecItems{}});
    const ETimeStamp stamp = MakeRecord().m_TimeStamp;
    for (const auto& [pattern, expected] : {std::pair<const char*, std::string>{"Kavro.log", "Kavro.log"},
                                            {"a:b/c.txt", "a-b-c.txt"},
                                            {"../%i/x%", "..-12-x%"},
                                            {"%y%%i%i %q", "24%i12 %q"},
                                            {"%Y-%m-%d %H:%M:%S.%s", "2024-01-31 13-05-09.042"},
                                            {"\u00E9\U0001F600%i", "\u00E9\U0001F60012"},
                                            {"", ""}}) {
        Spec()->m_FileName = Wide(pattern);
        EString name;
        for (const bool withPath : {false, true}) {
            m_pService->CalcFileName(Spec(), 12, &stamp, withPath, name);
            EXPECT_EQ(Narrow(name), (withPath ? "logs/" : "") + expected);
            EXPECT_STREQ(Spec()->m_CurrentFile, name);
        }
    }
}

} // namespace
