#pragma once

#include "base/EPtrList.h"
#include "base/EUploadFile.h"

// The list of EUploadFile pointers of one upload. It does not own them.
class EUploadFiles : public EPtrList {
public:
    EUploadFiles() : EPtrList(4) {}
};
