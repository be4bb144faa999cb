#include "gateway/Configuration.h"

#include "base/EFileIO.h"
#include "gateway/Findings.h"
#include "gateway/JsonObject.h"
#include "gateway/Moments.h"
#include "gateway/NameService.h"
#include "gateway/Report.h"
#include "gateway/Text.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <string_view>

// Reads gateway.json, whose members stand in any order.

namespace {

using Kind = EJsonValue::Kind;

constexpr std::array HEADING_NAMES{"date",   "time",   "name",         "text",        "source",
                                   "detail", "active", "acknowledged", "alarmNumber", "value"};
constexpr std::chrono::milliseconds SHORTEST_SPAN{100};
constexpr std::int64_t DEFAULT_SPOOL_LIMIT = 256LL << 20; // bytes

#ifdef KV_WITHOUT_TRANSPORTS
constexpr bool WITH_TRANSPORTS = false;
#else
constexpr bool WITH_TRANSPORTS = true;
#endif

bool IsOneLine(const std::string& text) {
    return std::none_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20U; });
}

bool IsAddress(const std::string& text) {
    const std::size_t at = text.find('@');
    return at != std::string::npos && at > 0 && at + 1 < text.size() && IsOneLine(text) &&
           text.find_first_of(" <>,;") == std::string::npos;
}

void TakeOneLine(JsonObject& object, const char* name, Findings& findings, std::string& text) {
    std::string taken;
    if (!object.Text(name, taken)) {
        return;
    }
    if (!IsOneLine(taken)) {
        JsonObject::Refuse(*object.Find(name), name, "a text of one line", findings);
        return;
    }
    text = taken;
}

// A number of seconds, or a text with a unit.
bool TakeSpan(JsonObject& object, const char* name, std::chrono::milliseconds shortest, Findings& findings,
              std::chrono::milliseconds& span) {
    const EJsonValue* const value = object.Find(name);
    if (value == nullptr) {
        return false;
    }
    const std::string text = value->m_Kind == Kind::Integer ? value->m_Text + 's' : value->m_Text;
    const bool isSpan = value->m_Kind == Kind::Integer || value->m_Kind == Kind::Text;
    std::chrono::milliseconds taken{0};
    if (!isSpan || !Moments::ParseSpan(text, taken) || taken < shortest) {
        JsonObject::Refuse(*value, name, "a span of time such as \"30s\", \"15m\" or \"1d\"", findings);
        return false;
    }
    span = taken;
    return true;
}

void TakeSeconds(JsonObject& object, const char* name, Findings& findings, unsigned& seconds) {
    std::chrono::milliseconds span{0};
    if (TakeSpan(object, name, std::chrono::seconds(1), findings, span)) {
        seconds = static_cast<unsigned>(std::chrono::duration_cast<std::chrono::seconds>(span).count());
    }
}

// A URL of one of the schemes, without a password in it.
void TakeUrl(JsonObject& object, const char* name, const std::vector<std::string>& schemes, Findings& findings,
             std::string& url) {
    std::string taken;
    if (!object.Text(name, taken) || taken.empty()) {
        return;
    }
    std::string expected;
    bool known = false;
    for (const std::string& scheme : schemes) {
        known = known || (taken.starts_with(scheme + "://") && taken.size() > scheme.size() + 3);
        expected += (expected.empty() ? "" : ", ") + scheme + "://";
    }
    const std::size_t host = taken.find("://") + 3;
    const bool hasUser = known && taken.substr(host, taken.find('/', host) - host).find('@') != std::string::npos;
    const EJsonValue& value = *object.Find(name);
    if (hasUser) { // the text is not repeated in the message: it may hold a password
        findings.Error(value.m_Begin, EJsonText::Quote(name) + ": found a user in the URL, expected it in \"user\"");
    } else if (!known || !IsOneLine(taken)) {
        JsonObject::Refuse(value, name, "a URL that begins with one of " + expected, findings);
    } else {
        url = taken;
    }
}

void ReadSecretFile(const EJsonValue& place, const std::string& path, Findings& findings, std::string& secret) {
    std::ifstream file(path);
    if (!std::getline(file, secret)) {
        findings.Error(place.m_Begin, "\"passwordFile\": found no readable file " + EJsonText::Quote(path) +
                                          ", expected one whose first line is the password");
    }
}

// "user", and the password from where it is kept.
void TakeLogin(JsonObject& object, Findings& findings, std::string& user, std::string& password) {
    TakeOneLine(object, "user", findings, user);
    std::string place;
    if (object.Text("passwordEnv", place)) {
        const char* const secret = std::getenv(place.c_str());
        if (secret == nullptr) {
            findings.Error(object.Find("passwordEnv")->m_Begin, "\"passwordEnv\": found no environment variable " +
                                                                    EJsonText::Quote(place) + ", expected one");
        } else {
            password = secret;
        }
    }
    if (object.Text("passwordFile", place)) {
        ReadSecretFile(*object.Find("passwordFile"), place, findings, password);
    }
    if (const EJsonValue* const open = object.Find("password"); open != nullptr) {
        findings.Error(open->m_NamePlace, "found \"password\", expected \"passwordEnv\" (the name of an environment "
                                          "variable) or \"passwordFile\" (the path of a file)");
    }
}

void TakeSpool(JsonObject& parent, const char* directory, Findings& findings, SpoolSettings& spool) {
    spool = {directory, DEFAULT_SPOOL_LIMIT, 5, 600, 30, 60};
    const EJsonValue* const value = parent.Find("spool");
    if (value == nullptr) {
        return;
    }
    JsonObject object(*value, "spool", findings);
    std::int64_t limit = DEFAULT_SPOOL_LIMIT;
    if (object.Text("directory", spool.m_Directory) && spool.m_Directory.empty()) {
        JsonObject::Refuse(*object.Find("directory"), "directory", "a directory", findings);
    }
    object.Integer("limit", 0, std::numeric_limits<std::int64_t>::max(), limit);
    spool.m_nLimit = static_cast<std::uint64_t>(limit);
    TakeSeconds(object, "retryMin", findings, spool.m_nRetryMin);
    TakeSeconds(object, "retryMax", findings, spool.m_nRetryMax);
    TakeSeconds(object, "connectTimeout", findings, spool.m_nConnectTimeout);
    TakeSeconds(object, "stallTimeout", findings, spool.m_nStallTimeout);
    if (spool.m_nRetryMax < spool.m_nRetryMin) {
        findings.Error(value->m_Begin, "spool: found a \"retryMax\" below \"retryMin\", expected at least as much");
    }
    object.Finish();
}

void TakeAddresses(JsonObject& object, const char* name, Findings& findings, std::vector<std::string>& addresses) {
    for (const EJsonValue& item : object.List(name)) {
        std::string address;
        if (!JsonObject::TakeText(item, name, findings, address)) {
            continue;
        }
        if (!IsAddress(address)) {
            JsonObject::Refuse(item, name, "an address such as \"ops@example.com\"", findings);
        }
        addresses.push_back(address);
    }
}

MailDefinition ReadDefinition(const EJsonValue& value, Findings& findings) {
    MailDefinition definition;
    JsonObject object(value, "definition", findings);
    if (object.Require("name") != nullptr) {
        TakeOneLine(object, "name", findings, definition.m_Name);
    }
    TakeAddresses(object, "to", findings, definition.m_To);
    TakeAddresses(object, "cc", findings, definition.m_Cc);
    TakeAddresses(object, "bcc", findings, definition.m_Bcc);
    if (object.IsObject() && definition.m_To.empty() && definition.m_Cc.empty() && definition.m_Bcc.empty()) {
        findings.Error(value.m_Begin, "definition: found no recipient, expected \"to\", \"cc\" or \"bcc\"");
    }
    TakeOneLine(object, "subject", findings, definition.m_Subject);
    object.Text("text", definition.m_Text);
    object.Texts("attachments", definition.m_Attachments);
    object.Finish();
    return definition;
}

MailSettings ReadMail(const EJsonValue& value, Findings& findings) {
    MailSettings mail;
    JsonObject object(value, "mail", findings);
    TakeUrl(object, "server", {"smtp", "smtps"}, findings, mail.m_Url);
    object.Boolean("requireTls", mail.m_bRequireTls);
    TakeLogin(object, findings, mail.m_User, mail.m_Password);
    if (object.Require("from") != nullptr && object.Text("from", mail.m_From) && !IsAddress(mail.m_From)) {
        JsonObject::Refuse(*object.Find("from"), "from", "an address such as \"gateway@example.com\"", findings);
    }
    object.Text("caFile", mail.m_CaFile);
    mail.m_Outbox = "outbox";
    object.Text("outbox", mail.m_Outbox);
    TakeSpool(object, "outgoing/mail", findings, mail.m_Spool);
    for (const EJsonValue& item : object.List("definitions")) {
        MailDefinition definition = ReadDefinition(item, findings);
        const auto same = [&](const MailDefinition& other) { return other.m_Name == definition.m_Name; };
        if (std::any_of(mail.m_Definitions.begin(), mail.m_Definitions.end(), same)) {
            findings.Error(item.m_Begin, "definition: found a second " + EJsonText::Quote(definition.m_Name) +
                                             ", expected another name");
        }
        mail.m_Definitions.push_back(std::move(definition));
    }
    object.Finish();
    return mail;
}

void TakeTarget(JsonObject& object, Findings& findings, std::string& url, std::string& user, std::string& password) {
    TakeUrl(object, "url", {"file", "ftp", "ftps", "sftp", "http", "https"}, findings, url);
    if (!url.empty() && url.back() != '/') {
        url += '/'; // a directory, below which the files get their own names
    }
    TakeLogin(object, findings, user, password);
}

UploadSettings ReadUpload(const EJsonValue& value, Findings& findings) {
    UploadSettings upload;
    JsonObject object(value, "upload", findings);
    TakeTarget(object, findings, upload.m_Url, upload.m_User, upload.m_Password);
    upload.m_Directory = "uploads";
    object.Text("directory", upload.m_Directory);
    object.Text("caFile", upload.m_CaFile);
    object.Text("knownHosts", upload.m_KnownHosts);
    TakeSpool(object, "outgoing/upload", findings, upload.m_Spool);
    object.Finish();
    return upload;
}

std::map<int, Identifier> ReadIdentifiers(const std::vector<EJsonValue>& list, Findings& findings) {
    std::map<int, Identifier> identifiers;
    for (const EJsonValue& item : list) {
        JsonObject object(item, "identifier", findings);
        Identifier identifier;
        std::int64_t id = -1;
        object.Require("id");
        object.Integer("id", 0, std::numeric_limits<std::int32_t>::max(), id);
        TakeTarget(object, findings, identifier.m_Url, identifier.m_User, identifier.m_Password);
        object.Finish();
        if (id >= 0 && !identifiers.emplace(static_cast<int>(id), identifier).second) {
            findings.Error(item.m_Begin, "identifier: found a second " + std::to_string(id) + ", expected another id");
        }
    }
    return identifiers;
}

ScheduleEntry ReadEntry(const EJsonValue& value, const Configuration& configuration, Findings& findings) {
    ScheduleEntry entry;
    JsonObject object(value, "schedule", findings);
    object.Require("log");
    object.Require("action");
    const LogFile* file = nullptr;
    if (object.Text("log", entry.m_Log) && (file = configuration.FindLogFile(entry.m_Log)) == nullptr) {
        JsonObject::Refuse(*object.Find("log"), "log", "the name of a log file", findings);
    }
    if (object.Text("action", entry.m_Action)) {
        if (!IsAction(entry.m_Action)) {
            JsonObject::Refuse(*object.Find("action"), "action", "the name of an action", findings);
        } else if (entry.m_Action == ACTION_DELIVERY && file != nullptr && !file->Delivers()) {
            JsonObject::Refuse(*object.Find("log"), "log", "a log file that delivers", findings);
        }
    }
    std::chrono::milliseconds every{0};
    if (TakeSpan(object, "every", SHORTEST_SPAN, findings, every)) {
        entry.m_Every = every;
    }
    std::string at;
    if (object.Text("at", at) && !Moments::ParseTimeOfDay(at, entry.m_nTimeOfDay)) {
        JsonObject::Refuse(*object.Find("at"), "at", "a time of day such as \"06:00\"", findings);
    }
    if (object.IsObject() && (object.Find("every") == nullptr) == (object.Find("at") == nullptr)) {
        findings.Error(value.m_Begin, "schedule: expected either \"every\" or \"at\"");
    }
    object.Finish();
    return entry;
}

bool IsSent(const EJsonValue* value, const char* what, Findings& findings) {
    if (value != nullptr && !WITH_TRANSPORTS) {
        findings.Error(value->m_NamePlace, std::string("found ") + EJsonText::Quote(what) +
                                               ", expected none: this kvgateway is built without e-mail and uploads");
    }
    return value != nullptr;
}

} // namespace

Configuration Configuration::Load(const std::filesystem::path& directory, Findings& findings) {
    Configuration configuration;
    const std::filesystem::path logFiles = directory / "kvLogFile.json";
    configuration.LoadLogFiles(logFiles, findings);
    if (configuration.LoadGateway(directory / "gateway.json", findings)) {
        configuration.CheckDeliveries(logFiles, findings);
    }
    return configuration;
}

bool Configuration::LoadGateway(const std::filesystem::path& file, Findings& findings) {
    findings.SetFile(file.string());
    const EString name = Widen(file.string());
    EJsonValue root;
    root.m_Kind = Kind::Object;
    EString message;
    if (EFileIO::Exists(name, nullptr) != 0 && Failed(EJsonText::Load(name, root, message))) {
        findings.ErrorInWords(Narrow(message));
        return false;
    }
    JsonObject object(root, "gateway", findings);
    if (const EJsonValue* const headings = object.Find("headings"); headings != nullptr) {
        JsonObject texts(*headings, "headings", findings);
        for (std::size_t i = 0; i < HEADINGS; ++i) {
            texts.Text(HEADING_NAMES[i], m_Headings[i]);
        }
        texts.Finish();
    }
    m_Identifiers = ReadIdentifiers(object.List("identifiers"), findings);
    if (const EJsonValue* const mail = object.Find("mail"); IsSent(mail, "mail", findings)) {
        m_Mail = ReadMail(*mail, findings);
    }
    if (const EJsonValue* const upload = object.Find("upload"); IsSent(upload, "upload", findings)) {
        m_Upload = ReadUpload(*upload, findings);
    }
    if (m_Mail && m_Upload && m_Mail->m_Spool.m_Directory == m_Upload->m_Spool.m_Directory) {
        findings.Error(object.Find("upload")->m_NamePlace,
                       "\"upload\": found the spool directory of \"mail\", expected one of its own");
    }
    for (const EJsonValue& item : object.List("schedule")) {
        m_Schedule.push_back(ReadEntry(item, *this, findings));
    }
    object.Finish();
    return true;
}

// What the two files say of each other.
void Configuration::CheckDeliveries(const std::filesystem::path& logFiles, Findings& findings) const {
    findings.SetFile(logFiles.string());
    for (const LogFile& file : m_LogFiles) {
        EString name = Widen(file.m_Name);
        const int id = NameService::Split(name);
        if (id >= 0 && !m_Identifiers.contains(id)) {
            findings.Error(file.m_Place, "\"name\": found the identifier " + std::to_string(id) +
                                             ", expected one of \"identifiers\" in gateway.json");
        }
        if (file.m_nDeliveryMode == 2 && !m_Upload) {
            findings.Error(file.m_DeliveryPlace, R"("deliveryMode": found 2, expected "upload" in gateway.json)");
        }
        if (file.m_nDeliveryMode != 3) {
            continue;
        }
        if (!m_Mail) {
            findings.Error(file.m_DeliveryPlace, R"("deliveryMode": found 3, expected "mail" in gateway.json)");
            continue;
        }
        const std::string mail = Narrow(NameService::Join(Widen(file.m_MailName), id));
        const auto same = [&](const MailDefinition& definition) { return definition.m_Name == mail; };
        if (std::none_of(m_Mail->m_Definitions.begin(), m_Mail->m_Definitions.end(), same)) {
            findings.Error(file.m_MailPlace, "\"mailName\": expected the definition " + EJsonText::Quote(mail) +
                                                 " in gateway.json, found none");
        }
    }
}
