#include "service/ELogFile.h"

#include "base/EFileIO.h"
#include "base/ELock.h"
#include "base/EPersistent.h"
#include "base/Guarded.h"
#include "base/WARM_RESTART_STRUCT.h"
#include "service/Entry.h"

#include <cwchar>
#include <new>

namespace {

// The names of the service's sections, each with its end, and the end of the list.
EResult ListSections(WARM_RESTART_STRUCT* info) {
    if (info == nullptr) {
        return RC_ARGUMENT;
    }
    const std::size_t length = std::wcslen(LOGFILE_XML_NAME);
    info->m_pszSections = new (std::nothrow) wchar_t[length + 2]();
    if (info->m_pszSections == nullptr) {
        return RC_NOT_MADE;
    }
    std::wmemcpy(info->m_pszSections, LOGFILE_XML_NAME, length);
    return RC_OK;
}

} // namespace

EString ELogFile::PendingEntriesPath() {
    EString path;
    unsigned long exists = 0;
    if (Failed(EPersistent::GetSectionFilename(LOGFILE_WR_FILE_NAME, path, exists))) {
        throw std::bad_alloc(); // the only reason; an empty path would pass for one where nothing was saved
    }
    return path;
}

EResult ELogFile::WarmRestart(WR_OPERATION operation, WARM_RESTART_STRUCT* info) {
    return Guarded([&] {
        switch (operation) {
        case WR_FORGET:
        case WR_DISCARD:
            EFileIO::DeleteFile(PendingEntriesPath(), false);
            return RC_OK;
        case WR_SAVE: {
            const EString path = PendingEntriesPath();
            EFileIO::DeleteFile(path, false);
            return SavePendingLogEntries(path);
        }
        case WR_SECTIONS:
            return ListSections(info);
        default:
            return RC_OK;
        }
    });
}
