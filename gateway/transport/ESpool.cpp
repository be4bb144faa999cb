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

const char* const JOB = ".json";
const char* const DATA = ".data";
const char* const BAD = ".bad";

// The number that begins the name of a job's file; 0 for other names.
std::uint64_t ParseNumber(const std::string& name) {
    std::uint64_t number = 0;
    const char* const end = name.data() + DIGITS;
    return name.size() > DIGITS && std::from_chars(name.data(), end, number).ptr == end ? number : 0;
}

json ReadContent(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    json content = json::parse(file);
    if (content.at("version") != VERSION) {
        throw std::runtime_error("its version is unknown");
    }
    return content;
}

} // namespace

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
        // All at once: taking them up changes the directory.
        const std::vector<fs::path> found(fs::directory_iterator(m_Directory), {});
        for (const auto& path : found) {
            TakeUp(path, report);
        }
    } catch (const std::exception& error) {
        throw std::runtime_error("spool directory " + m_Directory.string() + " cannot be used: " + error.what());
    }
}

void ESpool::TakeUp(const fs::path& path, const Reporter& report) {
    const std::uint64_t number = ParseNumber(path.filename().string());
    if (number == 0) {
        return;
    }
    m_nNext = std::max(m_nNext, number + 1); // also behind a bad one, whose names stay taken
    const fs::path data = PathOf(number, DATA);
    if (path.extension() == JOB) {
        try {
            m_Jobs.emplace(number, Job{number, data, ReadContent(path), fs::file_size(path) + fs::file_size(data)});
        } catch (const std::exception& error) {
            const fs::path aside = PathOf(number, BAD);
            fs::rename(path, aside);
            report("damaged job set aside as " + aside.string() + ": " + error.what());
        }
    } else if (path.extension() != BAD && !fs::exists(PathOf(number, JOB)) && !fs::exists(PathOf(number, BAD))) {
        fs::remove(path);
    }
}

bool ESpool::Add(json content, const std::function<void(const fs::path& data)>& makeData) {
    content["version"] = VERSION;
    const std::string description = content.dump(4, ' ', false, json::error_handler_t::replace);
    const std::lock_guard lock(m_Mutex);
    Job job{m_nNext++, {}, std::move(content), description.size()};
    job.m_Data = PathOf(job.m_nNumber, DATA);
    try {
        makeData(job.m_Data);
        job.m_nBytes += fs::file_size(job.m_Data);
        if (m_nLimit != 0 && CountBytes() + job.m_nBytes > m_nLimit) {
            fs::remove(job.m_Data);
            return false;
        }
        WriteWholly(PathOf(job.m_nNumber, JOB), description);
    } catch (...) {
        std::error_code ignored;
        fs::remove(PathOf(job.m_nNumber, JOB), ignored);
        fs::remove(job.m_Data, ignored);
        throw;
    }
    m_Jobs.emplace(job.m_nNumber, std::move(job));
    return true;
}

std::uint64_t ESpool::CountBytes() const {
    std::uint64_t bytes = 0;
    for (const auto& [number, job] : m_Jobs) {
        bytes += job.m_nBytes;
    }
    return bytes;
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
    std::error_code ignored;
    if (found != m_Jobs.end() && fs::exists(PathOf(number, JOB), ignored)) {
        return found->second;
    }
    m_Jobs.erase(number);
    return std::nullopt;
}

void ESpool::Remove(std::uint64_t number) {
    const std::lock_guard lock(m_Mutex);
    m_Jobs.erase(number);
    fs::remove(PathOf(number, JOB));
    SyncPath(m_Directory);
    fs::remove(PathOf(number, DATA));
}

std::uint64_t ESpool::Count() const {
    const std::lock_guard lock(m_Mutex);
    return m_Jobs.size();
}

fs::path ESpool::PathOf(std::uint64_t number, const char* ending) const {
    const std::string digits = std::to_string(number);
    return m_Directory / (std::string(DIGITS - digits.size(), '0') + digits + ending);
}
