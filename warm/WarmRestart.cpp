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

// Lists the service's only section: its name with a null character, and one more that ends the list.
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
        throw std::bad_alloc(); // the only possible reason
    }
    return path;
}

EResult ELogFile::WarmRestart(WR_OPERATION operation, WARM_RESTART_STRUCT* info) {
    return Guarded([&] {
        switch (operation) {
        case WR_FORGET:
        case WR_DISCARD:
            EFileIO::DeleteFile(PendingEntriesPath());
            return RC_OK;
        case WR_SAVE: {
            const EString path = PendingEntriesPath();
            EFileIO::DeleteFile(path);
            return SavePendingLogEntries(path);
        }
        case WR_SECTIONS:
            return ListSections(info);
        default:
            return RC_OK;
        }
    });
}
