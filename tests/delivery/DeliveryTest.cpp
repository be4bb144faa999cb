// What a delivery leaves on disk, in the service and with the sending services.

#include "tests/ServiceFixture.h"

namespace {

using When = TestNotices::When;

// Requests processed in the test's own thread, and notices given from others.
class DeliveryTest : public ServiceTest {
protected:
    void Row(const wchar_t* text) {
        const EONEVENTSTRUCT record = MakeRecord(L"N", text);
        Process(ACTION_LOG_ALARM, &record, 1, L"Log@5");
    }
    EResult Deliver(const EONEVENTSTRUCT* record = nullptr) { return Process(ACTION_DELIVERY, record, 1, L"Log@5"); }
    void SetWhen(When when) { m_Mail.m_Notices.m_When = m_Upload.m_Notices.m_When = when; }
    void GiveNotices(int threads) {
        m_Mail.m_Notices.Deliver(threads);
        m_Upload.m_Notices.Deliver(threads);
    }

    // Another service, willing senders, a set of two files, one beyond it, and one of the newest's name among the logs.
    void Prepare(int mode, int kept) {
        InKernel::s_Throwing.clear();
        m_Kernel.m_Names.m_bUploadParameters = true;
        m_Mail.m_RefusedSends.clear();
        m_Mail.m_bGivesRecords = true;
        m_Mail.m_Definitions = {{"Mail", ";other"}, {"Mail@5", ";old"}};
        m_Mail.m_nSends = 0;
        m_Mail.m_Sent.clear();
        m_Upload.m_Sent.clear();
        SpecItems items{.m_File = "log-%i", .m_nFormat = FORMAT_HTML, .m_nDelivery = mode, .m_Mail = "Mail"};
        items.m_nKeepCopy = kept;
        StartAnew({items}, 5);
        std::filesystem::create_directory("logs");
        std::filesystem::remove("logs/log-1");
        WriteWhole("logs/log-0", "older");
        WriteWhole("Spool/log-2", "other");
        EXPECT_EQ(Deliver(), RC_OK) << "there is nothing to deliver before the first row";
        Row(L"first");
        Process(ACTION_RESTART_FILE, nullptr, 1, L"Log@5");
        Row(L"second");
    }

    // Expects a delivery with this result to send these lists of paths, and to report so many sendings that could not be
    // started, whenever its notices are given.
    void Expect(int mode, EResult result, const Texts& sent, std::size_t reported,
                const std::function<void()>& arrange) {
        const int failure = mode == DELIVERY_EMAIL ? MSG_EMAIL_NOT_STARTED : MSG_UPLOAD_NOT_STARTED;
        int kept = 0; // alternates
        for (const When when : {When::Inside, When::Inside, When::Later, When::Later, When::OutOfOrder, When::Twice}) {
            kept = 1 - kept;
            Prepare(mode, kept);
            const std::string newest = ReadWhole("Spool/log-0") + PAGE_END;
            const std::string oldest = ReadWhole("Spool/log-1");
            const std::pair<const std::string, std::string> more{"Spool/log-2", "other"};
            const Files waiting{
                {"JOB/", ""}, {"JOB/log-0", newest}, {"JOB/log-1", oldest}, {"logs/log-0", "older"}, more};
            const Files done = kept != 0 ? Files{{"logs/log-0", newest}, {"logs/log-1", oldest}, more}
                                         : Files{{"logs/log-0", "older"}, more};
            const EONEVENTSTRUCT record = MakeRecord();
            SetWhen(when);
            arrange();
            EXPECT_EQ(Deliver(kept != 0 ? &record : nullptr), result);
            EXPECT_EQ(Found(), sent.empty() || when == When::Inside ? done : waiting);
            ELogFile::OnEMailComplete(EMAIL_SENT, &m_Kernel); // changes nothing, as the next
            m_pService->OnUploadComplete(0, 0);
            GiveNotices(2);
            EXPECT_EQ(Deliver(), RC_OK) << "there is nothing to deliver any more";
            EXPECT_EQ(Found(), done);
            EXPECT_TRUE(m_pService->m_Deliveries.IsEmpty());
            Texts found;
            for (const auto* sendings : {&m_Mail.m_Sent, &m_Upload.m_Sent}) {
                for (const Sending& sending : *sendings) {
                    found.push_back(sending.m_To + Known(sending.m_Paths));
                    EXPECT_EQ(sending.m_bWithRecord, kept != 0 && mode == DELIVERY_EMAIL);
                    EXPECT_EQ(sending.m_Contents.size(), found.back().ends_with("1") ? 2U : 1U) << "all are there";
                }
            }
            EXPECT_EQ(found, sent);
            m_Messages.insert(m_Messages.end(), reported, {LEVEL_ERROR, SOURCE_LOG_FILE, failure, ""});
            EXPECT_EQ(m_Kernel.m_Reporter.Messages(), m_Messages);
            EXPECT_EQ(m_Mail.m_nRecords, 0);
            EXPECT_EQ(m_Mail.m_Definitions["Mail@5"], ";old");
            Spec(L"Log@5")->m_FileTime = {1, 1};
            Row(L"third");
            EXPECT_GT(Spec(L"Log@5")->m_FileTime.m_nSeconds, 1U) << "a new file, by its name too";
        }
    }

    TestEMail& m_Mail = m_Kernel.m_EMail;
    TestUpload& m_Upload = m_Kernel.m_Upload;
    Messages m_Messages; // expected so far
};

TEST_F(DeliveryTest, AJobEndsOnceWithItsLastNoticeWhateverCannotBeStarted) {
    const Texts mails{"Mail@5;old;./JOB/log-0", "Mail@5;old;./JOB/log-0;./JOB/log-1"}; // mail by mail one file more
    const std::string both = ";./JOB/log-0;./JOB/log-1";
    TestNames& names = m_Kernel.m_Names;
    const auto throwing = [](const char* operation) { return [operation] { InKernel::s_Throwing = operation; }; };
    Expect(DELIVERY_EMAIL, RC_OK, mails, 0, [] {});
    Expect(DELIVERY_EMAIL, RC_MISSING, {mails[1]}, 1, [&] { m_Mail.m_RefusedSends.insert(0); });
    Expect(DELIVERY_EMAIL, RC_MISSING, {mails[0]}, 1, [&] { m_Mail.m_RefusedSends.insert(1); });
    Expect(DELIVERY_EMAIL, RC_MISSING, {}, 0, [&] { m_Mail.m_bGivesRecords = false; });
    Expect(DELIVERY_EMAIL, RC_MISSING, {}, 0, [&] { Spec(L"Log@5")->m_MailName = L"None"; });
    Expect(DELIVERY_EMAIL, RC_MISSING, {}, 1, throwing("LoadMessage"));
    Expect(DELIVERY_EMAIL, RC_MISSING, {}, 2, throwing("StoreMessage"));
    Expect(DELIVERY_EMAIL, RC_OK, mails, 0, throwing("ReleaseMessage"));
    Expect(DELIVERY_UPLOAD, RC_OK, {"host user id5 " + both}, 0, [] {});
    Expect(DELIVERY_UPLOAD, RC_OK, {"(null) (null) (null) " + both}, 0, [&] { names.m_bUploadParameters = false; });
    Expect(DELIVERY_UPLOAD, RC_OK, {}, 1, throwing("UploadFiles"));
    Expect(DELIVERY_UPLOAD, RC_OK, {}, 1, [&] { m_Upload.m_bRefuses = true; });
}

TEST_F(DeliveryTest, TheEndOfTheServiceDeletesWhatIsUnderWayWhateverIsKept) {
    for (const int mode : {DELIVERY_UPLOAD, DELIVERY_EMAIL}) {
        Prepare(mode, 1);
        Deliver();
        Row(L"third");
        End();
        EXPECT_EQ(Found(), (Files{{"logs/log-0", "older"}, {"Spool/log-2", "other"}}));
        m_Mail.m_Notices.Deliver(); // to nobody
    }
}

TEST_F(DeliveryTest, WhatCannotBeSentStaysWhereItIs) {
    for (const int mode : {DELIVERY_NONE, DELIVERY_UPLOAD, DELIVERY_EMAIL}) {
        StartAnew({SpecItems{.m_File = "page", .m_nFormat = FORMAT_HTML, .m_nDelivery = mode}}, 5);
        m_pService->m_pUploadService = mode == DELIVERY_UPLOAD ? nullptr : &m_Upload;
        m_pService->m_pEMailService = mode == DELIVERY_EMAIL ? nullptr : &m_Mail;
        Row(L"first");
        const Files before = Found();
        EXPECT_EQ(Deliver(), RC_MISSING);
        EXPECT_EQ(Found(), before);
        EXPECT_FALSE(before.empty());
    }
}

TEST_F(DeliveryTest, NoticesOfManyThreadsFinishEveryJobOnce) {
    constexpr std::size_t ROUNDS = 40 * 80; // each delivers by e-mail and by upload
    Configure({SpecItems{.m_Name = "M", .m_File = "m%i", .m_nDelivery = 3, .m_nKeepCopy = 1, .m_Mail = "Mail"},
               SpecItems{.m_Name = "U", .m_File = "u%i", .m_nDelivery = 2}});
    m_Mail.m_Definitions["Mail"] = "";
    SetWhen(When::Mixed);
    m_pService->Start();
    const auto give = [&](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            if (!m_Mail.m_Notices.GiveNext() && !m_Upload.m_Notices.GiveNext()) {
                std::this_thread::sleep_for(std::chrono::microseconds(100)); // leaves the processor to the worker
            }
        }
    };
    std::vector<std::jthread> givers(8);
    std::ranges::generate(givers, [&] { return std::jthread(give); });
    EONEVENTSTRUCT record = MakeRecord();
    for (std::size_t round = 1; round <= ROUNDS; ++round) {
        for (const wchar_t* action :
             {ACTION_NAME_EVENT, ACTION_NAME_RESTART, ACTION_NAME_EVENT, ACTION_NAME_DELIVERY}) {
            Invoke(action, L"M", &record);
        }
        Invoke(ACTION_NAME_EVENT, L"U", &record);
        Invoke(ACTION_NAME_DELIVERY, L"U", &record);
        EXPECT_TRUE(round % 80 != 0 || Eventually([&] { return Queued().empty(); })) << "none may be dropped";
    }
    m_pService->PrepareToStop(); // the worker finishes what it has begun
    givers.clear();
    GiveNotices(1);
    EXPECT_EQ(m_Mail.m_Sent.size(), 2 * ROUNDS);
    EXPECT_EQ(m_Upload.m_Sent.size(), ROUNDS);
    EXPECT_TRUE(m_pService->m_Deliveries.IsEmpty());
    EXPECT_EQ(Workplace::Tree(), (Texts{"Spool/", "logs/", "logs/m0", "logs/m1"}));
    EXPECT_EQ(m_Kernel.m_Reporter.Messages(), Messages());
}

} // namespace
