#include "service/ELogFile.h"

#include "base/ELock.h"
#include "base/Guarded.h"
#include "delivery/ELogFileDeliverySpec.h"
#include "service/Entry.h"

// Completions are handled one at a time, under a lock of their own: from the look-up of the job to its end no other
// completion changes it, exactly one finalises and frees it, and every later one finds it gone. The lock is not held
// while a sending is started, so a service may complete inside that call.

bool ELogFile::IsDelivering(const ELogFileDeliverySpec* job) {
    const ELock lock(m_DeliveryMutex, MUTEX_NAME);
    return job != nullptr && m_Deliveries.Find(job, nullptr) != nullptr;
}

void ELogFile::CompleteTransfers(ELogFileDeliverySpec* job, int finished, bool mayEnd) {
    const ELock lock(m_CompletionMutex, MUTEX_NAME);
    if (!IsDelivering(job)) {
        return;
    }
    job->m_nCompleted = finished == ALL_TRANSFERS ? job->m_Files.GetSize() : job->m_nCompleted + finished;
    if (mayEnd) {
        job->OnComplete();
    }
}

void ELogFile::OnEMailComplete(EMAILSTATUS /*status*/, void* job) {
    Guarded([&] {
        if (ELogFile* service = TheLogFile(); service != nullptr) { // a notice may come when the service is gone
            service->CompleteTransfers(static_cast<ELogFileDeliverySpec*>(job), 1);
        }
        return RC_OK;
    });
}

void ELogFile::OnUploadComplete(unsigned long job, unsigned long /*status*/) {
    Guarded([&] {
        CompleteTransfers(reinterpret_cast<ELogFileDeliverySpec*>(job), ALL_TRANSFERS);
        return RC_OK;
    });
}
