#include "service/ELogFile.h"

#include "base/EFileIO.h"
#include "base/ELock.h"
#include "base/EONEVENTSTRUCT.h"
#include "base/INameService.h"
#include "base/SavedRequests.h"
#include "config/EFileSpec.h"
#include "intake/ELogInfo.h"

#include <memory>

EResult ELogFile::SavePendingLogEntries(const EString& path) {
    EFileIO file(path, EFileIO::OPEN_FOR_WRITING);
    if (!file.IsOpen()) {
        return RC_NOT_FOUND;
    }
    file.Buffer();
    const ELock lock(m_QueueMutex, MUTEX_NAME);
    if (file.WriteNumber(static_cast<std::uint32_t>(m_LogQueue.GetCount())) == 0) { // not taken: buffered
        return RC_WRITE;
    }
    EResult result = RC_OK;
    for (auto position = m_LogQueue.GetHeadPosition(); position != nullptr && result == RC_OK;) {
        result = SaveLogInfo(&file, static_cast<ELogInfo*>(m_LogQueue.GetNext(position)));
    }
    return file.Flush() == 0 ? RC_WRITE : result; // flush on failure, too
}

EResult ELogFile::SaveLogInfo(EFileIO* file, ELogInfo* info) {
    if (info->m_pFileSpec == nullptr) {
        return RC_NO_FILE_SPEC;
    }
    bool saved = SaveRequestHead(file, info->m_pFileSpec->m_Name, static_cast<std::uint32_t>(info->m_Action),
                                 info->m_nEventCount) != 0;
    for (std::uint32_t i = 0; saved && i < info->m_nEventCount; ++i) {
        saved = info->m_pEvents[i].Save(file) != 0;
    }
    return saved ? RC_OK : RC_WRITE;
}

EResult ELogFile::RestorePendingLogEntries(const EString& path) {
    EFileIO file(path, EFileIO::OPEN_FOR_READING);
    if (!file.IsOpen()) {
        return RC_OK; // nothing was saved
    }
    file.Buffer();
    std::uint32_t count = 0;
    if (file.ReadNumber(count) == 0) {
        return RC_READ;
    }
    EResult result = RC_OK;
    for (std::uint32_t i = 0; result == RC_OK && i < count; ++i) {
        result = RestoreLogInfo(&file);
    }
    return result;
}

EResult ELogFile::RestoreLogInfo(EFileIO* file) {
    EString name;
    std::uint32_t action = 0;
    std::uint32_t count = 0;
    if (RestoreRequestHead(file, name, action, count) == 0) {
        return RC_READ;
    }
    EFileSpec* spec = FindFileSpec(name);
    if (spec == nullptr || !IsAccepted(*spec)) {
        return SkipEvents(file, count);
    }
    auto request = std::make_unique<ELogInfo>(spec, static_cast<ActionType>(action), count);
    for (std::uint32_t i = 0; i < count; ++i) {
        if (request->m_pEvents[i].Restore(file) == 0) {
            return RC_READ;
        }
    }
    const ELock lock(m_QueueMutex, MUTEX_NAME);
    PushLogInfo(request.release());
    return RC_OK;
}

// Whether the gateway accepts restored requests for this log file.
bool ELogFile::IsAccepted(const EFileSpec& spec) {
    if (m_pNameService == nullptr) {
        return true;
    }
    EString name = spec.m_Name;
    int id = -1;
    m_pNameService->ParseName(&name, &id);
    bool accepted = false;
    m_pNameService->CheckId(id, &accepted);
    return accepted;
}

// Reads the records of a request that is dropped, up to the next request.
EResult ELogFile::SkipEvents(EFileIO* file, std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) {
        EONEVENTSTRUCT skipped;
        if (skipped.Restore(file) == 0) {
            return RC_READ;
        }
    }
    return RC_OK;
}
