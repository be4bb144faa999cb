// A delivery's job: its directory, its files, its names, and the notices that are and are not for it.

#include "delivery/ELogFileDeliverySpec.h"
#include "tests/delivery/DeliveryFixture.h"

#include <csignal>
#include <sys/resource.h>

namespace {

constexpr const char* FOOTER = "</TBODY>\n</TABLE>\n<P>\n</BODY>\n</HTML>\n";

// No file grows, as on a full disk.
void SetDiskFull(bool full) {
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = full ? 0 : limit.rlim_max;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
}

// The spool directory under a name of `length` characters, an even number. The system takes paths of up to 4095.
EString LongSpoolPath(std::size_t length) {
    std::string path = "Spool/";
    while (path.size() < length) {
        path.insert(0, "./");
    }
    return Wide(path);
}

TEST_F(DeliveryTest, AnHtmlFileIsSentWithItsFooterAndTheNextRowStartsANewOne) {
    Configure({SpecItems{.m_File = "%Y%m%d-%H%M%S-%s-%i.html", .m_nFormat = FORMAT_HTML, .m_nDelivery = 2}});
    std::string previous;
    for (const bool full : {false, true, false}) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2)); // the names carry milliseconds
        Row(Spec());
        const auto spooled = Contents();
        ASSERT_EQ(spooled.size(), 2U); // the directory and the new file, nothing in another place
        const auto& [path, bytes] = *spooled.rbegin();
        EXPECT_TRUE(path.starts_with("Spool/"));
        EXPECT_TRUE(bytes.starts_with("<!DOCTYPE"));
        EXPECT_NE(path, previous);
        previous = path;
        SetDiskFull(full);
        EXPECT_EQ(Deliver(Spec()), RC_OK);
        SetDiskFull(false);
        EXPECT_EQ(m_Kernel.m_Upload.m_Uploads.back().m_Contents.begin()->second, bytes + (full ? "" : FOOTER));
        GiveNotices();
        EXPECT_EQ(Deliver(Spec()), RC_OK);
        EXPECT_EQ(Workplace::Tree(), std::vector<std::string>{"Spool/"});
    }
}

TEST_F(DeliveryTest, WhatCannotBeSentStaysWhereItIs) {
    const struct {
        const char* m_pszWhat;
        int m_nMode;
        void (*m_Spoil)(ELogFile& service, EFileSpec& spec);
    } cases[] = {
        {"no longer delivers", DELIVERY_NONE, [](ELogFile&, EFileSpec&) {}},
        {"no upload service", DELIVERY_UPLOAD, [](ELogFile& it, EFileSpec&) { it.m_pUploadService = nullptr; }},
        {"no e-mail service", DELIVERY_EMAIL, [](ELogFile& it, EFileSpec&) { it.m_pEMailService = nullptr; }},
        // Its spool directory has room for the name of a file, not for that of a directory.
        {"no job directory", DELIVERY_UPLOAD, [](ELogFile&, EFileSpec& it) { it.m_SpoolPath = LongSpoolPath(4084); }},
    };
    for (const auto& [what, mode, spoil] : cases) {
        SCOPED_TRACE(what);
        Configure({SpecItems{.m_File = "l.html", .m_nFiles = 1, .m_nFormat = FORMAT_HTML, .m_nDelivery = mode}});
        spoil(*m_pService, *Spec());
        Row(Spec());
        const auto before = Contents();
        ASSERT_FALSE(before.empty());
        EXPECT_EQ(Deliver(Spec()), RC_MISSING);
        EXPECT_EQ(Contents(), before);
        EXPECT_EQ(Jobs(), 0);
        End();
        Make();
    }
}

TEST_F(DeliveryTest, AFileThatCannotBeMovedStaysWhereItIs) {
    Configure({SpecItems{.m_File = "f%i", .m_nFiles = 11, .m_nDelivery = 2, .m_nKeepCopy = 1}});
    Spec()->m_SpoolPath = LongSpoolPath(4080); // in the job's directory there is room for f0, not for f10
    Row(Spec());
    WriteWhole("Spool/f9", "nine");
    WriteWhole("Spool/f10", "ten");
    std::filesystem::create_directories("logs/f9/taken");
    EXPECT_EQ(Deliver(Spec()), RC_OK);
    EXPECT_EQ(m_Kernel.m_Upload.m_Uploads.at(0).m_Paths.size(), 2U);
    GiveNotices();
    EXPECT_EQ(Jobs(), 0);
    const std::vector<std::string> tree = Workplace::Tree();
    ASSERT_EQ(tree.size(), 8U);
    EXPECT_TRUE(IsJobDirectory(tree[1])) << tree[1]; // stays with what could not be moved back
    EXPECT_EQ(tree, (std::vector<std::string>{"Spool/", tree[1], tree[1] + "f9", "Spool/f10", "logs/", "logs/f0",
                                              "logs/f9/", "logs/f9/taken/"}));
    EXPECT_TRUE(m_Kernel.m_Reporter.Messages().empty());
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
    const auto waiting = Contents();
    for (void* nobody : {static_cast<void*>(nullptr), static_cast<void*>(&m_Kernel)}) {
        ELogFile::OnEMailComplete(EMAIL_SENT, nobody);
        m_pService->OnUploadComplete(reinterpret_cast<unsigned long>(nobody), 0);
    }
    EXPECT_EQ(Jobs(), 2);
    EXPECT_EQ(Contents(), waiting);

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
