#include "base/InterfaceIds.h"
#include "tests/ServiceFixture.h"

#include <atomic>

namespace {

class SettingsTest : public ServiceTest {
protected:
    // The registered file specifications, each as its key and its file name, "Log=log.csv", sorted.
    Texts Registered() {
        Texts found;
        for (const auto& [key, value] : m_pService->m_FileSpecs) {
            found.push_back(Narrow(key.c_str()) + '=' + Narrow(static_cast<EFileSpec*>(value)->m_FileName));
        }
        std::ranges::sort(found);
        return found;
    }
};

TEST_F(SettingsTest, ReadsEveryVersionOfTheSection) {
    EXPECT_EQ(Restore(), RC_OK);
    EXPECT_EQ(Restore(3), RC_SECTION_NOT_FOUND); // only without names the service does without a section
    EXPECT_EQ(Registered(), Texts{});
    const std::string begin = R"("list": [{"type": "EFileSpec", "name": "A", "path": "logs", "file": "a.txt", )";
    for (const auto& [head, items, result, expected] :
         {std::tuple{"\"version\": 1, ", R"("s": 5000, "c": 3, "x": 7, "y": 8, "z": 9, "u": 0)", RC_OK,
                     "MM-DD-YYYY HH:mm:SS.sss 5000 3 1 0 1 0 "},
          {"\"version\": 2, ", R"("s": -1, "c": 0, "x": 2, "u": 1, "d": 1, "k": 5, "m": "M")", RC_OK,
           "MM-DD-YYYY HH:mm:SS.sss -1 0 2 1 1 5 M"},
          {"\"version\": 3, \"date\": \"YY\", \"time\": \"\", ",
           R"("s": 1, "c": 2, "x": 0, "u": 3, "d": 1, "k": 0, "m": "")", RC_OK, "YY  1 2 0 3 1 0 "},
          {"", R"("s": 1, "c": 2, "x": 0, "y": 0, "z": 0, "u": 1)", RC_ITEM_TYPE,
           "MM-DD-YYYY HH:mm:SS.sss 1 2 1 1 1 0 "}}) { // the oldest then
        SCOPED_TRACE(head);
        StartAnew({});
        WriteWhole("kvLogFile.json", '{' + (head + begin) + items + "}]}");
        EXPECT_EQ(Restore(), result);
        ASSERT_EQ(Registered(), Texts{"A=a.txt"});
        const EFileSpec& spec = *Spec(L"A");
        EString settings;
        settings.Format(L"%s %s %d %d %d %d %d %d %s", static_cast<const wchar_t*>(m_pService->m_DateFormat),
                        static_cast<const wchar_t*>(m_pService->m_TimeFormat), +spec.m_MaxFileSize, +spec.m_NumFiles,
                        +spec.m_FileFormat, +spec.m_Unicode, +spec.m_DeliveryMode, +spec.m_KeepCopy,
                        static_cast<const wchar_t*>(spec.m_MailName));
        EXPECT_EQ(Narrow(settings), expected);
    }
}

TEST_F(SettingsTest, RegistersTheFirstOfEachNameThatCanBeDelivered) {
    const Texts section{SpecItems{.m_File = "first"},
                        SpecItems{.m_File = "second"},
                        SpecItems{.m_Name = "log", .m_File = "other"},
                        SpecItems{.m_Name = "Strange", .m_nFormat = 3},
                        SpecItems{.m_Name = "Up", .m_File = "up", .m_nDelivery = 2},
                        R"("name": "Broken", "logPath": 5)",
                        SpecItems{.m_Name = "Mail", .m_File = "m", .m_nDelivery = 3},
                        SpecItems{.m_Name = "Odd", .m_File = "odd", .m_nDelivery = 9}};
    EXPECT_EQ(StartAnew(section), RC_OK);
    EXPECT_EQ(Registered(), (Texts{"Log=first", "Mail=m", "Odd=odd", "Up=up", "log=other"}));
    EXPECT_EQ(m_Kernel.m_Reporter.Messages(), Messages{});
    m_Kernel.m_Missing = {IID_UPLOAD_SERVICE, IID_EMAIL_SERVICE};
    m_Kernel.m_Reporter.m_OnReport = [this] { Alarm(L"refused"); }; // a kernel may log what it is told
    EXPECT_EQ(StartAnew(section), RC_OK);
    EXPECT_EQ(Queued(), (Texts{"refused", "refused"}));
    EXPECT_EQ(Registered(), (Texts{"Log=first", "Odd=odd", "log=other"}));
    EXPECT_EQ(m_Kernel.m_Reporter.Messages(), (Messages{{LEVEL_WARNING, SOURCE_KERNEL, MSG_NO_UPLOAD_SERVICE, ""},
                                                        {LEVEL_WARNING, SOURCE_KERNEL, MSG_NO_EMAIL_SERVICE, ""}}));
}

TEST_F(SettingsTest, AlwaysHasOneKernelLogAndPointsToIt) {
    const std::map<char, std::string> specs{
        {'g', SpecItems{.m_Name = "KernelLog", .m_Path = "", .m_File = "good.log"}},
        {'n', SpecItems{.m_Name = "KernelLog", .m_Path = "", .m_File = "EKernel-EKernel.log"}}, // gets another name
        {'s', SpecItems{.m_Name = "KernelLog", .m_File = "strange.log", .m_nFormat = 3}},
        {'u', SpecItems{.m_Name = "KernelLog", .m_File = "upload.log", .m_nDelivery = 2}},
        {'r', R"("name": "KernelLog", "logPath": "", "fileName": false)"}};
    m_Kernel.m_Missing = {IID_UPLOAD_SERVICE};
    // The first that could be read is the kernel log, even if it has to go.
    for (const std::string each :
         {"->Kavro.log", "gn->good.log", "s->Kavro.log", "sg->good.log", "gs->good.log", "r->Kavro.log",
          "rgr->good.log", "rsng->Kavro-Kavro.log", "gu->good.log", "ug->Kavro.log"}) {
        const std::size_t arrow = each.find("->");
        const std::string file = each.substr(arrow + 2);
        Texts section;
        for (const char letter : each.substr(0, arrow)) {
            section.push_back(specs.at(letter));
        }
        for (const int index : {-1, 4}) { // without names, and with names that are qualified
            SCOPED_TRACE(each);
            End();
            Make();
            Event(L"early");
            EXPECT_EQ(Configure(section, index), RC_OK);
            EString name;
            int format = -1;
            EXPECT_EQ(m_pService->GetAgentLogFile(name, format), Registered().empty() ? RC_NOT_FOUND : RC_OK);
            m_pService->Start();
            EXPECT_EQ(Registered(), Texts{"KernelLog=" + file});
            Event(L"queued"); // overtakes the early one, which waits until nobody else writes
            WriteAll();
            Event(L"late");
            EXPECT_EQ(m_pService->GetAgentLogFile(name, format), RC_OK);
            EXPECT_EQ(Narrow(name), file);
            const bool made = file == "Kavro.log"; // by the service, not configured
            const std::string rows = EventRow("queued") + EventRow("early") + EventRow("late");
            EXPECT_EQ(ReadWhole(file), made ? "\xFF\xFE" + Utf16(rows) : rows);
            EXPECT_EQ(Spec(L"KernelLog")->m_MaxFileSize, made ? 512000 : 102400);
            std::filesystem::remove(file);
        }
    }
}

TEST_F(SettingsTest, AnybodyMayAskForTheKernelLogWhileItIsRestoredAndRefused) {
    m_Kernel.m_Missing = {IID_UPLOAD_SERVICE};
    Texts section{SpecItems{.m_Name = "KernelLog", .m_nFormat = 2, .m_nDelivery = 2}};
    section.resize(30, SpecItems{}); // it is refused when all have been read
    EXPECT_EQ(Configure(section), RC_OK);
    std::atomic<bool> stop = false;
    std::thread asker([&] {
        while (!stop) {
            EString name;
            int format = -1;
            const EResult result = m_pService->GetAgentLogFile(name, format);
            EXPECT_TRUE(result == RC_OK ? format == FORMAT_HTML : result == RC_NOT_FOUND) << format;
        }
    });
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(m_pService->Restore(0), RC_OK);
    }
    stop = true;
    asker.join();
    EXPECT_EQ(m_Kernel.m_Reporter.Count(MSG_NO_UPLOAD_SERVICE), 301);
}

TEST_F(SettingsTest, NoLogFileIsRestoredWithoutAService) {
    Configure({});
    End();
    unsigned long section = 0;
    ASSERT_EQ(EPersistent::RestoreSection(LOGFILE_XML_NAME, section, true), RC_OK);
    EFileSpec spec;
    EXPECT_EQ(spec.Restore(section), RC_MISSING);
    EPersistent::CloseSection(section);
}

TEST_F(SettingsTest, MakesDirectoriesUnlessANameServiceDoes) {
    m_pService->PrepareToStart();
    WriteWhole("taken", "");
    EFileSpec spec;
    for (const std::string each : {"->./", "logs \t->logs/", "logs/ ->logs//", "a\\b->a/b/",
                                   "\u00E9\u20AC->\u00E9\u20AC/", "with blank/x/y->with blank/x/y/", "taken/logs->"}) {
        const std::size_t arrow = each.find("->");
        EString path = Wide(each.substr(0, arrow));
        spec.SetLogPath(&path);
        EXPECT_EQ(Narrow(path), each.substr(arrow + 2));
        EXPECT_TRUE(path.IsEmpty() || std::filesystem::is_directory(Narrow(path))) << each;
    }
    const Texts made = Workplace::Tree();
    m_Kernel.m_Names.m_bPreparesPaths = false;
    EXPECT_EQ(Configure({SpecItems{.m_Path = R"(c\\d )"}, SpecItems{.m_Name = "KernelLog", .m_Path = R"(e\\f )"}}, 2),
              RC_OK);
    EXPECT_EQ(Narrow(Spec(L"Log@2")->m_LogPath) + Narrow(Spec(L"KernelLog")->m_LogPath), "c/d/e\\f ");
    EXPECT_EQ(Workplace::Tree(), made);
    EXPECT_EQ(m_Kernel.m_Reporter.Messages(),
              (Messages{{LEVEL_WARNING, SOURCE_LOG_FILE, MSG_NOT_CREATED, "taken/logs/"},
                        {LEVEL_ERROR, SOURCE_LOG_FILE, MSG_PATH_NOT_PREPARED, ""}}));
}

} // namespace
