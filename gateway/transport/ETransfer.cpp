#include "gateway/transport/ETransfer.h"

#include "gateway/transport/DurableFiles.h"

#include <cerrno>
#include <cstdlib>
#include <curl/curl.h>
#include <fcntl.h>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace {

const char* const PART = ".part"; // ends the name of a file that is still being uploaded

struct UrlCleanup {
    void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using Url = std::unique_ptr<CURLU, UrlCleanup>;

struct ListCleanup {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using List = std::unique_ptr<curl_slist, ListCleanup>;

void Append(List& list, const std::string& text) {
    curl_slist* const longer = curl_slist_append(list.get(), text.c_str());
    if (longer == nullptr) {
        throw std::bad_alloc();
    }
    (void)list.release();
    list.reset(longer);
}

Url ParseUrl(const std::string& text) {
    Url url(curl_url());
    if (url == nullptr) {
        throw std::bad_alloc();
    }
    if (const CURLUcode code = curl_url_set(url.get(), CURLUPART_URL, text.c_str(), CURLU_NON_SUPPORT_SCHEME);
        code != CURLUE_OK) {
        throw std::runtime_error(std::string("not a URL: ") + curl_url_strerror(code));
    }
    return url;
}

std::string Part(const Url& url, CURLUPart part, unsigned flags = 0) {
    char* text = nullptr;
    if (curl_url_get(url.get(), part, &text, flags) != CURLUE_OK) {
        return {};
    }
    const std::unique_ptr<char, decltype(&curl_free)> owned(text, curl_free);
    return text;
}

void SetPart(const Url& url, CURLUPart part, const char* text) {
    if (const CURLUcode code = curl_url_set(url.get(), part, text, 0); code != CURLUE_OK) {
        throw std::runtime_error(std::string("not a URL: ") + curl_url_strerror(code));
    }
}

std::string Escape(const std::string& text) {
    const std::unique_ptr<char, decltype(&curl_free)> escaped(
        curl_easy_escape(nullptr, text.data(), static_cast<int>(text.size())), curl_free);
    if (escaped == nullptr) {
        throw std::bad_alloc();
    }
    return escaped.get();
}

// A name in a command to an SFTP server.
std::string Quote(const std::string& text) {
    std::string quoted = "\"";
    for (const char character : text) {
        if (character == '"' || character == '\\') {
            quoted += '\\';
        }
        quoted += character;
    }
    return quoted + '"';
}

// Where an SFTP URL's path lies for commands: below the home directory when it begins with "/~/".
std::string SftpDirectory(const Url& url) {
    const std::string path = Part(url, CURLUPART_PATH, CURLU_URLDECODE);
    return path.starts_with("/~/") ? path.substr(3) : path;
}

std::string KnownHostsAtHome() {
    const char* const home = std::getenv("HOME"); // NOLINT(concurrency-mt-unsafe): nobody changes it
    return std::string(home == nullptr ? "" : home) + "/.ssh/known_hosts";
}

std::size_t ReadFile(char* buffer, std::size_t size, std::size_t count, void* file) {
    for (;;) {
        const ssize_t length = read(*static_cast<int*>(file), buffer, size * count);
        if (length >= 0) {
            return static_cast<std::size_t>(length);
        }
        if (errno != EINTR) {
            return CURL_READFUNC_ABORT;
        }
    }
}

int SeekFile(void* file, curl_off_t offset, int origin) {
    return lseek(*static_cast<int*>(file), offset, origin) < 0 ? CURL_SEEKFUNC_FAIL : CURL_SEEKFUNC_OK;
}

std::size_t DropBody(char*, std::size_t size, std::size_t count, void*) {
    return size * count;
}

int AskAborted(void* aborted, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return static_cast<std::atomic<bool>*>(aborted)->load() ? 1 : 0;
}

// Keeps the last reply, for what the library says of it is too little. The one to "QUIT" does not count.
std::size_t KeepReply(char* line, std::size_t size, std::size_t count, void* reply) {
    std::string_view text(line, size * count);
    while (!text.empty() && (text.back() == '\r' || text.back() == '\n')) {
        text.remove_suffix(1);
    }
    const bool isReply = text.starts_with("HTTP/") || (!text.empty() && text[0] >= '1' && text[0] <= '5');
    if (isReply && !text.starts_with("221")) {
        *static_cast<std::string*>(reply) = text;
    }
    return size * count;
}

// The number of a reply; 0 when there is none.
int ReplyCode(const std::string& reply) {
    return std::atoi(reply.c_str() + (reply.starts_with("HTTP/") ? reply.find(' ') + 1 : 0));
}

// Whether a reply speaks of the one job, not of the whole server or of the login.
bool IsAboutJob(const std::string& scheme, int reply) {
    if (scheme.starts_with("http")) {
        return reply >= 400 && reply < 500 && reply != 401 && reply != 407;
    }
    return reply >= 400 && reply != 421;
}

} // namespace

std::string PublicUrl(const std::string& text) {
    try {
        const Url url = ParseUrl(text);
        for (const CURLUPart part : {CURLUPART_USER, CURLUPART_PASSWORD, CURLUPART_OPTIONS, CURLUPART_QUERY}) {
            curl_url_set(url.get(), part, nullptr, 0);
        }
        return Part(url, CURLUPART_URL);
    } catch (const std::runtime_error&) {
        return "(not a URL)";
    }
}

std::string LocalPath(const std::string& text) {
    if (!text.starts_with("file:")) {
        return {};
    }
    return Part(ParseUrl(text), CURLUPART_PATH, CURLU_URLDECODE);
}

// One transfer: the easy handle and everything that it points to.
struct ETransfer::Handle {
    Handle(ETransfer& transfer, const TransferTarget& target, int file)
        : m_Url(ParseUrl(target.m_Url)), m_nFile(file), m_pEasy(curl_easy_init()) {
        if (m_pEasy == nullptr) {
            throw std::bad_alloc();
        }
        SetLogin(target);
        SetBody();
        Set(CURLOPT_CURLU, m_Url.get());
        Set(CURLOPT_ERRORBUFFER, m_Error);
        Set(CURLOPT_HEADERFUNCTION, &KeepReply);
        Set(CURLOPT_HEADERDATA, &m_Reply);
        Set(CURLOPT_NOPROGRESS, 0L);
        Set(CURLOPT_XFERINFOFUNCTION, &AskAborted);
        Set(CURLOPT_XFERINFODATA, &transfer.m_bAborted);
        Set(CURLOPT_NOSIGNAL, 1L);
        Set(CURLOPT_FRESH_CONNECT, 1L);
        Set(CURLOPT_FORBID_REUSE, 1L);
        Set(CURLOPT_CONNECTTIMEOUT, static_cast<long>(transfer.m_nConnectTimeout));
        Set(CURLOPT_SERVER_RESPONSE_TIMEOUT, static_cast<long>(transfer.m_nStallTimeout));
        Set(CURLOPT_LOW_SPEED_TIME, static_cast<long>(transfer.m_nStallTimeout));
        Set(CURLOPT_LOW_SPEED_LIMIT, 1L);
    }

    template <typename Value>
    void Set(CURLoption option, Value value) {
        if (const CURLcode code = curl_easy_setopt(m_pEasy.get(), option, value); code != CURLE_OK) {
            throw std::runtime_error(curl_easy_strerror(code));
        }
    }

    void SetLogin(const TransferTarget& target) {
        if (!target.m_User.empty()) {
            Set(CURLOPT_USERNAME, target.m_User.c_str());
            Set(CURLOPT_PASSWORD, target.m_Password.c_str());
            Set(CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_ANY));
        }
        if (!target.m_CaFile.empty()) {
            Set(CURLOPT_CAINFO, target.m_CaFile.c_str());
        }
        if (target.m_bRequireTls) {
            Set(CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
        }
    }

    void SetBody() {
        const off_t size = lseek(m_nFile, 0, SEEK_END);
        if (size < 0 || lseek(m_nFile, 0, SEEK_SET) != 0) {
            throw std::system_error(errno, std::generic_category(), "the file to send");
        }
        Set(CURLOPT_UPLOAD, 1L);
        Set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(size));
        Set(CURLOPT_READFUNCTION, &ReadFile);
        Set(CURLOPT_READDATA, &m_nFile);
        Set(CURLOPT_SEEKFUNCTION, &SeekFile);
        Set(CURLOPT_SEEKDATA, &m_nFile);
        Set(CURLOPT_WRITEFUNCTION, &DropBody);
    }

    struct EasyCleanup {
        void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
    };

    char m_Error[CURL_ERROR_SIZE] = {};
    std::string m_Reply;
    List m_Recipients;
    List m_Afterwards;
    Url m_Url;
    int m_nFile;
    std::unique_ptr<CURL, EasyCleanup> m_pEasy; // last: freed before what it points to
};

void ETransfer::MultiCleanup::operator()(void* multi) const {
    curl_multi_cleanup(static_cast<CURLM*>(multi));
}

ETransfer::ETransfer(const SpoolSettings& timeouts)
    : m_nConnectTimeout(timeouts.m_nConnectTimeout), m_nStallTimeout(timeouts.m_nStallTimeout) {
    // Once per program, before there are other threads of this one's.
    static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
    m_pMulti.reset(ready == CURLE_OK ? curl_multi_init() : nullptr);
    if (m_pMulti == nullptr) {
        throw std::bad_alloc();
    }
}

ETransfer::~ETransfer() = default;

void ETransfer::Abort() {
    m_bAborted = true;
    curl_multi_wakeup(m_pMulti.get());
}

SendResult ETransfer::SendMail(const TransferTarget& server, const std::string& from,
                               const std::vector<std::string>& to, int message) {
    Handle handle(*this, server, message);
    for (const auto& mailbox : to) {
        Append(handle.m_Recipients, mailbox);
    }
    handle.Set(CURLOPT_PROTOCOLS_STR, "smtp,smtps");
    handle.Set(CURLOPT_MAIL_FROM, from.c_str());
    handle.Set(CURLOPT_MAIL_RCPT, handle.m_Recipients.get());
    return Perform(handle);
}

SendResult ETransfer::Upload(const TransferTarget& directory, const std::filesystem::path& path,
                             const std::string& name) {
    const EOpenFile file(path, O_RDONLY);
    Handle handle(*this, directory, file.Get());
    PrepareUpload(handle, directory, name);
    return Perform(handle);
}

void ETransfer::PrepareUpload(Handle& handle, const TransferTarget& directory, const std::string& name) const {
    std::string path = Part(handle.m_Url, CURLUPART_PATH);
    if (!path.ends_with('/')) {
        path += '/';
        SetPart(handle.m_Url, CURLUPART_PATH, path.c_str());
    }
    const std::string scheme = Part(handle.m_Url, CURLUPART_SCHEME);
    std::string temporary = name;
    // Not every server lets a file be renamed onto another, so the older one goes first; "*": it may be missing.
    if (scheme.starts_with("ftp")) {
        temporary += PART;
        Append(handle.m_Afterwards, "*DELE " + name);
        Append(handle.m_Afterwards, "RNFR " + temporary);
        Append(handle.m_Afterwards, "RNTO " + name);
        handle.Set(CURLOPT_FTP_CREATE_MISSING_DIRS, static_cast<long>(CURLFTP_CREATE_DIR_RETRY));
    } else if (scheme == "sftp") {
        temporary += PART;
        const std::string place = SftpDirectory(handle.m_Url);
        Append(handle.m_Afterwards, "*rm " + Quote(place + name));
        Append(handle.m_Afterwards, "rename " + Quote(place + temporary) + ' ' + Quote(place + name));
        handle.Set(CURLOPT_FTP_CREATE_MISSING_DIRS, static_cast<long>(CURLFTP_CREATE_DIR));
        // Without a file of known hosts any host would do.
        const std::string hosts = directory.m_KnownHosts.empty() ? KnownHostsAtHome() : directory.m_KnownHosts;
        handle.Set(CURLOPT_SSH_KNOWNHOSTS, hosts.c_str());
    }
    SetPart(handle.m_Url, CURLUPART_PATH, (path + Escape(temporary)).c_str());
    handle.Set(CURLOPT_PROTOCOLS_STR, "ftp,ftps,sftp,http,https");
    handle.Set(CURLOPT_POSTQUOTE, handle.m_Afterwards.get());
}

SendResult ETransfer::Perform(Handle& handle) {
    CURL* const easy = handle.m_pEasy.get();
    CURLM* const multi = m_pMulti.get();
    curl_multi_add_handle(multi, easy);
    int running = 1;
    while (!m_bAborted && curl_multi_perform(multi, &running) == CURLM_OK && running != 0) {
        curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
    }
    int left = 0;
    const CURLMsg* const message = curl_multi_info_read(multi, &left);
    const CURLcode code = message != nullptr ? message->data.result : CURLE_ABORTED_BY_CALLBACK;
    curl_multi_remove_handle(multi, easy);

    const int reply = ReplyCode(handle.m_Reply);
    const std::string scheme = Part(handle.m_Url, CURLUPART_SCHEME);
    // An HTTP server's answer is a success for the library whatever it says.
    if (code == CURLE_OK && (!scheme.starts_with("http") || (reply >= 200 && reply < 300))) {
        return {};
    }
    if (m_bAborted) {
        return {SendResult::Aborted, {}};
    }
    std::string text = handle.m_Error[0] != '\0' ? handle.m_Error : curl_easy_strerror(code);
    if (code == CURLE_OK) {
        text = "the server did not take it";
    }
    if (reply >= 400) {
        text += " (" + handle.m_Reply + ")";
    }
    curl_off_t uploaded = 0;
    curl_easy_getinfo(easy, CURLINFO_SIZE_UPLOAD_T, &uploaded);
    // A transfer that broke off may have met something that only this job has, such as its size.
    const bool own = code != CURLE_LOGIN_DENIED && (IsAboutJob(scheme, reply) || (uploaded > 0 && reply < 400));
    return {own ? SendResult::Refused : SendResult::Unreachable, text};
}
