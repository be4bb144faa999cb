#include "gateway/transport/ETransfer.h"

#include "gateway/transport/DurableFiles.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <curl/curl.h>
#include <fcntl.h>
#include <iomanip>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds TIME_TO_CONFIRM(1);

const char* const PART = ".part"; // ends the name of a file that is still being uploaded

template <auto FREE>
struct Cleanup {
    template <typename Type>
    void operator()(Type* object) const {
        FREE(object);
    }
};
using Url = std::unique_ptr<CURLU, Cleanup<curl_url_cleanup>>;
using Text = std::unique_ptr<char, Cleanup<curl_free>>;
using List = std::unique_ptr<curl_slist, Cleanup<curl_slist_free_all>>;
using Easy = std::unique_ptr<CURL, Cleanup<curl_easy_cleanup>>;

// Null for what is no URL; its parts are empty.
Url ParseUrl(const std::string& text) {
    Url url(curl_url());
    if (curl_url_set(url.get(), CURLUPART_URL, text.c_str(), CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK) {
        url.reset();
    }
    return url;
}

std::string Part(const Url& url, CURLUPart part, unsigned flags = 0) {
    char* text = nullptr;
    if (curl_url_get(url.get(), part, &text, flags) != CURLUE_OK) {
        return {};
    }
    const Text owned(text);
    return text;
}

std::string Escape(const std::string& text) {
    const Text escaped(curl_easy_escape(nullptr, text.data(), static_cast<int>(text.size())));
    if (escaped == nullptr) {
        throw std::bad_alloc();
    }
    return escaped.get();
}

// A name in a command to an SFTP server.
std::string Quote(const std::string& name) {
    std::ostringstream quoted;
    quoted << std::quoted(name);
    return quoted.str();
}

// Where an SFTP URL's path lies for commands: below the home directory when it begins with "/~/".
std::string SftpDirectory(const std::string& url) {
    const std::string path = Part(ParseUrl(url), CURLUPART_PATH, CURLU_URLDECODE);
    return path.starts_with("/~/") ? path.substr(3) : path;
}

std::string KnownHostsAtHome() {
    const char* const home = std::getenv("HOME"); // NOLINT(concurrency-mt-unsafe): nobody changes it
    return std::string(home == nullptr ? "" : home) + "/.ssh/known_hosts";
}

std::size_t ReadFile(char* buffer, std::size_t size, std::size_t count, void* file) {
    const ssize_t length = read(static_cast<EOpenFile*>(file)->Get(), buffer, size * count);
    return length < 0 ? CURL_READFUNC_ABORT : static_cast<std::size_t>(length);
}

int SeekFile(void* file, curl_off_t offset, int origin) {
    return lseek(static_cast<EOpenFile*>(file)->Get(), offset, origin) < 0 ? CURL_SEEKFUNC_FAIL : CURL_SEEKFUNC_OK;
}

std::size_t DropBody(char*, std::size_t size, std::size_t count, void*) {
    return size * count;
}

// The number of a reply; 0 when there is none.
int ReplyCode(const std::string& reply) {
    return std::atoi(reply.c_str() + (reply.starts_with("HTTP/") ? reply.find(' ') + 1 : 0));
}

} // namespace

std::string PublicUrl(const std::string& url) {
    const Url parsed = ParseUrl(url);
    for (const CURLUPart part : {CURLUPART_USER, CURLUPART_PASSWORD, CURLUPART_OPTIONS, CURLUPART_QUERY}) {
        curl_url_set(parsed.get(), part, nullptr, 0);
    }
    return parsed == nullptr ? "(not a URL)" : Part(parsed, CURLUPART_URL);
}

std::string LocalPath(const std::string& url) {
    return url.starts_with("file:") ? Part(ParseUrl(url), CURLUPART_PATH, CURLU_URLDECODE) : std::string();
}

std::string NameToSend(const std::filesystem::path& path) {
    std::string name = path.filename().string();
    std::replace_if(
        name.begin(), name.end(), [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; }, '_');
    return name;
}

// The library's handle of one transfer, and everything that it points to.
class ETransfer::Transfer {
public:
    Transfer(const ETransfer& owner, const Server& server, const std::filesystem::path& file)
        : m_Owner(owner),
          m_File(file, O_RDONLY),
          m_nSize(static_cast<curl_off_t>(std::filesystem::file_size(file))),
          m_Scheme(Part(ParseUrl(server.m_Url), CURLUPART_SCHEME)),
          m_pEasy(curl_easy_init()) {
        if (m_pEasy == nullptr) {
            throw std::bad_alloc();
        }
        if (m_Scheme.empty()) {
            throw std::runtime_error("not a URL");
        }
        if (m_Scheme == "http" && server.m_bRequireTls) {
            throw std::runtime_error("nothing is sent over http://, for it is not encrypted");
        }
        Set(CURLOPT_URL, server.m_Url.c_str());
        SetLogin(server);
        SetBody();
        SetConnection();
    }

    const std::string& Scheme() const { return m_Scheme; }

    template <typename Value>
    void Set(CURLoption option, Value value) {
        if (const CURLcode code = curl_easy_setopt(m_pEasy.get(), option, value); code != CURLE_OK) {
            throw std::runtime_error(curl_easy_strerror(code));
        }
    }

    // Once per transfer.
    void SetList(CURLoption option, const std::vector<std::string>& texts) {
        for (const std::string& text : texts) {
            curl_slist* const longer = curl_slist_append(m_List.get(), text.c_str());
            if (longer == nullptr) {
                throw std::bad_alloc();
            }
            (void)m_List.release();
            m_List.reset(longer);
        }
        Set(option, m_List.get());
    }

    // Of a file that FTP servers get. They cannot tell a connection that broke from one that was closed at the end, and
    // take a part for the whole: before the file gets its name, its size is asked for.
    void SetCommandsAfter(const std::string& temporary, const std::string& name) {
        // Not every server lets a file be renamed onto another, so the older one goes first; "*": it may be missing, and
        // not every server knows sizes.
        SetList(CURLOPT_POSTQUOTE, {"*SIZE " + temporary, "*DELE " + name, "RNFR " + temporary, "RNTO " + name});
        Set(CURLOPT_FTP_CREATE_MISSING_DIRS, static_cast<long>(CURLFTP_CREATE_DIR_RETRY));
        // Under TLS 1.3 the server may send something more, its session tickets, after the library has written the file
        // and closed the connection. The system answers that with a reset, and drops what it has not sent yet.
        Set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2) | CURL_SSLVERSION_MAX_TLSv1_2);
    }

    SendResult Perform() {
        const CURLcode code = m_Owner.m_bAborted ? CURLE_ABORTED_BY_CALLBACK : curl_easy_perform(m_pEasy.get());
        const bool isHttp = m_Scheme.starts_with("http");
        const int reply = ReplyCode(m_Reply);
        // An HTTP server's answer is a success for the library whatever it says.
        if (code == CURLE_OK && (!isHttp || (reply >= 200 && reply < 300))) {
            return {};
        }
        if (m_Owner.m_bAborted) {
            return {SendResult::Aborted, {}};
        }
        std::string text = *m_Error != '\0' ? m_Error : curl_easy_strerror(code);
        if (code == CURLE_OK) {
            text = "the server did not take it";
        } else if (m_bCut) {
            text = "the server has not got all of it";
        }
        if (reply >= 400) {
            text += " (" + m_Reply + ")";
        }
        const bool aboutJob = code != CURLE_LOGIN_DENIED && (reply < 400 ? HasBegun() : IsAboutJob(isHttp, reply));
        return {aboutJob ? SendResult::Refused : SendResult::Unreachable, text};
    }

private:
    void SetLogin(const Server& server) {
        if (!server.m_User.empty()) {
            Set(CURLOPT_USERNAME, server.m_User.c_str());
            Set(CURLOPT_PASSWORD, server.m_Password.c_str());
            Set(CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_ANY));
        }
        if (!server.m_CaFile.empty()) {
            Set(CURLOPT_CAINFO, server.m_CaFile.c_str());
        }
        if (server.m_bRequireTls) {
            Set(CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
        }
        if (m_Scheme == "sftp") { // without a file of known hosts any host would do
            const std::string hosts = server.m_KnownHosts.empty() ? KnownHostsAtHome() : server.m_KnownHosts;
            Set(CURLOPT_SSH_KNOWNHOSTS, hosts.c_str());
        }
        if (m_Scheme == "sftp" && !server.m_KeyFile.empty()) {
            Set(CURLOPT_SSH_AUTH_TYPES, static_cast<long>(CURLSSH_AUTH_PUBLICKEY));
            Set(CURLOPT_SSH_PRIVATE_KEYFILE, server.m_KeyFile.c_str());
            Set(CURLOPT_KEYPASSWD, server.m_Password.c_str());
        }
    }

    void SetBody() {
        Set(CURLOPT_UPLOAD, 1L);
        Set(CURLOPT_INFILESIZE_LARGE, m_nSize);
        Set(CURLOPT_READFUNCTION, &ReadFile);
        Set(CURLOPT_READDATA, &m_File);
        Set(CURLOPT_SEEKFUNCTION, &SeekFile);
        Set(CURLOPT_SEEKDATA, &m_File);
    }

    void SetConnection() {
        Set(CURLOPT_WRITEFUNCTION, &DropBody);
        Set(CURLOPT_ERRORBUFFER, m_Error);
        Set(CURLOPT_HEADERFUNCTION, &KeepReply);
        Set(CURLOPT_HEADERDATA, this);
        Set(CURLOPT_NOPROGRESS, 0L);
        Set(CURLOPT_XFERINFOFUNCTION, &MustEnd);
        Set(CURLOPT_XFERINFODATA, this);
        Set(CURLOPT_NOSIGNAL, 1L);
        Set(CURLOPT_FRESH_CONNECT, 1L);
        Set(CURLOPT_FORBID_REUSE, 1L);
        Set(CURLOPT_QUICK_EXIT, 1L); // an abort does not wait for a name server that does not answer
        Set(CURLOPT_CONNECTTIMEOUT, static_cast<long>(m_Owner.m_nConnectTimeout));
        Set(CURLOPT_SERVER_RESPONSE_TIMEOUT, static_cast<long>(m_Owner.m_nStallTimeout));
        Set(CURLOPT_SOCKOPTFUNCTION, &KeepSocket);
        Set(CURLOPT_SOCKOPTDATA, this);
        Set(CURLOPT_CLOSESOCKETFUNCTION, &CloseSocket);
        Set(CURLOPT_CLOSESOCKETDATA, this);
        Set(CURLOPT_LOW_SPEED_TIME,
            static_cast<long>(m_Owner.m_nStallTimeout) + (m_Scheme == "sftp" ? 5 : 0)); // see MustEnd
        Set(CURLOPT_LOW_SPEED_LIMIT, 1L);
    }

    // Keeps the last reply, for what the library says of it is too little. The one to "QUIT" does not count, nor "226":
    // some FTP servers send it when the data connection is closed, also of a transfer that they have just refused.
    static std::size_t KeepReply(char* line, std::size_t size, std::size_t count, void* transfer) {
        constexpr std::string_view FILE_SIZE = "213 ";
        auto& self = *static_cast<Transfer*>(transfer);
        const std::string_view text(line, size * count);
        const bool isReply = text.starts_with("HTTP/") || (!text.empty() && text[0] >= '1' && text[0] <= '5');
        if (isReply && !text.starts_with("221") && !text.starts_with("226")) {
            self.m_Reply = text.substr(0, text.find_first_of("\r\n"));
        }
        if (self.m_Scheme.starts_with("ftp") && text.starts_with(FILE_SIZE)) {
            self.m_bCut = std::atoll(self.m_Reply.c_str() + FILE_SIZE.size()) != self.m_nSize;
        }
        return self.m_bCut ? 0 : size * count; // 0 ends the transfer
    }

    static int KeepSocket(void* transfer, curl_socket_t socket, curlsocktype) {
        static_cast<Transfer*>(transfer)->m_nSocket = socket;
        return CURL_SOCKOPT_OK;
    }
    static int CloseSocket(void* transfer, curl_socket_t socket) {
        auto& self = *static_cast<Transfer*>(transfer);
        if (self.m_nSocket == socket) {
            self.m_nSocket = -1; // the number may be another file's next
        }
        return close(socket);
    }

    // The library asks about once a second, also while it waits by itself for a server's last reply.
    static int MustEnd(void* transfer, curl_off_t, curl_off_t, curl_off_t, curl_off_t sent) {
        auto& self = *static_cast<Transfer*>(transfer);
        const auto now = Clock::now();
        curl_off_t connected = 0; // how long it took; until then the library's own limit holds
        curl_easy_getinfo(self.m_pEasy.get(), CURLINFO_APPCONNECT_TIME_T, &connected);
        if (connected == 0 || sent != self.m_nSent) {
            self.m_nSent = sent;
            self.m_LastProgress = now;
        }
        // The library takes leave of an SFTP server; where that hangs it gives up, and never frees what it has of the
        // connection. From one that is shut down it parts at once.
        if (self.m_Scheme == "sftp" &&
            now - self.m_LastProgress >= std::chrono::seconds(self.m_Owner.m_nStallTimeout)) {
            shutdown(self.m_nSocket, SHUT_RDWR);
        }
        if (!self.m_Owner.m_bAborted) {
            return 0;
        }
        if (!self.m_End.has_value()) {
            self.m_End = now + TIME_TO_CONFIRM;
        }
        return sent < self.m_nSize || now >= *self.m_End ? 1 : 0;
    }

    // Whether a refusal speaks of the one job, not of the whole server or of the login.
    static bool IsAboutJob(bool isHttp, int reply) {
        return isHttp ? reply < 500 && reply != 401 && reply != 407 : reply != 421;
    }

    // A transfer that broke off may have met something that only this job has, such as its size.
    bool HasBegun() const {
        curl_off_t sent = 0;
        curl_easy_getinfo(m_pEasy.get(), CURLINFO_SIZE_UPLOAD_T, &sent);
        return sent > 0;
    }

    const ETransfer& m_Owner;
    EOpenFile m_File;
    curl_off_t m_nSize;
    std::string m_Scheme;
    char m_Error[CURL_ERROR_SIZE] = {};
    std::string m_Reply;
    bool m_bCut = false;          // the server has another number of bytes
    curl_socket_t m_nSocket = -1; // the connection's; an SFTP transfer has no other
    curl_off_t m_nSent = 0;
    Clock::time_point m_LastProgress;
    std::optional<Clock::time_point> m_End; // set once an abort was seen
    List m_List;
    Easy m_pEasy; // last: freed before what it points to
};

ETransfer::ETransfer(const SpoolSettings& timeouts)
    : m_nConnectTimeout(timeouts.m_nConnectTimeout), m_nStallTimeout(timeouts.m_nStallTimeout) {
    // Once per program, before there are other threads of this one's.
    static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (ready != CURLE_OK) {
        throw std::bad_alloc();
    }
}

SendResult ETransfer::SendMail(const Server& server, const std::string& from, const std::vector<std::string>& to,
                               const std::filesystem::path& message) {
    Transfer transfer(*this, server, message);
    transfer.Set(CURLOPT_MAIL_FROM, from.c_str());
    transfer.SetList(CURLOPT_MAIL_RCPT, to);
    return transfer.Perform();
}

SendResult ETransfer::Upload(const Server& server, const std::filesystem::path& path, const std::string& name) {
    Transfer transfer(*this, server, path);
    const std::string directory = server.m_Url + (server.m_Url.ends_with('/') ? "" : "/");
    std::string temporary = name;
    if (transfer.Scheme().starts_with("ftp")) {
        temporary += PART;
        transfer.SetCommandsAfter(temporary, name);
    } else if (transfer.Scheme() == "sftp") {
        temporary += PART;
        const std::string place = SftpDirectory(directory);
        transfer.SetList(CURLOPT_POSTQUOTE, {"*rm " + Quote(place + name),
                                             "rename " + Quote(place + temporary) + ' ' + Quote(place + name)});
        transfer.Set(CURLOPT_FTP_CREATE_MISSING_DIRS, static_cast<long>(CURLFTP_CREATE_DIR));
    }
    transfer.Set(CURLOPT_URL, (directory + Escape(temporary)).c_str());
    return transfer.Perform();
}
