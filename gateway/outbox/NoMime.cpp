#include "gateway/outbox/Mime.h"

#include <stdexcept>

// Where the MIME library is missing; a configuration that asks for mails has been refused before.
void WriteMail(const std::string& /*from*/, const MailDefinition& /*definition*/,
               const std::vector<std::filesystem::path>& /*attachments*/, const std::filesystem::path& /*file*/) {
    throw std::logic_error("built without mails");
}
