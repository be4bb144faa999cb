#include "gateway/Configuration.h"

#include "gateway/JsonObject.h"
#include "gateway/Report.h"
#include "gateway/Text.h"

#include <algorithm>
#include <cstdlib>
#include <regex>
#include <sstream>

#include <unistd.h>

// Reads gateway.json, whose members stand in any order.

namespace {

using std::chrono::milliseconds;
using Kind = EJsonValue::Kind;

constexpr std::array HEADING_NAMES{"date",   "time",   "name",         "text",        "source",
                                   "detail", "active", "acknowledged", "alarmNumber", "value"};

#ifdef KV_WITHOUT_MAIL
constexpr bool WITH_MAIL = false;
#else
constexpr bool WITH_MAIL = true;
#endif

// What to write instead of a member that the gateway knew when it sent by itself; empty for other members.
std::string Instead(const std::string& member) {
    const std::string_view ofProgram =
        " server url user passwordEnv passwordFile requireTls caFile knownHosts keyFile ";
    return member == "spool"    ? R"("limit", "retryMin" and "retryMax" in its place)"
           : member == "outbox" ? R"(none: without "command" mails stay in outbox/mail)"
           : ofProgram.find(' ' + member + ' ') != std::string_view::npos
               ? R"("command", a program that sends and knows servers, logins and certificates by itself)"
               : "";
}

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

// The program's path, looked for as a shell does it; empty when there is none.
std::string FindProgram(const std::string& name) {
    const char* const path = std::getenv("PATH");
    std::istringstream directories(name.find('/') != std::string::npos || path == nullptr ? "." : path);
    for (std::string directory; std::getline(directories, directory, ':');) {
        const std::filesystem::path program =
            std::filesystem::path(directory) / name; // `name` alone when it is absolute
        std::error_code error;
        if (std::filesystem::is_regular_file(program, error) && access(program.c_str(), X_OK) == 0) {
            return program;
        }
    }
    return {};
}

void TakeCommand(JsonObject& object, bool isMail, std::vector<std::string>& command) {
    for (const EJsonValue& member : object.Value().m_Items) {
        if (const std::string instead = Instead(member.m_Name); !instead.empty()) {
            object.Find(member.m_Name); // for there is nothing more to say about it
            object.Error(member.m_NamePlace, "found " + EJsonText::Quote(member.m_Name) + ", expected " + instead);
        }
    }
    static const std::regex unknown("\\{(?!(path|name|id)\\})[A-Za-z]+\\}");
    bool hasPath = isMail;
    for (const EJsonValue& item : object.List("command")) {
        std::string& argument = command.emplace_back();
        if (!object.TakeText(item, "command", argument)) {
            return;
        }
        hasPath = hasPath || argument.find("{path}") != std::string::npos;
        if (std::regex_search(argument, unknown)) {
            object.Refuse(item, "command", "no placeholders but {path}, {name} and {id}");
        } else if (command.size() == 1 && (argument = FindProgram(argument)).empty()) {
            object.Refuse(item, "command", "a program that can be found and executed");
        }
    }
    if (object.Find("command") != nullptr && (command.empty() || !hasPath)) {
        object.Refuse("command",
                      isMail ? "a program and its arguments" : "{path}, the file to send, among the arguments");
    }
}

void TakeTarget(JsonObject& object, Target& target) {
    TakeCommand(object, false, target.m_Command);
    if (object.Text("directory", target.m_Directory) && target.m_Directory.empty()) {
        object.Refuse("directory", "a directory");
    } else if (!target.m_Directory.empty() && object.Find("command") != nullptr) {
        object.Error(object.Find("directory")->m_NamePlace,
                     "found \"directory\" beside \"command\", expected one of them");
    }
}

void TakeOutbox(JsonObject& object, OutboxSettings& settings) {
    object.Integer("limit", settings.m_nLimit, 0, std::numeric_limits<std::int64_t>::max());
    constexpr milliseconds SHORTEST{100};
    TakeSpan(object, "retryMin", SHORTEST, settings.m_RetryMin);
    TakeSpan(object, "retryMax", SHORTEST, settings.m_RetryMax);
    TakeSpan(object, "timeout", SHORTEST, settings.m_Timeout);
    if (settings.m_RetryMax < settings.m_RetryMin) {
        object.Error(object.Value().m_Begin, "found a \"retryMax\" below \"retryMin\", expected at least as much");
    }
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
    const std::pair<const char*, std::string&> lists[] = {
        {"to", definition.m_To}, {"cc", definition.m_Cc}, {"bcc", definition.m_Bcc}};
    for (const auto& [name, addresses] : lists) {
        for (const EJsonValue& item : object.List(name)) {
            std::string address;
            TakeAddress(object, item, name, address);
            addresses += (addresses.empty() ? "" : ", ") + address;
        }
    }
    if ((definition.m_To + definition.m_Cc + definition.m_Bcc).empty()) {
        object.Error(object.Value().m_Begin, "found no recipient, expected \"to\", \"cc\" or \"bcc\"");
    }
    object.Line("subject", definition.m_Subject);
    object.Text("text", definition.m_Text);
    for (const EJsonValue& item : object.List("attachments")) {
        std::string path;
        if (object.TakeText(item, "attachments", path) && path.find(';') != std::string::npos) {
            object.Refuse(item, "attachments", "a path without \";\", which stands between paths");
        }
        definition.m_Attachments += ';' + path;
    }
    const auto same = [&](const MailDefinition& other) { return other.m_Name == definition.m_Name; };
    if (std::any_of(definitions.begin(), definitions.end(), same)) {
        object.Error(object.Value().m_Begin, "found a second one of this name, expected another name");
    }
    definitions.push_back(std::move(definition));
}

void ReadMail(JsonObject& object, MailSettings& mail) {
    TakeCommand(object, true, mail.m_Targets[NO_IDENTIFIER].m_Command);
    TakeOutbox(object, mail);
    if (const EJsonValue* const from = object.Require("from"); from != nullptr) {
        TakeAddress(object, *from, "from", mail.m_From);
    }
    object.Objects("definitions", "definition",
                   [&](JsonObject& definition) { ReadDefinition(definition, mail.m_Definitions); });
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
    if (const EJsonValue* const mail = object.Find("mail"); mail != nullptr && !WITH_MAIL) {
        object.Error(mail->m_NamePlace, "found \"mail\", expected none: this kvgateway is built without mails");
    }
    object.Object("mail", [this](JsonObject& mail) { ReadMail(mail, m_Mail.emplace()); });
    object.Object("upload", [this](JsonObject& upload) { ReadUpload(upload); });
}

void Configuration::ReadUpload(JsonObject& object) {
    m_Upload.emplace();
    TakeOutbox(object, *m_Upload);
    Target target;
    TakeTarget(object, target);
    if (target.IsNone()) {
        target.m_Directory = "uploads";
    }
    m_Upload->m_Targets = m_Identifiers;
    std::erase_if(m_Upload->m_Targets, [](const auto& identifier) { return identifier.second.IsNone(); });
    m_Upload->m_Targets[NO_IDENTIFIER] = target;
}

void Configuration::ReadIdentifier(JsonObject& object) {
    Target target;
    int id = -1;
    object.Require("id");
    object.Integer("id", id, 0);
    TakeTarget(object, target);
    if (!m_Identifiers.emplace(id, target).second) {
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
