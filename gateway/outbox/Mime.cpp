#include "gateway/outbox/Mime.h"

#include <system_error>

#ifdef KV_WITHOUT_MAIL

// A configuration that asks for mails has been refused before.
void WriteMail(const std::string&, const MailDefinition&, const std::vector<std::filesystem::path>&,
               const std::filesystem::path&) {
    throw std::system_error(std::make_error_code(std::errc::not_supported));
}

#else

#include <cerrno>
#include <fcntl.h>
#include <gmime/gmime.h>
#include <memory>
#include <mutex>

namespace {

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <typename Type>
using Object = std::unique_ptr<Type, Unref>;

GMimeStream* OpenStream(const std::filesystem::path& path, int flags) {
    const int file = open(path.c_str(), flags | O_CLOEXEC, 0600);
    if (file < 0) {
        throw std::system_error(errno, std::generic_category(), path.string());
    }
    return g_mime_stream_fs_new(file); // closes the file
}

void AddHeadings(GMimeMessage* message, const std::string& from, const MailDefinition& definition) {
    const std::pair<const char*, const std::string&> headings[] = {{"From", from},
                                                                   {"To", definition.m_To},
                                                                   {"Cc", definition.m_Cc},
                                                                   {"Bcc", definition.m_Bcc},
                                                                   {"Subject", definition.m_Subject}};
    for (const auto& [name, text] : headings) {
        if (!text.empty()) {
            g_mime_object_set_header(GMIME_OBJECT(message), name, text.c_str(), "utf-8");
        }
    }
    char* const id = g_mime_utils_generate_message_id(from.substr(from.find('@') + 1).c_str());
    g_mime_message_set_message_id(message, id);
    g_free(id);
    GDateTime* const now = g_date_time_new_now_local();
    g_mime_message_set_date(message, now);
    g_date_time_unref(now);
}

void AddAttachment(GMimeMultipart* parts, const std::filesystem::path& path) {
    const Object<GMimeStream> stream(OpenStream(path, O_RDONLY));
    const Object<GMimeDataWrapper> content(
        g_mime_data_wrapper_new_with_stream(stream.get(), GMIME_CONTENT_ENCODING_DEFAULT));
    const Object<GMimePart> part(g_mime_part_new_with_type("application", "octet-stream"));
    g_mime_part_set_content(part.get(), content.get());
    g_mime_part_set_content_encoding(part.get(), GMIME_CONTENT_ENCODING_BASE64);
    g_mime_object_set_disposition(GMIME_OBJECT(part.get()), GMIME_DISPOSITION_ATTACHMENT);
    g_mime_part_set_filename(part.get(), path.filename().c_str());
    g_mime_multipart_add(parts, GMIME_OBJECT(part.get()));
}

} // namespace

void WriteMail(const std::string& from, const MailDefinition& definition,
               const std::vector<std::filesystem::path>& attachments, const std::filesystem::path& file) {
    static std::once_flag once;
    std::call_once(once, g_mime_init);
    const Object<GMimeMessage> message(g_mime_message_new(TRUE));
    AddHeadings(message.get(), from, definition);
    const Object<GMimeMultipart> parts(g_mime_multipart_new_with_subtype("mixed"));
    const Object<GMimeTextPart> text(g_mime_text_part_new_with_subtype("plain"));
    g_mime_text_part_set_text(text.get(), definition.m_Text.c_str());
    g_mime_part_set_content_encoding(GMIME_PART(text.get()), GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE);
    g_mime_multipart_add(parts.get(), GMIME_OBJECT(text.get()));
    for (const auto& path : attachments) {
        AddAttachment(parts.get(), path);
    }
    g_mime_message_set_mime_part(message.get(), GMIME_OBJECT(parts.get()));
    const Object<GMimeStream> target(OpenStream(file, O_WRONLY | O_CREAT | O_EXCL));
    if (g_mime_object_write_to_stream(GMIME_OBJECT(message.get()), nullptr, target.get()) < 0 ||
        g_mime_stream_flush(target.get()) != 0) {
        throw std::system_error(errno, std::generic_category(), file.string());
    }
}

#endif
