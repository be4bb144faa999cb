// What a delivery leaves on disk, in the service and with the sending services.

#include "tests/ServiceFixture.h"

#include <atomic>

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

    // Another service, with a set of two files in the spool, and a file of the first one's name in the log directory.
    void Prepare(int mode, int kept, When when = When::Later) {
        StartAnew({SpecItems{
            .m_File = "log-%i", .m_nFormat = FORMAT_HTML, .m_nDelivery = mode, .m_nKeepCopy = kept, .m_Mail = "Mail"}});
        m_Mail.m_Definitions = {{"Mail", ";old"}};
        m_Mail.m_nSends = 0;
        m_Mail.m_Sent.clear();
        m_Upload.m_Sent.clear();
        SetWhen(when);
        std::filesystem::create_directory("logs");
        std::filesystem::remove("logs/log-1");
        WriteWhole("logs/log-0", "older");
        EXPECT_EQ(Process(ACTION_DELIVERY), RC_OK); // there is nothing to deliver before the first row
        Row(L"first");
        Process(ACTION_RESTART_FILE);
        Row(L"second");
        const std::string newest = ReadWhole("Spool/log-0") + PAGE_END;
        const std::string oldest = ReadWhole("Spool/log-1");
        m_Waiting = {{"JOB/", ""}, {"JOB/log-0", newest}, {"JOB/log-1", oldest}, {"logs/log-0", "older"}};
        m_Done = kept != 0 ? Files{{"logs/log-0", newest}, {"logs/log-1", oldest}} : Files{{"logs/log-0", "older"}};
    }

    // Delivers. Expects these lists of paths to be sent, each file with its bytes, so many sendings to be refused, and
    // the service and the disk to be as they should before and after the notices.
    void ExpectDelivery(EResult result, const Texts& paths, int refused = 0) {
        EXPECT_EQ(Process(ACTION_DELIVERY), result);
        EXPECT_EQ(Found(), paths.empty() || m_Mail.m_Notices.m_When == When::Inside ? m_Done : m_Waiting);
        for (void* nobody : {static_cast<void*>(nullptr), static_cast<void*>(&m_Kernel)}) {
            ELogFile::OnEMailComplete(EMAIL_SENT, nobody); // changes nothing
            m_pService->OnUploadComplete(reinterpret_cast<unsigned long>(nobody), 0);
        }
        GiveNotices();
        EXPECT_EQ(Process(ACTION_DELIVERY), RC_OK); // there is nothing to deliver any more
        Texts sent;
        for (const auto* sendings : {&m_Mail.m_Sent, &m_Upload.m_Sent}) {
            for (const Sending& sending : *sendings) {
                sent.push_back(Known(sending.m_Paths));
                for (const auto& [path, bytes] : sending.m_Contents) {
                    EXPECT_EQ(bytes, m_Waiting[Known(path.substr(2))]);
                }
            }
        }
        EXPECT_EQ(sent, paths);
        EXPECT_EQ(Jobs(), 0);
        EXPECT_EQ(Found(), m_Done);
        EXPECT_EQ(m_Mail.m_nRecords, 0);
        EXPECT_EQ(m_Mail.m_Definitions, (std::map<std::string, std::string>{{"Mail", ";old"}}));
        m_Messages.resize(m_Messages.size() + static_cast<std::size_t>(refused), m_Failed);
        EXPECT_EQ(m_Kernel.m_Reporter.Messages(), m_Messages);
        Spec()->m_FileTime = {1, 1};
        Row();
        EXPECT_GT(Spec()->m_FileTime.m_nSeconds, 1U); // a new file, by its name too
        EXPECT_TRUE(ReadWhole("Spool/log-0").starts_with("<!DOCTYPE"));
        End();
        EXPECT_EQ(Found(), m_Done);
    }

    TestEMail& m_Mail = m_Kernel.m_EMail;
    TestUpload& m_Upload = m_Kernel.m_Upload;
    Files m_Waiting, m_Done; // on disk while the job waits, and when it has ended
    Messages m_Messages;
    ReportedMessage m_Failed{LEVEL_ERROR, SOURCE_LOG_FILE, MSG_EMAIL_NOT_STARTED, ""};
};

const std::string FIRST = ";./JOB/log-0";
const std::string BOTH = FIRST + ";./JOB/log-1";

TEST_F(DeliveryTest, AJobEndsOnceWithItsLastNoticeAndKeepsOrDeletesItsFiles) {
    for (const When when : {When::Inside, When::Later, When::OutOfOrder, When::Twice}) {
        for (const int kept : {0, 1}) {
            Prepare(DELIVERY_UPLOAD, kept, when);
            ExpectDelivery(RC_OK, {BOTH});
            Prepare(DELIVERY_EMAIL, kept, when); // mail by mail one file more
            ExpectDelivery(RC_OK, {";old" + FIRST, ";old" + BOTH});
        }
    }
}

TEST_F(DeliveryTest, AMessageThatCannotBeStartedCountsAsFinished) {
    for (const When when : {When::Inside, When::Later}) {
        for (const auto& [refused, paths] : {std::pair{std::set{0}, Texts{";old" + BOTH}},
                                             {std::set{1}, Texts{";old" + FIRST}},
                                             {std::set{0, 1}, Texts{}}}) {
            Prepare(DELIVERY_EMAIL, 1, when);
            m_Mail.m_RefusedSends = refused;
            ExpectDelivery(RC_MISSING, paths, static_cast<int>(refused.size()));
        }
    }
    for (const bool hasRecord : {false, true}) { // nor is there a message without a record, or without a definition
        Prepare(DELIVERY_EMAIL, 1);
        m_Mail.m_bGivesRecords = hasRecord;
        Spec()->m_MailName = hasRecord ? L"Other" : L"Mail";
        ExpectDelivery(RC_MISSING, {});
    }
}

TEST_F(DeliveryTest, AnUploadThatCannotBeStartedEndsTheJob) {
    m_Upload.m_bRefuses = true;
    m_Failed.m_nNumber = MSG_UPLOAD_NOT_STARTED;
    for (const int kept : {0, 1}) {
        Prepare(DELIVERY_UPLOAD, kept);
        ExpectDelivery(RC_OK, {}, 1);
    }
}

TEST_F(DeliveryTest, TheEndOfTheServiceDeletesWhatIsUnderWayWhateverIsKept) {
    for (const int mode : {DELIVERY_UPLOAD, DELIVERY_EMAIL}) {
        Prepare(mode, 1);
        Process(ACTION_DELIVERY);
        Row();
        End();
        EXPECT_EQ(Found(), (Files{{"logs/log-0", "older"}}));
        m_Mail.m_Notices.Deliver(); // to nobody
    }
}

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

TEST_F(DeliveryTest, QualifiedNamesAndCallsThatThrow) {
    Configure({SpecItems{.m_Name = "M", .m_File = "m", .m_nDelivery = 3, .m_nKeepCopy = 1, .m_Mail = "Mail"},
               SpecItems{.m_Name = "U", .m_File = "u", .m_nDelivery = 2, .m_nKeepCopy = 1}},
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
    // What throws is a sending that could not be started, and nothing is lost of what is kept.
    SetWhen(When::Later);
    m_Kernel.m_Names.m_bUploadParameters = true;
    Messages expected;
    for (const auto& [operation, message] : {std::pair{"CreateMessage", MSG_EMAIL_NOT_STARTED},
                                             {"LoadMessage", MSG_EMAIL_NOT_STARTED},
                                             {"StoreMessage", MSG_EMAIL_NOT_STARTED},
                                             {"SendMessage", MSG_EMAIL_NOT_STARTED},
                                             {"ReleaseMessage", 0},
                                             {"GetUploadParameters", MSG_UPLOAD_NOT_STARTED},
                                             {"UploadFiles", MSG_UPLOAD_NOT_STARTED}}) {
        SCOPED_TRACE(operation);
        const bool byMail = message != MSG_UPLOAD_NOT_STARTED;
        const wchar_t* const name = byMail ? L"M@5" : L"U@5";
        Row(Wide(operation), name);
        InKernel::s_Throwing = operation;
        EXPECT_EQ(Process(ACTION_DELIVERY, nullptr, 1, name), byMail && message != 0 ? RC_MISSING : RC_OK);
        InKernel::s_Throwing.clear();
        GiveNotices();
        expected.resize(expected.size() + (message != 0 ? 1 : 0), {LEVEL_ERROR, SOURCE_LOG_FILE, message, ""});
        EXPECT_EQ(m_Kernel.m_Reporter.Messages(), expected);
        EXPECT_EQ(Jobs(), 0);
        EXPECT_NE(ReadWhole(byMail ? "logs/m" : "logs/u").find(operation), std::string::npos);
    }
    EXPECT_EQ(Workplace::Tree(), (Texts{"Spool/", "logs/", "logs/m", "logs/u"}));
}

// Notices inside the call, later and out of order, while the worker starts the next sendings.
TEST_F(DeliveryTest, NoticesOfManyThreadsFinishEveryJobOnce) {
    constexpr int ROUNDS = 3000; // each delivers by e-mail and by upload
    Configure({SpecItems{.m_Name = "M", .m_File = "m%i", .m_nDelivery = 3, .m_nKeepCopy = 1, .m_Mail = "Mail"},
               SpecItems{.m_Name = "U", .m_File = "u%i", .m_nDelivery = 2}});
    m_Mail.m_Definitions["Mail"] = "";
    SetWhen(When::Mixed);
    m_pService->Start();
    std::atomic<int> reporting{1};
    OnThreads(9, [&](int thread) {
        while (thread > 0 && reporting != 0) {
            if (!m_Mail.m_Notices.GiveNext() && !m_Upload.m_Notices.GiveNext()) {
                std::this_thread::sleep_for(std::chrono::microseconds(100)); // leaves the processor to the worker
            }
        }
        EONEVENTSTRUCT record = MakeRecord();
        for (int i = 0; thread == 0 && i < ROUNDS; ++i) {
            for (const wchar_t* action :
                 {ACTION_NAME_EVENT, ACTION_NAME_RESTART, ACTION_NAME_EVENT, ACTION_NAME_DELIVERY}) {
                Invoke(action, L"M", &record);
            }
            Invoke(ACTION_NAME_EVENT, L"U", &record);
            Invoke(ACTION_NAME_DELIVERY, L"U", &record);
            const bool last = i + 1 == ROUNDS; // none may be dropped
            EXPECT_TRUE((i % 80 < 79 && !last) || Eventually([&] { return Queued().empty(); }));
        }
        if (thread == 0) {
            m_pService->PrepareToStop(); // the worker finishes what it has begun
            reporting = 0;
        }
    });
    GiveNotices(8);
    EXPECT_EQ(m_Mail.m_Sent.size(), 2U * ROUNDS);
    EXPECT_EQ(m_Upload.m_Sent.size(), static_cast<std::size_t>(ROUNDS));
    EXPECT_EQ(Jobs(), 0);
    EXPECT_EQ(Workplace::Tree(), (Texts{"Spool/", "logs/", "logs/m0", "logs/m1"}));
    EXPECT_EQ(m_Kernel.m_Reporter.Messages(), Messages());
}

} // namespace
