#include "gateway/Configuration.h"

#include "base/EONEVENTSTRUCT.h"
#include "base/EscFilter.h"
#include "gateway/Findings.h"
#include "gateway/JsonObject.h"
#include "gateway/Text.h"

#include <array>
#include <cstdint>
#include <limits>
#include <map>
#include <set>
#include <span>

// Reads kvLogFile.json. The module takes its items by position and does not look at their names: whoever misplaces one
// gets another's value without a word. Here every name is held against its place.

namespace {

using Kind = EJsonValue::Kind;
using Names = std::span<const char* const>;

constexpr std::array SERVICE_ITEMS{"version", "dateFormat", "timeFormat", "fileSpecs"};
constexpr std::array SERVICE_ITEMS_OLD{"version", "fileSpecs"};
constexpr std::array FILE_ITEMS{"type",       "name",    "logPath",      "fileName", "maxFileSize", "numFiles",
                                "fileFormat", "unicode", "deliveryMode", "keepCopy", "mailName"};
constexpr std::array FILE_ITEMS_OLD{"type",     "name",    "logPath", "fileName", "maxFileSize",
                                    "numFiles", "unused1", "unused2", "unused3",  "unicode"};
constexpr std::int64_t NEWEST_VERSION = 3;
constexpr std::int64_t MAX_FILES = 10000; // each start of a file touches the whole set

// The first item that is not where it belongs; what follows it is out of place because of it.
void CheckOrder(const EJsonValue& object, Names expected, const std::string& what, Findings& findings) {
    const std::vector<EJsonValue>& members = object.m_Items;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const std::string name = EJsonText::Quote(expected[i]);
        if (i >= members.size()) {
            findings.Error(object.m_End, what + ": found the end of the object, expected " + name);
            return;
        }
        if (members[i].m_Name != expected[i]) {
            findings.Error(members[i].m_NamePlace,
                           what + ": found " + EJsonText::Quote(members[i].m_Name) + ", expected " + name);
            return;
        }
    }
    if (members.size() > expected.size()) {
        const EJsonValue& extra = members[expected.size()];
        findings.Error(extra.m_NamePlace,
                       what + ": found " + EJsonText::Quote(extra.m_Name) + ", expected the end of the object");
    }
}

// Runs of token letters have to have one of the lengths; the module drops what does not become a token.
void CheckPattern(JsonObject& object, const char* name, const std::map<char, std::set<std::size_t>>& tokens,
                  const std::string& expected, Findings& findings) {
    const EJsonValue* const value = object.Find(name);
    std::string pattern;
    if (value == nullptr || !JsonObject::TakeText(*value, name, findings, pattern)) {
        return;
    }
    if (pattern.empty()) {
        findings.Warning(value->m_Begin, EJsonText::Quote(name) + ": found an empty pattern: its cells will be empty");
    }
    for (std::size_t i = 0; i < pattern.size();) {
        const std::size_t end = std::min(pattern.find_first_not_of(pattern[i], i), pattern.size());
        const auto token = tokens.find(pattern[i]);
        if (token != tokens.end() && !token->second.contains(end - i)) {
            JsonObject::Refuse(*value, name, expected, findings);
            return;
        }
        i = end;
    }
}

void CheckPatterns(JsonObject& object, Findings& findings) {
    CheckPattern(object, "dateFormat", {{'Y', {2, 4}}, {'M', {2}}, {'D', {2}}},
                 "a date pattern of YYYY or YY, MM, DD and other characters", findings);
    CheckPattern(object, "timeFormat", {{'H', {2}}, {'m', {2}}, {'S', {2}}, {'s', {3}}},
                 "a time pattern of HH, mm, SS, sss and other characters", findings);
}

void CheckFileName(const EJsonValue& value, const LogFile& file, Findings& findings) {
    const std::string& pattern = file.m_FileName;
    if (pattern.empty()) {
        JsonObject::Refuse(value, "fileName", "a pattern such as \"name-%i.csv\"", findings);
        return;
    }
    bool hasIndex = false;
    for (std::size_t at = pattern.find('%'); at != std::string::npos; at = pattern.find('%', at + 2)) {
        const char escape = at + 1 < pattern.size() ? pattern[at + 1] : '\0';
        hasIndex = hasIndex || escape == 'i';
        if (escape == '\0' || std::string("iYymdHMSs%").find(escape) == std::string::npos) {
            JsonObject::Refuse(value, "fileName", "only %i, %Y, %y, %m, %d, %H, %M, %S, %s and %% as escapes",
                               findings);
            return;
        }
    }
    if (!hasIndex && file.m_nNumFiles > 1) {
        findings.Warning(value.m_Begin, "\"fileName\": found no %i for several files: only the newest is kept");
    }
    if (pattern.find_first_of("/:") != std::string::npos) {
        findings.Warning(value.m_Begin, "\"fileName\": found \"/\" or \":\": they become \"-\"");
    }
}

class SpecReader {
public:
    SpecReader(const EJsonValue& value, std::int64_t version, Findings& findings)
        : m_Object(value, "log file", findings), m_nVersion(version), m_Findings(findings) {}

    bool Read(LogFile& file) {
        if (!m_Object.IsObject()) {
            return false;
        }
        CheckOrder(m_Object.Value(), m_nVersion > 1 ? Names(FILE_ITEMS) : Names(FILE_ITEMS_OLD), "log file",
                   m_Findings);
        std::string type;
        if (m_Object.Text("type", type) && type != "EFileSpec") {
            JsonObject::Refuse(*m_Object.Find("type"), "type", "\"EFileSpec\"", m_Findings);
        }
        ReadName(file);
        if (m_Object.Text("logPath", file.m_LogPath) && file.IsKernelLog() && !file.m_LogPath.empty() &&
            file.m_LogPath.back() != '/') {
            m_Findings.Warning(m_Object.Find("logPath")->m_Begin,
                               "\"logPath\": found no \"/\" at the end: the kernel log's path is put before its "
                               "file name as it stands");
        }
        ReadNumber("maxFileSize", std::numeric_limits<std::int32_t>::min(), file.m_nMaxFileSize);
        if (ReadNumber("numFiles", 0, file.m_nNumFiles, MAX_FILES) && file.m_nNumFiles == 0) {
            Doubt("numFiles", "found 0: the file grows without limit and is never delivered");
        }
        if (ReadNumber("unicode", std::numeric_limits<std::int32_t>::min(), file.m_nUnicode) && file.m_nUnicode != 0 &&
            file.m_nUnicode != 1) {
            Doubt("unicode", "found neither 0 nor 1: the file is written in 8 bits");
        }
        ReadNumber("fileFormat", 0, file.m_nFileFormat, 2);
        if (ReadNumber("deliveryMode", 1, file.m_nDeliveryMode, 3)) {
            file.m_DeliveryPlace = m_Object.Find("deliveryMode")->m_Begin;
        }
        if (ReadNumber("keepCopy", std::numeric_limits<std::int32_t>::min(), file.m_nKeepCopy) &&
            file.m_nKeepCopy != 0 && file.m_nKeepCopy != 1) {
            Doubt("keepCopy", "found neither 0 nor 1: it counts as 1");
        }
        if (m_Object.Text("mailName", file.m_MailName)) {
            file.m_MailPlace = m_Object.Find("mailName")->m_Begin;
        }
        for (const char* unused : {"unused1", "unused2", "unused3"}) {
            std::int64_t number = 0;
            ReadNumber(unused, std::numeric_limits<std::int32_t>::min(), number);
        }
        if (m_Object.Text("fileName", file.m_FileName)) {
            CheckFileName(*m_Object.Find("fileName"), file, m_Findings);
        }
        return true;
    }

private:
    void ReadName(LogFile& file) {
        const EJsonValue* const name = m_Object.Find("name");
        file.m_Place = name != nullptr ? name->m_Begin : m_Object.Value().m_Begin;
        if (m_Object.Text("name", file.m_Name) && file.m_Name.empty()) {
            JsonObject::Refuse(*name, "name", "a name", m_Findings);
        }
    }

    bool ReadNumber(const char* name, std::int64_t min, std::int64_t& number,
                    std::int64_t max = std::numeric_limits<std::int32_t>::max()) {
        return m_Object.Integer(name, min, max, number);
    }

    void Doubt(const char* name, const std::string& text) {
        m_Findings.Warning(m_Object.Find(name)->m_Begin, EJsonText::Quote(name) + ": " + text);
    }

    JsonObject m_Object;
    std::int64_t m_nVersion;
    Findings& m_Findings;
};

// The names of the files that a log file will have, as far as they can be told apart before they are written: with the
// same moment in all of them.
std::set<std::string> NamesOf(const LogFile& file) {
    const EString wide = Widen(file.Pattern());
    const ETimeStamp moment{86400, 0};
    std::set<std::string> names;
    for (int i = 0; i < std::max<std::int64_t>(file.m_nNumFiles, 1); ++i) {
        EONEVENTSTRUCT record;
        record.m_nIndex = i;
        EscFilter filter(nullptr, wide, &record, false, &moment, -1);
        EString name;
        int stop = 0;
        while (const wchar_t* piece = filter.GetNextPiece(stop)) {
            name += piece;
        }
        name.Replace(L":", L"-");
        name.Replace(L"/", L"-");
        const auto add = [&](const std::string& path) {
            const std::string relative = path.starts_with('/') ? path : "./" + path;
            names.insert((std::filesystem::path(relative + Narrow(name))).lexically_normal().string());
        };
        add(file.Directory());
        if (file.Delivers() && file.m_nKeepCopy != 0) {
            add(file.m_LogPath + "/");
        }
    }
    return names;
}

// Two log files that write to the same file make a mess of it; the default kernel log counts as well.
void CheckSharedFiles(const std::vector<LogFile>& files, Findings& findings) {
    std::map<std::string, const LogFile*> owners;
    for (const LogFile& file : files) {
        if (file.m_FileName.empty()) {
            continue; // has been refused already
        }
        for (const std::string& name : NamesOf(file)) {
            const auto [owner, isNew] = owners.emplace(name, &file);
            if (!isNew && owner->second != &file) {
                findings.Error(file.m_Place, "log file " + EJsonText::Quote(file.m_Name) + " would write the file " +
                                                 EJsonText::Quote(name) + ", which belongs to log file " +
                                                 EJsonText::Quote(owner->second->m_Name));
                break;
            }
        }
    }
}

LogFile DefaultKernelLog() {
    LogFile file;
    file.m_Name = "KernelLog";
    file.m_FileName = "Kavro.log";
    file.m_nMaxFileSize = 512000;
    file.m_nNumFiles = 1;
    file.m_nFileFormat = 0;
    return file;
}

} // namespace

void Configuration::LoadLogFiles(const std::filesystem::path& file, Findings& findings) {
    findings.SetFile(file.string());
    EJsonValue root;
    EString message;
    if (const EResult loaded = EJsonText::Load(Widen(file.string()), root, message); Failed(loaded)) {
        findings.ErrorInWords(Narrow(message));
        return;
    }
    JsonObject object(root, "section", findings);
    std::int64_t version = NEWEST_VERSION;
    object.Integer("version", 1, NEWEST_VERSION, version);
    CheckOrder(root, version == NEWEST_VERSION ? Names(SERVICE_ITEMS) : Names(SERVICE_ITEMS_OLD), "section", findings);
    CheckPatterns(object, findings);
    std::map<std::string, int> lines;
    for (const EJsonValue& value : object.List("fileSpecs")) {
        LogFile spec;
        if (!SpecReader(value, version, findings).Read(spec)) {
            continue;
        }
        if (const auto [first, isNew] = lines.emplace(spec.m_Name, spec.m_Place.m_nLine); !isNew) {
            findings.Error(spec.m_Place, "\"name\": found " + EJsonText::Quote(spec.m_Name) +
                                             " again, expected another name than in line " +
                                             std::to_string(first->second));
            continue;
        }
        m_LogFiles.push_back(spec);
    }
    if (!lines.contains("KernelLog")) {
        m_LogFiles.insert(m_LogFiles.begin(), DefaultKernelLog());
    }
    CheckSharedFiles(m_LogFiles, findings);
}

std::string LogFile::Directory() const {
    if (IsKernelLog()) {
        return m_LogPath;
    }
    const std::string directory = Delivers() ? "./Spool" : m_LogPath.empty() ? "." : m_LogPath;
    return directory.back() == '/' ? directory : directory + '/';
}

std::string LogFile::Pattern() const {
    EString pattern = Widen(m_FileName);
    if (IsKernelLog()) {
        pattern.Replace(L"EKernel", L"Kavro");
    }
    return Narrow(pattern);
}

std::string LogFile::Describe() const {
    const char* const formats[] = {"plain text", "comma-separated", "HTML"};
    const char* const deliveries[] = {"", "uploaded on request", "mailed on request"};
    std::string text = m_Name + ": " + Directory() + Pattern() + ", " + formats[m_nFileFormat];
    text += m_nFileFormat == 2 ? "" : m_nUnicode == 1 ? " in UTF-16" : " in 8 bits";
    text += ", " + std::to_string(m_nNumFiles) + (m_nNumFiles == 1 ? " file" : " files");
    text += m_nMaxFileSize > 0 ? " of up to " + std::to_string(m_nMaxFileSize) + " bytes" : " without a size limit";
    text += Delivers() ? std::string(", ") + deliveries[m_nDeliveryMode - 1] : "";
    text += Delivers() && m_nKeepCopy != 0 ? ", then kept in " + m_LogPath : "";
    return text;
}

const LogFile* Configuration::FindLogFile(const std::string& name) const {
    for (const LogFile& file : m_LogFiles) {
        if (file.m_Name == name) {
            return &file;
        }
    }
    return nullptr;
}
