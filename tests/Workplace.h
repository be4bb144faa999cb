#pragma once

#include "base/EONEVENTSTRUCT.h"
#include "base/EPersistent.h"
#include "tests/TempDir.h"

#include <algorithm>
#include <csignal>
#include <map>
#include <sstream>
#include <thread>
#include <vector>

#include <sys/resource.h>

// The text with this in place of every that.
inline std::string Replaced(std::string text, const std::string& that, const std::string& with) {
    for (std::size_t at = 0; (at = text.find(that, at)) != std::string::npos; at += with.size()) {
        text.replace(at, that.size(), with);
    }
    return text;
}

// Whether the condition comes true within a time that no healthy program needs.
template <class Condition>
bool Eventually(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// A disk on which no file can grow past so many bytes, as long as it lives.
class FullDisk {
public:
    explicit FullDisk(rlim_t room) {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_Before);
        const rlimit full{room, m_Before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &full);
    }
    ~FullDisk() { setrlimit(RLIMIT_FSIZE, &m_Before); }

private:
    rlimit m_Before{};
};

// A test's working directory, which is also its configuration directory, and what is found in it.
class Workplace {
public:
    using Files = std::map<std::string, std::string>; // path to bytes

    Workplace() : m_Before(std::filesystem::current_path()) {
        setenv("TZ", "UTC", 1);
        tzset();
        std::filesystem::current_path(m_Dir.Path());
        EPersistent::SetDirectory(Wide(m_Dir.Path()));
    }
    ~Workplace() { std::filesystem::current_path(m_Before); }

    // Writes the service's section, version 3, with these elements of the list ("type" is put in front of each).
    static void WriteSection(const std::vector<std::string>& specs) {
        std::string list;
        for (const std::string& spec : specs) {
            list += (list.empty() ? "" : ",\n") + (R"({"type": "EFileSpec", )" + spec + "}");
        }
        WriteWhole("kvLogFile.json", R"({"version": 3, "dateFormat": "MM-DD-YYYY", "timeFormat": "HH:mm:SS.sss",
"fileSpecs": [)" + list + "]}");
    }

    // Every file below the working directory but the configuration, sorted: "logs/a.csv". Directories end in '/'.
    static std::vector<std::string> Tree() {
        std::vector<std::string> tree;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(".")) {
            const std::string path = entry.path().lexically_relative(".").string();
            if (path != "kvLogFile.json") {
                tree.push_back(entry.is_directory() ? path + '/' : path);
            }
        }
        std::ranges::sort(tree);
        return tree;
    }

    // A text of paths, with every delivery job's directory called "JOB/".
    static std::string Known(std::string paths) {
        for (std::size_t at = 0; (at = paths.find("Spool/$tmp", at)) != std::string::npos; ++at) {
            paths.replace(at, 19, "JOB/"); // eight digits, and '/'
        }
        return paths;
    }

    // Every file by its known path, and every directory in a log or spool directory, which has no bytes.
    static Files Found() {
        Files files;
        for (const std::string& path : Tree()) {
            if (path != "logs/" && path != "Spool/") {
                files[Known(path)] = path.back() == '/' ? "" : ReadWhole(path);
            }
        }
        return files;
    }

private:
    TempDir m_Dir;
    std::filesystem::path m_Before;
};

// An element of the section's list.
struct SpecItems {
    std::string m_Name = "Log";
    std::string m_Path = "logs";
    std::string m_File = "log-%i.csv";
    int m_nMaxSize = 102400;
    int m_nFiles = 2;
    int m_nFormat = 1;
    int m_nUnicode = 0;
    int m_nDelivery = 1;
    int m_nKeepCopy = 0;
    std::string m_Mail{};

    operator std::string() const {
        std::ostringstream items;
        items << R"("name": ")" << m_Name << R"(", "logPath": ")" << m_Path << R"(", "fileName": ")" << m_File
              << R"(", "maxFileSize": )" << m_nMaxSize << R"(, "numFiles": )" << m_nFiles << R"(, "fileFormat": )"
              << m_nFormat << R"(, "unicode": )" << m_nUnicode << R"(, "deliveryMode": )" << m_nDelivery
              << R"(, "keepCopy": )" << m_nKeepCopy << R"(, "mailName": ")" << m_Mail << '"';
        return items.str();
    }
};

// A record of 2024-01-31 13:05:09.042 UTC, alarm 7, value 17.
inline EONEVENTSTRUCT MakeRecord(const wchar_t* name = L"N", const wchar_t* text = L"T") {
    EONEVENTSTRUCT record;
    record.m_TimeStamp = {1706706309, 42};
    record.m_pszName = name;
    record.m_pszText = text;
    record.m_pszSource = L"S";
    record.m_pszDetail = L"D";
    record.m_nAlarmNumber = 7;
    record.m_Value.SetInteger(17);
    return record;
}
