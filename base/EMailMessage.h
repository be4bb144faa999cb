#pragma once

#include "base/EPersistentString.h"

// A stored e-mail definition, as far as those who attach files to it may change it.
struct EMailMessage {
    EPersistentString m_Name;        // the definition's name
    EPersistentString m_Attachments; // paths of the files to attach, each preceded by ";"
};
