#pragma once

#include "base/EString.h"

#include <cstdint>

class EFileIO;

// A file of saved requests holds their number, then each of them: the name of its log file, its action, the number of its
// records, and the records. docs/file-formats.md has an example.

// Write and read what stands before the records of a request. Non-zero on success. More records than the rest of the file
// can hold are a failure: to believe such a number would cost memory or time without limit.
KVBASE_API int SaveRequestHead(EFileIO* file, const EString& logFile, std::uint32_t action, std::uint32_t records);
KVBASE_API int RestoreRequestHead(EFileIO* file, EString& logFile, std::uint32_t& action, std::uint32_t& records);
