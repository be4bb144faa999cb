#include "gateway/Configuration.h"

#include "base/EFileIO.h"
#include "base/EscFilter.h"
#include "gateway/JsonObject.h"
#include "gateway/Text.h"

#include <algorithm>
#include <set>

// Reads kvLogFile.json. The module takes its items by position and ignores their names, so that a misplaced one gives its
// value to another. Here every name is checked against its position.

namespace {

using Names = std::vector<std::string>;

const Names SERVICE_ITEMS{"version", "dateFormat", "timeFormat", "fileSpecs"};
const Names SERVICE_ITEMS_OLD{"version", "fileSpecs"};
const Names FILE_ITEMS{"type",       "name",    "logPath",      "fileName", "maxFileSize", "numFiles",
                       "fileFormat", "unicode", "deliveryMode", "keepCopy", "mailName"};
const Names FILE_ITEMS_OLD{"type",     "name",    "logPath", "fileName", "maxFileSize",
                           "numFiles", "unused1", "unused2", "unused3",  "unicode"};
constexpr int NEWEST_VERSION = 3;
constexpr int MAX_FILES = 10000; // each start of a file touches the whole set

// Reports the first misplaced item only: the ones behind it are misplaced because of it.
void CheckOrder(JsonObject& object, const Names& expected) {
    const std::vector<EJsonValue>& items = object.Value().m_Items;
    const auto same = [](const EJsonValue& item, const std::string& name) { return item.m_Name == name; };
    const auto [item, name] = std::mismatch(items.begin(), items.end(), expected.begin(), expected.end(), same);
    if (item == items.end() && name == expected.end()) {
        return;
    }
    const std::string end = "the end of the object";
    object.Error(item != items.end() ? item->m_NamePlace : object.Value().m_End,
                 "found " + (item != items.end() ? EJsonText::Quote(item->m_Name) : end) + ", expected " +
                     (name != expected.end() ? EJsonText::Quote(*name) : end));
}

// A run of a token's letter must have one of its lengths; the module drops others.
void CheckPattern(JsonObject& object, const char* name, const std::map<char, std::set<std::size_t>>& tokens,
                  const std::string& expected) {
    std::string pattern;
    object.Text(name, pattern);
    object.WarnIf(pattern.empty(), name, "found an empty pattern: its cells will be empty");
    for (std::size_t i = 0; i < pattern.size();) {
        const std::size_t end = std::min(pattern.find_first_not_of(pattern[i], i), pattern.size());
        const auto token = tokens.find(pattern[i]);
        object.RefuseIf(token != tokens.end() && !token->second.contains(end - i), name,
                        "a pattern of " + expected + " and other characters");
        i = end;
    }
}

void CheckFileName(JsonObject& object, const LogFileSettings& file) {
    const std::string& pattern = file.m_FileName;
    std::set<char> escapes;
    for (std::size_t at = pattern.find('%'); at != std::string::npos; at = pattern.find('%', at + 2)) {
        escapes.insert(at + 1 < pattern.size() ? pattern[at + 1] : '?');
    }
    const bool hasTime = escapes.contains('H') && escapes.contains('M') && escapes.contains('S');
    const bool hasOthers = std::any_of(escapes.begin(), escapes.end(), [](char escape) {
        return std::string_view("iYymdHMSs%").find(escape) == std::string_view::npos;
    });
    object.RefuseIf(hasOthers, "fileName", "only %i, %Y, %y, %m, %d, %H, %M, %S, %s and %% as escapes");
    object.RefuseIf(pattern.empty(), "fileName", "a pattern such as \"name-%i.csv\"");
    object.RefuseIf(file.m_nDeliveryMode == DELIVERY_EMAIL && pattern.find(';') != std::string::npos, "fileName",
                    "no \";\", which stands between the attachments of a mail");
    object.WarnIf(!escapes.contains('i') && file.m_nNumFiles > 1, "fileName",
                  "found no %i for several files: only the newest is kept");
    object.WarnIf(file.Delivers() && !hasTime, "fileName",
                  "found no %H, %M and %S: what is delivered later has the same names, and may replace what was "
                  "delivered before");
    object.WarnIf(pattern.find_first_of("/:") != std::string::npos, "fileName", R"(found "/" or ":": they become "-")");
}

LogFileSettings ReadLogFile(JsonObject& object) {
    LogFileSettings file;
    std::string type;
    object.Text("type", type);
    object.RefuseIf(type != "EFileSpec", "type", "\"EFileSpec\"");
    object.Text("name", file.m_Name);
    std::string plainName = file.m_Name;
    object.RefuseIf(plainName.empty(), "name", "a name");
    object.RefuseIf(SplitName(plainName) >= 0 && plainName == KERNEL_LOG, "name",
                    "\"KernelLog\", which has no identifier");
    object.Text("logPath", file.m_LogPath);
    object.WarnIf(file.IsKernelLog() && !file.m_LogPath.empty() && !file.m_LogPath.ends_with('/'), "logPath",
                  "found no \"/\" at the end: the kernel log's is put before the file name as it stands");
    object.Text("fileName", file.m_FileName);
    object.Integer("maxFileSize", file.m_nMaxFileSize);
    object.Integer("numFiles", file.m_nNumFiles, 0, MAX_FILES);
    object.WarnIf(file.m_nNumFiles == 0, "numFiles", "found 0: no file is moved along, deleted or delivered");
    object.Integer("fileFormat", file.m_nFileFormat, FORMAT_PLAIN_TEXT, FORMAT_HTML);
    object.Integer("unicode", file.m_nUnicode);
    object.WarnIf(file.m_nUnicode != 0 && file.m_nUnicode != UNICODE_UTF16, "unicode",
                  "found neither 0 nor 1: the file is written in 8 bits");
    object.Integer("deliveryMode", file.m_nDeliveryMode, DELIVERY_NONE, DELIVERY_EMAIL);
    object.Integer("keepCopy", file.m_nKeepCopy);
    object.WarnIf(file.m_nKeepCopy != 0 && file.m_nKeepCopy != 1, "keepCopy", "found neither 0 nor 1: it counts as 1");
    object.Text("mailName", file.m_MailName);
    for (const char* const name : {"unused1", "unused2", "unused3"}) {
        std::int32_t unused = 0;
        object.Integer(name, unused);
    }
    CheckFileName(object, file);
    return file;
}

} // namespace

void Configuration::ReadLogFiles(const EJsonValue& root, bool alone, Findings& findings) {
    JsonObject section(root, "section", findings);
    int version = NEWEST_VERSION;
    section.Integer("version", version, 1, NEWEST_VERSION);
    CheckOrder(section, version == NEWEST_VERSION ? SERVICE_ITEMS : SERVICE_ITEMS_OLD);
    CheckPattern(section, "dateFormat", {{'Y', {2, 4}}, {'M', {2}}, {'D', {2}}}, "YYYY or YY, MM, DD");
    CheckPattern(section, "timeFormat", {{'H', {2}}, {'m', {2}}, {'S', {2}}, {'s', {3}}}, "HH, mm, SS, sss");

    std::map<std::string, std::string> owners; // of the files: two log files in one would make a mess of it
    const auto claim = [&](const LogFileSettings& file, const EJsonPlace& place) {
        for (const std::string& name : file.Files(ETimeStamp{86400, 0})) { // whatever the moment
            if (const auto [owner, isNew] = owners.emplace(name, file.m_Name); !isNew && owner->second != file.m_Name) {
                findings.Error(place, "log file " + EJsonText::Quote(file.m_Name) + " would write the file " +
                                          EJsonText::Quote(name) + ", which belongs to log file " +
                                          EJsonText::Quote(owner->second));
                return;
            }
        }
    };
    for (const EJsonValue& value : section.List("fileSpecs")) {
        JsonObject object(value, "log file", findings);
        if (value.m_Kind != EJsonValue::Kind::Object) {
            continue;
        }
        CheckOrder(object, version > 1 ? FILE_ITEMS : FILE_ITEMS_OLD);
        const LogFileSettings file = ReadLogFile(object);
        const EJsonPlace place = object.Find("name") != nullptr ? object.Find("name")->m_Begin : value.m_Begin;
        if (FindLogFile(file.m_Name) != nullptr) {
            findings.Error(place, "\"name\": found " + EJsonText::Quote(file.m_Name) + " again, expected another name");
        } else if (!file.m_FileName.empty()) {
            claim(file, place);
        }
        if (!alone) {
            CheckDelivery(file, object);
        }
        m_LogFiles.push_back(file);
    }
    if (FindLogFile(KERNEL_LOG) == nullptr) {
        m_LogFiles.push_back({.m_Name = KERNEL_LOG,
                              .m_FileName = Narrow(KERNEL_LOG_FILE),
                              .m_nMaxFileSize = KERNEL_LOG_SIZE,
                              .m_nNumFiles = KERNEL_LOG_FILES,
                              .m_nFileFormat = FORMAT_PLAIN_TEXT});
        claim(m_LogFiles.back(), root.m_Begin);
    }
}

// What gateway.json has to say about a log file.
void Configuration::CheckDelivery(const LogFileSettings& file, JsonObject& object) const {
    std::string name = file.m_Name;
    const int id = SplitName(name);
    object.RefuseIf(id >= 0 && !m_Identifiers.contains(id), "name", "an identifier that gateway.json lists");
    const bool isMailed = file.m_nDeliveryMode == DELIVERY_EMAIL;
    object.RefuseIf(isMailed && !m_Mail, "deliveryMode", "\"mail\" in gateway.json");
    object.RefuseIf(file.m_nDeliveryMode == DELIVERY_UPLOAD && !m_Upload, "deliveryMode", "\"upload\" in gateway.json");
    const std::string mail = JoinName(file.m_MailName, id);
    object.RefuseIf(isMailed && m_Mail && !m_Mail->m_Definitions.contains(mail), "mailName",
                    "a definition " + EJsonText::Quote(mail) + " in gateway.json");
}

// A kernel log that delivers is written in the working directory, not in the spool.
std::string LogFileSettings::Directory() const {
    return !Delivers() ? LogDirectory() : IsKernelLog() ? "" : Narrow(SPOOL_DIRECTORY);
}

// As the module changes it.
std::string LogFileSettings::LogDirectory() const {
    if (IsKernelLog()) {
        return m_LogPath;
    }
    EString directory = m_LogPath.empty() ? L"." : Widen(m_LogPath);
    directory.TrimRight();
    EFileIO::ConvertPathString(directory.GetBuffer(0));
    const std::string path = Narrow(directory);
    return path.ends_with('/') ? path : path + '/';
}

std::set<std::string> LogFileSettings::Files(const ETimeStamp& moment) const {
    std::vector<std::string> directories{Directory()};
    if (Delivers() && m_nKeepCopy != 0) {
        directories.push_back(LogDirectory());
    }
    std::set<std::string> names;
    for (int i = 0; i < std::max(m_nNumFiles, 1); ++i) {
        EString name;
        AppendFileName(Widen(Pattern()), i, moment, name);
        for (const std::string& directory : directories) {
            const std::filesystem::path path = (directory.starts_with('/') ? "" : "./") + directory + Narrow(name);
            names.insert(path.lexically_normal());
        }
    }
    return names;
}

std::string LogFileSettings::Pattern() const {
    EString pattern = Widen(m_FileName);
    if (IsKernelLog()) {
        pattern.Replace(KERNEL_WORD, KERNEL_WORD_INSTEAD);
    }
    return Narrow(pattern);
}

std::string LogFileSettings::Describe() const {
    const char* const formats[] = {"plain text", IsKernelLog() ? "plain text" : "comma-separated", "HTML"};
    const char* const deliveries[] = {"", ", uploaded on request", ", mailed on request"};
    std::string text = m_Name + ": " + Directory() + Pattern() + ", " + formats[m_nFileFormat];
    text += m_nFileFormat == FORMAT_HTML ? "" : m_nUnicode == UNICODE_UTF16 ? " in UTF-16" : " in 8 bits";
    text += ", " + Plural(m_nNumFiles, "file");
    text += m_nMaxFileSize > 0 ? " of up to " + Plural(m_nMaxFileSize, "byte") : " without a size limit";
    text += deliveries[m_nDeliveryMode - DELIVERY_NONE];
    return text + (Delivers() && m_nKeepCopy != 0 ? ", then kept in " + LogDirectory() : "");
}

const LogFileSettings* Configuration::FindLogFile(const std::string& name) const {
    const auto file =
        std::find_if(m_LogFiles.begin(), m_LogFiles.end(), [&](const LogFileSettings& i) { return i.m_Name == name; });
    return file != m_LogFiles.end() ? &*file : nullptr;
}
