#include "service/ELogFile.h"

#include "base/EFileIO.h"
#include "base/ELock.h"
#include "base/EPRNG.h"
#include "base/Guarded.h"
#include "base/IErrorReporter.h"
#include "base/INameService.h"
#include "base/Messages.h"
#include "config/EFileSpec.h"
#include "delivery/ELogFileDeliverySpec.h"
#include "intake/ELogInfo.h"

#include <memory>

std::uint32_t ELogFile::GetDeliveryId() {
    return EPRNG::GetInt32();
}

// Ends the current file, moves the files of the set into a job's directory and starts sending them.
EResult ELogFile::ProcessDelivery(ELogInfo* info) {
    EFileSpec* spec = info->m_pFileSpec;
    if (!CanDeliver(*spec)) {
        return RC_MISSING; // the files stay where they are
    }
    EString directory;
    directory.Format(L"%s%s%08x/", spec->m_SpoolPath, JOB_DIRECTORY, GetDeliveryId());
    if (EFileIO::CreateDir(directory) == 0) {
        return RC_MISSING;
    }
    std::unique_ptr<ELogFileDeliverySpec> made;
    const EResult ready = Guarded([&] {
        made = std::make_unique<ELogFileDeliverySpec>(this, spec, directory);
        if (m_pNameService != nullptr) {
            EString name = spec->m_Name;
            m_pNameService->ParseName(&name, &made->m_nNameId);
        }
        const ELock lock(m_DeliveryMutex, MUTEX_NAME);
        m_Deliveries.Reserve(); // once files have moved, adding the job must not fail
        return RC_OK;
    });
    if (Failed(ready)) {
        m_pErrorReporter->Report(LEVEL_WARNING, SOURCE_LOG_FILE, MSG_NOT_CREATED, L"Delivery failed");
        return ready;
    }
    Guarded([&] { return static_cast<EResult>(StopFile(spec)); });
    spec->m_bFileStarted = false; // the file is moved even when its footer could not be written
    MoveFilesToJob(spec, made.get());
    if (made->m_Files.GetSize() == 0) {
        EFileIO::RemoveDir(directory);
        return RC_OK;
    }
    ELogFileDeliverySpec* job = made.get();
    {
        // Before the sending starts: a completion may come at once and must find the job.
        const ELock lock(m_DeliveryMutex, MUTEX_NAME);
        m_Deliveries.AddTail(job);
        (void)made.release();
    }
    const EResult started = spec->m_DeliveryMode == DELIVERY_UPLOAD ? DeliverESFile(job) : DeliverEMail(job, info);
    return started == 0 ? RC_MISSING : RC_OK;
}

// Checked again here: the configuration or the gateway may have changed since the request was saved for a warm restart.
bool ELogFile::CanDeliver(const EFileSpec& spec) {
    const bool canUpload = m_pUploadService != nullptr;
    const bool canMail = m_pEMailService != nullptr;
    return spec.IsSpooled() && (spec.m_DeliveryMode == DELIVERY_UPLOAD ? canUpload : canMail);
}

// A file that cannot be moved, also for lack of memory, stays where it is. The others are delivered.
void ELogFile::MoveFilesToJob(EFileSpec* spec, ELogFileDeliverySpec* job) {
    for (int i = 0; i < spec->m_NumFiles; ++i) {
        const int count = job->m_Files.GetSize();
        const EResult moved = Guarded([&] {
            EString name;
            CalcFileName(spec, i, &spec->m_FileTime, false, name);
            const EString source = spec->m_SpoolPath + name;
            const EString target = job->m_SpoolDir + name;
            job->m_Files.SetAtGrow(count, name); // may throw, so before the file is moved
            return EFileIO::RenameFile(source, target) != 0 ? RC_OK : RC_MISSING;
        });
        if (moved != RC_OK) {
            job->m_Files.SetSize(count, -1);
        }
    }
}
