#pragma once

#include "base/EString.h"

// One file to upload. What the flags mean is up to the upload service.
class EUploadFile {
public:
    explicit EUploadFile(const EString& path, bool flag1 = false, bool flag2 = false)
        : m_Path(path), m_bFlag1(flag1), m_bFlag2(flag2) {}

    EString m_Path;
    bool m_bFlag1;
    bool m_bFlag2;
};
