#pragma once

#include "base/Contract.h"
#include "base/ETimeStamp.h"
#include "gateway/Text.h"
#include "gateway/outbox/Settings.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

class Findings;
class JsonObject;
struct EJsonValue;

inline const std::string KERNEL_LOG = Narrow(KERNEL_LOG_NAME);

// A log file as kvLogFile.json describes it. The module reads that file by itself.
struct LogFileSettings {
    std::string m_Name;
    std::string m_LogPath{};
    std::string m_FileName;
    std::int32_t m_nMaxFileSize = 102400;
    std::int32_t m_nNumFiles = 2;
    std::int32_t m_nFileFormat = FORMAT_COMMA_SEPARATED;
    std::int32_t m_nUnicode = UNICODE_UTF16;
    std::int32_t m_nDeliveryMode = DELIVERY_NONE;
    std::int32_t m_nKeepCopy = 0;
    std::string m_MailName{};

    bool IsKernelLog() const { return m_Name == KERNEL_LOG; }
    bool Delivers() const { return m_nDeliveryMode != DELIVERY_NONE; }
    std::string Directory() const;    // where it is written, put in front of the file's name as it stands
    std::string LogDirectory() const; // the configured one, in the same way: delivered files may be kept there
    std::string Pattern() const;      // of its files' names, as the module uses it
    std::string Describe() const;     // in one line

    // The paths of all its files, named at this moment, and of their copies that are kept after a delivery.
    std::set<std::string> Files(const ETimeStamp& moment) const;

    // Cuts off what a kill may have left at the end of the current file: a part of a row, or the end of an HTML page that
    // gets more rows. Says so on stderr. To be called before the module starts.
    void RepairCurrent() const;
};

// Turns the pattern of a file name into one for fnmatch(3) that matches any time; `index` replaces "%i".
std::string MakeGlob(const std::string& pattern, const std::string& index);

struct Configuration {
    // Reads kvLogFile.json and gateway.json, which may be missing. After errors among the findings the configuration must
    // not be used.
    static Configuration Load(const std::filesystem::path& directory, Findings& findings);

    const LogFileSettings* FindLogFile(const std::string& name) const; // null when there is none

    std::vector<LogFileSettings> m_LogFiles; // the kernel log included, also when it is the default one
    std::array<std::string, 10> m_Headings{"Date",   "Time",   "Name",         "Text",         "Source",
                                           "Detail", "Active", "Acknowledged", "Alarm number", "Value"};
    std::map<int, Target> m_Identifiers; // and their own upload targets; none: that of all others
    std::optional<MailSettings> m_Mail;
    std::optional<OutboxSettings> m_Upload;

private:
    void ReadGateway(JsonObject& object);
    void ReadIdentifier(JsonObject& object);
    void ReadUpload(JsonObject& object);
    void ReadLogFiles(const EJsonValue& root, bool alone, Findings& findings); // alone: whatever gateway.json says
    void CheckDelivery(const LogFileSettings& file, JsonObject& object) const;
};
