#pragma once

#include "base/EString.h"
#include "base/EStringArray.h"

#include <cstdint>

class EFileSpec;
class ELogFile;

// A delivery in progress: files of one log file that have been moved into a directory of their own and are being sent.
// From the hand-over to sending it belongs to ELogFile::m_Deliveries, until its last transfer has finished. Notices may
// finish and free it on any thread: whoever has started a sending must not touch the job again without finding it in the
// list under m_CompletionMutex.
class ELogFileDeliverySpec {
public:
    ELogFileDeliverySpec(ELogFile* logFile, EFileSpec* fileSpec, const wchar_t* spoolDir);
    ELogFileDeliverySpec(const ELogFileDeliverySpec&) = delete;
    ELogFileDeliverySpec& operator=(const ELogFileDeliverySpec&) = delete;
    ~ELogFileDeliverySpec(); // touches no file

    // Moves the files into the log directory, in place of older ones of their names, or deletes them; then removes the
    // job's directory.
    void Finalize(bool keepFiles);

    // Called after every change of m_nCompleted, by the holder of m_CompletionMutex. When all transfers have finished it
    // finalises the job, takes it out of the list and frees it.
    void OnComplete();

    ELogFile* m_pLogFile;   // not owned
    EFileSpec* m_pFileSpec; // not owned
    EString m_SpoolDir;     // the job's own directory, ending in '/'
    EStringArray m_Files;   // bare names, in the order in which they were moved
    std::int32_t m_nCompleted = 0;
    std::int32_t m_nNameId = -1; // the identifier that the log file's name carries
};
