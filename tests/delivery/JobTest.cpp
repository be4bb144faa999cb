// A delivery's job: its files, its names, and the notices that are and are not for it.

#include "delivery/ELogFileDeliverySpec.h"
#include "tests/delivery/DeliveryFixture.h"

namespace {

constexpr const char* FOOTER = "</TBODY>\n</TABLE>\n<P>\n</BODY>\n</HTML>\n";

TEST_F(DeliveryTest, AnHtmlFileIsSentWithItsFooterAndTheNextRowStartsANewOne) {
    Configure({SpecItems{.m_File = "%Y%m%d-%H%M%S-%s-%i.html", .m_nFormat = FORMAT_HTML, .m_nDelivery = 2}});
    std::set<std::string> paths;
    while (paths.size() < 2) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2)); // the names carry milliseconds
        Row(Spec());
        const Contents spooled = OnDisk();
        ASSERT_EQ(spooled.size(), 2U); // the directory and the new file, nothing in another place
        const auto& [path, bytes] = *spooled.rbegin();
        ASSERT_TRUE(path.starts_with("Spool/") && paths.insert(path).second) << path;
        EXPECT_TRUE(bytes.starts_with("<!DOCTYPE"));
        EXPECT_EQ(Deliver(Spec()), RC_OK);
        EXPECT_EQ(m_Kernel.m_Upload.m_Uploads.back().m_Contents.begin()->second, bytes + FOOTER);
        GiveNotices();
        EXPECT_EQ(Workplace::Tree(), std::vector<std::string>{"Spool/"});
    }
}

TEST_F(DeliveryTest, WhatCannotBeSentStaysWhereItIs) {
    for (const int mode : {DELIVERY_NONE, DELIVERY_UPLOAD, DELIVERY_EMAIL}) {
        SCOPED_TRACE(mode);
        Configure({SpecItems{.m_File = "l.html", .m_nFiles = 1, .m_nFormat = FORMAT_HTML, .m_nDelivery = mode}});
        if (mode == DELIVERY_UPLOAD) {
            m_pService->m_pUploadService = nullptr;
        }
        if (mode == DELIVERY_EMAIL) {
            m_pService->m_pEMailService = nullptr;
        }
        Row(Spec());
        const Contents before = OnDisk();
        ASSERT_FALSE(before.empty());
        EXPECT_EQ(Deliver(Spec()), RC_MISSING);
        EXPECT_EQ(OnDisk(), before);
        EXPECT_EQ(Jobs(), 0);
        End();
        Make();
    }
}

TEST_F(DeliveryTest, TheIdentifierOfTheNameQualifiesMailAndParameters) {
    Workplace::WriteSection({SpecItems{.m_Name = "M", .m_File = "m", .m_nDelivery = 3, .m_Mail = "Mail"},
                             SpecItems{.m_Name = "U", .m_File = "u", .m_nDelivery = 2}});
    m_pService->PrepareToStart();
    ASSERT_EQ(m_pService->Restore(0, 5), RC_OK);
    m_Kernel.m_EMail.m_Definitions = {{"Mail", ";other"}, {"Mail@5", ""}};
    m_Kernel.m_EMail.m_Notices.m_When = m_Kernel.m_Upload.m_Notices.m_When = When::Inside;
    const EONEVENTSTRUCT record = MakeRecord();
    for (const bool known : {true, false}) {
        m_Kernel.m_Names.m_bUploadParameters = known;
        for (const wchar_t* name : {L"M@5", L"U@5"}) {
            Row(Spec(name));
            EXPECT_EQ(Process(Spec(name), ACTION_DELIVERY, known ? &record : nullptr), RC_OK);
        }
        EXPECT_EQ(m_Kernel.m_EMail.m_Sent.back().m_Name, "Mail@5");
        EXPECT_EQ(m_Kernel.m_EMail.m_Sent.back().m_bWithRecord, known);
        EXPECT_EQ(m_Kernel.m_Upload.m_Uploads.back().m_Parameters,
                  known ? (std::vector<std::string>{"host", "user", "id5"}) : std::vector<std::string>(3, "(null)"));
    }
}

TEST_F(DeliveryTest, NoticesForNobodyChangeNothing) {
    Configure({SpecItems{.m_Name = "M", .m_File = "m", .m_nDelivery = 3, .m_Mail = "Mail"},
               SpecItems{.m_Name = "U", .m_File = "u", .m_nDelivery = 2}});
    m_Kernel.m_EMail.m_Definitions["Mail"] = "";
    for (const wchar_t* name : {L"M", L"U"}) {
        Row(Spec(name));
        EXPECT_EQ(Deliver(Spec(name)), RC_OK);
    }
    const Contents waiting = OnDisk();
    for (void* nobody : {static_cast<void*>(nullptr), static_cast<void*>(&m_Kernel)}) {
        ELogFile::OnEMailComplete(EMAIL_SENT, nobody);
        m_pService->OnUploadComplete(reinterpret_cast<unsigned long>(nobody), 0);
    }
    EXPECT_EQ(Jobs(), 2);
    EXPECT_EQ(OnDisk(), waiting);
    End();
    m_Kernel.m_EMail.m_Notices.Deliver(); // the service is gone
    EXPECT_EQ(Workplace::Tree(), std::vector<std::string>{"Spool/"});
}

// The context of a notice is the job's address, which is free for another job when the first is done.
TEST_F(DeliveryTest, LateSecondNoticesFinishNoNewerJob) {
    Configure({SpecItems{.m_nDelivery = 2}});
    std::vector<unsigned long> finished;
    while (finished.size() < ELogFileDeliverySpec::RESTING_JOBS) {
        Row(Spec());
        ASSERT_EQ(Deliver(Spec()), RC_OK);
        for (const unsigned long job : finished) {
            m_pService->OnUploadComplete(job, 0);
        }
        ASSERT_EQ(Jobs(), 1) << finished.size();
        GiveNotices(1);
        ASSERT_EQ(Jobs(), 0);
        finished.push_back(m_Kernel.m_Upload.m_nContext);
    }
}

} // namespace
