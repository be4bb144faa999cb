#include "gateway/outbox/Queue.h"

#include "gateway/Console.h"
#include "gateway/Text.h"

#include <algorithm>
#include <charconv>
#include <fcntl.h>
#include <set>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <tuple>
#include <utility>

namespace fs = std::filesystem;

namespace {

constexpr int DISK = -2; // a place; others are identifiers
constexpr const char* PART = "part";
constexpr const char* MAIL = ".eml";

// The argument with its placeholders replaced by the values, in one pass: what a name holds is never replaced.
std::string Expand(std::string_view argument, const std::string (&values)[std::size(PLACEHOLDERS)]) {
    std::string text;
    while (!argument.empty()) {
        const auto* const mark = std::find_if(std::begin(PLACEHOLDERS), std::end(PLACEHOLDERS),
                                              [&](const char* i) { return argument.starts_with(i); });
        const bool isMark = mark != std::end(PLACEHOLDERS);
        text += isMark ? values[mark - std::begin(PLACEHOLDERS)] : std::string(1, argument[0]);
        argument.remove_prefix(isMark ? std::string_view(*mark).size() : 1);
    }
    return text;
}

} // namespace

Queue::Queue(std::string subject, const fs::path& directory, OutboxSettings settings)
    : m_Subject(std::move(subject)),
      m_Directory(fs::absolute(directory)),
      m_Settings(std::move(settings)),
      m_Lock((fs::create_directories(m_Directory), open(m_Directory.c_str(), O_RDONLY | O_CLOEXEC)), m_Directory),
      m_StopEvent(eventfd(0, EFD_CLOEXEC), "eventfd") {
    if (flock(m_Lock.Get(), LOCK_EX | LOCK_NB) != 0) {
        throw std::runtime_error(m_Directory.string() + ": another kvgateway sends from it");
    }
    fs::remove_all(m_Directory / PART);
    for (const auto& item : fs::directory_iterator(m_Directory)) {
        TakeUp(item.path());
    }
    HoldLimit();
    m_Thread = std::thread([this] { Run(); });
}

void Queue::TakeUp(const fs::path& path) {
    std::string name = fs::is_directory(path) ? path.filename() : path.extension() == MAIL ? path.stem() : fs::path();
    const int identifier = SplitName(name);
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    fs::path file = path;
    if (fs::is_directory(path)) {
        if (fs::is_empty(path)) {
            fs::remove(path); // its removal had begun
            return;
        }
        file = fs::directory_iterator(path)->path();
    }
    if (error != std::errc() || end != name.data() + name.size() || !fs::is_regular_file(file)) {
        Report(path.string() + ": not an entry; left alone");
        return;
    }
    const std::uint64_t bytes = fs::file_size(file);
    m_nLast = std::max(m_nLast, number);
    m_nBytes += bytes;
    m_Entries.insert({number, {file, identifier, bytes, nullptr, nullptr}});
}

fs::path Queue::PathOf(const Entry& entry) const {
    const fs::path parent = entry.m_File.parent_path();
    return parent == m_Directory ? entry.m_File : parent;
}

int Queue::PlaceOf(const Entry& entry) const {
    const bool hasOwn = m_Settings.m_Targets.contains(entry.m_nIdentifier);
    return entry.m_Make ? DISK : hasOwn ? entry.m_nIdentifier : NO_IDENTIFIER;
}

bool Queue::IsWaiting(const Entry& entry) const {
    return entry.m_Make || !m_Settings.m_Targets.at(PlaceOf(entry)).IsNone();
}

void Queue::Accept(int identifier, const std::string& name, Make make, Notice notice) {
    using namespace std::chrono;
    std::unique_lock lock(m_Mutex);
    const auto now = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    m_nLast = std::max(m_nLast + 1, static_cast<std::uint64_t>(now));
    const std::string number = std::to_string(m_nLast);
    const fs::path file = m_Directory / (name.empty() ? number + MAIL : JoinName(number, identifier) + '/' + name);
    const auto entry = m_Entries.insert({m_nLast, {file, identifier, 0, std::move(make), std::move(notice)}}).first;
    if (m_nUnaccepted++ == 0) {
        Step(entry, lock);
    } else { // it waits its turn
        m_Changed.notify_all();
    }
}

void Queue::Run() {
    std::unique_lock lock(m_Mutex);
    while (!m_bStopping) {
        auto wake = Clock::now() + std::chrono::hours(1);
        if (const auto entry = NextDue(wake); entry != m_Entries.end()) {
            Step(entry, lock);
        } else {
            m_Changed.wait_until(lock, wake);
        }
    }
}

// The oldest entry without a failure, or the one whose pause ended first; without one, `wake` is when the next pause ends.
// Of entries with one name only the first may be tried.
Queue::Entries::iterator Queue::NextDue(Clock::time_point& wake) {
    const auto now = Clock::now();
    std::set<std::tuple<int, int, std::string>> seen;
    auto next = m_Entries.end();
    for (auto entry = m_Entries.begin(); entry != m_Entries.end(); ++entry) {
        const auto& [file, identifier, bytes, make, notice, pause] = entry->second;
        const int place = PlaceOf(entry->second);
        if (const auto end = m_Places[place].m_Pause.m_End; end > now || !IsWaiting(entry->second)) {
            wake = end > now ? std::min(wake, end) : wake;
        } else if (!seen.emplace(place, identifier, file.filename()).second) {
            continue;
        } else if (pause.m_Length.count() == 0) {
            return entry;
        } else if (pause.m_End < wake) {
            wake = pause.m_End;
            next = entry;
        }
    }
    return wake <= now ? next : m_Entries.end();
}

// Accepts or sends the entry, and takes note of the result. Unlocks while it sends.
void Queue::Step(Entries::iterator entry, std::unique_lock<std::mutex>& lock) {
    std::string failure;
    try {
        if (entry->second.m_Make) {
            Write(entry->second);
        } else {
            m_nRunning = entry->first;
            lock.unlock();
            Send(entry->second);
        }
    } catch (const std::exception& error) {
        failure = error.what();
    }
    if (!lock) {
        lock.lock();
        m_nRunning = 0;
    }
    if (!failure.empty()) {
        Postpone(entry, failure);
        m_Changed.notify_all();
        return;
    }
    m_Places[PlaceOf(entry->second)] = {};
    if (!entry->second.m_Make) {
        ++m_nSent;
        Remove(entry);
        m_Changed.notify_all();
        return;
    }
    --m_nUnaccepted;
    m_nBytes += entry->second.m_nBytes;
    entry->second.m_Make = nullptr;
    entry->second.m_Pause = {};
    if (m_nUnaccepted > 0 || m_Places[PlaceOf(entry->second)].m_Pause.m_End <= Clock::now()) {
        m_Changed.notify_all(); // otherwise there is nothing to do before that pause ends, however many wait
    }
    const Notice notice = std::exchange(entry->second.m_Notice, nullptr);
    HoldLimit();
    lock.unlock();
    notice();
    lock.lock();
}

void Queue::Write(Entry& entry) {
    const fs::path part = m_Directory / PART;
    const fs::path path = PathOf(entry);
    const fs::path file = path == entry.m_File ? part : part / entry.m_File.filename();
    try {
        if (file != part) {
            fs::create_directory(part);
        }
        entry.m_Make(file);
        entry.m_nBytes = fs::file_size(file);
        Sync(file);
        Sync(part);
        fs::rename(part, path);
        Sync(m_Directory);
    } catch (...) {
        std::error_code ignored;
        fs::remove_all(part, ignored);
        fs::remove_all(path, ignored);
        throw;
    }
}

void Queue::Send(const Entry& entry) {
    if (!fs::exists(entry.m_File)) {
        return; // somebody has taken it out
    }
    const Target& target = m_Settings.m_Targets.at(PlaceOf(entry));
    const std::string name = entry.m_File.filename();
    if (!target.m_Directory.empty()) {
        const std::string part = ".part-" + PathOf(entry).filename().string();
        CopyInto(entry.m_File, target.m_Directory, part, m_Copies[target.m_Directory + '/' + name]);
        return;
    }
    const bool hasIdentifier = entry.m_nIdentifier != NO_IDENTIFIER;
    const std::string values[] = {hasIdentifier ? std::to_string(entry.m_nIdentifier) : "", name, entry.m_File};
    std::vector<std::string> command = target.m_Command;
    for (std::string& argument : command) {
        argument = Expand(argument, values);
    }
    RunProgram(command, entry.m_File, m_Settings.m_Timeout, m_StopEvent.Get());
}

void Queue::Postpone(Entries::iterator entry, const std::string& reason) {
    const auto lengthen = [this](Pause& pause) {
        pause.m_Length = std::clamp(pause.m_Length * 2, m_Settings.m_RetryMin, m_Settings.m_RetryMax);
        pause.m_End = Clock::now() + pause.m_Length;
    };
    if (m_bStopping) {
        return;
    }
    auto& [number, of] = *entry;
    Place& place = m_Places[PlaceOf(of)];
    lengthen(of.m_Pause);
    if (const auto last = std::exchange(place.m_nLastFailed, number); last != 0 && last != number) {
        lengthen(place.m_Pause); // the fault is not this one entry's
    }
    const auto pause = std::max(of.m_Pause.m_End, place.m_Pause.m_End) - Clock::now();
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(pause).count();
    Report(of.m_File.filename().string() + (of.m_Make ? ": not accepted, and stays where it is: " : ": ") + reason +
           "; tried again in " + std::to_string(seconds) + " s, " + std::to_string(m_Entries.size()) + " waiting");
}

// The newest entry always stays.
void Queue::HoldLimit() {
    if (m_Settings.m_nLimit == 0 || m_nBytes <= m_Settings.m_nLimit) {
        return;
    }
    for (auto entry = m_Entries.begin(); entry != m_Entries.end();) { // what somebody has taken out takes no room
        const auto next = std::next(entry);
        std::error_code error; // of a disk that fails, which says nothing about the file
        const bool isGone = fs::status(entry->second.m_File, error).type() == fs::file_type::not_found;
        if (isGone && entry->first != m_nRunning && !entry->second.m_Make) {
            Remove(entry);
        }
        entry = next;
    }
    for (auto entry = m_Entries.begin(); m_nBytes > m_Settings.m_nLimit;) {
        const auto oldest = entry++;
        if (entry == m_Entries.end()) {
            return;
        }
        if (oldest->first != m_nRunning && !oldest->second.m_Make) {
            Report(oldest->second.m_File.string() + ": deleted unsent, to hold the limit");
            Remove(oldest);
        }
    }
}

void Queue::Remove(Entries::iterator entry) {
    try {
        fs::remove(entry->second.m_File);
        fs::remove(PathOf(entry->second));
        Sync(m_Directory);
    } catch (const std::exception& error) {
        Report(std::string("not removed, and sent again after the next start: ") + error.what());
    }
    m_nBytes -= entry->second.m_nBytes;
    m_Entries.erase(entry);
}

void Queue::Report(const std::string& line) const {
    Console::Say(m_Subject + ": " + line);
}

bool Queue::Drain(Clock::time_point end) {
    std::unique_lock lock(m_Mutex);
    return m_Changed.wait_until(lock, end, [this] {
        return std::none_of(m_Entries.begin(), m_Entries.end(),
                            [this](const auto& entry) { return IsWaiting(entry.second); });
    });
}

void Queue::Stop() {
    {
        const std::lock_guard lock(m_Mutex);
        m_bStopping = true;
    }
    m_Changed.notify_all();
    eventfd_write(m_StopEvent.Get(), 1);
    if (m_Thread.joinable()) {
        m_Thread.join();
    }
}

std::string Queue::Summary() {
    const std::lock_guard lock(m_Mutex);
    return m_Subject + ": " + std::to_string(m_nSent) + " sent, " + std::to_string(m_Entries.size()) + " waiting";
}
