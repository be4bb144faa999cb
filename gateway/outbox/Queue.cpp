#include "gateway/outbox/Queue.h"

#include "gateway/Text.h"
#include "gateway/outbox/Program.h"

#include <algorithm>
#include <charconv>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

namespace {

constexpr int DISK = -2; // the place of what is not accepted yet; others are identifiers
constexpr const char* PART = "part";
constexpr const char* MAIL = ".eml";

// With the values in place of the placeholders; what they bring is not looked at again.
std::string Expand(const std::string& text, const std::vector<std::string>& values) {
    std::string expanded;
    for (std::size_t at = 0; at < text.size();) {
        const auto* const found =
            std::find_if(std::begin(PLACEHOLDERS), std::end(PLACEHOLDERS),
                         [&](const std::string& name) { return text.compare(at, name.size(), name) == 0; });
        const auto which = static_cast<std::size_t>(found - std::begin(PLACEHOLDERS));
        expanded += which < values.size() ? values[which] : std::string(1, text[at]);
        at += which < values.size() ? std::string_view(*found).size() : 1;
    }
    return expanded;
}

} // namespace

Queue::Queue(std::string subject, const fs::path& directory, OutboxSettings settings, Reporter report)
    : m_Subject(std::move(subject)),
      m_Directory(fs::absolute(directory)),
      m_Settings(std::move(settings)),
      m_Report(std::move(report)),
      m_Lock((MakeDirectory(m_Directory), open(m_Directory.c_str(), O_RDONLY | O_CLOEXEC)), m_Directory),
      m_StopEvent(eventfd(0, EFD_CLOEXEC), "eventfd") {
    if (flock(m_Lock.Get(), LOCK_EX | LOCK_NB) != 0) {
        throw std::runtime_error(m_Directory.string() + ": another kvgateway sends from it");
    }
    fs::remove_all(m_Directory / PART);
    for (const auto& item : fs::directory_iterator(m_Directory)) {
        TakeUp(item.path());
    }
    for (auto entry = m_Entries.begin(); entry != m_Entries.end(); ++entry) {
        Link(entry);
    }
    HoldLimit();
    m_Thread = std::thread([this] { Run(); });
}

// What has no name of ours is left alone.
void Queue::TakeUp(const fs::path& path) {
    fs::path file = path;
    if (fs::is_directory(path)) {
        const fs::directory_iterator files(path);
        if (files == fs::directory_iterator()) {
            fs::remove(path); // its removal had begun
            return;
        }
        file = files->path();
    }
    std::string digits = path.stem().string();
    const int identifier = SplitName(digits);
    std::uint64_t number = 0;
    if (std::from_chars(digits.data(), digits.data() + digits.size(), number).ptr == digits.data() + digits.size()) {
        m_nLast = std::max(m_nLast, number);
        m_nBytes += fs::file_size(file);
        m_Entries.insert({number, {path, file, identifier, fs::file_size(file), nullptr, nullptr}});
    }
}

int Queue::PlaceOf(const Entry& entry) const {
    const bool hasOwn = m_Settings.m_Targets.contains(entry.m_nIdentifier);
    return entry.m_Make ? DISK : hasOwn ? entry.m_nIdentifier : NO_IDENTIFIER;
}

Queue::Key Queue::KeyOf(const Entry& entry) const {
    return {PlaceOf(entry), entry.m_nIdentifier, entry.m_File.filename()};
}

void Queue::Link(Entries::iterator entry) {
    const int place = PlaceOf(entry->second);
    if (place != DISK && m_Settings.m_Targets.at(place).IsNone()) {
        return;
    }
    auto& chain = m_Chains[KeyOf(entry->second)];
    if (*chain.insert(entry->first).first == *chain.begin()) {
        m_Places[place].m_Ready.emplace(entry->second.m_Due, entry->first);
    }
}

void Queue::Unlink(Entries::iterator entry) {
    const auto chain = m_Chains.find(KeyOf(entry->second));
    if (chain == m_Chains.end()) {
        return;
    }
    auto& ready = m_Places[PlaceOf(entry->second)].m_Ready;
    const bool wasFirst = ready.erase({entry->second.m_Due, entry->first}) != 0;
    chain->second.erase(entry->first);
    if (chain->second.empty()) {
        m_Chains.erase(chain);
    } else if (wasFirst) {
        Link(m_Entries.find(*chain->second.begin()));
    }
}

void Queue::Accept(int identifier, const std::string& name, Make make, Notice notice) {
    using namespace std::chrono;
    std::unique_lock lock(m_Mutex);
    const auto now = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    m_nLast = std::max(m_nLast + 1, static_cast<std::uint64_t>(now));
    const fs::path path = m_Directory / (JoinName(std::to_string(m_nLast), identifier) + (name.empty() ? MAIL : ""));
    Entry added{path, name.empty() ? path : path / name, identifier, 0, std::move(make), std::move(notice)};
    const bool isBehind = m_Chains.contains(KeyOf(added)); // an older one that is not accepted yet
    const auto entry = m_Entries.emplace(m_nLast, std::move(added)).first;
    Link(entry);
    const Notice due = isBehind ? nullptr : Conclude(entry, Attempt(entry->second));
    lock.unlock();
    if (due) {
        due();
    }
}

void Queue::Run() {
    constexpr auto LONG = std::chrono::hours(1);
    std::unique_lock lock(m_Mutex);
    while (!m_bStopping) {
        auto wake = Clock::now() + LONG;
        const auto entry = NextDue(wake);
        if (entry == m_Entries.end()) {
            m_Changed.wait_until(lock, wake);
            continue;
        }
        m_nRunning = entry->first;
        const bool isAccepted = !entry->second.m_Make;
        if (isAccepted) {
            lock.unlock();
        }
        const auto failure = Attempt(entry->second);
        if (isAccepted) {
            lock.lock();
        }
        m_nRunning = 0;
        const Notice due = Conclude(entry, failure);
        if (due) {
            lock.unlock();
            due();
            lock.lock();
        }
    }
}

// The entry that may be tried for the longest time; otherwise, in `wake`, when the next one may be.
Queue::Entries::iterator Queue::NextDue(Clock::time_point& wake) {
    auto next = m_Entries.end();
    for (const auto& [of, place] : m_Places) {
        const auto first = place.m_Ready.begin();
        if (first != place.m_Ready.end() && std::max(first->first, place.m_Due) < wake) {
            wake = std::max(first->first, place.m_Due);
            next = m_Entries.find(first->second);
        }
    }
    return wake <= Clock::now() ? next : m_Entries.end();
}

// Accepts or sends the entry; the reason when that fails.
std::optional<std::string> Queue::Attempt(Entry& entry) {
    try {
        if (entry.m_Make) {
            Write(entry);
        } else if (fs::exists(entry.m_File)) { // somebody may have taken it out
            Send(entry);
            ++m_nSent;
        }
        return std::nullopt;
    } catch (const std::exception& error) {
        return error.what();
    }
}

void Queue::Write(Entry& entry) {
    const fs::path part = m_Directory / PART;
    const bool isMail = entry.m_File == entry.m_Path;
    const fs::path file = isMail ? part : part / entry.m_File.filename();
    try {
        if (!isMail) {
            fs::create_directory(part);
        }
        entry.m_Make(file);
        entry.m_nBytes = fs::file_size(file);
        Sync(file);
        Sync(part);
        fs::rename(part, entry.m_Path);
        Sync(m_Directory);
    } catch (...) {
        std::error_code ignored;
        fs::remove_all(part, ignored);
        fs::remove_all(entry.m_Path, ignored);
        throw;
    }
}

void Queue::Send(const Entry& entry) {
    const Target& target = m_Settings.m_Targets.at(PlaceOf(entry));
    const std::string name = entry.m_File.filename();
    if (!target.m_Directory.empty()) {
        MoveInto(entry.m_File, target.m_Directory, ".part-" + entry.m_Path.filename().string(),
                 m_Copies[target.m_Directory + '/' + name]);
        return;
    }
    const std::string id = entry.m_nIdentifier != NO_IDENTIFIER ? std::to_string(entry.m_nIdentifier) : "";
    std::vector<std::string> command = target.m_Command;
    for (std::string& argument : command) {
        argument = Expand(argument, {entry.m_File, name, id});
    }
    RunProgram(command, entry.m_File, m_Settings.m_Timeout, m_StopEvent.Get());
}

// Counts the result of an attempt. The notice that is due then, or none.
Queue::Notice Queue::Conclude(Entries::iterator entry, const std::optional<std::string>& failure) {
    m_Changed.notify_all();
    if (failure) {
        if (!m_bStopping) {
            Postpone(entry, *failure);
        }
        return nullptr;
    }
    Place& place = m_Places[PlaceOf(entry->second)];
    place.m_nLastFailed = 0;
    place.m_Pause = {};
    place.m_Due = {};
    Notice notice;
    if (entry->second.m_Make) {
        Unlink(entry);
        notice = std::move(entry->second.m_Notice);
        entry->second.m_Make = nullptr;
        entry->second.m_Pause = {};
        entry->second.m_Due = Clock::now();
        m_nBytes += entry->second.m_nBytes;
        Link(entry);
        HoldLimit();
    } else {
        Remove(entry);
    }
    return notice;
}

void Queue::Postpone(Entries::iterator entry, const std::string& reason) {
    const auto lengthen = [this](std::chrono::milliseconds& pause) {
        pause = std::clamp(pause * 2, m_Settings.m_RetryMin, m_Settings.m_RetryMax);
        return Clock::now() + pause;
    };
    auto& [number, of] = *entry;
    Place& place = m_Places[PlaceOf(of)];
    place.m_Ready.erase({of.m_Due, number});
    of.m_Due = lengthen(of.m_Pause);
    place.m_Ready.emplace(of.m_Due, number);
    if (place.m_nLastFailed != 0 && place.m_nLastFailed != number) { // the fault is not this one entry's
        place.m_Due = lengthen(place.m_Pause);
    }
    place.m_nLastFailed = number;
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(of.m_Pause).count();
    Report(of.m_File.filename().string() + (of.m_Make ? ": not accepted, and stays where it is: " : ": ") + reason +
           "; tried again in " + std::to_string(seconds) + " s, " + std::to_string(m_Entries.size()) + " waiting");
}

// The newest one stays, whatever its size.
void Queue::HoldLimit() {
    const auto isOver = [this] { return m_Settings.m_nLimit != 0 && m_nBytes > m_Settings.m_nLimit; };
    for (auto entry = m_Entries.begin(); isOver() && std::next(entry) != m_Entries.end();) {
        const auto oldest = entry++;
        if (oldest->first != m_nRunning && !oldest->second.m_Make) {
            Report(oldest->second.m_Path.string() + ": deleted before it was sent, to hold the limit");
            Remove(oldest);
        }
    }
}

void Queue::Remove(Entries::iterator entry) {
    try {
        fs::remove(entry->second.m_File);
        fs::remove(entry->second.m_Path);
        Sync(m_Directory);
    } catch (const std::exception& error) {
        Report("cannot be removed, and goes out again after the next start: " + std::string(error.what()));
    }
    Unlink(entry);
    m_nBytes -= entry->second.m_nBytes;
    m_Entries.erase(entry);
}

bool Queue::Drain(Clock::time_point end) {
    std::unique_lock lock(m_Mutex);
    return m_Changed.wait_until(lock, end, [this] { return m_Chains.empty(); });
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

std::string Queue::Summary() const {
    const std::lock_guard lock(m_Mutex);
    return m_Subject + ": " + std::to_string(m_nSent) + " sent, " + std::to_string(m_Entries.size()) + " waiting";
}
