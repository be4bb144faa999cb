#include "gateway/Configuration.h"

#include "gateway/JsonObject.h"
#include "gateway/Moments.h"
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

// Members that the gateway had when it sent by itself, and what to write instead.
void RefuseFormer(JsonObject& object) {
    static const std::pair<std::set<std::string>, const char*> FORMER[] = {
        {{"server", "url", "user", "passwordEnv", "passwordFile", "requireTls", "caFile", "knownHosts", "keyFile"},
         R"("command", a program that knows servers, logins and certificates by itself)"},
        {{"spool"}, R"("limit", "retryMin" and "retryMax" in its place)"},
        {{"outbox"}, R"(none: without "command" mails stay in outbox/mail)"},
        {{"schedule"}, "none: cron or a systemd timer writes the line of the action into the input"}};
    for (const EJsonValue& member : object.Value().m_Items) {
        for (const auto& [names, instead] : FORMER) {
            if (names.contains(member.m_Name)) {
                object.Find(member.m_Name); // so that Finish does not name it again
                object.Error(member.m_NamePlace, "found " + EJsonText::Quote(member.m_Name) + ", expected " + instead);
            }
        }
    }
}

// A number of seconds, or a text with a unit.
void TakeSpan(JsonObject& object, const char* name, milliseconds& span) {
    constexpr milliseconds SHORTEST{100};
    if (const EJsonValue* const value = object.Find(name); value != nullptr) {
        const std::string text = value->m_Kind == Kind::Integer ? value->m_Text + 's' : value->m_Text;
        const bool isSpan = Moments::ParseSpan(text, span);
        object.RefuseIf(!isSpan || span < SHORTEST, name, "a span of time such as \"30s\", \"15m\" or \"1d\"");
    }
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
    RefuseFormer(object);
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
    object.RefuseIf(command.empty() || !hasPath, "command",
                    isMail ? "a program and its arguments" : "{path}, the file to send, among the arguments");
}

void TakeTarget(JsonObject& object, Target& target) {
    TakeCommand(object, false, target.m_Command);
    const EJsonValue* const directory = object.Find("directory");
    object.Text("directory", target.m_Directory);
    object.RefuseIf(target.m_Directory.empty(), "directory", "a directory");
    if (!target.m_Directory.empty() && object.Find("command") != nullptr) {
        object.Error(directory->m_NamePlace, "found \"directory\" beside \"command\", expected one of them");
    }
}

void TakeOutbox(JsonObject& object, OutboxSettings& settings) {
    object.Integer("limit", settings.m_nLimit, 0, std::numeric_limits<std::int64_t>::max());
    TakeSpan(object, "retryMin", settings.m_RetryMin);
    TakeSpan(object, "retryMax", settings.m_RetryMax);
    TakeSpan(object, "timeout", settings.m_Timeout);
    object.ErrorIf(settings.m_RetryMax < settings.m_RetryMin,
                   "found a \"retryMax\" below \"retryMin\", expected at least as much");
}

void TakeAddress(JsonObject& object, const EJsonValue& value, const std::string& name, std::string& address) {
    address = value.m_Text;
    const std::size_t at = address.find('@');
    const bool isPlain = std::none_of(address.begin(), address.end(), [](unsigned char c) {
        return c <= ' ' || std::string_view("<>,;").find(static_cast<char>(c)) != std::string_view::npos;
    });
    if (value.m_Kind != Kind::Text || at == 0 || at >= address.size() - 1 || !isPlain) {
        object.Refuse(value, name, "an address such as \"ops@example.com\"");
    }
}

void TakeLine(JsonObject& object, const char* name, std::string& text) {
    object.Text(name, text);
    const bool isLine = std::none_of(text.begin(), text.end(), [](unsigned char c) { return c < ' '; });
    object.RefuseIf(!isLine, name, "a text of one line");
}

void ReadDefinition(JsonObject& object, std::map<std::string, MailDefinition>& definitions) {
    MailDefinition definition;
    object.Require("name");
    TakeLine(object, "name", definition.m_Name);
    const std::pair<const char*, std::string&> lists[] = {
        {"to", definition.m_To}, {"cc", definition.m_Cc}, {"bcc", definition.m_Bcc}};
    for (const auto& [name, addresses] : lists) {
        for (const EJsonValue& item : object.List(name)) {
            std::string address;
            TakeAddress(object, item, name, address);
            addresses += (addresses.empty() ? "" : ", ") + address;
        }
    }
    object.ErrorIf((definition.m_To + definition.m_Cc + definition.m_Bcc).empty(),
                   "found no recipient, expected \"to\", \"cc\" or \"bcc\"");
    TakeLine(object, "subject", definition.m_Subject);
    object.Text("text", definition.m_Text);
    for (const EJsonValue& item : object.List("attachments")) {
        std::string path;
        if (object.TakeText(item, "attachments", path) && path.find(';') != std::string::npos) {
            object.Refuse(item, "attachments", "a path without \";\", which stands between paths");
        }
        definition.m_Attachments += ';' + path;
    }
    object.ErrorIf(!definitions.emplace(definition.m_Name, definition).second,
                   "found a second one of this name, expected another name");
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

// Loads an object; false, a finding and an empty one when the file holds none, or is missing and may not.
bool LoadFile(const std::filesystem::path& path, bool mayMiss, Findings& findings, EJsonValue& root) {
    EString message;
    findings.SetFile(path.string());
    const EResult result = EJsonText::Load(Widen(path.string()), root, message);
    if (Failed(result)) {
        root = EJsonValue();
        root.m_Kind = Kind::Object;
    }
    const bool isWrong = Failed(result) && (result != RC_SECTION_NOT_FOUND || !mayMiss);
    if (isWrong) {
        findings.ErrorWithPlace(Narrow(message));
    }
    return !isWrong;
}

} // namespace

Configuration Configuration::Load(const std::filesystem::path& directory, Findings& findings) {
    Configuration configuration;
    EJsonValue root;
    const bool hasGateway = LoadFile(directory / "gateway.json", true, findings, root);
    JsonObject gateway(root, "gateway", findings);
    configuration.ReadGateway(gateway);
    gateway.Finish();
    if (LoadFile(directory / "kvLogFile.json", false, findings, root)) {
        configuration.ReadLogFiles(root, !hasGateway, findings);
    }
    return configuration;
}

void Configuration::ReadGateway(JsonObject& object) {
    RefuseFormer(object);
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
    object.ErrorIf(!m_Identifiers.emplace(id, target).second, "found a second one of this id, expected another id");
}
