#pragma once

#include "gateway/transport/DurableFiles.h"
#include "gateway/transport/Settings.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

// Jobs that wait on disk until they are done, whatever happens to the program:
//
//     lock                     held by the program that uses the spool
//     0000000000000007.json    a job, there as long as this file is; the lower number is the older one
//     0000000000000007.data    what it sends; without the other file a leftover, removed at the next start
//     0000000000000005.bad     a .json that cannot be read; left for the operator, with its .data
//
// Any thread may call. Operations that meet a failing disk throw std::exception with a text.
class ESpool {
public:
    struct Job {
        std::string Text(const char* member) const; // of the content; empty when it is missing or no text

        std::uint64_t m_nNumber; // from 1
        std::filesystem::path m_Data;
        nlohmann::json m_Content;
        std::uint64_t m_nBytes;
    };

    // Takes up the jobs that an earlier run left. `limit`: bytes of all jobs together, 0 for none. Throws
    // std::runtime_error when the directory cannot be used or another program uses it.
    ESpool(const std::filesystem::path& directory, std::uint64_t limit, const Reporter& report);

    // Adds a job; `content` is an object. `makeData` makes the named file and sees that it is on the disk, one at a time.
    // False, and nothing is left, when the job does not fit.
    bool Add(nlohmann::json content, const std::function<void(const std::filesystem::path& data)>& makeData);

    std::vector<std::uint64_t> Numbers() const; // oldest first

    // None when it is done, or when the operator has removed its .json, which takes it out of the spool.
    std::optional<Job> Find(std::uint64_t number);

    void Remove(std::uint64_t number); // it is not found any more, even when removing it from the disk fails
    std::uint64_t Count() const;

private:
    std::filesystem::path PathOf(std::uint64_t number, const char* ending) const;
    void TakeUp(const std::filesystem::path& path, const Reporter& report);
    std::uint64_t CountBytes() const;

    std::filesystem::path m_Directory;
    std::uint64_t m_nLimit;
    std::optional<EOpenFile> m_Lock;

    mutable std::mutex m_Mutex; // guards what follows, and the directory
    std::map<std::uint64_t, Job> m_Jobs;
    std::uint64_t m_nNext = 1;
};
