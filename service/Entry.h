#pragma once

#include "base/Export.h"

#include <cstdint>

class ELogFile;
class IKernelBase;

// What kvLogFile.so exports.

// Makes the service and sets g_pELogFile. The kernel owns the service until it calls Stop or Destroy. Throws what the
// construction throws; g_pELogFile is then unchanged. A kernel calls this once, on its own thread.
extern "C" KVBASE_API ELogFile* kvLogFileInitService(IKernelBase* kernel);

extern KVBASE_API const std::int32_t LOGFILE_VERSION;
extern KVBASE_API const wchar_t* const LOGFILE_WR_FILE_NAME; // the section whose file holds pending entries
extern KVBASE_API const wchar_t* const LOGFILE_XML_NAME;     // the service's configuration section

// The service, or null before kvLogFileInitService and after Stop. Only the kernel's thread writes it; other threads
// read it with TheLogFile.
extern KVBASE_API ELogFile* g_pELogFile;

ELogFile* TheLogFile();
void SetTheLogFile(ELogFile* service);
