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

void ELogFile::CountTransfer(ELogFileDeliverySpec* job) {
    const ELock lock(m_CompletionMutex, MUTEX_NAME);
    if (IsDelivering(job)) {
        ++job->m_nCompleted;
    }
}

void ELogFile::CompleteTransfer(ELogFileDeliverySpec* job) {
    const ELock lock(m_CompletionMutex, MUTEX_NAME);
    if (IsDelivering(job)) {
        ++job->m_nCompleted;
        job->OnComplete();
    }
}

void ELogFile::CompleteIfDone(ELogFileDeliverySpec* job) {
    const ELock lock(m_CompletionMutex, MUTEX_NAME);
    if (IsDelivering(job)) {
        job->OnComplete();
    }
}

void ELogFile::CompleteJob(ELogFileDeliverySpec* job) {
    const ELock lock(m_CompletionMutex, MUTEX_NAME);
    if (IsDelivering(job)) {
        job->SetAllCompleted();
        job->OnComplete();
    }
}

void ELogFile::OnEMailComplete(EMAILSTATUS /*status*/, void* job) {
    Guarded([&] {
        if (ELogFile* service = TheLogFile(); service != nullptr) { // a notice may come when the service is gone
            service->CompleteTransfer(static_cast<ELogFileDeliverySpec*>(job));
        }
        return RC_OK;
    });
}

void ELogFile::OnUploadComplete(unsigned long job, unsigned long /*status*/) {
    Guarded([&] {
        CompleteJob(reinterpret_cast<ELogFileDeliverySpec*>(job));
        return RC_OK;
    });
}
