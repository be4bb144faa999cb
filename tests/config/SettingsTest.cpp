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
    const struct {
        const char* m_pszHead;
        const char* m_pszItems;
        EResult m_Result;
        const char* m_pszSettings; // formats, size, files, format, encoding, delivery, kept, definition
    } cases[] = {{R"("version": 1, )", R"("s": 5000, "c": 3, "x": 7, "y": 8, "z": 9, "u": 0)", RC_OK,
                  "MM-DD-YYYY HH:mm:SS.sss 5000 3 1 0 1 0 "},
                 {R"("version": 2, )", R"("s": -1, "c": 0, "x": 2, "u": 1, "d": 1, "k": 5, "m": "M")", RC_OK,
                  "MM-DD-YYYY HH:mm:SS.sss -1 0 2 1 1 5 M"},
                 {R"("version": 3, "date": "YY", "time": "", )",
                  R"("s": 1, "c": 2, "x": 0, "u": 3, "d": 1, "k": 0, "m": "")", RC_OK, "YY  1 2 0 3 1 0 "},
                 {"", R"("s": 1, "c": 2, "x": 0, "y": 0, "z": 0, "u": 1)", RC_ITEM_TYPE, // the oldest then
                  "MM-DD-YYYY HH:mm:SS.sss 1 2 1 1 1 0 "}};
    for (const auto& [head, items, result, expected] : cases) {
        StartAnew({});
        WriteWhole("kvLogFile.json", '{' + (head + begin) + items + "}]}");
        EXPECT_EQ(Restore(), result);
        ASSERT_EQ(Registered(), Texts{"A=a.txt"});
        const EFileSpec& spec = *Spec(L"A");
        std::ostringstream settings;
        settings << Narrow(m_pService->m_DateFormat) << ' ' << Narrow(m_pService->m_TimeFormat) << ' '
                 << spec.m_MaxFileSize << ' ' << spec.m_NumFiles << ' ' << spec.m_FileFormat << ' ' << spec.m_Unicode
                 << ' ' << spec.m_DeliveryMode << ' ' << spec.m_KeepCopy << ' ' << Narrow(spec.m_MailName);
        EXPECT_EQ(settings.str(), expected);
        EXPECT_TRUE(spec.m_FileTime.IsSet()) << "a name with a time is never without one";
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
    const auto kernelLog = [](const char* file, int format = 1, int delivery = 1) {
        return SpecItems{
            .m_Name = "KernelLog", .m_Path = "", .m_File = file, .m_nFormat = format, .m_nDelivery = delivery};
    };
    const std::string good = kernelLog("good.log");
    const std::string renamed = kernelLog("EKernel-EKernel.log");
    const std::string ofNoFormat = kernelLog("strange.log", 3);
    const std::string notDelivered = kernelLog("upload.log", 1, 2); // there is no upload service
    const std::string unreadable = R"("name": "KernelLog", "logPath": "", "fileName": false)";
    m_Kernel.m_Missing = {IID_UPLOAD_SERVICE};
    // The first that could be read is the kernel log, even if it has to go. Without one the service makes its own.
    const std::pair<Texts, std::string> cases[] = {{{}, "Kavro.log"},
                                                   {{good, renamed}, "good.log"},
                                                   {{ofNoFormat}, "Kavro.log"},
                                                   {{ofNoFormat, good}, "good.log"},
                                                   {{good, ofNoFormat}, "good.log"},
                                                   {{unreadable}, "Kavro.log"},
                                                   {{unreadable, renamed, good}, "Kavro-Kavro.log"},
                                                   {{good, notDelivered}, "good.log"},
                                                   {{notDelivered, good}, "Kavro.log"}};
    for (const auto& [section, file] : cases) {
        for (const int index : {-1, 4}) { // without names, and with names that are qualified
            SCOPED_TRACE(testing::PrintToString(section));
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
            EXPECT_STREQ(Spec(L"KernelLog")->m_Name, L"KernelLog");
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
    for (const auto& [configured, used] : {std::pair{"", "./"},
                                           {"logs \t", "logs/"},
                                           {"logs/ ", "logs//"},
                                           {"a\\b", "a/b/"},
                                           {"\u00E9\u20AC", "\u00E9\u20AC/"},
                                           {"with blank/x/y", "with blank/x/y/"},
                                           {"taken/logs", ""}}) {
        EString path = Wide(configured);
        spec.SetLogPath(&path);
        EXPECT_EQ(Narrow(path), used);
        EXPECT_TRUE(path.IsEmpty() || std::filesystem::is_directory(used)) << configured;
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
