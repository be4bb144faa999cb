#include "gateway/transport/Mime.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <gmime/gmime.h>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

namespace {

struct Unref {
    void operator()(void* object) const { g_object_unref(object); }
};
template <typename Type>
using Object = std::unique_ptr<Type, Unref>;

using Options = std::unique_ptr<GMimeFormatOptions, decltype(&g_mime_format_options_free)>;
using Time = std::unique_ptr<GDateTime, decltype(&g_date_time_unref)>;

void InitLibrary() {
    static const bool done = [] {
        g_mime_init();
        return true;
    }();
    (void)done;
}

Object<InternetAddressList> Parse(const std::string& text) {
    InitLibrary();
    return Object<InternetAddressList>(internet_address_list_parse(nullptr, text.c_str()));
}

void AppendMailboxes(const std::string& text, std::vector<std::string>& mailboxes) {
    const auto list = Parse(text);
    const int count = list == nullptr ? 0 : internet_address_list_length(list.get());
    for (int i = 0; i < count; ++i) {
        InternetAddress* const address = internet_address_list_get_address(list.get(), i);
        const char* const mailbox = INTERNET_ADDRESS_IS_MAILBOX(address)
                                        ? internet_address_mailbox_get_addr(INTERNET_ADDRESS_MAILBOX(address))
                                        : nullptr;
        if (mailbox == nullptr || *mailbox == '\0') {
            throw std::runtime_error("no e-mail address: " + text);
        }
        mailboxes.emplace_back(mailbox);
    }
    if (count == 0) {
        throw std::runtime_error("no e-mail address: " + text);
    }
}

void AddAddresses(GMimeMessage* message, GMimeAddressType type, const std::vector<std::string>& addresses) {
    InternetAddressList* const list = g_mime_message_get_addresses(message, type);
    for (const auto& text : addresses) {
        if (const auto parsed = Parse(text); parsed != nullptr) {
            internet_address_list_append(list, parsed.get());
        }
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

void AddAttachment(GMimeMultipart* parts, const Mail::Attachment& attachment) {
    const int file = open(attachment.m_Path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        throw std::system_error(errno, std::generic_category(), attachment.m_Path.string());
    }
    const Object<GMimeStream> stream(g_mime_stream_fs_new(file)); // closes the file
    const Object<GMimeDataWrapper> content(
        g_mime_data_wrapper_new_with_stream(stream.get(), GMIME_CONTENT_ENCODING_DEFAULT));
    const Object<GMimePart> part(g_mime_part_new_with_type("application", "octet-stream"));
    g_mime_part_set_content(part.get(), content.get());
    g_mime_part_set_content_encoding(part.get(), GMIME_CONTENT_ENCODING_BASE64);
    g_mime_object_set_disposition(GMIME_OBJECT(part.get()), GMIME_DISPOSITION_ATTACHMENT);
    g_mime_part_set_filename(part.get(), attachment.m_Name.c_str());
    g_mime_multipart_add(parts, GMIME_OBJECT(part.get()));
}

} // namespace

std::vector<std::string> ParseMailboxes(const std::vector<std::string>& addresses) {
    std::vector<std::string> mailboxes;
    for (const auto& text : addresses) {
        AppendMailboxes(text, mailboxes);
    }
    return mailboxes;
}

void WriteMail(const Mail& mail, int file) {
    InitLibrary();
    const Object<GMimeMessage> message(g_mime_message_new(TRUE));
    AddAddresses(message.get(), GMIME_ADDRESS_TYPE_FROM, {mail.m_From});
    AddAddresses(message.get(), GMIME_ADDRESS_TYPE_TO, mail.m_To);
    AddAddresses(message.get(), GMIME_ADDRESS_TYPE_CC, mail.m_Cc);
    g_mime_message_set_subject(message.get(), OneLine(mail.m_Subject).c_str(), "utf-8");
    g_mime_message_set_message_id(message.get(), mail.m_MessageId.c_str());
    const Time time(g_date_time_new_from_unix_local(mail.m_nTime), g_date_time_unref);
    g_mime_message_set_date(message.get(), time.get());

    const Object<GMimeMultipart> parts(g_mime_multipart_new_with_subtype("mixed"));
    AddText(parts.get(), mail.m_Text);
    for (const auto& attachment : mail.m_Attachments) {
        AddAttachment(parts.get(), attachment);
    }
    g_mime_message_set_mime_part(message.get(), GMIME_OBJECT(parts.get()));

    const Object<GMimeStream> target(g_mime_stream_fs_new(file));
    g_mime_stream_fs_set_owner(GMIME_STREAM_FS(target.get()), FALSE);
    const Options options(g_mime_format_options_new(), g_mime_format_options_free);
    g_mime_format_options_set_newline_format(options.get(), GMIME_NEWLINE_FORMAT_DOS);
    if (g_mime_object_write_to_stream(GMIME_OBJECT(message.get()), options.get(), target.get()) < 0 ||
        g_mime_stream_flush(target.get()) != 0) {
        throw std::system_error(errno, std::generic_category(), "the message could not be written");
    }
}
