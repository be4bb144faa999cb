#include "tests/ServiceFixture.h"

namespace {

class SettingsTest : public ServiceTest {
protected:
    // The file names of the registered file specifications, by their keys.
    Files Registered() {
        Files found;
        for (const auto& [key, value] : m_pService->m_FileSpecs) {
            const auto& spec = *static_cast<EFileSpec*>(value);
            found[Narrow(spec.m_Name)] = Narrow(spec.m_FileName);
        }
        return found;
    }

    // Expects the service to read so a section of this version, and a log file with these items behind its file name.
    void ExpectRead(const std::string& version, const std::string& items, const char* formats, const SpecItems& read) {
        End();
        Make();
        WriteWhole("kvLogFile.json", '{' + version + R"("list": [{"type": "EFileSpec", "name": "Log", "path": "logs",
"file": "log-%i.csv", )" + items + "}]}");
        EXPECT_EQ(Restore(), version.empty() ? RC_ITEM_TYPE : RC_OK);
        EXPECT_EQ(Narrow(m_pService->m_DateFormat + L" " + m_pService->m_TimeFormat), formats);
        ASSERT_EQ(Registered(), (Files{{"Log", "log-%i.csv"}}));
        const EFileSpec& spec = *Spec();
        const SpecItems found{
            Narrow(spec.m_Name), "logs",         Narrow(spec.m_FileName), spec.m_MaxFileSize, spec.m_NumFiles,
            spec.m_FileFormat,   spec.m_Unicode, spec.m_DeliveryMode,     spec.m_KeepCopy,    Narrow(spec.m_MailName)};
        EXPECT_EQ(std::string(found), std::string(read)) << version;
        EXPECT_TRUE(spec.m_FileTime.IsSet()) << "a name with a time is never without one";
    }
};

TEST_F(SettingsTest, ReadsEveryVersionOfTheSection) {
    EXPECT_EQ(Restore(), RC_OK);
    EXPECT_TRUE(Registered().empty());
    const char* const usual = "MM-DD-YYYY HH:mm:SS.sss";
    ExpectRead(R"("version": 1, )", R"("s": 5000, "c": 3, "x": 7, "y": 8, "z": 9, "u": 0)", usual,
               {.m_nMaxSize = 5000, .m_nFiles = 3});
    ExpectRead(R"("version": 2, )", R"("s": -1, "c": 0, "x": 2, "u": 1, "d": 1, "k": 5, "m": "M")", usual,
               {.m_nMaxSize = -1, .m_nFiles = 0, .m_nFormat = 2, .m_nUnicode = 1, .m_nKeepCopy = 5, .m_Mail = "M"});
    ExpectRead(R"("version": 3, "date": "YY", "time": "", )",
               R"("s": 1, "c": 2, "x": 0, "u": 3, "d": 1, "k": 0, "m": "")", "YY ",
               {.m_nMaxSize = 1, .m_nFormat = 0, .m_nUnicode = 3});
    ExpectRead("", R"("s": 1, "c": 2, "x": 0, "y": 0, "z": 0, "u": 1)", usual, // the oldest then
               {.m_nMaxSize = 1, .m_nUnicode = 1});
    unsigned long section = 0;
    EXPECT_EQ(EPersistent::RestoreSection(LOGFILE_XML_NAME, section, true), RC_OK);
    EXPECT_EQ(m_pService->Restore(section), RC_ITEM_TYPE);
    End();
    EXPECT_EQ(EFileSpec().Restore(section), RC_MISSING) << "without a service";
    EPersistent::CloseSection(section);
}

TEST_F(SettingsTest, RegistersTheFirstOfEachNameThatCanBeDelivered) {
    const Texts section{SpecItems{.m_File = "first"},
                        SpecItems{.m_File = "second"},
                        SpecItems{.m_Name = "log", .m_File = "other"},
                        SpecItems{.m_Name = "Up", .m_File = "up", .m_nDelivery = 2},
                        SpecItems{.m_Name = "Mail", .m_File = "m", .m_nDelivery = 3},
                        SpecItems{.m_Name = "Odd", .m_File = "odd", .m_nDelivery = 9}};
    EXPECT_EQ(StartAnew(section), RC_OK);
    EXPECT_EQ(Registered(), (Files{{"Log", "first"}, {"Mail", "m"}, {"Odd", "odd"}, {"Up", "up"}, {"log", "other"}}));
    m_Kernel.m_Missing = {IID_UPLOAD_SERVICE, IID_EMAIL_SERVICE};
    m_Kernel.m_Reporter.m_OnReport = [this] { Alarm(L"refused"); }; // a kernel may log what it is told
    EXPECT_EQ(StartAnew(section), RC_OK);
    EXPECT_EQ(Queued(), (Texts{"refused", "refused"}));
    EXPECT_EQ(Registered(), (Files{{"Log", "first"}, {"Odd", "odd"}, {"log", "other"}}));
    EXPECT_EQ(m_Kernel.m_Reporter.Messages(), (Messages{{LEVEL_WARNING, SOURCE_KERNEL, MSG_NO_UPLOAD_SERVICE, ""},
                                                        {LEVEL_WARNING, SOURCE_KERNEL, MSG_NO_EMAIL_SERVICE, ""}}));
}

TEST_F(SettingsTest, AlwaysHasOneKernelLogAndPointsToIt) {
    SpecItems items{.m_Name = "KernelLog", .m_Path = "", .m_File = "good.log"};
    const std::string good = items;
    items.m_File = "EKernel-EKernel.log";
    const std::string renamed = items;
    items.m_nDelivery = 2; // there is no upload service
    const std::string notDelivered = items;
    items.m_nFormat = 3;
    const std::string ofNoFormat = items;
    const std::string unreadable = R"("name": "KernelLog", "logPath": "", "fileName": false)";
    m_Kernel.m_Missing = {IID_UPLOAD_SERVICE};
    // The first that could be read is the kernel log, even if it has to go. Without one the service makes its own.
    for (const auto& [section, file] : {std::pair{Texts{}, "Kavro.log"},
                                        {{good, renamed}, "good.log"},
                                        {{ofNoFormat, good}, "good.log"},
                                        {{unreadable, renamed, good}, "Kavro-Kavro.log"},
                                        {{good, notDelivered}, "good.log"},
                                        {{notDelivered, good}, "Kavro.log"}}) {
        for (const int index : {-1, 4}) { // without names, and with names that are qualified
            SCOPED_TRACE(testing::PrintToString(section));
            End();
            Make();
            Event(Mark(0, 1).c_str());
            EXPECT_EQ(Configure(section, index), RC_OK);
            EString name;
            int format = -1;
            EXPECT_EQ(m_pService->GetAgentLogFile(name, format), Registered().empty() ? RC_NOT_FOUND : RC_OK);
            m_pService->Start();
            Event(Mark(0, 0).c_str()); // overtakes the early one, which waits until nobody else writes
            WriteAll();
            Event(Mark(0, 2).c_str());
            EXPECT_EQ(Registered(), (Files{{"KernelLog", file}}));
            EXPECT_EQ(m_pService->GetAgentLogFile(name, format), RC_OK);
            EXPECT_EQ(Narrow(name), file);
            EXPECT_EQ(MarksIn(file), (Marks{{0, UpTo(3)}}));
            EXPECT_EQ(Spec(L"KernelLog")->m_MaxFileSize, name == L"Kavro.log" ? 512000 : 102400);
            std::filesystem::remove(file);
        }
    }
}

TEST_F(SettingsTest, AnybodyMayAskForTheKernelLogWhileItIsRestoredAndRefused) {
    m_Kernel.m_Missing = {IID_UPLOAD_SERVICE};
    Texts section{SpecItems{.m_Name = "KernelLog", .m_nFormat = 2, .m_nDelivery = 2}};
    section.resize(30, SpecItems{}); // it is refused when all have been read
    Configure(section);
    const std::jthread asker([&](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            EString name;
            int format = FORMAT_HTML;
            m_pService->GetAgentLogFile(name, format);
            EXPECT_EQ(format, FORMAT_HTML);
        }
    });
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(m_pService->Restore(0), RC_OK);
    }
}

TEST_F(SettingsTest, MakesDirectoriesUnlessANameServiceDoes) {
    m_pService->PrepareToStart();
    WriteWhole("taken", "");
    for (const auto& [configured, used] : {std::pair{"", "./"},
                                           {"logs \t", "logs/"},
                                           {"a\\b", "a/b/"},
                                           {"\u00E9\u20AC/with blank", "\u00E9\u20AC/with blank/"},
                                           {"taken/logs", ""}}) {
        EString path = Wide(configured);
        EFileSpec().SetLogPath(&path);
        EXPECT_EQ(Narrow(path), used);
        EXPECT_TRUE(path.IsEmpty() || std::filesystem::is_directory(used)) << configured;
    }
    const Texts made = Workplace::Tree();
    m_Kernel.m_Names.m_bPreparesPaths = false;
    Configure({SpecItems{.m_Path = R"(c\\d )"}, SpecItems{.m_Name = "KernelLog", .m_Path = R"(e\\f )"}}, 2);
    EXPECT_STREQ(Spec(L"Log@2")->m_LogPath, L"c/d/");
    EXPECT_STREQ(Spec(L"KernelLog")->m_LogPath, L"e\\f ");
    EXPECT_EQ(Workplace::Tree(), made);
    EXPECT_EQ(m_Kernel.m_Reporter.Messages(),
              (Messages{{LEVEL_WARNING, SOURCE_LOG_FILE, MSG_NOT_CREATED, "taken/logs/"},
                        {LEVEL_ERROR, SOURCE_LOG_FILE, MSG_PATH_NOT_PREPARED, ""}}));
}

} // namespace
