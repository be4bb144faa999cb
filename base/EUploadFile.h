#pragma once

#include "base/EString.h"

// One file to upload. The flags belong to the upload service.
class EUploadFile {
public:
    EUploadFile(const EString& path, bool flag1, bool flag2) : m_Path(path), m_bFlag1(flag1), m_bFlag2(flag2) {}

    EString m_Path;
    bool m_bFlag1;
    bool m_bFlag2;
};
