#include "gateway/Configuration.h"

#include "gateway/JsonObject.h"
#include "gateway/Report.h"
#include "gateway/Text.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>

// Reads gateway.json, whose members stand in any order.

namespace {

using std::chrono::milliseconds;
using Kind = EJsonValue::Kind;

constexpr std::array HEADING_NAMES{"date",   "time",   "name",         "text",        "source",
                                   "detail", "active", "acknowledged", "alarmNumber", "value"};

#ifdef KV_WITHOUT_TRANSPORTS
constexpr bool WITH_TRANSPORTS = false;
#else
constexpr bool WITH_TRANSPORTS = true;
#endif

// A number of seconds, or a text with a unit. True when the member is there.
bool TakeSpan(JsonObject& object, const char* name, milliseconds shortest, milliseconds& span) {
    const EJsonValue* const value = object.Find(name);
    if (value == nullptr) {
        return false;
    }
    const std::string text = value->m_Kind == Kind::Integer ? value->m_Text + 's' : value->m_Text;
    if (!Moments::ParseSpan(text, span) || span < shortest) {
        object.Refuse(name, "a span of time such as \"30s\", \"15m\" or \"1d\"");
    }
    return true;
}

// A URL of one of the schemes, without a user in it.
void TakeUrl(JsonObject& object, const char* name, const std::vector<std::string>& schemes, std::string& url) {
    if (!object.Line(name, url) || url.empty()) {
        return;
    }
    const std::size_t colon = url.find("://");
    const std::size_t host = colon != std::string::npos ? colon + 3 : 0;
    if (url.substr(host, url.find('/', host) - host).find('@') != std::string::npos) {
        // The URL is not repeated in the message: it may hold a password.
        object.Error(object.Find(name)->m_Begin,
                     EJsonText::Quote(name) + ": found a user in the URL, expected it in \"user\"");
    } else if (host == 0 || host == url.size() ||
               std::find(schemes.begin(), schemes.end(), url.substr(0, colon)) == schemes.end()) {
        std::string expected = "a URL that begins with one of";
        for (const std::string& scheme : schemes) {
            expected.append(" ").append(scheme).append("://");
        }
        object.Refuse(name, expected);
    }
}

// "user", and the password from where it is kept.
void TakeLogin(JsonObject& object, std::string& user, std::string& password) {
    object.Line("user", user);
    if (std::string name; object.Text("passwordEnv", name)) {
        const char* const secret = std::getenv(name.c_str());
        password = secret != nullptr ? secret : "";
        if (secret == nullptr) {
            object.Refuse("passwordEnv", "the name of an environment variable that is set");
        }
    }
    if (std::string path; object.Text("passwordFile", path)) {
        std::ifstream file(path);
        if (!std::getline(file, password)) {
            object.Refuse("passwordFile", "a readable file whose first line is the password");
        }
        password.erase(password.find_last_not_of('\r') + 1); // of a file with the line ends of other systems
    }
}

void TakeTarget(JsonObject& object, std::string& url, std::string& user, std::string& password) {
    TakeUrl(object, "url", {"file", "ftp", "ftps", "sftp", "http", "https"}, url);
    if (!url.empty() && url.back() != '/') {
        url += '/'; // a directory, below which the files get their own names
    }
    TakeLogin(object, user, password);
}

void TakeDirectory(JsonObject& object, const char* name, std::string& directory) {
    if (object.Text(name, directory) && directory.empty()) {
        object.Refuse(name, "a directory");
    }
}

SpoolSettings TakeSpool(JsonObject& parent, const char* directory, unsigned stallTimeout) {
    constexpr std::uint64_t DEFAULT_LIMIT = 256U << 20U; // bytes
    SpoolSettings spool{directory, DEFAULT_LIMIT, 5, 600, 30, stallTimeout};
    parent.Object("spool", [&](JsonObject& object) {
        TakeDirectory(object, "directory", spool.m_Directory);
        object.Integer("limit", spool.m_nLimit, 0, std::numeric_limits<std::int64_t>::max());
        const std::pair<const char*, unsigned&> spans[] = {{"retryMin", spool.m_nRetryMin},
                                                           {"retryMax", spool.m_nRetryMax},
                                                           {"connectTimeout", spool.m_nConnectTimeout},
                                                           {"stallTimeout", spool.m_nStallTimeout}};
        for (const auto& [name, seconds] : spans) {
            milliseconds span = std::chrono::seconds(seconds);
            TakeSpan(object, name, std::chrono::seconds(1), span);
            seconds = static_cast<unsigned>(span.count() / 1000);
        }
        if (spool.m_nRetryMax < spool.m_nRetryMin) {
            object.Error(object.Value().m_Begin, "found a \"retryMax\" below \"retryMin\", expected at least as much");
        }
    });
    return spool;
}

void TakeAddress(JsonObject& object, const EJsonValue& value, const std::string& name, std::string& address) {
    address = value.m_Text;
    const std::size_t at = address.find('@');
    const bool isPlain = std::none_of(address.begin(), address.end(), [](char c) {
        return static_cast<unsigned char>(c) <= 0x20U || std::string_view("<>,;").find(c) != std::string_view::npos;
    });
    if (value.m_Kind != Kind::Text || at == 0 || at >= address.size() - 1 || !isPlain) {
        object.Refuse(value, name, "an address such as \"ops@example.com\"");
    }
}

void ReadDefinition(JsonObject& object, std::vector<MailDefinition>& definitions) {
    MailDefinition definition;
    object.Require("name");
    object.Line("name", definition.m_Name);
    const std::pair<const char*, std::vector<std::string>&> lists[] = {
        {"to", definition.m_To}, {"cc", definition.m_Cc}, {"bcc", definition.m_Bcc}};
    bool hasRecipient = false;
    for (const auto& [name, addresses] : lists) {
        for (const EJsonValue& item : object.List(name)) {
            TakeAddress(object, item, name, addresses.emplace_back());
            hasRecipient = true;
        }
    }
    if (!hasRecipient) {
        object.Error(object.Value().m_Begin, "found no recipient, expected \"to\", \"cc\" or \"bcc\"");
    }
    object.Line("subject", definition.m_Subject);
    object.Text("text", definition.m_Text);
    for (const EJsonValue& item : object.List("attachments")) {
        object.TakeText(item, "attachments", definition.m_Attachments.emplace_back());
    }
    const auto same = [&](const MailDefinition& other) { return other.m_Name == definition.m_Name; };
    if (std::any_of(definitions.begin(), definitions.end(), same)) {
        object.Error(object.Value().m_Begin, "found a second one of this name, expected another name");
    }
    definitions.push_back(std::move(definition));
}

void ReadMail(JsonObject& object, MailSettings& mail) {
    TakeUrl(object, "server", {"smtp", "smtps"}, mail.m_Url);
    object.Boolean("requireTls", mail.m_bRequireTls);
    TakeLogin(object, mail.m_User, mail.m_Password);
    if (const EJsonValue* const from = object.Require("from"); from != nullptr) {
        TakeAddress(object, *from, "from", mail.m_From);
    }
    object.Text("caFile", mail.m_CaFile);
    mail.m_Outbox = "outbox";
    TakeDirectory(object, "outbox", mail.m_Outbox);
    // A server may take long to look through a mail before it confirms it. Given up, it would go out again and again.
    mail.m_Spool = TakeSpool(object, "outgoing/mail", 600);
    object.Objects("definitions", "definition",
                   [&](JsonObject& definition) { ReadDefinition(definition, mail.m_Definitions); });
}

void ReadUpload(JsonObject& object, UploadSettings& upload) {
    TakeTarget(object, upload.m_Url, upload.m_User, upload.m_Password);
    upload.m_Directory = "uploads";
    TakeDirectory(object, "directory", upload.m_Directory);
    object.Text("caFile", upload.m_CaFile);
    object.Text("knownHosts", upload.m_KnownHosts);
    object.Text("keyFile", upload.m_KeyFile);
    object.Boolean("requireTls", upload.m_bRequireTls);
    upload.m_Spool = TakeSpool(object, "outgoing/upload", 60);
}

// Loads an object in place of the empty one; false, and a finding, when the file holds none, or is missing and may not.
bool LoadFile(const std::filesystem::path& path, bool mayMiss, Findings& findings, EJsonValue& root) {
    EJsonValue loaded;
    EString message;
    findings.SetFile(path.string());
    root.m_Kind = Kind::Object;
    const EResult result = EJsonText::Load(Widen(path.string()), loaded, message);
    if (result == RC_SECTION_NOT_FOUND && mayMiss) {
        return true;
    }
    if (Failed(result)) {
        findings.ErrorInWords(Narrow(message));
        return false;
    }
    root = std::move(loaded);
    return true;
}

} // namespace

Configuration Configuration::Load(const std::filesystem::path& directory, Findings& findings) {
    Configuration configuration;
    EJsonValue gateway;
    EJsonValue logFiles;
    const bool hasGateway = LoadFile(directory / "gateway.json", true, findings, gateway);
    JsonObject object(gateway, "gateway", findings);
    configuration.ReadGateway(object);
    const bool hasLogFiles = LoadFile(directory / "kvLogFile.json", false, findings, logFiles);
    if (hasLogFiles) {
        configuration.ReadLogFiles(logFiles, !hasGateway, findings);
    }
    findings.SetFile((directory / "gateway.json").string());
    if (object.Find("schedule") != nullptr && hasLogFiles) { // they are named there
        object.Objects("schedule", "schedule", [&](JsonObject& entry) { configuration.ReadEntry(entry); });
    }
    object.Finish();
    return configuration;
}

void Configuration::ReadGateway(JsonObject& object) {
    object.Object("headings", [this](JsonObject& headings) {
        for (std::size_t i = 0; i < m_Headings.size(); ++i) {
            headings.Text(HEADING_NAMES[i], m_Headings[i]);
        }
    });
    object.Objects("identifiers", "identifier", [this](JsonObject& identifier) { ReadIdentifier(identifier); });
    for (const char* const name : {"mail", "upload"}) {
        if (const EJsonValue* const value = object.Find(name); value != nullptr && !WITH_TRANSPORTS) {
            object.Error(value->m_NamePlace, "found " + EJsonText::Quote(name) +
                                                 ", expected none: this kvgateway is built without e-mail and uploads");
        }
    }
    object.Object("mail", [this](JsonObject& mail) { ReadMail(mail, m_Mail.emplace()); });
    object.Object("upload", [this](JsonObject& upload) { ReadUpload(upload, m_Upload.emplace()); });
    if (m_Mail && m_Upload && m_Mail->m_Spool.m_Directory == m_Upload->m_Spool.m_Directory) {
        object.Error(object.Find("upload")->m_NamePlace,
                     "found the spool directory of \"mail\" in \"upload\", expected another one");
    }
}

void Configuration::ReadIdentifier(JsonObject& object) {
    Identifier identifier;
    int id = -1;
    object.Require("id");
    object.Integer("id", id, 0);
    TakeTarget(object, identifier.m_Url, identifier.m_User, identifier.m_Password);
    if (!m_Identifiers.emplace(id, identifier).second) {
        object.Error(object.Value().m_Begin, "found a second one of this id, expected another id");
    }
}

void Configuration::ReadEntry(JsonObject& object) {
    ScheduleEntry entry;
    object.Require("log");
    object.Require("action");
    const bool hasLog = object.Text("log", entry.m_Log);
    if (object.Text("action", entry.m_Action) && !IsAction(entry.m_Action)) {
        object.Refuse("action", "the name of an action");
    } else if (const LogFile* const file = FindLogFile(entry.m_Log); hasLog && file == nullptr) {
        object.Refuse("log", "the name of a log file");
    } else if (hasLog && entry.m_Action == ACTION_DELIVERY && !file->Delivers()) {
        object.Refuse("log", "a log file that delivers");
    }
    if (milliseconds every{0}; TakeSpan(object, "every", milliseconds(100), every)) {
        entry.m_Every = every;
    }
    if (std::string at; object.Text("at", at) && !Moments::ParseTimeOfDay(at, entry.m_nTimeOfDay)) {
        object.Refuse("at", "a time of day such as \"06:00\"");
    }
    if ((object.Find("every") == nullptr) == (object.Find("at") == nullptr)) {
        object.Error(object.Value().m_Begin, "expected either \"every\" or \"at\"");
    }
    m_Schedule.push_back(entry);
}
