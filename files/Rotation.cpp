#include "service/ELogFile.h"

#include "base/EFileIO.h"
#include "base/ELock.h"
#include "base/EscFilter.h"
#include "config/EFileSpec.h"

void ELogFile::CalcFileName(EFileSpec* spec, int index, const ETimeStamp* time, bool withPath, EString& name) {
    name.Empty();
    if (withPath) {
        name += spec->IsSpooled() ? spec->m_SpoolPath : spec->m_LogPath;
    }
    AppendFileName(spec->m_FileName, index, *time, name);
    const ELock lock(m_NameMutex, MUTEX_NAME);
    spec->m_CurrentFile = name;
}

// With three files, the previous time stamp p and the new one t:
//
//   f2(p)           is deleted
//   f1(p) -> f2(t)  an existing target is deleted
//   f0(p) -> f1(t)
//   f0(t)           is the name of the next file
void ELogFile::RotateFiles(EFileSpec* spec, const ETimeStamp* previous) {
    if (spec->m_NumFiles <= 0) {
        return;
    }
    EString source;
    EString target;
    for (int i = spec->m_NumFiles - 1; i >= 0; --i) {
        CalcFileName(spec, i, previous, true, source);
        if (i == spec->m_NumFiles - 1) {
            EFileIO::DeleteFile(source);
            continue;
        }
        CalcFileName(spec, i + 1, &spec->m_FileTime, true, target);
        EFileIO::DeleteFile(target);
        EFileIO::RenameFile(source, target);
    }
}

void ELogFile::DeleteFiles(EFileSpec* spec) {
    EString name;
    for (int i = 0; i < spec->m_NumFiles; ++i) {
        CalcFileName(spec, i, &spec->m_FileTime, true, name);
        EFileIO::DeleteFile(name);
    }
}
