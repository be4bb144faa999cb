#include "intake/Actions.h"
#include "tests/delivery/DeliveryFixture.h"

#include <atomic>

namespace {

constexpr int ROUNDS = 5000; // each delivers by e-mail and by upload
constexpr int THREADS = 8;

// Notices inside the call, out of order and twice, while the worker starts the next sendings.
TEST_F(DeliveryTest, NoticesOfManyThreadsFinishEveryJobOnce) {
    Configure({SpecItems{.m_Name = "M", .m_File = "m%i", .m_nDelivery = 3, .m_nKeepCopy = 1, .m_Mail = "Mail"},
               SpecItems{.m_Name = "U", .m_File = "u%i", .m_nDelivery = 2}});
    TestEMail& mail = m_Kernel.m_EMail;
    TestUpload& upload = m_Kernel.m_Upload;
    mail.m_Definitions["Mail"] = "";
    mail.m_bKeepContents = upload.m_bKeepContents = false;
    mail.m_Notices.m_When = upload.m_Notices.m_When = When::Mixed;
    m_pService->Start();

    const auto awaitQueue = [&](int most) {
        EXPECT_TRUE(Soon([&] {
            const ELock lock(m_pService->m_QueueMutex, MUTEX_NAME);
            return m_pService->m_LogQueue.GetCount() <= most;
        }));
    };
    constexpr std::pair<const wchar_t*, const wchar_t*> ROUND[] = {
        {ACTION_NAME_EVENT, L"M"},    {ACTION_NAME_RESTART, L"M"}, {ACTION_NAME_EVENT, L"M"},
        {ACTION_NAME_DELIVERY, L"M"}, {ACTION_NAME_EVENT, L"U"},   {ACTION_NAME_DELIVERY, L"U"},
    };
    std::atomic<bool> over{false};
    std::thread reporter([&] {
        EONEVENTSTRUCT record = MakeRecord();
        for (int i = 0; i < ROUNDS; ++i) {
            awaitQueue(ELogFile::QUEUE_LIMIT - static_cast<int>(std::size(ROUND))); // none may be dropped
            for (const auto& [action, name] : ROUND) {
                Invoke(action, name, &record);
            }
        }
        awaitQueue(0);
        m_pService->PrepareToStop(); // the worker finishes what it has begun
        over = true;
    });
    OnThreads(THREADS, [&](int) {
        while (!over) {
            if (!mail.m_Notices.GiveNext() && !upload.m_Notices.GiveNext()) {
                std::this_thread::sleep_for(std::chrono::microseconds(100));
            }
        }
    });
    reporter.join();
    GiveNotices(THREADS);

    EXPECT_EQ(mail.m_Sent.size(), 2U * ROUNDS);
    EXPECT_EQ(upload.m_Uploads.size(), static_cast<std::size_t>(ROUNDS));
    EXPECT_EQ(Jobs(), 0);
    EXPECT_EQ(Workplace::Tree(), (std::vector<std::string>{"Spool/", "logs/", "logs/m0", "logs/m1"}));
    EXPECT_TRUE(m_Kernel.m_Reporter.Messages().empty());
}

} // namespace
