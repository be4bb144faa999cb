#include "gateway/transport/Mime.h"

#include "gateway/transport/ETransfer.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <gmime/gmime.h>
#include <memory>
#include <mutex>
#include <system_error>
#include <unistd.h>

namespace {

template <auto FREE>
struct Cleanup {
    template <typename Type>
    void operator()(Type* object) const {
        FREE(object);
    }
};
template <typename Type>
using Object = std::unique_ptr<Type, Cleanup<g_object_unref>>;
using Options = std::unique_ptr<GMimeFormatOptions, Cleanup<g_mime_format_options_free>>;
using Time = std::unique_ptr<GDateTime, Cleanup<g_date_time_unref>>;

void AddAddresses(GMimeMessage* message, GMimeAddressType type, const std::vector<std::string>& addresses) {
    for (const auto& address : addresses) {
        g_mime_message_add_mailbox(message, type, nullptr, address.c_str());
    }
}

// The text on one line: a line end in a heading would begin another heading.
std::string OneLine(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\r' || c == '\n'; }, ' ');
    return text;
}

void AddText(GMimeMultipart* parts, const std::string& text) {
    const Object<GMimeTextPart> part(g_mime_text_part_new_with_subtype("plain"));
    g_mime_text_part_set_charset(part.get(), "utf-8");
    g_mime_text_part_set_text(part.get(), text.c_str());
    g_mime_part_set_content_encoding(GMIME_PART(part.get()), GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE);
    g_mime_multipart_add(parts, GMIME_OBJECT(part.get()));
}

void AddAttachment(GMimeMultipart* parts, const std::filesystem::path& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        throw std::system_error(errno, std::generic_category(), path.string());
    }
    const Object<GMimeStream> stream(g_mime_stream_fs_new(file)); // closes the file
    const Object<GMimeDataWrapper> content(
        g_mime_data_wrapper_new_with_stream(stream.get(), GMIME_CONTENT_ENCODING_DEFAULT));
    const Object<GMimePart> part(g_mime_part_new_with_type("application", "octet-stream"));
    g_mime_part_set_content(part.get(), content.get());
    g_mime_part_set_content_encoding(part.get(), GMIME_CONTENT_ENCODING_BASE64);
    g_mime_object_set_disposition(GMIME_OBJECT(part.get()), GMIME_DISPOSITION_ATTACHMENT);
    g_mime_part_set_filename(part.get(), NameToSend(path).c_str());
    g_mime_multipart_add(parts, GMIME_OBJECT(part.get()));
}

void AddHeadings(GMimeMessage* message, const Mail& mail) {
    AddAddresses(message, GMIME_ADDRESS_TYPE_FROM, {mail.m_From});
    AddAddresses(message, GMIME_ADDRESS_TYPE_TO, mail.m_Definition.m_To);
    AddAddresses(message, GMIME_ADDRESS_TYPE_CC, mail.m_Definition.m_Cc);
    g_mime_message_set_subject(message, OneLine(mail.m_Definition.m_Subject).c_str(), "utf-8");
    g_mime_message_set_message_id(message, mail.m_Id.c_str());
    const Time now(g_date_time_new_now_local());
    g_mime_message_set_date(message, now.get());
}

} // namespace

void WriteMail(const Mail& mail, int file) {
    static std::once_flag once;
    std::call_once(once, g_mime_init);
    const Object<GMimeMessage> message(g_mime_message_new(TRUE));
    AddHeadings(message.get(), mail);
    const Object<GMimeMultipart> parts(g_mime_multipart_new_with_subtype("mixed"));
    AddText(parts.get(), mail.m_Definition.m_Text);
    for (const auto& path : mail.m_Files) {
        AddAttachment(parts.get(), path);
    }
    g_mime_message_set_mime_part(message.get(), GMIME_OBJECT(parts.get()));

    const Object<GMimeStream> target(g_mime_stream_fs_new(file));
    g_mime_stream_fs_set_owner(GMIME_STREAM_FS(target.get()), FALSE);
    const Options options(g_mime_format_options_new());
    g_mime_format_options_set_newline_format(options.get(), GMIME_NEWLINE_FORMAT_DOS);
    if (g_mime_object_write_to_stream(GMIME_OBJECT(message.get()), options.get(), target.get()) < 0 ||
        g_mime_stream_flush(target.get()) != 0) {
        throw std::system_error(errno, std::generic_category(), "the message could not be written");
    }
}
