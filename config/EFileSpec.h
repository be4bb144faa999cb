#pragma once

#include "base/Contract.h"
#include "base/EPersistentInt.h"
#include "base/EPersistentString.h"
#include "base/EStringArray.h"
#include "base/ETimeStamp.h"
#include "base/IPersistent.h"
#include "files/ELogFilter.h"

#include <memory>

// One configured log file, and the state of its current file. Restore writes the configured items, on the kernel's
// thread; afterwards they are only read. The state belongs to the thread that processes requests.
class EFileSpec : public IPersistent {
public:
    EFileSpec();
    EFileSpec(const EFileSpec&) = delete;
    EFileSpec& operator=(const EFileSpec&) = delete;

    EResult Save(unsigned long section) override; // writes nothing: the service only reads its configuration
    // Reads the items in the layout of the section's version, makes the directories and the filter. RC_NO_SECTION;
    // the OR of the items' failures; RC_NOT_MADE for an unknown format.
    EResult Restore(unsigned long section) override;
    EResult GetType(EString& type) override;
    EResult GetNewObject(IPersistent*& object) override;
    EResult DestroyObject() override;
    virtual ~EFileSpec();

    // Brings a directory path into its normal form, ending in '/', and creates the directory if necessary. On failure
    // it reports the path and empties it: the files then go to the working directory.
    void SetLogPath(EString* path);

    bool Delivers() const { return m_DeliveryMode == DELIVERY_UPLOAD || m_DeliveryMode == DELIVERY_EMAIL; }
    bool IsSpooled() const { return m_DeliveryMode != DELIVERY_NONE; } // its files are written to m_SpoolPath

    // Makes m_pFilter for the format and encoding; none for an unknown format. The kernel log has no delimiter.
    void MakeFilter(bool kernelLog);

    EPersistentString m_Name;             // the registry key
    EPersistentString m_LogPath;          // directory of undelivered files, and of the copies that are kept
    EPersistentString m_FileName;         // pattern of the file names, see EscFilter
    EPersistentInt m_MaxFileSize{102400}; // bytes; 0 or less: no limit
    EPersistentInt m_NumFiles{2};         // files of the set; index 0 is written, the last index is the oldest
    EPersistentInt m_FileFormat{FORMAT_COMMA_SEPARATED};
    EPersistentInt m_Unicode{UNICODE_UTF16}; // UTF-16LE, otherwise 8-bit; HTML is always UTF-8
    EPersistentInt m_DeliveryMode{DELIVERY_NONE};
    EPersistentInt m_KeepCopy{0}; // not 0: delivered files move to m_LogPath instead of being deleted
    EPersistentString m_MailName; // the e-mail definition

    bool m_bFileStarted = false; // the current file has its header and no footer
    EString m_SpoolPath;         // directory of the files when the log file delivers
    ETimeStamp m_FileTime;       // time stamp of the current set, for the file names
    std::unique_ptr<ELogFilter> m_pFilter;
    bool m_bHeadersSet = false; // m_Headers and m_Title come from the first row and never change
    EStringArray m_Headers;
    EString m_Title;
    EString m_CurrentFile; // the last result of CalcFileName; written under ELogFile::m_NameMutex

private:
    EResult RestoreItems(unsigned long section);
    void PrepareDirectories();
};
