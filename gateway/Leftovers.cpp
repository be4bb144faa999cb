#include "gateway/Leftovers.h"

#include "base/EFileIO.h"
#include "gateway/Console.h"
#include "gateway/Moments.h"
#include "gateway/Text.h"

#include <algorithm>

#include <fnmatch.h>

namespace fs = std::filesystem;

namespace {

constexpr const char* JOB = "$tmp"; // begins the names of the directories

struct Leftover {
    fs::file_time_type m_Time;
    fs::path m_Path;
    const LogFile* m_pLog;
    bool operator<(const Leftover& other) const { return m_Time < other.m_Time; }
};

bool IsJob(const fs::path& directory) {
    return directory.filename().string().starts_with(JOB);
}

class Search {
public:
    // The log files that are written in "Spool", or the kernel log, which is written where it stands.
    Search(const Configuration& configuration, bool isKernelLog) {
        for (const LogFile& log : configuration.m_LogFiles) {
            if (log.Delivers() && log.IsKernelLog() == isKernelLog) {
                m_Logs.emplace_back(&log, MakeGlob(log.Pattern(), "+([0-9])"));
                m_Named.merge(log.Files(Moments::Now()));
            }
        }
        std::error_code error;
        for (const auto& item : fs::directory_iterator(isKernelLog ? "." : "Spool", error)) {
            if (item.is_directory(error) && IsJob(item.path())) {
                const std::vector<fs::directory_entry> files(fs::directory_iterator(item.path()), {});
                std::for_each(files.begin(), files.end(), [this](const auto& file) { Take(file.path(), false); });
                fs::remove(item.path(), error); // an empty one
            } else if (item.is_regular_file(error) && !m_Named.contains(item.path().lexically_normal())) {
                Take(item.path(), isKernelLog);
            }
        }
    }

    std::vector<Leftover> m_Found;

private:
    void Take(const fs::path& path, bool mayBeAnothers) {
        const auto owner = std::find_if(m_Logs.begin(), m_Logs.end(), [&](const auto& log) {
            return fnmatch(log.second.c_str(), path.filename().c_str(), FNM_EXTMATCH) == 0;
        });
        if (owner != m_Logs.end()) {
            m_Found.push_back({fs::last_write_time(path), path, owner->first});
        } else if (!mayBeAnothers) {
            Console::Say(path.string() + ": of no log file that delivers; left alone");
        }
    }

    std::vector<std::pair<const LogFile*, std::string>> m_Logs; // and how their files are called
    std::set<std::string> m_Named;                              // what the module goes on with
};

void Finish(const fs::path& path, bool keep, const std::string& logDirectory) {
    std::error_code error;
    if (keep) {
        const fs::path target = logDirectory + path.filename().string();
        fs::create_directories(target.parent_path(), error);
        EFileIO::RenameFile(Widen(path.string()), Widen(target.string()));
    } else {
        fs::remove(path, error);
    }
    if (IsJob(path.parent_path())) {
        fs::remove(path.parent_path(), error); // once it is empty
    }
}

} // namespace

void HandOverLeftovers(const Configuration& configuration, Outbox& outbox) {
    for (const bool isKernelLog : {false, true}) {
        Search search(configuration, isKernelLog);
        std::stable_sort(search.m_Found.begin(), search.m_Found.end());
        for (const auto& [time, path, log] : search.m_Found) {
            const auto finish = [path = path, keep = log->m_nKeepCopy != 0, directory = log->LogDirectory()] {
                Finish(path, keep, directory);
            };
            Console::Say(path.string() + ": left by an earlier run; it is sent now");
            std::string name = log->m_Name;
            const int identifier = SplitName(name);
            if (log->m_nDeliveryMode == 2) {
                outbox.Upload(path, identifier, finish);
            } else {
                outbox.Mail(JoinName(log->m_MailName, identifier), ';' + path.string(), finish);
            }
        }
    }
}
