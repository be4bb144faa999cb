#include "delivery/ELogFileDeliverySpec.h"

#include "base/EFileIO.h"
#include "base/ELock.h"
#include "base/Guarded.h"
#include "config/EFileSpec.h"
#include "service/ELogFile.h"

ELogFileDeliverySpec::ELogFileDeliverySpec(ELogFile* logFile, EFileSpec* fileSpec, const wchar_t* spoolDir)
    : m_pLogFile(logFile), m_pFileSpec(fileSpec), m_SpoolDir(spoolDir) {}

ELogFileDeliverySpec::~ELogFileDeliverySpec() = default;

void ELogFileDeliverySpec::OnComplete() {
    if (m_nCompleted < m_Files.GetSize()) {
        return;
    }
    Finalize(m_pFileSpec->m_KeepCopy != 0);
    {
        const ELock lock(m_pLogFile->m_DeliveryMutex, MUTEX_NAME);
        const auto position = m_pLogFile->m_Deliveries.Find(this, nullptr);
        if (position != nullptr) { // else not taken: nobody else takes a job out while it lives
            m_pLogFile->m_Deliveries.RemoveAt(position);
        }
    }
    delete this;
}

void ELogFileDeliverySpec::Finalize(bool keepFiles) {
    for (int i = 0; i < m_Files.GetSize(); ++i) {
        // When memory runs out, the file stays where it is. The job ends nevertheless.
        Guarded([&] {
            const EString source = m_SpoolDir + m_Files[i];
            if (keepFiles) {
                const EString target = m_pFileSpec->m_LogPath + m_Files[i];
                EFileIO::DeleteFile(target);
                EFileIO::RenameFile(source, target);
            } else {
                EFileIO::DeleteFile(source);
            }
            return RC_OK;
        });
    }
    EFileIO::RemoveDir(m_SpoolDir);
}
