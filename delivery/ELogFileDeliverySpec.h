#pragma once

#include "base/EString.h"
#include "base/EStringArray.h"

#include <cstdint>

class EFileSpec;
class ELogFile;

// A delivery in progress, or job: files of one log file that have been moved into the job's directory and are being
// sent. ELogFile::m_Deliveries owns it from the start of the sending until its last transfer has finished. Completion
// notices may free it on any thread. Once a sending has started, look the job up in the list, under m_CompletionMutex,
// before touching it.
class ELogFileDeliverySpec {
public:
    ELogFileDeliverySpec(ELogFile* logFile, EFileSpec* fileSpec, const wchar_t* spoolDir);
    ELogFileDeliverySpec(const ELogFileDeliverySpec&) = delete;
    ELogFileDeliverySpec& operator=(const ELogFileDeliverySpec&) = delete;
    ~ELogFileDeliverySpec(); // touches no file

    // Moves the files into the log directory, where they replace files of the same names, or deletes them. Then removes
    // the job's directory.
    void Finalize(bool keepFiles);

    // Call it after every change of m_nCompleted, holding m_CompletionMutex. When all transfers have finished it
    // finalises the job, removes it from the list and frees it.
    void OnComplete();

    ELogFile* m_pLogFile;   // not owned
    EFileSpec* m_pFileSpec; // not owned
    EString m_SpoolDir;     // the job's own directory, ending in '/'
    EStringArray m_Files;   // names without a directory, in the order in which the files were moved
    std::int32_t m_nCompleted = 0;
    std::int32_t m_nNameId = -1; // the identifier in the log file's name
};
