#include "service/ELogFile.h"

#include "base/EFileIO.h"
#include "base/ETime.h"
#include "config/EFileSpec.h"

namespace {

bool Write(EFileIO& file, const EByteArray& bytes) {
    unsigned long written = 0;
    return file.WriteToFile(bytes.GetData(), static_cast<unsigned long>(bytes.GetSize()), written) != 0;
}

bool PassesLimit(const EFileSpec& spec, std::uint32_t size, const EByteArray& row) {
    return spec.m_MaxFileSize > 0 && std::int64_t{size} + row.GetSize() > spec.m_MaxFileSize;
}

} // namespace

int ELogFile::StartFile(EFileSpec* spec) {
    if (!spec->m_bHeadersSet) {
        return 0;
    }
    EString name;
    CalcFileName(spec, 0, &spec->m_FileTime, true, name);
    const bool isNew = EFileIO::IsMissing(name);
    EFileIO file(name, EFileIO::OPEN_FOR_WRITING);
    if (!file.IsOpen()) {
        return 0;
    }
    const bool empty = file.GetFileSize() == 0;
    if (!file.IsSizeKnown()) {
        return 0; // a header could overwrite rows
    }
    if (empty) { // otherwise the file is continued, without a second header
        const EString noTitle;
        EByteArray header;
        spec->m_pFilter->FormatHeader(&noTitle, &spec->m_Headers, &header);
        if (header.GetSize() > 0 && !Write(file, header)) {
            if (isNew) { // otherwise, on a full disk, every row could leave an empty file
                EFileIO::DeleteFile(name);
            }
            return 0;
        }
    }
    spec->m_bFileStarted = true;
    return 1;
}

int ELogFile::StopFile(EFileSpec* spec) {
    if (!spec->m_bHeadersSet) {
        return 0;
    }
    if (!spec->m_bFileStarted) {
        return 1; // m_CurrentFile may be any file of the set: write no footer
    }
    EByteArray footer;
    spec->m_pFilter->FormatFooter(&spec->m_Title, &footer);
    if (footer.GetSize() > 0) {
        EFileIO file(spec->m_CurrentFile, EFileIO::OPEN_FOR_WRITING);
        if (!file.IsOpen()) {
            return 0;
        }
        if (file.PositionFile(0, FILE_POSITION_END) == 0 || !Write(file, footer)) {
            return 0;
        }
    }
    spec->m_bFileStarted = false;
    return 1;
}

int ELogFile::RestartFile(EFileSpec* spec) {
    if (StopFile(spec) == 0) {
        return 0;
    }
    const ETimeStamp previous = spec->m_FileTime;
    ETime::GetTimeStamp(&spec->m_FileTime);
    RotateFiles(spec, &previous);
    if (spec->m_NumFiles == 1) {
        // The rotation has deleted the only file, m_CurrentFile. If that failed, the file is truncated.
        EFileIO::SetFileSize(spec->m_CurrentFile, 0);
    }
    return StartFile(spec);
}

void ELogFile::WriteToFile(EFileSpec* spec, const EStringArray* row) {
    if (!spec->m_bFileStarted) {
        ETime::GetTimeStamp(&spec->m_FileTime);
        if (StartFile(spec) == 0) {
            return;
        }
    }
    m_RowBytes.SetSize(0, -1);
    spec->m_pFilter->FormatRow(row, &m_RowBytes);
    if (!AppendRow(spec, m_RowBytes, true) && RestartFile(spec) != 0) {
        AppendRow(spec, m_RowBytes, false);
    }
}

// Appends the row to the current file; a row that cannot be written is dropped. With `limited`, writes nothing and
// returns false when a new file is needed first: the current one is empty, or the row would pass the size limit.
bool ELogFile::AppendRow(EFileSpec* spec, const EByteArray& bytes, bool limited) {
    EFileIO file(spec->m_CurrentFile, EFileIO::OPEN_FOR_WRITING);
    if (!file.IsOpen()) {
        return true;
    }
    const std::uint32_t size = file.GetFileSize();
    if (!file.IsSizeKnown()) {
        return true; // drop the row: the file may not be empty
    }
    if (limited && (size == 0 || PassesLimit(*spec, size, bytes))) {
        return false;
    }
    if (file.PositionFile(0, FILE_POSITION_END) != 0) { // else not taken with kvBase39.so: the size is known
        Write(file, bytes);
    }
    return true;
}
