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

Queue::Queue(const std::string& subject, const fs::path& directory, const OutboxSettings& settings,
             const Reporter& report)
    : m_Subject(subject),
      m_Directory(fs::absolute(directory)),
      m_Settings(settings),
      m_Report(report),
      m_Stop(eventfd(0, EFD_CLOEXEC), "eventfd") {
    MakeDirectory(m_Directory);
    m_Lock.emplace(open(m_Directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), m_Directory);
    if (flock(m_Lock->Get(), LOCK_EX | LOCK_NB) != 0) {
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
    Entry entry{path, path};
    if (fs::is_directory(path)) {
        const fs::directory_iterator files(path);
        if (files == fs::directory_iterator()) {
            fs::remove(path); // its removal had begun
            return;
        }
        entry.m_File = files->path();
    }
    std::string digits = path.stem().string();
    entry.m_nIdentifier = SplitName(digits);
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error == std::errc() && end == digits.data() + digits.size()) {
        m_nLast = std::max(m_nLast, number);
        m_nBytes += entry.m_nBytes = fs::file_size(entry.m_File);
        m_Entries.emplace(number, std::move(entry));
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
    std::set<std::uint64_t>& chain = m_Chains[KeyOf(entry->second)];
    chain.insert(entry->first);
    if (*chain.begin() == entry->first) {
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
        const std::uint64_t next = *chain->second.begin();
        ready.emplace(m_Entries.at(next).m_Due, next);
    }
}

void Queue::Accept(int identifier, const std::string& name, const Make& make, const Notice& notice) {
    using namespace std::chrono;
    std::unique_lock accepting(m_AcceptMutex);
    const auto now = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    m_nLast = std::max(m_nLast + 1, static_cast<std::uint64_t>(now));
    const fs::path path = m_Directory / (JoinName(std::to_string(m_nLast), identifier) + (name.empty() ? MAIL : ""));
    Entry entry{path, name.empty() ? path : path / name, identifier, 0, make, notice, {}, Clock::now()};
    std::unique_lock lock(m_Mutex);
    const bool isBehind = m_Chains.contains(KeyOf(entry)); // an older one is not accepted yet
    lock.unlock();
    const auto failure = isBehind ? std::nullopt : Attempt(entry);
    lock.lock();
    const auto added = m_Entries.emplace(m_nLast, std::move(entry)).first;
    Link(added);
    const Notice due = isBehind ? nullptr : Conclude(added, failure);
    lock.unlock();
    accepting.unlock();
    if (due) {
        due();
    }
}

// The runner's thread.
void Queue::Run() {
    constexpr auto LOOK_ANYWAY =
        std::chrono::hours(1); // no pause is over, and nobody has said that there is something new
    std::unique_lock lock(m_Mutex);
    while (!m_bStopping) {
        auto wake = Clock::now() + LOOK_ANYWAY;
        const auto entry = NextDue(wake);
        if (entry == m_Entries.end()) {
            m_Changed.wait_until(lock, wake);
            continue;
        }
        m_nRunning = entry->first;
        lock.unlock();
        std::unique_lock accepting(m_AcceptMutex, std::defer_lock);
        if (entry->second.m_Make) {
            accepting.lock();
        }
        const auto failure = Attempt(entry->second);
        lock.lock();
        m_nRunning = 0;
        const Notice due = Conclude(entry, failure);
        lock.unlock();
        if (accepting) {
            accepting.unlock();
        }
        if (due) {
            due();
        }
        lock.lock();
    }
}

// The entry that may be tried for the longest time; otherwise, in `wake`, when the next one may be.
Queue::Entries::iterator Queue::NextDue(Clock::time_point& wake) {
    const auto now = Clock::now();
    std::uint64_t next = 0;
    for (const auto& [of, place] : m_Places) {
        if (place.m_Ready.empty()) {
            continue;
        }
        const auto& [due, number] = *place.m_Ready.begin();
        if (const auto at = std::max(due, place.m_Pause.m_End); at < wake) {
            wake = at;
            next = number;
        }
    }
    return next != 0 && wake <= now ? m_Entries.find(next) : m_Entries.end();
}

// Accepts or sends the entry; the reason when that fails.
std::optional<std::string> Queue::Attempt(Entry& entry) {
    try {
        if (entry.m_Make) {
            Write(entry);
        } else if (fs::exists(entry.m_File)) { // somebody may have taken it out
            Send(entry);
            ++m_nSent;
            Discard(entry);
        }
        return std::nullopt;
    } catch (const std::exception& error) {
        return error.what();
    }
}

void Queue::Write(Entry& entry) {
    const fs::path part = m_Directory / PART;
    const bool isMail = entry.m_File == entry.m_Path;
    try {
        if (!isMail) {
            fs::create_directory(part);
        }
        const fs::path file = isMail ? part : part / entry.m_File.filename();
        entry.m_Make(file);
        Sync(file);
        if (!isMail) {
            Sync(part);
        }
        entry.m_nBytes = fs::file_size(file);
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
    const bool hasIdentifier = entry.m_nIdentifier != NO_IDENTIFIER;
    const std::vector<std::string> values{entry.m_File, name, hasIdentifier ? std::to_string(entry.m_nIdentifier) : ""};
    std::vector<std::string> command;
    for (const std::string& argument : target.m_Command) {
        command.push_back(Expand(argument, values));
    }
    RunProgram(command, entry.m_File, m_Settings.m_Timeout, m_Stop.Get());
}

// Counts the result of an attempt. The notice that is due then, or none.
Queue::Notice Queue::Conclude(Entries::iterator entry, const std::optional<std::string>& failure) {
    if (failure) {
        if (!m_bStopping) {
            Postpone(entry, *failure);
        }
        return nullptr;
    }
    if (std::exchange(m_Places[PlaceOf(entry->second)].m_Pause, {}).m_nLastFailed != 0) {
        Report("works again");
    }
    Notice notice;
    if (entry->second.m_Make) {
        Unlink(entry);
        notice = std::exchange(entry->second.m_Notice, nullptr);
        entry->second.m_Make = nullptr;
        entry->second.m_Pause = {};
        entry->second.m_Due = Clock::now();
        m_nBytes += entry->second.m_nBytes;
        Link(entry);
        HoldLimit();
    } else {
        Erase(entry);
    }
    m_Changed.notify_all();
    return notice;
}

void Queue::Postpone(Entries::iterator entry, const std::string& reason) {
    const auto lengthen = [this](std::chrono::milliseconds& length) {
        length = std::clamp(length * 2, m_Settings.m_RetryMin, m_Settings.m_RetryMax);
        return Clock::now() + length;
    };
    auto& [number, of] = *entry;
    Place& place = m_Places[PlaceOf(of)];
    place.m_Ready.erase({of.m_Due, number});
    of.m_Due = lengthen(of.m_Pause);
    place.m_Ready.emplace(of.m_Due, number);
    if (const std::uint64_t last = std::exchange(place.m_Pause.m_nLastFailed, number); last != 0 && last != number) {
        place.m_Pause.m_End = lengthen(place.m_Pause.m_Length); // the fault is not this one entry's
    }
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(of.m_Pause).count();
    Report(of.m_File.filename().string() + (of.m_Make ? ": cannot be accepted, and stays where it is: " : ": ") +
           reason + "; tried again in " + std::to_string(seconds) + " s, " + std::to_string(m_Entries.size()) +
           " waiting");
    m_Changed.notify_all();
}

void Queue::Erase(Entries::iterator entry) {
    Unlink(entry);
    m_nBytes -= entry->second.m_nBytes;
    m_Entries.erase(entry);
}

// The newest one stays, whatever its size.
void Queue::HoldLimit() {
    for (auto entry = m_Entries.begin(); m_Settings.m_nLimit != 0 && m_nBytes > m_Settings.m_nLimit;) {
        const auto oldest = entry++;
        if (entry == m_Entries.end()) {
            return;
        }
        if (oldest->first != m_nRunning && !oldest->second.m_Make) {
            Report(oldest->second.m_File.filename().string() +
                   ": deleted unsent, to hold the limit: " + oldest->second.m_Path.filename().string());
            Discard(oldest->second);
            Erase(oldest);
        }
    }
}

void Queue::Discard(const Entry& entry) const {
    try {
        fs::remove(entry.m_File);
        fs::remove(entry.m_Path);
        Sync(m_Directory);
    } catch (const std::exception& error) {
        Report("not removed, so that it goes out again after the next start: " + std::string(error.what()));
    }
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
    eventfd_write(m_Stop.Get(), 1);
    if (m_Thread.joinable()) {
        m_Thread.join();
    }
}

QueueCounters Queue::Counters() const {
    const std::lock_guard lock(m_Mutex);
    return {m_Subject, m_nSent, m_Entries.size()};
}
