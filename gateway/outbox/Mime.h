#pragma once

#include "gateway/outbox/Settings.h"

#include <filesystem>

// Writes a new file: the mail, as of now, with a Message-ID of its own, and all its recipients (the blind ones, too) in
// the headings. Attachments go in base64, so that every byte of them arrives. Throws std::exception.
void WriteMail(const std::string& from, const MailDefinition& definition,
               const std::vector<std::filesystem::path>& attachments, const std::filesystem::path& file);
