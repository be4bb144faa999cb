#include "base/ESingleEvent.h"
#include "base/InterfaceIds.h"
#include "tests/Reports.h"
#include "tests/ServiceFixture.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace std::string_literals;

namespace {

using Texts = std::vector<std::string>;

class Lifecycle : public ServiceTest {
protected:
    EResult Alarm(const wchar_t* text, const wchar_t* name = L"Log") {
        EString to = name;
        EONEVENTSTRUCT record = MakeRecord(L"N", text);
        return m_pService->LogAlarm(to, &record);
    }
    EResult Event(const wchar_t* text) {
        EONEVENTSTRUCT record = MakeRecord(L"N", text);
        return m_pService->ReportEvent(&record);
    }
    bool AllWritten() {
        return Soon([&] { return Queued().empty(); });
    }
};

int Workers() {
    int count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        count += ReadWhole(task.path() / "comm") == "LogFileThrd\n" ? 1 : 0;
    }
    return count;
}

// The rows of a log file of alarms, by their texts, the headings' row first.
std::string AlarmTexts(const std::string& path) {
    std::istringstream file(ReadWhole(path));
    std::string texts;
    for (std::string line; std::getline(file, line);) {
        for (int i = 0; i < 3; ++i) {
            line.erase(0, line.find(',') + 1);
        }
        texts += line.substr(0, line.find(',')) + ' ';
    }
    return texts;
}

std::string Utf16(const std::string& text) {
    std::string bytes;
    for (const char character : text) {
        bytes += {character, '\0'};
    }
    return bytes;
}

TEST_F(Lifecycle, PreparationNeedsThreeInterfacesAndTheLastRegistration) {
    struct Case {
        std::set<unsigned long> m_Missing;
        std::string m_Refused;
        EResult m_Result;
        std::size_t m_nRegistered;
    };
    const EResult refusal = 0xC0010022;
    for (const Case& of :
         {Case{{IID_KERNEL_CONTROL}, "", RC_MISSING, 0}, Case{{IID_ERROR_REPORTER}, "", RC_MISSING, 0},
          Case{{IID_STRING_TABLE}, "", RC_MISSING, 5}, Case{{}, "DoRestartLogFile", refusal, 5},
          Case{{}, "DoLogDelivery", RC_OK, 5}, Case{{IID_ACTION_REGISTRY}, "DoRestartLogFile", RC_OK, 0},
          Case{{IID_UPLOAD_SERVICE, IID_EMAIL_SERVICE}, "", RC_OK, 5}}) {
        SCOPED_TRACE(testing::Message() << testing::PrintToString(of.m_Missing) << of.m_Refused);
        End();
        EPersistent::RemoveFactories();
        m_Kernel.m_Missing = of.m_Missing;
        m_Kernel.m_Actions.m_Refused = {{of.m_Refused, refusal}};
        m_Kernel.m_Actions.m_Registered.clear();
        Make();
        EXPECT_EQ(m_pService->m_AlarmHeaders.GetSize(), of.m_Missing.count(IID_STRING_TABLE) != 0 ? 0 : 10);
        EXPECT_EQ(m_pService->PrepareToStart(), of.m_Result);
        EXPECT_EQ(m_pService->m_State, of.m_Result == RC_OK ? 1U : 0U);
        EXPECT_EQ(m_Kernel.m_Actions.m_Registered.size(), of.m_nRegistered);
        Workplace::WriteSection({SpecItems{}});
        m_pService->Restore(0);
        EXPECT_EQ(Spec() != nullptr, of.m_Result == RC_OK); // made only once the factory is known

        m_Kernel.m_Missing.clear();
        m_Kernel.m_Actions.m_Refused.clear();
        EXPECT_EQ(m_pService->PrepareToStart(), RC_OK); // the second attempt, or nothing any more
        EXPECT_EQ(m_Kernel.m_Actions.m_Registered.size(), of.m_nRegistered + (of.m_Result == RC_OK ? 0 : 5));
        EXPECT_EQ(m_pService->m_State, 1U);
    }
    const Texts order{"DoLogSnapShotToFile", "DoLogAlarmToFile", "DoLogEventToFile", "DoLogDelivery",
                      "DoRestartLogFile"};
    for (std::size_t i = 0; i < order.size(); ++i) {
        EXPECT_EQ(m_Kernel.m_Actions.m_Registered[i], std::pair(order[i], static_cast<IAction*>(m_pService)));
    }
}

TEST_F(Lifecycle, HeadingsComeFromTheStringTable) {
    const auto texts = [](const EStringArray& array) {
        Texts all;
        for (int i = 0; i < array.GetSize(); ++i) {
            all.push_back(Narrow(array[i]));
        }
        return all;
    };
    EXPECT_EQ(texts(m_pService->m_SnapShotHeaders), (Texts{"H956", "H957"}));
    EXPECT_EQ(texts(m_pService->m_AlarmHeaders),
              (Texts{"H956", "H957", "H958", "H959", "H960", "H961", "H962", "H963", "H964", "H965"}));
    EXPECT_EQ(texts(m_pService->m_EventHeaders), Texts{});
}

TEST_F(Lifecycle, EveryOperationInEveryState) {
    Configure({SpecItems{}});
    EXPECT_EQ(m_pService->PrepareToStop(), RC_OK);
    EXPECT_EQ(m_pService->m_State, 1U);
    EXPECT_EQ(m_pService->PreStart(), RC_OK);
    EXPECT_EQ(m_pService->PrepareToStart(), RC_OK);
    EXPECT_EQ(m_pService->PrepareToStop(), RC_OK);
    EXPECT_EQ(m_pService->m_State, 3U);
    for (int life = 0; life < 3; ++life) { // a stopped service may be started again, without the phases before
        m_pService->Start();
        m_pService->Start();
        m_pService->PreStart();
        EXPECT_EQ(m_pService->m_State, 7U);
        EXPECT_TRUE(Soon([] { return Workers() == 1; }));
        Alarm(L"T");
        EXPECT_TRUE(AllWritten());
        m_pService->PrepareToStop();
        m_pService->PrepareToStop();
        EXPECT_EQ(m_pService->m_State, 8U);
        EXPECT_EQ(Workers(), 0);
    }
    EXPECT_EQ(AlarmTexts("logs/log-0.csv"), "H959 T T T ");
}

TEST_F(Lifecycle, TheDefaultKernelLogHasNoHeadings) {
    Configure({});
    m_pService->Start();
    const EFileSpec* spec = m_pService->m_pKernelLogSpec;
    EXPECT_EQ(Spec(L"KernelLog"), spec);
    EXPECT_EQ(spec->m_MaxFileSize, 512000);
    EXPECT_EQ(spec->m_NumFiles, 1);
    Event(L"T");
    EXPECT_TRUE(AllWritten());
    m_pService->PrepareToStop();
    const std::string row = Utf16("01-31-2024 13:05:09.042 S N: T\n");
    EXPECT_EQ(ReadWhole("Kavro.log"), "\xFF\xFE" + row);
    Event(L"T"); // in this thread
    EXPECT_EQ(ReadWhole("Kavro.log"), "\xFF\xFE" + row + row);
    WriteWhole("Kavro.log", ""); // cut by somebody: begun anew, with its mark
    Event(L"T");
    EXPECT_EQ(ReadWhole("Kavro.log"), "\xFF\xFE" + row);
    EXPECT_EQ(Workplace::Tree(), Texts{"Kavro.log"});
}

// An 8-bit file without headings stays empty when it is begun, and an empty file gives way to the row.
TEST_F(Lifecycle, AConfiguredKernelLogIsUsed) {
    Configure({SpecItems{.m_Name = "KernelLog", .m_Path = "", .m_File = "kernel-%i.log", .m_nFormat = 0}});
    const EFileSpec* spec = m_pService->m_pKernelLogSpec;
    m_pService->Start();
    EXPECT_EQ(m_pService->m_pKernelLogSpec, spec);
    EXPECT_EQ(m_pService->m_FileSpecs.GetCount(), 1);
    Event(L"T");
    EXPECT_TRUE(AllWritten());
    End();
    EXPECT_EQ(Workplace::Tree(), (Texts{"kernel-0.log", "kernel-1.log"}));
    EXPECT_EQ(ReadWhole("kernel-0.log"), "01-31-2024 13:05:09.042 S N: T\n");
    EXPECT_EQ(ReadWhole("kernel-1.log"), "");
}

TEST_F(Lifecycle, PreStartTakesBackWhatWasSaved) {
    Configure({SpecItems{}});
    Alarm(L"one");
    Alarm(L"two");
    ASSERT_EQ(m_pService->WarmRestart(1, nullptr), RC_OK);
    const std::string saved = ReadWhole("kvLogFile.warm");
    struct Case {
        bool m_bWanted;
        std::string m_File;
        Texts m_Queued;
        bool m_bReported;
    };
    for (const Case& of :
         {Case{true, saved, {"one", "two"}, false}, Case{true, saved.substr(0, saved.size() - 1), {"one"}, true},
          Case{true, saved.substr(0, 3), {}, true}, Case{true, "", {}, true}, Case{true, "none", {}, false},
          Case{false, saved.substr(0, 3), {}, false}}) {
        SCOPED_TRACE(of.m_File);
        End();
        Make();
        m_pService->PrepareToStart();
        m_pService->Restore(0);
        of.m_File == "none" ? static_cast<void>(unlink("kvLogFile.warm")) : WriteWhole("kvLogFile.warm", of.m_File);
        m_Kernel.m_Control.m_bRestoreWanted = of.m_bWanted;
        m_Kernel.m_Control.m_Calls.clear();
        const int before = m_Kernel.m_Reporter.Count(138);
        EXPECT_EQ(m_pService->PreStart(), RC_OK);
        EXPECT_EQ(m_pService->m_State, 3U);
        EXPECT_EQ(m_pService->PreStart(), RC_OK); // restores nothing a second time
        EXPECT_EQ(Queued(), of.m_Queued);
        EXPECT_EQ(m_Kernel.m_Control.m_Calls, of.m_bReported ? (Texts{"9(1)", "6(0)", "3", "5"}) : Texts{});
        EXPECT_EQ(m_Kernel.m_Reporter.Count(138) - before, of.m_bReported ? 1 : 0);
        EXPECT_EQ(std::filesystem::exists("kvLogFile.warm"), of.m_File != "none");
    }
    EXPECT_EQ(m_Kernel.m_Reporter.Messages()[0], (ReportedMessage{9, 3, 138, ""}));
}

// A pipe that nobody reads holds the worker up in the middle of a request.
TEST_F(Lifecycle, AStopFinishesTheRequestInHandAndKeepsTheRest) {
    Configure({SpecItems{}, SpecItems{.m_Name = "Pipe", .m_File = "pipe"}});
    ASSERT_EQ(mkfifo("logs/pipe", 0600), 0);
    m_pService->Start();
    Alarm(L"held", L"Pipe");
    EXPECT_TRUE(AllWritten());
    for (const wchar_t* text : {L"one", L"two", L"three"}) {
        Alarm(text);
    }
    std::thread stopper([&] { m_pService->PrepareToStop(); });
    EXPECT_TRUE(Soon([&] { return !m_pService->m_bRunning; }));
    EXPECT_EQ(m_pService->m_State, 7U); // it waits
    const int reader = open("logs/pipe", O_RDONLY | O_NONBLOCK);
    stopper.join();
    close(reader);
    EXPECT_EQ(m_pService->m_State, 8U);
    EXPECT_EQ(Queued(), (Texts{"one", "two", "three"}));
    EXPECT_FALSE(std::filesystem::exists("logs/log-0.csv"));
    m_pService->Start();
    Alarm(L"four");
    EXPECT_TRUE(AllWritten());
    m_pService->PrepareToStop();
    EXPECT_EQ(AlarmTexts("logs/log-0.csv"), "H959 one two three four ");
}

TEST_F(Lifecycle, TheEndWritesNothingAndRemovesTheFilesOfDelivery) {
    Configure({SpecItems{}, SpecItems{.m_Name = "Up", .m_File = "up-%i.csv", .m_nDelivery = 2, .m_nKeepCopy = 1},
               SpecItems{.m_Name = "Mail", .m_File = "mail-%i.csv", .m_nDelivery = 3}});
    Event(L"early");
    m_pService->Start();
    EString up = L"Up";
    EString restart = L"DoRestartLogFile";
    EONEVENTSTRUCT record = MakeRecord();
    Alarm(L"T", L"Up");
    m_pService->Invoke(restart, up, nullptr, 1, &record, nullptr);
    for (const wchar_t* name : {L"Up", L"Mail", L"Log"}) {
        Alarm(L"T", name);
    }
    EXPECT_TRUE(AllWritten());
    m_pService->PrepareToStop();
    EXPECT_EQ(Workplace::Tree(),
              (Texts{"Spool/", "Spool/mail-0.csv", "Spool/up-0.csv", "Spool/up-1.csv", "logs/", "logs/log-0.csv"}));
    Alarm(L"waits");
    End();
    EXPECT_EQ(Workplace::Tree(), (Texts{"Spool/", "logs/", "logs/log-0.csv"}));
    EXPECT_EQ(AlarmTexts("logs/log-0.csv"), "H959 T ");
}

} // namespace
