#pragma once

#include "gateway/transport/Settings.h"

#include <filesystem>
#include <string>
#include <vector>

struct Mail {
    std::string m_Id; // "text@host", different for every mail
    std::string m_From;
    const MailDefinition& m_Definition;                // the blind copies and the attachments are not written
    const std::vector<std::filesystem::path>& m_Files; // to be attached, each as NameToSend says
};

// Writes the mail, as of now, with CRLF line ends to the open file. Attachments go in base64, so that every byte of them
// arrives whatever lies on the way. Throws std::exception. One thread at a time.
void WriteMail(const Mail& mail, int file);
