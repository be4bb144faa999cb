#include "base/GatewayType.h"
#include "base/InterfaceIds.h"
#include "base/Messages.h"
#include "tests/ServiceFixture.h"

namespace {

class SettingsTest : public ServiceTest {
protected:
    // Prepares, and restores a section of these bytes; with a name service when an index is given.
    EResult Restore(const std::string& section, int index = -1) {
        WriteWhole("kvLogFile.json", section);
        m_pService->PrepareToStart();
        return index == -1 ? m_pService->Restore(0) : m_pService->RTRestore(0, index);
    }

    std::string Patterns() { return Narrow(m_pService->m_DateFormat) + ' ' + Narrow(m_pService->m_TimeFormat); }

    // The registered file specifications, each as its key and its file name: "Log=log.csv".
    std::vector<std::string> Registered() {
        std::vector<std::string> found;
        EString key;
        void* value = nullptr;
        for (auto at = m_pService->m_FileSpecs.GetStartPosition(); at != nullptr;) {
            m_pService->m_FileSpecs.GetNextAssoc(at, key, value);
            const auto* spec = static_cast<EFileSpec*>(value);
            found.push_back(Narrow(key) + '=' + (spec != nullptr ? Narrow(spec->m_FileName) : "null"));
        }
        return found;
    }
};

using Texts = std::vector<std::string>;

constexpr const char* DEFAULT_PATTERNS = "MM-DD-YYYY HH:mm:SS.sss";

} // namespace

TEST_F(SettingsTest, ReadsEveryVersionOfTheSection) {
    struct Case {
        const char* m_pszSection;
        EResult m_Result;
        const char* m_pszPatterns;
        const char* m_pszSpec; // name, path, file, sizes and numbers
    };
    const Case cases[] = {
        {R"({"version": 1, "specs": [{"type": "EFileSpec", "n": "A", "p": "logs", "f": "a.txt", "s": 5000, "c": 3,
             "x": 7, "y": 8, "z": 9, "u": 0}]})",
         RC_OK, DEFAULT_PATTERNS, "A logs/ a.txt 5000 3 1 0 1 0 "},
        {R"({"version": 2, "specs": [{"type": "EFileSpec", "n": "A", "p": "logs", "f": "a", "s": -1, "c": 0, "x": 2,
             "u": 1, "d": 1, "k": 5, "m": "M"}]})",
         RC_OK, DEFAULT_PATTERNS, "A logs/ a -1 0 2 1 1 5 M"},
        {R"({"version": 3, "date": "YY", "time": "", "specs": [{"type": "EFileSpec", "n": "A", "p": "logs", "f": "a",
             "s": 1, "c": 2, "x": 0, "u": 3, "d": 1, "k": 0, "m": ""}]})",
         RC_OK, "YY ", "A logs/ a 1 2 0 3 1 0 "},
        {R"({"specs": [{"type": "EFileSpec", "n": "A", "p": "", "f": "a", "s": 1, "c": 2, "x": 0, "y": 0, "z": 0,
             "u": 1}]})",
         RC_ITEM_TYPE, DEFAULT_PATTERNS, "A ./ a 1 2 1 1 1 0 "}, // no version counts as the oldest
    };
    for (const Case& each : cases) {
        End();
        Make();
        EXPECT_EQ(Restore(each.m_pszSection), each.m_Result);
        EXPECT_EQ(Patterns(), each.m_pszPatterns);
        const EFileSpec* spec = Spec(L"A");
        ASSERT_NE(spec, nullptr) << each.m_pszSection;
        std::string text;
        for (const EString* item : {&spec->m_Name, &spec->m_LogPath, &spec->m_FileName}) {
            text += Narrow(*item) + ' ';
        }
        for (const EPersistentInt* item : {&spec->m_MaxFileSize, &spec->m_NumFiles, &spec->m_FileFormat,
                                           &spec->m_Unicode, &spec->m_DeliveryMode, &spec->m_KeepCopy}) {
            text += std::to_string(*item) + ' ';
        }
        EXPECT_EQ(text + Narrow(spec->m_MailName), each.m_pszSpec);
        EXPECT_NE(spec->m_pFilter, nullptr);
    }
}

TEST_F(SettingsTest, DoesWithoutASection) {
    EXPECT_EQ(m_pService->Restore(0), RC_OK);
    EXPECT_EQ(Patterns(), " ");
    EXPECT_EQ(m_pService->RTRestore(0, 3), RC_SECTION_NOT_FOUND) << "a gateway with names has its configuration";
    EXPECT_EQ(Restore("{", 3), RC_SECTION_MALFORMED);
    EXPECT_EQ(Registered(), Texts{});
}

TEST_F(SettingsTest, RegistersTheFirstOfEachName) {
    const EResult result = Configure({
        SpecItems{.m_File = "first"},
        SpecItems{.m_File = "second"},
        SpecItems{.m_Name = "log", .m_File = "another"},
        SpecItems{.m_Name = "Strange", .m_nFormat = 3},
        R"("name": "Broken", "logPath": 5, "fileName": "b", "maxFileSize": 1, "numFiles": 1, "fileFormat": 1)",
        SpecItems{.m_Name = "Up", .m_nDelivery = 2},
        SpecItems{.m_Name = "Odd", .m_File = "odd", .m_nDelivery = 9},
        SpecItems{.m_Name = "", .m_File = "nameless"},
    });
    EXPECT_EQ(result, RC_OK);
    EXPECT_EQ(Registered(), (Texts{"Log=first", "log=another", "Up=log-%i.csv", "Odd=odd", "=nameless"}));
    EXPECT_EQ(m_Kernel.m_Reporter.Messages(), std::vector<ReportedMessage>{});
}

TEST_F(SettingsTest, LeavesOutWhatTheGatewayCannotDeliver) {
    m_Kernel.m_Missing = {IID_UPLOAD_SERVICE, IID_EMAIL_SERVICE};
    Configure({SpecItems{.m_Name = "Up", .m_nDelivery = 2}, SpecItems{.m_File = "x"},
               SpecItems{.m_Name = "Mail", .m_nDelivery = 3}, SpecItems{.m_nDelivery = 3}});
    EXPECT_EQ(Registered(), Texts{"Log=x"});
    const ReportedMessage noMail{LEVEL_WARNING, SOURCE_KERNEL, MSG_NO_EMAIL_SERVICE, ""};
    EXPECT_EQ(
        m_Kernel.m_Reporter.Messages(),
        (std::vector<ReportedMessage>{{LEVEL_WARNING, SOURCE_KERNEL, MSG_NO_UPLOAD_SERVICE, ""}, noMail, noMail}));
}

TEST_F(SettingsTest, AlwaysHasOneKernelLogAndPointsToIt) {
    const SpecItems good{.m_Name = "KernelLog", .m_Path = "", .m_File = "good.log"};
    const SpecItems second{.m_Name = "KernelLog", .m_Path = "", .m_File = "second.log"};
    const SpecItems strange{.m_Name = "KernelLog", .m_File = "strange.log", .m_nFormat = 3};
    const SpecItems upload{.m_Name = "KernelLog", .m_File = "upload.log", .m_nDelivery = 2};
    const SpecItems renamed{.m_Name = "KernelLog", .m_Path = "", .m_File = "EKernel-EKernel.log"};
    const std::string unreadable = R"("name": "KernelLog", "logPath": "", "fileName": false)";
    const std::string cut = R"("name": "KernelLog")";
    struct Case {
        Texts m_Specs;
        const char* m_pszFile; // of the kernel log in the end
    };
    const Case cases[] = {
        {{}, "Kavro.log"},
        {{good}, "good.log"},
        {{renamed}, "Kavro-Kavro.log"},
        {{good, second}, "good.log"},
        {{strange}, "Kavro.log"},
        {{strange, good}, "good.log"},
        {{good, strange}, "good.log"},
        {{unreadable}, "Kavro.log"},
        {{unreadable, good, cut}, "good.log"},
        {{cut, strange, second, good}, "second.log"},
        {{upload}, "Kavro.log"},
        {{good, upload}, "good.log"},
        {{upload, good}, "Kavro.log"}, // the first that could be read is the kernel log, and has to go
    };
    m_Kernel.m_Missing = {IID_UPLOAD_SERVICE};
    for (const int index : {-1, 4}) { // without names, and with names that are qualified
        for (const Case& each : cases) {
            End();
            Make();
            Workplace::WriteSection(each.m_Specs);
            m_pService->PrepareToStart();
            EXPECT_EQ(index == -1 ? m_pService->Restore(0) : m_pService->RTRestore(0, index), RC_OK);
            EString name = L"x";
            int format = -1;
            const bool configured = !Registered().empty();
            EXPECT_EQ(m_pService->GetAgentLogFile(name, format), configured ? RC_OK : RC_NOT_FOUND);
            EXPECT_EQ(Narrow(name), "");
            m_pService->Start();
            EXPECT_EQ(Registered(), Texts{"KernelLog=" + std::string(each.m_pszFile)});
            EXPECT_EQ(m_pService->m_pKernelLogSpec, Spec(L"KernelLog"));
            EONEVENTSTRUCT event = MakeRecord();
            EXPECT_EQ(m_pService->ReportEvent(&event), RC_OK);
        }
    }
}

TEST_F(SettingsTest, TellsWhereTheKernelLogIsWritten) {
    Configure({SpecItems{.m_Name = "KernelLog", .m_Path = "", .m_File = "k-%i.html", .m_nFormat = 2}});
    EONEVENTSTRUCT event = MakeRecord();
    m_pService->ReportEvent(&event);
    EString name;
    int format = -1;
    EXPECT_EQ(m_pService->GetAgentLogFile(name, format), RC_OK);
    EXPECT_EQ(Narrow(name), "k-0.html");
    EXPECT_EQ(format, FORMAT_HTML);

    for (const auto& [action, expected] : {std::pair{L"DoLogEventToFile", 2}, {L"DoLogAlarmToFile", 0}, {L"", 0}}) {
        EString asked = action;
        auto type = static_cast<GatewayType>(7);
        EXPECT_EQ(m_pService->GetGatewayType(asked, &type), RC_OK);
        EXPECT_EQ(static_cast<int>(type), expected) << Narrow(asked);
        EXPECT_EQ(m_pService->GetGatewayType(asked, nullptr), RC_NO_RECORD);
    }
}
