#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

// An e-mail as it is to be written; texts in UTF-8.
struct Mail {
    struct Attachment {
        std::filesystem::path m_Path;
        std::string m_Name;
    };

    std::string m_From;
    std::vector<std::string> m_To;
    std::vector<std::string> m_Cc; // those of the blind copies are not written
    std::string m_Subject;
    std::string m_Text;
    std::string m_MessageId;  // without the angle brackets
    std::int64_t m_nTime = 0; // seconds since 1970
    std::vector<Attachment> m_Attachments;
};

// The bare mailboxes ("user@host") of addresses that may carry names ("Name <user@host>, ..."). Throws
// std::runtime_error when an entry is no address. One thread at a time.
std::vector<std::string> ParseMailboxes(const std::vector<std::string>& addresses);

// Writes the message with CRLF line ends to the open file. Attachments go in base64, so that every byte of them arrives
// whatever lies on the way. Throws std::exception. One thread at a time.
void WriteMail(const Mail& mail, int file);
