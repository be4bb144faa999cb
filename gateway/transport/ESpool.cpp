#include "gateway/transport/ESpool.h"

#include <algorithm>
#include <charconv>
#include <fcntl.h>
#include <fstream>
#include <stdexcept>
#include <sys/file.h>

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

constexpr int VERSION = 1;
constexpr std::size_t DIGITS = 16;

const char* const DESCRIPTION = "job.json";
const char* const NEW = "new-";
const char* const DONE = "done-";
const char* const BAD = "bad-";

// The number of a job's directory, none for other names.
std::optional<std::uint64_t> ParseNumber(const std::string& name) {
    std::uint64_t number = 0;
    const char* const end = name.data() + name.size();
    const auto [stop, error] = std::from_chars(name.data(), end, number);
    if (name.size() != DIGITS || error != std::errc() || stop != end) {
        return std::nullopt;
    }
    return number;
}

std::string Describe(const json& content, const std::vector<ESpool::File>& files) {
    json names = json::array();
    for (const auto& file : files) {
        names.push_back(file.m_Name);
    }
    const json description = {{"version", VERSION}, {"names", names}, {"content", content}};
    return description.dump(4, ' ', false, json::error_handler_t::replace);
}

ESpool::Job ReadJob(const fs::path& directory, std::uint64_t number) {
    const fs::path path = directory / DESCRIPTION;
    std::ifstream file(path, std::ios::binary);
    const json description = json::parse(file);
    if (description.at("version") != VERSION) {
        throw std::runtime_error("its version is unknown");
    }
    ESpool::Job job;
    job.m_nNumber = number;
    job.m_Directory = directory;
    job.m_nBytes = fs::file_size(path);
    job.m_Content = description.at("content").get<json::object_t>();
    const auto& names = description.at("names");
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (const fs::path sent = directory / std::to_string(i); fs::exists(sent)) {
            job.m_Files.push_back({sent, names[i].get<std::string>()});
            job.m_nBytes += fs::file_size(sent);
        }
    }
    return job;
}

} // namespace

ESpool::File ESpool::File::At(const fs::path& path) {
    std::string name = path.filename().string();
    std::replace_if(
        name.begin(), name.end(), [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; }, '_');
    return {path, name};
}

std::string ESpool::Job::Text(const char* member) const {
    const auto found = m_Content.find(member);
    return found != m_Content.end() && found->is_string() ? found->get<std::string>() : std::string();
}

ESpool::ESpool(const fs::path& directory, std::uint64_t limit, const Reporter& report)
    : m_Directory(fs::absolute(directory)), m_nLimit(limit) {
    try {
        if (fs::create_directories(m_Directory)) {
            fs::permissions(m_Directory, fs::perms::owner_all);
        }
        m_Lock.emplace(m_Directory / "lock", O_RDWR | O_CREAT);
        if (flock(m_Lock->Get(), LOCK_EX | LOCK_NB) != 0) {
            throw std::runtime_error("another program uses it");
        }
        std::vector<fs::path> found;
        for (const auto& entry : fs::directory_iterator(m_Directory)) {
            found.push_back(entry.path());
        }
        for (const auto& path : found) {
            const std::string name = path.filename().string();
            if (name.starts_with(NEW) || name.starts_with(DONE)) {
                fs::remove_all(path);
            } else if (const auto number = ParseNumber(name.starts_with(BAD) ? name.substr(4) : name)) {
                // A directory that was set aside keeps its number too, so that the name is free for no second one.
                m_nNext = std::max(m_nNext, *number + 1);
                if (!name.starts_with(BAD)) {
                    TakeUp(path, *number, report);
                }
            }
        }
    } catch (const std::exception& error) {
        throw std::runtime_error("spool directory " + m_Directory.string() + " cannot be used: " + error.what());
    }
}

void ESpool::TakeUp(const fs::path& directory, std::uint64_t number, const Reporter& report) {
    try {
        Job job = ReadJob(directory, number);
        m_nBytes += job.m_nBytes;
        m_Jobs.emplace(number, std::move(job));
    } catch (const std::exception& error) {
        const fs::path aside = DirectoryOf(BAD, number);
        fs::rename(directory, aside);
        report("damaged job set aside as " + aside.string() + ": " + error.what());
    }
}

bool ESpool::Add(const json& content, const std::vector<File>& files) {
    const std::string description = Describe(content, files);
    Job job;
    job.m_Content = content;
    job.m_nBytes = description.size();
    for (const auto& file : files) {
        job.m_nBytes += fs::file_size(file.m_Path);
    }
    const std::lock_guard lock(m_Mutex);
    if (m_nLimit != 0 && (job.m_nBytes > m_nLimit || m_nBytes > m_nLimit - job.m_nBytes)) {
        return false;
    }
    job.m_nNumber = m_nNext++;
    job.m_Directory = DirectoryOf("", job.m_nNumber);
    WriteJob(job, description, files);
    m_nBytes += job.m_nBytes;
    m_Jobs.emplace(job.m_nNumber, std::move(job));
    return true;
}

void ESpool::WriteJob(Job& job, const std::string& description, const std::vector<File>& files) const {
    const fs::path unfinished = DirectoryOf(NEW, job.m_nNumber);
    try {
        fs::create_directory(unfinished);
        for (std::size_t i = 0; i < files.size(); ++i) {
            LinkOrCopy(files[i].m_Path, unfinished / std::to_string(i));
            job.m_Files.push_back({job.m_Directory / std::to_string(i), files[i].m_Name});
        }
        WriteDurably(unfinished / DESCRIPTION, description);
        SyncPath(unfinished);
        RenameDurably(unfinished, job.m_Directory);
    } catch (...) {
        std::error_code ignored;
        fs::remove_all(unfinished, ignored);
        fs::remove_all(job.m_Directory, ignored);
        throw;
    }
}

std::vector<std::uint64_t> ESpool::Numbers() const {
    const std::lock_guard lock(m_Mutex);
    std::vector<std::uint64_t> numbers;
    numbers.reserve(m_Jobs.size());
    for (const auto& [number, job] : m_Jobs) {
        numbers.push_back(number);
    }
    return numbers;
}

std::optional<ESpool::Job> ESpool::Find(std::uint64_t number) {
    const std::lock_guard lock(m_Mutex);
    const auto found = m_Jobs.find(number);
    if (found == m_Jobs.end()) {
        return std::nullopt;
    }
    std::error_code ignored;
    if (!fs::exists(found->second.m_Directory, ignored)) {
        m_nBytes -= std::min(m_nBytes, found->second.m_nBytes);
        m_Jobs.erase(found);
        return std::nullopt;
    }
    return found->second;
}

void ESpool::FileDone(std::uint64_t number, const fs::path& path) {
    const std::lock_guard lock(m_Mutex);
    Job& job = m_Jobs.at(number);
    const std::uint64_t bytes = fs::exists(path) ? fs::file_size(path) : 0;
    fs::remove(path);
    std::erase_if(job.m_Files, [&](const File& file) { return file.m_Path == path; });
    job.m_nBytes -= std::min(job.m_nBytes, bytes);
    m_nBytes -= std::min(m_nBytes, bytes);
}

void ESpool::JobDone(std::uint64_t number) {
    const std::lock_guard lock(m_Mutex);
    const auto found = m_Jobs.find(number);
    if (found == m_Jobs.end()) {
        return;
    }
    m_nBytes -= std::min(m_nBytes, found->second.m_nBytes);
    m_Jobs.erase(found);
    // From the rename on the job is gone, however much of the directory a crash leaves behind.
    const fs::path removed = DirectoryOf(DONE, number);
    RenameDurably(DirectoryOf("", number), removed);
    fs::remove_all(removed);
}

std::uint64_t ESpool::CountJobs() const {
    const std::lock_guard lock(m_Mutex);
    return m_Jobs.size();
}

std::uint64_t ESpool::CountFiles() const {
    const std::lock_guard lock(m_Mutex);
    std::uint64_t count = 0;
    for (const auto& [number, job] : m_Jobs) {
        count += job.m_Files.size();
    }
    return count;
}

fs::path ESpool::DirectoryOf(const char* prefix, std::uint64_t number) const {
    const std::string digits = std::to_string(number);
    return m_Directory / (prefix + std::string(DIGITS - digits.size(), '0') + digits);
}
