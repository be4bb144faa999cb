#pragma once

#include "gateway/transport/DurableFiles.h"
#include "gateway/transport/Settings.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

// Jobs that wait on disk until they are done, whatever happens to the program. A job is a directory with the file
// "job.json" and the job's files:
//
//     lock                     held by the program that uses the spool
//     0000000000000007/        a job; the lower number is the older one
//         job.json             {"version": 1, "names": ["a.csv", "b.csv"], "content": {...}}
//         0  1                 the files, in the order of the names; one that is missing is done
//     new-0000000000000008/    a job being written; renamed when complete, thrown away at the next start
//     done-0000000000000006/   a job being removed; thrown away at the next start
//     bad-0000000000000005/    a directory whose job.json cannot be read; left for the operator
//
// Any thread may call. Operations that meet a failing disk throw std::exception with a text.
class ESpool {
public:
    struct File {
        // A file under its own name, less control characters, which no protocol takes.
        static File At(const std::filesystem::path& path);

        std::filesystem::path m_Path;
        std::string m_Name; // the name that it goes by, without a directory
    };

    struct Job {
        std::string Text(const char* member) const; // of the content; empty when it is missing or no text

        std::uint64_t m_nNumber = 0;
        std::filesystem::path m_Directory;
        nlohmann::json m_Content;
        std::vector<File> m_Files; // those that are not done
        std::uint64_t m_nBytes = 0;
    };

    // Takes up the jobs that an earlier run left. `limit`: bytes of all jobs together, 0 for none. Throws
    // std::runtime_error when the directory cannot be used or another program uses it.
    ESpool(const std::filesystem::path& directory, std::uint64_t limit, const Reporter& report);

    // Adds a job with the files as they are at this moment, whole or not at all; false when it does not fit. Files that
    // are replaced or removed later stay as they were, those that are written in place may change.
    bool Add(const nlohmann::json& content, const std::vector<File>& files);

    std::vector<std::uint64_t> Numbers() const; // oldest first

    // None when it is done, or when the operator has removed its directory, which takes it out of the spool.
    std::optional<Job> Find(std::uint64_t number);

    void FileDone(std::uint64_t number, const std::filesystem::path& path);

    // The job is not found any more, even when removing it from the disk fails.
    void JobDone(std::uint64_t number);

    std::uint64_t CountJobs() const;
    std::uint64_t CountFiles() const;

private:
    void TakeUp(const std::filesystem::path& directory, std::uint64_t number, const Reporter& report);
    void WriteJob(Job& job, const std::string& description, const std::vector<File>& files) const;
    std::filesystem::path DirectoryOf(const char* prefix, std::uint64_t number) const;

    std::filesystem::path m_Directory;
    std::uint64_t m_nLimit;
    std::optional<EOpenFile> m_Lock;

    mutable std::mutex m_Mutex; // guards what follows, and the directory
    std::map<std::uint64_t, Job> m_Jobs;
    std::uint64_t m_nBytes = 0;
    std::uint64_t m_nNext = 1;
};
