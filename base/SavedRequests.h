#pragma once

#include "base/EString.h"

#include <cstdint>

class EFileIO;

// A file of saved requests holds their number, then each of them: the name of its log file, its action, the number of
// its records, and the records. docs/file-formats.md has an example.

// Write and read what precedes the records of a request. Non-zero on success. Restoring fails when the rest of the file
// is too short for that many records: a damaged number must not cost memory or time.
KVBASE_API int SaveRequestHead(EFileIO* file, const EString& logFile, std::uint32_t action, std::uint32_t records);
KVBASE_API int RestoreRequestHead(EFileIO* file, EString& logFile, std::uint32_t& action, std::uint32_t& records);
