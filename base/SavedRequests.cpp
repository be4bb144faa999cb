#include "base/SavedRequests.h"

#include "base/EFileIO.h"
#include "base/EONEVENTSTRUCT.h"

int SaveRequestHead(EFileIO* file, const EString& logFile, std::uint32_t action, std::uint32_t records) {
    return logFile.Save(file) != 0 && file->WriteNumber(action) != 0 && file->WriteNumber(records) != 0;
}

int RestoreRequestHead(EFileIO* file, EString& logFile, std::uint32_t& action, std::uint32_t& records) {
    return logFile.Restore(file) != 0 && file->ReadNumber(action) != 0 && file->ReadNumber(records) != 0 &&
           records <= file->GetBytesLeft() / EONEVENTSTRUCT::SAVED_SIZE_MIN;
}
