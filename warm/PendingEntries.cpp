#include "service/ELogFile.h"

#include "base/EFileIO.h"
#include "base/ELock.h"
#include "base/EONEVENTSTRUCT.h"
#include "base/INameService.h"
#include "base/LittleEndian.h"
#include "config/EFileSpec.h"
#include "intake/ELogInfo.h"

#include <memory>

// The pending-entries file: the number of requests, then each of them as its file specification's name, its action, the
// number of its records and the records; numbers are 32-bit and little-endian. docs/file-formats.md has an example.

namespace {

bool PutNumber(EFileIO* file, std::uint32_t number) {
    unsigned char bytes[4];
    PutU32(bytes, number);
    unsigned long written = 0;
    return file->WriteToFile(bytes, sizeof bytes, written) != 0;
}

bool GetNumber(EFileIO* file, std::uint32_t& number) {
    unsigned char bytes[4];
    unsigned long read = 0;
    if (file->ReadFrmFile(bytes, sizeof bytes, read) == 0 || read != sizeof bytes) {
        return false;
    }
    number = GetU32(bytes);
    return true;
}

} // namespace

EResult ELogFile::SavePendingLogEntries(const EString& path) {
    EFileIO file(path, EFileIO::OPEN_FOR_WRITING);
    if (!file.IsOpen()) {
        return RC_NOT_FOUND;
    }
    file.Buffer();
    const ELock lock(m_QueueMutex, MUTEX_NAME);
    if (!PutNumber(&file, static_cast<std::uint32_t>(m_LogQueue.GetCount()))) {
        return RC_WRITE;
    }
    EResult result = RC_OK;
    for (auto position = m_LogQueue.GetHeadPosition(); position != nullptr && result == RC_OK;) {
        result = SaveLogInfo(&file, static_cast<ELogInfo*>(m_LogQueue.GetNext(position)));
    }
    return file.Flush() == 0 && result == RC_OK ? RC_WRITE : result; // what can be saved is
}

EResult ELogFile::SaveLogInfo(EFileIO* file, ELogInfo* info) {
    if (info->m_pFileSpec == nullptr) {
        return RC_NO_FILE_SPEC;
    }
    bool saved = info->m_pFileSpec->m_Name.Save(file) != 0 &&
                 PutNumber(file, static_cast<std::uint32_t>(info->m_Action)) && PutNumber(file, info->m_nEventCount);
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
    if (!GetNumber(&file, count)) {
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
    if (name.Restore(file) == 0 || !GetNumber(file, action) || !GetNumber(file, count)) {
        return RC_READ;
    }
    if (count > file->GetBytesLeft() / EONEVENTSTRUCT::SAVED_SIZE_MIN) {
        return RC_READ; // a damaged count; believing it would ask for memory or time without limit
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

// Whether the gateway takes up requests for this log file again.
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

// Reads the records of a dropped request to their end, so that the next request is read from its start.
EResult ELogFile::SkipEvents(EFileIO* file, std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) {
        EONEVENTSTRUCT skipped;
        if (skipped.Restore(file) == 0) {
            return RC_READ;
        }
    }
    return RC_OK;
}
