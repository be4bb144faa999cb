#pragma once

#include "base/EJsonText.h"
#include "gateway/Schedule.h"
#include "gateway/transport/Settings.h"

#include <array>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

class Findings;

// A log file as kvLogFile.json describes it. The module reads the file by itself: this is what the gateway has to know.
struct LogFile {
    std::string m_Name;
    std::string m_LogPath;
    std::string m_FileName;
    std::int64_t m_nMaxFileSize = 102400;
    std::int64_t m_nNumFiles = 2;
    std::int64_t m_nFileFormat = 1;
    std::int64_t m_nUnicode = 1;
    std::int64_t m_nDeliveryMode = 1;
    std::int64_t m_nKeepCopy = 0;
    std::string m_MailName;
    EJsonPlace m_Place; // of the name
    EJsonPlace m_DeliveryPlace;
    EJsonPlace m_MailPlace;

    bool IsKernelLog() const { return m_Name == "KernelLog"; }
    bool Delivers() const { return m_nDeliveryMode != 1; }
    std::string Directory() const; // where it is written, put in front of the file's name as it stands
    std::string Pattern() const;   // of its files' names, as the module uses it
    std::string Describe() const;  // in one line
};

// An identifier, and where uploads of its log files go.
struct Identifier {
    std::string m_Url; // empty: where all uploads go
    std::string m_User;
    std::string m_Password;
};

struct Configuration {
    static constexpr std::size_t HEADINGS = 10;

    // Reads kvLogFile.json and gateway.json (which may be missing) of the directory, and finds what is wrong or doubtful.
    // With errors among the findings the configuration is not to be used.
    static Configuration Load(const std::filesystem::path& directory, Findings& findings);

    const LogFile* FindLogFile(const std::string& name) const;

    std::vector<LogFile> m_LogFiles; // the kernel log included, also when it is the default one
    std::array<std::string, HEADINGS> m_Headings{"Date",   "Time",   "Name",         "Text",         "Source",
                                                 "Detail", "Active", "Acknowledged", "Alarm number", "Value"};
    std::map<int, Identifier> m_Identifiers;
    std::optional<MailSettings> m_Mail;
    std::optional<UploadSettings> m_Upload;
    std::vector<ScheduleEntry> m_Schedule;

private:
    void LoadLogFiles(const std::filesystem::path& file, Findings& findings);
    bool LoadGateway(const std::filesystem::path& file, Findings& findings); // after the log files; true when read
    void CheckDeliveries(const std::filesystem::path& logFiles, Findings& findings) const;
};
