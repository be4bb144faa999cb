#pragma once

#include "base/Export.h"

#include <cstdint>

class ELogFile;
class IKernelBase;

// What kvLogFile.so offers by name. Nothing else of it is visible.

// Makes the service, which belongs to the kernel until its Stop or Destroy, and makes it g_pELogFile. Throws what the
// construction throws; g_pELogFile then keeps its value. A kernel calls this once, on its own thread.
extern "C" KVBASE_API ELogFile* kvLogFileInitService(IKernelBase* kernel);

extern KVBASE_API const std::int32_t LOGFILE_VERSION;
extern KVBASE_API const wchar_t* const LOGFILE_WR_FILE_NAME; // the section whose file holds pending entries
extern KVBASE_API const wchar_t* const LOGFILE_XML_NAME;     // the service's configuration section

// The one service: for the code that has no pointer to it. Null before kvLogFileInitService and after Stop. Written by
// the kernel's thread only; other threads read it through TheLogFile.
extern KVBASE_API ELogFile* g_pELogFile;

ELogFile* TheLogFile();
void SetTheLogFile(ELogFile* service);
