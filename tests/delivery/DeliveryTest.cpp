// What a delivery leaves on disk, in the service and with the sending services, at every outcome.

#include "tests/ServiceFixture.h"

namespace {

using When = TestNotices::When;

// Requests processed in the test's own thread, and notices given from others.
class DeliveryTest : public ServiceTest {
protected:
    void Row(const wchar_t* text = L"T", const wchar_t* name = L"Log") {
        const EONEVENTSTRUCT record = MakeRecord(L"N", text);
        Process(ACTION_LOG_ALARM, &record, 1, name);
    }
    void SetWhen(When when) { m_Mail.m_Notices.m_When = m_Upload.m_Notices.m_When = when; }
    void GiveNotices(int threads = 2) {
        m_Mail.m_Notices.Deliver(threads);
        m_Upload.m_Notices.Deliver(threads);
    }
    int Jobs() const { return m_pService->m_Deliveries.GetCount(); }

    // What has been sent: the list of paths, then the bytes of each.
    Texts Sent() const {
        Texts texts;
        for (const auto* sendings : {&m_Mail.m_Sent, &m_Upload.m_Sent}) {
            for (const Sending& sending : *sendings) {
                std::string text = sending.m_Paths;
                for (const auto& [path, bytes] : sending.m_Contents) {
                    text += '\n' + path + '\n' + bytes;
                }
                texts.push_back(Known(text));
            }
        }
        return texts;
    }

    TestEMail& m_Mail = m_Kernel.m_EMail;
    TestUpload& m_Upload = m_Kernel.m_Upload;
};

struct Outcome {
    const char* m_pszName;
    When m_When = When::Later;
    std::set<int> m_Refused{}; // the sendings that are not started
    bool m_bDefinition = true; // the e-mail definition exists
    bool m_bRecord = true;     // the e-mail service gives a record
    bool m_bEnds = false;      // the service, before any notice

    friend std::ostream& operator<<(std::ostream& out, const Outcome& outcome) { return out << outcome.m_pszName; }
};

// clang-format off
const std::vector<Outcome> BY_UPLOAD{
    {"Inside", When::Inside}, {"Later"}, {"Twice", When::Twice}, {"Refused", When::Later, {0}},
    {"Never", When::Later, {}, true, true, true}};
const std::vector<Outcome> BY_EMAIL{
    {"Inside", When::Inside}, {"Later"}, {"Twice", When::Twice}, {"Refused", When::Later, {0, 1}},
    {"Never", When::Later, {}, true, true, true}, {"OutOfOrder", When::OutOfOrder},
    {"FirstRefused", When::Later, {0}}, {"FirstRefusedInside", When::Inside, {0}}, {"LastRefused", When::Inside, {1}},
    {"NoDefinition", When::Later, {}, false}, {"NoRecord", When::Later, {}, true, false}};
// clang-format on

using Case = std::tuple<int, int, int, Outcome>; // delivery mode, number of files, copies kept, outcome

class DeliveryOutcomeTest : public DeliveryTest, public testing::WithParamInterface<Case> {};

TEST_P(DeliveryOutcomeTest, FilesServiceAndMessages) {
    const auto& [mode, fileCount, kept, outcome] = GetParam();
    const bool byMail = mode == DELIVERY_EMAIL;
    const std::map<std::string, std::string> definitions{{outcome.m_bDefinition ? "Mail" : "Other", ";old"}};
    const std::string footer = "</TBODY>\n</TABLE>\n<P>\n</BODY>\n</HTML>\n";
    Configure({SpecItems{
        .m_File = "log-%i", .m_nFormat = FORMAT_HTML, .m_nDelivery = mode, .m_nKeepCopy = kept, .m_Mail = "Mail"}});
    m_Mail.m_Definitions = definitions;
    m_Mail.m_bGivesRecords = outcome.m_bRecord;
    m_Mail.m_RefusedSends = outcome.m_Refused;
    m_Upload.m_bRefuses = !outcome.m_Refused.empty();
    SetWhen(outcome.m_When);
    std::filesystem::create_directory("logs");
    WriteWhole("logs/log-0", "older");
    const Files before = Found();
    for (int i = 0; i < fileCount; ++i) {
        Process(i > 0 ? ACTION_RESTART_FILE : ACTION_DELIVERY); // there is nothing to deliver before the first row
        Row(i == 0 ? L"first" : L"second");
    }

    Files waiting = before; // the disk while the job waits
    Files done = before;    // and when it has ended
    Texts due;
    std::string paths = byMail ? ";old" : "";
    std::string contents;
    std::size_t refused = 0;
    waiting["JOB/"] = "";
    for (int i = 0; i < fileCount; ++i) {
        const std::string name = "log-" + std::to_string(i);
        const std::string bytes = waiting["JOB/" + name] = ReadWhole("Spool/" + name) + (i == 0 ? footer : "");
        if (kept != 0) {
            done["logs/" + name] = bytes;
        }
        paths += ";./JOB/" + name;
        contents += "\n./JOB/" + name + '\n' + bytes;
        const bool sends = byMail || i + 1 == fileCount; // mail by mail one file more, or all files at once
        if (sends && outcome.m_Refused.count(byMail ? i : 0) != 0) {
            ++refused;
        } else if (sends && outcome.m_bDefinition && outcome.m_bRecord) {
            due.push_back(paths + contents);
        }
    }

    EXPECT_EQ(Process(ACTION_DELIVERY), byMail && std::ssize(due) < fileCount ? RC_MISSING : RC_OK);
    EXPECT_EQ(Sent(), due);
    EXPECT_EQ(m_Mail.m_Definitions, definitions);
    EXPECT_EQ(m_Mail.m_nRecords, 0);
    EXPECT_EQ(m_Kernel.m_Reporter.Messages(), Messages(refused, {9, 29, byMail ? 679 : 678, ""}));
    for (void* nobody : {static_cast<void*>(nullptr), static_cast<void*>(&m_Kernel)}) { // notices that change nothing
        ELogFile::OnEMailComplete(EMAIL_SENT, nobody);
        m_pService->OnUploadComplete(reinterpret_cast<unsigned long>(nobody), 0);
    }
    const bool waits = !due.empty() && outcome.m_When != When::Inside;
    EXPECT_EQ(Jobs(), waits ? 1 : 0);
    EXPECT_EQ(Found(), waits ? waiting : done); // its files in its directory, and none in the log directory yet
    if (outcome.m_bEnds) {
        Row();
        End(); // what is still under way is deleted, whatever the configuration keeps
        EXPECT_EQ(Found(), before);
        m_Mail.m_Notices.Deliver(); // to nobody
        return;
    }
    GiveNotices();
    EXPECT_EQ(Jobs(), 0);
    EXPECT_EQ(Found(), done);
    EXPECT_EQ(Process(ACTION_DELIVERY), RC_OK); // there is nothing to deliver any more
    EXPECT_EQ(Sent(), due);
    Spec()->m_FileTime = {1, 1};
    Row();
    EXPECT_GT(Spec()->m_FileTime.m_nSeconds, 1U); // a new file, by its name too
    Process(ACTION_RESTART_FILE);
    EXPECT_TRUE(ReadWhole("Spool/log-0").starts_with("<!DOCTYPE"));
    End();
    EXPECT_EQ(Found(), done);
}

std::string CaseName(const testing::TestParamInfo<Case>& info) {
    const auto& [mode, files, kept, outcome] = info.param;
    return std::string(outcome.m_pszName) + "_" + std::to_string(files) + (kept != 0 ? "Kept" : "Deleted");
}

auto Cases(int mode, const std::vector<Outcome>& outcomes) {
    return testing::Combine(testing::Values(mode), testing::Values(0, 1, 2), testing::Values(0, 1),
                            testing::ValuesIn(outcomes));
}
INSTANTIATE_TEST_SUITE_P(Upload, DeliveryOutcomeTest, Cases(DELIVERY_UPLOAD, BY_UPLOAD), CaseName);
INSTANTIATE_TEST_SUITE_P(EMail, DeliveryOutcomeTest, Cases(DELIVERY_EMAIL, BY_EMAIL), CaseName);

TEST_F(DeliveryTest, WhatCannotBeSentStaysWhereItIs) {
    for (const int mode : {DELIVERY_NONE, DELIVERY_UPLOAD, DELIVERY_EMAIL}) {
        SCOPED_TRACE(mode);
        StartAnew({SpecItems{.m_File = "l.html", .m_nFiles = 1, .m_nFormat = FORMAT_HTML, .m_nDelivery = mode}});
        m_pService->m_pUploadService = mode == DELIVERY_UPLOAD ? nullptr : &m_Upload;
        m_pService->m_pEMailService = mode == DELIVERY_EMAIL ? nullptr : &m_Mail;
        Row();
        const Files before = Found();
        ASSERT_FALSE(before.empty());
        EXPECT_EQ(Process(ACTION_DELIVERY), RC_MISSING);
        EXPECT_EQ(Found(), before);
        EXPECT_EQ(Jobs(), 0);
    }
}

TEST_F(DeliveryTest, TheIdentifierOfTheNameQualifiesMailAndParameters) {
    Configure({SpecItems{.m_Name = "M", .m_File = "m", .m_nDelivery = 3, .m_Mail = "Mail"},
               SpecItems{.m_Name = "U", .m_File = "u", .m_nDelivery = 2}},
              5);
    m_Mail.m_Definitions = {{"Mail", ";other"}, {"Mail@5", ""}};
    SetWhen(When::Inside);
    const EONEVENTSTRUCT record = MakeRecord();
    for (const bool known : {true, false}) {
        m_Kernel.m_Names.m_bUploadParameters = known;
        for (const wchar_t* name : {L"M@5", L"U@5"}) {
            Row(L"T", name);
            EXPECT_EQ(Process(ACTION_DELIVERY, known ? &record : nullptr, 1, name), RC_OK);
        }
        EXPECT_EQ(m_Mail.m_Sent.back().m_To, "Mail@5");
        EXPECT_EQ(m_Mail.m_Sent.back().m_bWithRecord, known);
        EXPECT_EQ(m_Upload.m_Sent.back().m_To, known ? "host user id5 " : "(null) (null) (null) ");
    }
}

// Nothing is lost of what is kept.
TEST_F(DeliveryTest, ACallThatThrowsIsASendingThatCouldNotBeStarted) {
    Configure({SpecItems{.m_Name = "M", .m_File = "m", .m_nDelivery = 3, .m_nKeepCopy = 1, .m_Mail = "Mail"},
               SpecItems{.m_Name = "U", .m_File = "u", .m_nDelivery = 2, .m_nKeepCopy = 1}},
              5);
    m_Mail.m_Definitions["Mail@5"] = "";
    Messages expected;
    for (const auto& [operation, message] : {std::pair{"CreateMessage", 679},
                                             {"LoadMessage", 679},
                                             {"StoreMessage", 679},
                                             {"SendMessage", 679},
                                             {"ReleaseMessage", 0},
                                             {"GetUploadParameters", 678},
                                             {"UploadFiles", 678}}) {
        SCOPED_TRACE(operation);
        const bool byMail = message != 678;
        const wchar_t* const name = byMail ? L"M@5" : L"U@5";
        Row(Wide(operation), name);
        InKernel::s_Throwing = operation;
        EXPECT_EQ(Process(ACTION_DELIVERY, nullptr, 1, name), message == 679 ? RC_MISSING : RC_OK);
        InKernel::s_Throwing.clear();
        GiveNotices();
        expected.resize(expected.size() + (message != 0 ? 1 : 0), {9, 29, message, ""});
        EXPECT_EQ(m_Kernel.m_Reporter.Messages(), expected);
        EXPECT_EQ(Jobs(), 0);
        EXPECT_NE(ReadWhole(byMail ? "logs/m" : "logs/u").find(operation), std::string::npos);
    }
    EXPECT_EQ(Workplace::Tree(), (Texts{"Spool/", "logs/", "logs/m", "logs/u"}));
}

// Notices inside the call, later and out of order, while the worker starts the next sendings.
TEST_F(DeliveryTest, NoticesOfManyThreadsFinishEveryJobOnce) {
    constexpr int ROUNDS = 5000; // each delivers by e-mail and by upload
    Configure({SpecItems{.m_Name = "M", .m_File = "m%i", .m_nDelivery = 3, .m_nKeepCopy = 1, .m_Mail = "Mail"},
               SpecItems{.m_Name = "U", .m_File = "u%i", .m_nDelivery = 2}});
    m_Mail.m_Definitions["Mail"] = "";
    SetWhen(When::Mixed);
    m_pService->Start();
    std::atomic<bool> over{false};
    std::thread reporter([&] {
        EONEVENTSTRUCT record = MakeRecord();
        for (int i = 0; i < ROUNDS; ++i) {
            for (const wchar_t* action :
                 {ACTION_NAME_EVENT, ACTION_NAME_RESTART, ACTION_NAME_EVENT, ACTION_NAME_DELIVERY}) {
                Invoke(action, L"M", &record);
            }
            Invoke(ACTION_NAME_EVENT, L"U", &record);
            Invoke(ACTION_NAME_DELIVERY, L"U", &record);
            EXPECT_TRUE(i % 80 < 79 || Soon([&] { return Queued().empty(); })); // none may be dropped
        }
        EXPECT_TRUE(Soon([&] { return Queued().empty(); }));
        m_pService->PrepareToStop(); // the worker finishes what it has begun
        over = true;
    });
    OnThreads(8, [&](int) {
        while (!over) {
            if (!m_Mail.m_Notices.GiveNext() && !m_Upload.m_Notices.GiveNext()) {
                std::this_thread::sleep_for(std::chrono::microseconds(100));
            }
        }
    });
    reporter.join();
    GiveNotices(8);
    EXPECT_EQ(m_Mail.m_Sent.size(), 2U * ROUNDS);
    EXPECT_EQ(m_Upload.m_Sent.size(), static_cast<std::size_t>(ROUNDS));
    EXPECT_EQ(Jobs(), 0);
    EXPECT_EQ(Workplace::Tree(), (Texts{"Spool/", "logs/", "logs/m0", "logs/m1"}));
    EXPECT_EQ(m_Kernel.m_Reporter.Messages(), Messages());
}

} // namespace
