#include "tests/faults/Scenario.h"

#include "base/ELock.h"
#include "intake/Actions.h"
#include "service/ELogFile.h"
#include "service/Entry.h"

#include <gtest/gtest.h>

#include <chrono>
#include <regex>
#include <thread>

namespace {

constexpr int PLAIN = 0;
constexpr int COMMA = 1;
constexpr int HTML = 2;
constexpr IKernelService::WR_OPERATION WARM_SAVE = 1;
constexpr IKernelService::WR_OPERATION WARM_FORGET = 2;

std::string RowName(int number) {
    return "r" + std::to_string(100 + number);
}

std::string Line(const std::vector<std::string>& cells, int format, const char* tag) {
    std::string line = format == HTML ? "<TR>\n" : "";
    for (const std::string& cell : cells) {
        const std::string element = std::string("<") + tag + ">" + cell + "</" + tag + ">\n";
        line += format == HTML ? element : format == COMMA && &cell != &cells.back() ? cell + ',' : cell;
    }
    return line + (format == HTML ? "</TR>\n" : "\n");
}

std::string Encode(const std::string& text, bool unicode) {
    std::string bytes;
    for (const char character : text) {
        bytes += character;
        bytes.append(unicode ? 1 : 0, '\0');
    }
    return bytes;
}

using Files = std::map<std::string, std::vector<int>>; // path to rows

// The rows of all files, from the file with the oldest ones to that with the newest.
std::vector<int> Join(const Files& files) {
    std::vector<std::vector<int>> sorted;
    for (const auto& [path, rows] : files) {
        sorted.push_back(rows);
    }
    std::sort(sorted.begin(), sorted.end());
    std::vector<int> all;
    for (const std::vector<int>& rows : sorted) {
        all.insert(all.end(), rows.begin(), rows.end());
    }
    return all;
}

std::string DirectoryOf(const std::string& path) {
    return path.substr(0, path.find_last_of('/') + 1);
}

// The set that the newest row belongs to. A service that cannot make its directory begins another one elsewhere.
Files NewestSet(Files files) {
    const auto newest = std::max_element(files.begin(), files.end(),
                                         [](const auto& one, const auto& other) { return one.second < other.second; });
    const std::string directory = newest != files.end() ? DirectoryOf(newest->first) : "";
    std::erase_if(files, [&](const auto& file) { return DirectoryOf(file.first) != directory; });
    return files;
}

} // namespace

std::string FaultLog::Header() const {
    std::vector<std::string> cells;
    for (int number = 956; number <= 965; ++number) {
        cells.push_back("H" + std::to_string(number));
    }
    const std::string line = Line(cells, m_nFormat, "TH");
    if (m_nFormat != HTML) {
        return (m_nUnicode != 0 ? "\xFF\xFE" : "") + Encode(line, m_nUnicode != 0);
    }
    return "<!DOCTYPE HTML PUBLIC \"-//W3C//DTD HTML 4.0 Transitional//EN\">\n<HTML><HEAD><TITLE></TITLE>\n"
           "<META http-equiv=\"Content-Type\" content=\"text/html; charset=utf-8\">\n</HEAD>\n<BODY>\n"
           "<TABLE cellspacing=\"0\" cellpadding=\"4\" border=\"1\">\n<THEAD>\n" +
           line + "</THEAD>\n<TBODY>\n";
}

std::string FaultLog::Row(int number, const char* tag) const {
    return Encode(
        Line({"01-31-2024", "13:05:09.042", RowName(number), "T", "S", "D", "Not Active", "Not ACKED", "7", "17"},
             m_nFormat, tag),
        m_nFormat != HTML && m_nUnicode != 0);
}

std::string FaultLog::Footer() const {
    return m_nFormat == HTML ? "</TBODY>\n</TABLE>\n<P>\n</BODY>\n</HTML>\n" : "";
}

bool FaultLog::Owns(const std::string& path) const {
    const std::string name = path.substr(path.find_last_of('/') + 1);
    return name.starts_with(m_Name + '-') && name.ends_with(".log");
}

std::string FaultLog::Items() const {
    return SpecItems{.m_Name = m_Name,
                     .m_File = m_Name + "-%i.log",
                     .m_nMaxSize = static_cast<int>(Header().size() + 2 * Row(1).size()),
                     .m_nFiles = m_nFiles,
                     .m_nFormat = m_nFormat,
                     .m_nUnicode = m_nUnicode,
                     .m_nDelivery = m_nDelivery,
                     .m_nKeepCopy = m_nKeepCopy,
                     .m_Mail = "mail"};
}

std::vector<int> FaultLog::Rows(const std::string& path, const std::string& bytes) const {
    std::vector<int> rows;
    if (bytes.empty()) {
        return rows;
    }
    const auto starts = [&](std::size_t at, const std::string& text) {
        return !text.empty() && bytes.compare(at, text.size(), text) == 0;
    };
    EXPECT_TRUE(starts(0, Header())) << path << " begins with " << bytes.substr(0, Header().size());
    for (std::size_t at = Header().size(); at < bytes.size();) {
        if (starts(at, Footer())) {
            at += Footer().size();
            continue;
        }
        int number = 1;
        // What continues the HTML file of an earlier service is made of heading cells.
        while (number <= Scenario::LAST && !starts(at, Row(number)) && !starts(at, Row(number, "TH"))) {
            ++number;
        }
        if (number > Scenario::LAST) {
            ADD_FAILURE() << path << " is torn at byte " << at << ":\n" << bytes;
            break;
        }
        rows.push_back(number);
        at += Row(number).size();
    }
    return rows;
}

const std::vector<FaultLog>& Scenario::Logs() {
    static const std::vector<FaultLog> logs{{"plain", PLAIN, 1, 1, 1, 0},      {"comma", COMMA, 0, 3, 1, 0},
                                            {"html", HTML, 0, 2, 1, 0},        {"upKept", COMMA, 0, 2, 2, 1},
                                            {"upDeleted", PLAIN, 0, 2, 2, 0},  {"mailKept", HTML, 0, 2, 3, 1},
                                            {"mailDeleted", COMMA, 1, 3, 3, 0}};
    return logs;
}

void Scenario::WriteSection() {
    std::vector<std::string> elements;
    for (const FaultLog& log : Logs()) {
        elements.push_back(log.Items());
    }
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
    while (kernel.m_EMail.m_Notices.GiveNext()) {
    }
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
    std::vector<std::string> strays = Workplace::Tree();
    std::erase_if(strays, [](const std::string& path) { return path.ends_with('/') || path == "kvLogFile.warm"; });
    for (const FaultLog& log : Logs()) {
        std::erase_if(strays, [&](const std::string& path) { return log.Owns(path); });
        if (log.IsDelivered() == delivered) {
            m_Outcomes[log.m_Name] = OutcomeOf(log, kernel);
        }
    }
    m_Strays.insert(m_Strays.end(), strays.begin(), strays.end());
    for (const std::string& path : Workplace::Tree()) {
        m_nJobDirectories += delivered && path.find("$tmp") != std::string::npos && path.ends_with('/') ? 1 : 0;
    }
}

FaultOutcome OutcomeOf(const FaultLog& log, const TestKernel& kernel) {
    Files kept;
    for (const std::string& path : Workplace::Tree()) {
        if (log.Owns(path)) {
            const std::string known = std::regex_replace(path, std::regex("[$]tmp[0-9a-f]{8}"), "$$tmp");
            kept[known] = log.Rows(path, ReadWhole(path));
        }
    }
    std::map<std::string, std::string> contents;
    for (const Upload& upload : kernel.m_Upload.m_Uploads) {
        contents.insert(upload.m_Contents.begin(), upload.m_Contents.end());
    }
    for (const SentMail& mail : kernel.m_EMail.m_Sent) {
        contents.insert(mail.m_Contents.begin(), mail.m_Contents.end());
    }
    Files sent;
    for (const auto& [path, bytes] : contents) {
        if (log.Owns(path)) {
            sent[path] = log.Rows(path, bytes);
        }
    }
    kept = log.IsDelivered() ? kept : NewestSet(kept);
    return {kept, Join(kept), Join(sent)};
}

bool IsRising(const std::vector<int>& rows) {
    return std::adjacent_find(rows.begin(), rows.end(), std::greater_equal<>()) == rows.end();
}

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

void WriteRows(ELogFile* service, const FaultLog& log, int first, int last) {
    EString name = Wide(log.m_Name);
    for (int number = first; number <= last; ++number) {
        const EString rowName = Wide(RowName(number));
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

void WorkAndStop(ELogFile* service) {
    EXPECT_EQ(service->Start(), RC_OK);
    const auto isDone = [&] {
        const ELock lock(service->m_QueueMutex, MUTEX_NAME);
        return service->m_LogQueue.IsEmpty();
    };
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!isDone() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
    EXPECT_TRUE(isDone());
    service->PrepareToStop();
}
