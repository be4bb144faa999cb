#include "gateway/Leftovers.h"

#include "base/EFileIO.h"
#include "gateway/Console.h"
#include "gateway/Moments.h"
#include "gateway/Text.h"

#include <algorithm>

#include <fnmatch.h>

namespace fs = std::filesystem;

namespace {

using Leftovers = std::multimap<fs::file_time_type, std::pair<fs::path, const LogFileSettings*>>; // oldest first

bool IsJob(const fs::path& directory) {
    return directory.filename().string().starts_with(Narrow(JOB_DIRECTORY));
}

// What the log files that are written in the directory have left there.
Leftovers Find(const std::vector<const LogFileSettings*>& logs, const fs::path& spool) {
    Leftovers found;
    const auto take = [&](const fs::path& path, bool isNamedAgain) {
        std::error_code error;
        if (!fs::is_regular_file(path, error)) {
            Console::Say(path.string() + ": not a file; left alone");
            return;
        }
        const auto owner = std::find_if(logs.begin(), logs.end(), [&](const LogFileSettings* log) {
            const std::string names = MakeGlob(log->Pattern(), "+([0-9])");
            return fnmatch(names.c_str(), path.filename().c_str(), FNM_EXTMATCH) == 0;
        });
        if (owner != logs.end() && !isNamedAgain) {
            found.emplace(fs::last_write_time(path), std::pair(path, *owner));
        } else if (owner == logs.end() && (spool != "." || IsJob(path.parent_path()))) {
            Console::Say(path.string() + ": of no log file that delivers; left alone");
        }
    };
    std::set<std::string> current; // what the module goes on with
    for (const LogFileSettings* const log : logs) {
        current.merge(log->Files(Moments::Now()));
    }
    std::error_code error;
    for (const auto& item : fs::directory_iterator(spool, error)) {
        if (item.is_regular_file(error)) {
            take(item.path(), current.contains(item.path().lexically_normal()));
        } else if (IsJob(item.path())) {
            for (const auto& file : fs::directory_iterator(item.path(), error)) {
                take(file.path(), false);
            }
            fs::remove(item.path(), error); // an empty one
        }
    }
    return found;
}

// As the module does after a delivery.
void Finish(const fs::path& path, bool keep, const std::string& logDirectory) {
    std::error_code error;
    bool isDone = true;
    if (keep) {
        const fs::path target = logDirectory + path.filename().string();
        isDone = EFileIO::RenameFile(Widen(path.string()), Widen(target.string())) != 0;
    } else {
        isDone = fs::remove(path, error);
    }
    if (!isDone) {
        Console::Say("error: " + path.string() + ": cannot be " + (keep ? "kept in " + logDirectory : "deleted") +
                     ", and is sent again after the next start");
    }
    if (IsJob(path.parent_path())) {
        fs::remove(path.parent_path(), error); // once it is empty
    }
}

} // namespace

void HandOverLeftovers(const Configuration& configuration, Outbox& outbox) {
    for (const bool isKernelLog : {false, true}) { // which is written where it stands
        std::vector<const LogFileSettings*> logs;
        for (const LogFileSettings& log : configuration.m_LogFiles) {
            if (log.Delivers() && log.IsKernelLog() == isKernelLog) {
                logs.push_back(&log);
            }
        }
        for (const auto& [time, leftover] :
             Find(logs, isKernelLog ? "." : fs::path(Narrow(SPOOL_DIRECTORY)).lexically_normal())) {
            const auto& [path, log] = leftover;
            const auto finish = [path = path, keep = log->m_nKeepCopy != 0, directory = log->LogDirectory()] {
                Finish(path, keep, directory);
            };
            Console::Say(path.string() + ": left by an earlier run; it is sent now");
            std::string name = log->m_Name;
            const int identifier = SplitName(name);
            if (log->m_nDeliveryMode == DELIVERY_UPLOAD) {
                outbox.Upload(path, identifier, log->m_nKeepCopy == 0, finish);
            } else {
                outbox.Mail(JoinName(log->m_MailName, identifier), ';' + path.string(), finish);
            }
        }
    }
}
