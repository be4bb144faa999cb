#include "base/Messages.h"
#include "tests/ServiceFixture.h"

namespace {

class FileSpecTest : public ServiceTest {};

} // namespace

TEST_F(FileSpecTest, BringsPathsIntoTheirNormalForm) {
    struct Case {
        const wchar_t* m_pszPath;
        const char* m_pszNormal;
    };
    const Case cases[] = {{L"", "./"},
                          {L"logs", "logs/"},
                          {L"logs \t", "logs/"},
                          {L"logs/", "logs/"},
                          {L"logs/ ", "logs//"},
                          {L"a\\b", "a/b/"},
                          {L"c/d/e", "c/d/e/"},
                          {L"\u00E9\u20AC", "\u00E9\u20AC/"},
                          {L"with blank/x", "with blank/x/"}};
    m_pService->PrepareToStart();
    EFileSpec spec;
    for (const Case& each : cases) {
        EString path = each.m_pszPath;
        spec.SetLogPath(&path);
        EXPECT_EQ(Narrow(path), each.m_pszNormal);
        EXPECT_TRUE(std::filesystem::is_directory(each.m_pszNormal)) << each.m_pszNormal;
    }
    EXPECT_EQ(m_Kernel.m_Reporter.Messages(), std::vector<ReportedMessage>{});
}

TEST_F(FileSpecTest, FallsBackToTheWorkingDirectory) {
    WriteWhole("taken", "");
    EXPECT_EQ(Configure({SpecItems{.m_Path = "taken/logs"}, SpecItems{.m_Name = "B", .m_Path = "taken"}}), RC_OK);
    const auto message = [](const char* path) {
        return ReportedMessage{LEVEL_WARNING, SOURCE_LOG_FILE, MSG_NOT_CREATED, path};
    };
    EXPECT_EQ(m_Kernel.m_Reporter.Messages(),
              (std::vector<ReportedMessage>{message("taken/logs/"), message("taken/")}));
    EXPECT_EQ(Narrow(Spec()->m_LogPath) + Narrow(Spec(L"B")->m_LogPath), "");
}

TEST_F(FileSpecTest, LeavesDirectoriesToTheNameService) {
    m_Kernel.m_Names.m_bPreparesPaths = false;
    Workplace::WriteSection(
        {SpecItems{.m_Path = R"(a\\b )"}, SpecItems{.m_Name = "KernelLog", .m_Path = R"(as\\it is )"}});
    m_pService->PrepareToStart();
    EXPECT_EQ(m_pService->RTRestore(0, 2), RC_OK);
    EXPECT_EQ(m_Kernel.m_Reporter.Messages(),
              (std::vector<ReportedMessage>{{LEVEL_ERROR, SOURCE_LOG_FILE, MSG_PATH_NOT_PREPARED, ""}}));
    EXPECT_EQ(Narrow(Spec(L"Log@2")->m_LogPath), "a/b/");
    EXPECT_EQ(Narrow(Spec(L"KernelLog")->m_LogPath), "as\\it is ");
    EXPECT_EQ(Workplace::Tree(), std::vector<std::string>{});
}

TEST_F(FileSpecTest, SpoolsOnlyWhatIsDelivered) {
    Configure({SpecItems{.m_Name = "Up", .m_Path = "raw ", .m_nDelivery = 2},
               SpecItems{.m_Name = "Kept", .m_Path = "kept ", .m_nDelivery = 3, .m_nKeepCopy = 1},
               SpecItems{.m_Path = "logs"}});
    const auto paths = [&](const wchar_t* name) {
        return Narrow(Spec(name)->m_LogPath) + '|' + Narrow(Spec(name)->m_SpoolPath);
    };
    EXPECT_EQ(paths(L"Up"), "raw |./Spool/");
    EXPECT_EQ(paths(L"Kept"), "kept/|./Spool/");
    EXPECT_EQ(paths(L"Log"), "logs/|");
    EXPECT_EQ(Workplace::Tree(), (std::vector<std::string>{"Spool/", "kept/", "logs/"}));
}

TEST_F(FileSpecTest, ReadsNothingWithoutASection) {
    EFileSpec spec;
    EXPECT_EQ(spec.Restore(0), RC_NO_SECTION);
    EXPECT_EQ(spec.m_pFilter, nullptr);
}
