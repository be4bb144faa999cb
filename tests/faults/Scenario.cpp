#include "tests/faults/Scenario.h"

#include "base/ELock.h"
#include "intake/Actions.h"
#include "service/ELogFile.h"
#include "service/Entry.h"
#include "tests/Reports.h"

#include <gtest/gtest.h>

#include <regex>

namespace {

constexpr int PLAIN = 0;
constexpr int COMMA = 1;
constexpr int HTML = 2;
constexpr IKernelService::WR_OPERATION WARM_SAVE = 1;
constexpr IKernelService::WR_OPERATION WARM_FORGET = 2;

constexpr const char* ROW = "01-31-2024,13:05:09.042,r1__,T,S,D,Not Active,Not ACKED,7,17\n"; // with its number's place
constexpr std::string_view FOOTER = "</TBODY>\n</TABLE>\n<P>\n</BODY>\n</HTML>\n";

using Files = std::map<std::string, std::vector<int>>; // path to rows

// The rows of all files, from the file with the oldest ones to that with the newest.
std::vector<int> Join(const Files& files) {
    std::multiset<std::vector<int>> sorted;
    std::ranges::transform(files, std::inserter(sorted, sorted.end()), &Files::value_type::second);
    std::vector<int> all;
    for (const std::vector<int>& rows : sorted) {
        all.insert(all.end(), rows.begin(), rows.end());
    }
    EXPECT_TRUE(std::ranges::is_sorted(all, std::ranges::less_equal{})) << testing::PrintToString(files);
    return all;
}

std::string DirectoryOf(const std::string& path) {
    return path.substr(0, path.find_last_of('/') + 1);
}

// The set that the newest row belongs to. A service that cannot make its directory begins another one elsewhere.
void KeepNewestSet(Files& files) {
    const auto newest = std::ranges::max_element(files, {}, [](const auto& file) { return file.second; });
    const std::string directory = newest != files.end() ? DirectoryOf(newest->first) : "";
    std::erase_if(files, [&](const auto& file) { return DirectoryOf(file.first) != directory; });
}

// Prepared, configured from the section that stands there, pre-started.
ELogFile* BeginService(TestKernel& kernel) {
    ELogFile* service = kvLogFileInitService(&kernel);
    service->PrepareToStart();
    // A section that cannot be read now is read again, as a kernel does that is started once more.
    if (Failed(service->Restore(0)) || service->m_FileSpecs.GetCount() == 0) {
        EXPECT_EQ(service->Restore(0), RC_OK);
    }
    EXPECT_EQ(service->PreStart(), RC_OK);
    return service;
}

// Starts it, waits for the queue to become empty, prepares to stop.
void WorkAndStop(ELogFile* service) {
    EXPECT_EQ(service->Start(), RC_OK);
    EXPECT_TRUE(Soon([&] {
        const ELock lock(service->m_QueueMutex, MUTEX_NAME);
        return service->m_LogQueue.IsEmpty();
    }));
    service->PrepareToStop();
}

} // namespace

bool FaultLog::Owns(const std::string& path) const {
    return path.substr(DirectoryOf(path).size()).starts_with(m_Name + '-') && path.ends_with(".log");
}

std::string FaultLog::Items() const {
    const std::size_t characters = Header().size() + 2 * Line(ROW, "TD").size();
    return SpecItems{.m_Name = m_Name,
                     .m_File = m_Name + "-%i.log",
                     .m_nMaxSize = static_cast<int>(m_nUnicode != 0 ? 2 * characters - 2 : characters),
                     .m_nFiles = m_nFiles,
                     .m_nFormat = m_nFormat,
                     .m_nUnicode = m_nUnicode,
                     .m_nDelivery = m_nDelivery,
                     .m_nKeepCopy = m_nKeepCopy,
                     .m_Mail = "mail"};
}

// A line of comma-separated cells, in the log file's format.
std::string FaultLog::Line(const std::string& cells, const std::string& tag) const {
    if (m_nFormat == HTML) {
        const std::string element = "<" + tag + ">$1</" + tag + ">\n";
        return "<TR>\n" + std::regex_replace(cells, std::regex("([^,\n]+)[,\n]"), element) + "</TR>\n";
    }
    return m_nFormat == COMMA ? cells : std::regex_replace(cells, std::regex(","), "");
}

std::string FaultLog::Header() const {
    const std::string line = Line("H956,H957,H958,H959,H960,H961,H962,H963,H964,H965\n", "TH");
    return m_nFormat != HTML
               ? (m_nUnicode != 0 ? "\xFF\xFE" : "") + line
               : "<!DOCTYPE HTML PUBLIC \"-//W3C//DTD HTML 4.0 Transitional//EN\">\n<HTML><HEAD><TITLE></TITLE>\n"
                 "<META http-equiv=\"Content-Type\" content=\"text/html; charset=utf-8\">\n</HEAD>\n<BODY>\n"
                 "<TABLE cellspacing=\"0\" cellpadding=\"4\" border=\"1\">\n<THEAD>\n" +
                     line + "</THEAD>\n<TBODY>\n";
}

std::vector<int> FaultLog::Rows(const std::string& path, const std::string& bytes) const {
    std::vector<int> rows;
    if (bytes.empty()) {
        return rows;
    }
    std::string text = bytes;
    if (m_nUnicode != 0) {
        std::erase(text, '\0');
        EXPECT_EQ(bytes.size(), 2 * text.size() - 2) << path; // the byte order mark has no null characters
    }
    const std::string header = Header();
    EXPECT_TRUE(text.starts_with(header)) << path << " begins with " << text.substr(0, header.size());
    // What continues the HTML file of an earlier service is made of heading cells.
    const std::string forms[] = {Line(ROW, "TD"), Line(ROW, "TH")};
    const std::size_t place = forms[0].find("__");
    for (std::size_t at = header.size(); at < text.size();) {
        if (m_nFormat == HTML && text.compare(at, FOOTER.size(), FOOTER) == 0) {
            at += FOOTER.size();
            continue;
        }
        std::string row = text.substr(at, forms[0].size());
        rows.push_back(row.size() > place ? std::atoi(row.c_str() + place) : 0);
        row.replace(std::min(place, row.size()), 2, "__");
        if (row != forms[0] && row != forms[1]) {
            ADD_FAILURE() << path << " is torn at character " << at << ":\n" << text;
            break;
        }
        at += row.size();
    }
    return rows;
}

FaultOutcome FaultLog::OutcomeOf(const TestKernel& kernel) const {
    FaultOutcome outcome;
    for (const std::string& path : Workplace::Tree()) {
        if (Owns(path)) {
            std::string known = path;
            if (const std::size_t job = path.find("$tmp"); job != std::string::npos) {
                known.erase(job + 4, 8);
            }
            outcome.m_Files[known] = Rows(path, ReadWhole(path));
        }
    }
    if (!IsDelivered()) {
        KeepNewestSet(outcome.m_Files);
    }
    Files sent;
    const auto note = [&](const auto& contents) {
        for (const auto& [path, bytes] : contents) {
            if (Owns(path)) {
                sent[path] = Rows(path, bytes);
            }
        }
    };
    std::ranges::for_each(kernel.m_Upload.m_Sent, note, &Sending::m_Contents);
    std::ranges::for_each(kernel.m_EMail.m_Sent, note, &Sending::m_Contents);
    outcome.m_Kept = Join(outcome.m_Files);
    outcome.m_Sent = Join(sent);
    return outcome;
}

const std::vector<FaultLog>& Scenario::Logs() {
    // clang-format off
    static const std::vector<FaultLog> logs{
        {"plain", PLAIN, 1, 1, 1, 0, {11, 12}},      {"comma", COMMA, 0, 3, 1, 0, {7, 8, 9, 10, 11, 12}},
        {"html", HTML, 0, 2, 1, 0, {9, 10, 11, 12}}, {"upKept", COMMA, 0, 2, 2, 1, {1, 2, 3, 4}},
        {"upDeleted", PLAIN, 0, 2, 2, 0, {4}},       {"mailKept", HTML, 0, 2, 3, 1, {1, 2, 3, 4}},
        {"mailDeleted", COMMA, 1, 3, 3, 0, {4}}};
    // clang-format on
    return logs;
}

void Scenario::WriteSection() {
    std::vector<std::string> elements;
    std::ranges::transform(Logs(), std::back_inserter(elements), &FaultLog::Items);
    Workplace::WriteSection(elements);
}

Scenario::Scenario() {
    WriteSection();
    RunFirst();
    RunSecond();
}

void Scenario::RunFirst() {
    TestKernel kernel;
    kernel.m_EMail.m_Definitions["mail"] = "";
    kernel.m_Upload.m_Notices.m_When = TestNotices::When::Inside;
    ELogFile* service = BeginService(kernel);
    for (const FaultLog& log : Logs()) {
        const int before = log.IsDelivered() ? LAST_DELIVERED : RESTART_AFTER;
        WriteRows(service, log, 1, before);
        Ask(service, log, log.IsDelivered() ? ACTION_NAME_DELIVERY : ACTION_NAME_RESTART);
        WriteRows(service, log, before + 1, before + 1);
    }
    WorkAndStop(service);
    kernel.m_EMail.m_Notices.Deliver();
    for (const FaultLog& log : Logs()) {
        WriteRows(service, log, SAVED, log.IsDelivered() ? 0 : SAVED + 1);
    }
    m_bSaveFailed = Failed(service->WarmRestart(WARM_SAVE, nullptr));
    NoteFiles(true, kernel);
    service->Stop();
}

void Scenario::RunSecond() {
    TestKernel kernel;
    kernel.m_Control.m_bRestoreWanted = true;
    ELogFile* service = BeginService(kernel);
    m_bRestoreFailed = kernel.m_Reporter.Count(138) == 1;
    for (const FaultLog& log : Logs()) {
        WriteRows(service, log, LAST, log.IsDelivered() ? 0 : LAST);
    }
    WorkAndStop(service);
    service->WarmRestart(WARM_FORGET, nullptr);
    NoteFiles(false, kernel);
    service->Stop();
}

void Scenario::NoteFiles(bool delivered, const TestKernel& kernel) {
    for (const FaultLog& log : Logs()) {
        if (log.IsDelivered() == delivered) {
            m_Outcomes[log.m_Name] = log.OutcomeOf(kernel);
        }
    }
    for (const std::string& path : Workplace::Tree()) {
        const bool owned = std::ranges::any_of(Logs(), [&](const FaultLog& log) { return log.Owns(path); });
        if (path.ends_with('/')) {
            m_nJobDirectories += delivered && path.find("$tmp") != std::string::npos ? 1 : 0;
        } else if (!owned && path != "kvLogFile.warm") {
            m_Strays.push_back(path);
        }
    }
}

void WriteRows(ELogFile* service, const FaultLog& log, int first, int last) {
    EString name = Wide(log.m_Name);
    for (int number = first; number <= last; ++number) {
        const EString rowName = Wide("r" + std::to_string(100 + number));
        EONEVENTSTRUCT record = MakeRecord(rowName);
        EXPECT_EQ(service->LogAlarm(name, &record), RC_OK);
    }
}

EResult Ask(ELogFile* service, const FaultLog& log, const wchar_t* action) {
    EString actionName = action;
    EString name = Wide(log.m_Name);
    EONEVENTSTRUCT record = MakeRecord();
    return service->Invoke(actionName, name, nullptr, 1, &record, nullptr);
}
