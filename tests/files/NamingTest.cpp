#include "tests/files/LogFiles.h"

namespace {

struct NameCase {
    const char* m_pszPattern;
    int m_nIndex;
    const char* m_pszName;
};

class NamingTest : public LogFilesTest {};

} // namespace

TEST_F(NamingTest, MakesNamesFromThePattern) {
    const NameCase cases[] = {{"Kavro.log", 0, "Kavro.log"},
                              {"Kavro.log", 7, "Kavro.log"},
                              {"a:b/c.txt", 0, "a-b-c.txt"},
                              {"../%i/x", 12, "..-12-x"},
                              {"%Y-%m-%d %H:%M:%S.%s.log", 0, "2024-01-31 13-05-09.042.log"},
                              {"%y%%i%i%%", 3, "24%i3%"},
                              {"100% of %q, %", 0, "100% of %q, %"},
                              {"\u00E9\U0001F600%i", 1, "\u00E9\U0001F6001"},
                              {"", 0, ""}};
    Configure({SpecItems{}});
    const ETimeStamp stamp = MakeRecord().m_TimeStamp;
    for (const NameCase& each : cases) {
        Spec()->m_FileName = Wide(each.m_pszPattern);
        EString name;
        m_pService->CalcFileName(Spec(), each.m_nIndex, &stamp, true, name);
        EXPECT_EQ(Narrow(name), "logs/" + std::string(each.m_pszName));
        EXPECT_EQ(Narrow(Spec()->m_CurrentFile), Narrow(name));
        m_pService->CalcFileName(Spec(), each.m_nIndex, &stamp, false, name);
        EXPECT_EQ(Narrow(name), each.m_pszName);
        EXPECT_EQ(Narrow(Spec()->m_CurrentFile), Narrow(name));
    }
}

TEST_F(NamingTest, PutsTheDirectoryInFront) {
    struct Case {
        const wchar_t* m_pszName;
        SpecItems m_Items;
        const char* m_pszFirstFile;
    };
    const Case cases[] = {
        {L"Up", {.m_Name = "Up", .m_Path = "kept", .m_File = "u", .m_nDelivery = 2, .m_nKeepCopy = 1}, "./Spool/u"},
        {L"Mail", {.m_Name = "Mail", .m_Path = "unused", .m_File = "m", .m_nDelivery = 3}, "./Spool/m"},
        {L"KernelLog", {.m_Name = "KernelLog", .m_Path = "pre", .m_File = "EKernel.log"}, "preKavro.log"},
        {L"Log", {.m_File = "l"}, "logs/l"}};
    std::vector<std::string> specs;
    for (const Case& each : cases) {
        specs.push_back(each.m_Items);
    }
    EXPECT_EQ(Configure(specs), RC_OK);
    EXPECT_EQ(Workplace::Tree(), (std::vector<std::string>{"Spool/", "kept/", "logs/"}));
    const EONEVENTSTRUCT record = MakeRecord();
    for (const Case& each : cases) {
        Process(ACTION_LOG_ALARM, &record, 1, each.m_pszName);
        EXPECT_EQ(Narrow(Spec(each.m_pszName)->m_CurrentFile), each.m_pszFirstFile);
        EXPECT_TRUE(std::filesystem::exists(each.m_pszFirstFile));
    }
    End();
    EXPECT_EQ(Workplace::Tree(), (std::vector<std::string>{"Spool/", "kept/", "logs/", "logs/l", "preKavro.log"}))
        << "what was not delivered does not outlive the service, other files do";
}
