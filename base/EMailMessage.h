#pragma once

#include "base/EPersistentString.h"

// The part of a stored e-mail definition that callers may change.
struct EMailMessage {
    EPersistentString m_Name;        // the definition's name
    EPersistentString m_Attachments; // paths of the files to attach, each preceded by ";"
};
