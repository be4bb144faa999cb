#include "tests/faults/Scenario.h"

#include "base/ELock.h"
#include "base/Guarded.h"
#include "base/WARM_RESTART_STRUCT.h"
#include "config/EFileSpec.h"
#include "intake/ELogInfo.h"
#include "service/ELogFile.h"
#include "service/Entry.h"
#include "tests/Reports.h"
#include "tests/kernel/TestKernel.h"

#include <gtest/gtest.h>

#include <regex>
#include <span>

// clang-format off
const std::vector<FaultLog> Scenario::LOGS{
    {{"plain", "logs", "plain-%i.log", 280, 1, 0, 1, 1, 0}, 12, {11, 12}},
    {{"comma", "logs", "comma-%i.log", 166, 3, 1, 0, 1, 0}, 12, {7, 8, 9, 10, 11, 12}},
    {{"html", "logs", "html-%i.log", 789, 2, 2, 0, 1, 0}, 12, {9, 10, 11, 12}},
    {{"upKept", "logs", "upKept-%i.log", 166, 2, 1, 0, 2, 1}, 4, {1, 2, 3, 4}},
    {{"upDeleted", "logs", "upDeleted-%i.log", 139, 2, 0, 0, 2, 0}, 4, {4}},
    {{"mailKept", "logs", "mailKept-%i.log", 789, 2, 2, 0, 3, 1, "mail"}, 4, {1, 2, 3, 4}},
    {{"mailDeleted", "logs", "mailDeleted-%i.log", 334, 3, 1, 1, 3, 0, "mail"}, 4, {4}},
    {{"Kavro", "", "", 0, 1, 3, 1}, 4, {1, 2, 3, 4}}};
// clang-format on

namespace {

const auto CONFIGURED = std::span(Scenario::LOGS).first(7); // the service makes the kernel log itself

// What a file consists of. '?' is the number of the row, as a letter.
const struct {
    std::string m_Header;
    std::string m_Row;
    std::string m_Footer;
} FORMATS[] = {
    {"H956H957H958H959H960H961H962H963H964H965\n", "01-31-202413:05:09.042?TSDNot ActiveNot ACKED717\n", "none"},
    {"H956,H957,H958,H959,H960,H961,H962,H963,H964,H965\n",
     "01-31-2024,13:05:09.042,?,T,S,D,Not Active,Not ACKED,7,17\n", "none"},
    {"<!DOCTYPE HTML PUBLIC \"-//W3C//DTD HTML 4.0 Transitional//EN\">\n<HTML><HEAD><TITLE></TITLE>\n"
     "<META http-equiv=\"Content-Type\" content=\"text/html; charset=utf-8\">\n</HEAD>\n<BODY>\n"
     "<TABLE cellspacing=\"0\" cellpadding=\"4\" border=\"1\">\n<THEAD>\n<TR>\n<TH>H956</TH>\n"
     "<TH>H957</TH>\n<TH>H958</TH>\n<TH>H959</TH>\n<TH>H960</TH>\n<TH>H961</TH>\n<TH>H962</TH>\n"
     "<TH>H963</TH>\n<TH>H964</TH>\n<TH>H965</TH>\n</TR>\n</THEAD>\n<TBODY>\n",
     "<TR>\n<TD>01-31-2024</TD>\n<TD>13:05:09.042</TD>\n<TD>?</TD>\n<TD>T</TD>\n<TD>S</TD>\n<TD>D</TD>\n"
     "<TD>Not Active</TD>\n<TD>Not ACKED</TD>\n<TD>7</TD>\n<TD>17</TD>\n</TR>\n",
     "</TBODY>\n</TABLE>\n<P>\n</BODY>\n</HTML>\n"},
    {"", "01-31-2024 13:05:09.042 S ?: T\n", "none"}};

std::vector<int> RowsIn(const FaultLog& log, const std::string& bytes) {
    const auto& [heading, form, footer] = FORMATS[log.m_Items.m_nFormat];
    const bool wide = log.m_Items.m_nUnicode != 0 && !bytes.empty();
    const std::string header = (wide ? "\xFF\xFE" : "") + heading;
    static const std::regex headingCell("TH>"); // of such is what continues the HTML file of an earlier service
    std::vector<int> rows;
    std::string text = bytes;
    if (wide) {
        std::erase(text, '\0');
        EXPECT_EQ(bytes.size(), 2 * text.size() - 2); // the byte order mark has no null characters
    }
    EXPECT_TRUE(text.empty() || text.starts_with(header)) << text;
    for (std::size_t at = header.size(); at < text.size(); at += form.size()) {
        while (text.compare(at, footer.size(), footer) == 0) {
            text.erase(at, footer.size());
        }
        std::string row = std::regex_replace(text.substr(at, form.size()), headingCell, "TD>");
        if (const std::size_t place = form.find('?'); place < row.size()) {
            rows.push_back(std::exchange(row[place], '?') - 'A');
        }
        EXPECT_TRUE(row == form || row.empty()) << "torn at character " << at << ":\n" << text;
    }
    return rows;
}

using Contents = std::map<std::string, std::string>; // path to bytes

RowsOfFiles RowsIn(const FaultLog& log, const Contents& files) {
    RowsOfFiles rows;
    for (const auto& [path, bytes] : files) {
        if (path.substr(path.find_last_of('/') + 1).starts_with(log.m_Items.m_Name)) {
            SCOPED_TRACE(path);
            const std::size_t job = path.find("$tmp");
            rows[job == std::string::npos ? path : std::string(path).erase(job + 4, 8)] = RowsIn(log, bytes);
        }
    }
    return rows;
}

class Life : public Scenario {
    const Workplace m_Workplace;
    ELogFile* m_pService = nullptr;

public:
    Life() {
        std::vector<std::string> elements;
        std::ranges::transform(CONFIGURED, std::back_inserter(elements), &FaultLog::m_Items);
        Workplace::WriteSection(elements);
        RunFirst();
        RunSecond();
        EPersistent::RemoveFactories();
    }

private:
    void RunFirst() {
        TestKernel kernel;
        kernel.m_EMail.m_Definitions["mail"] = "";
        kernel.m_Upload.m_Notices.m_When = TestNotices::When::Inside;
        Begin(kernel);
        Report(1); // before there is a kernel log
        for (const FaultLog& log : CONFIGURED) {
            const int before = log.IsDelivered() ? LAST_DELIVERED : 8;
            EString name = Wide(log.m_Items.m_Name);
            EString action = log.IsDelivered() ? ACTION_NAME_DELIVERY : ACTION_NAME_RESTART;
            EONEVENTSTRUCT record = MakeRecord();
            WriteRows(log, 1, before);
            Do("Invoke", [&] { return m_pService->Invoke(action, name, nullptr, 1, &record, nullptr); });
            WriteRows(log, before + 1, before + 1);
        }
        Process(kernel);
        kernel.m_EMail.m_Notices.Deliver();
        EXPECT_TRUE(m_pService->m_Deliveries.IsEmpty());
        EXPECT_EQ(kernel.m_EMail.m_Definitions["mail"], "");
        EXPECT_EQ(kernel.m_EMail.m_nRecords, 0);
        Do("Start", [&] { return m_pService->Start(); });
        Do("PrepareToStop", [&] { return m_pService->PrepareToStop(); });
        Report(2); // writes both
        for (const FaultLog& log : CONFIGURED) {
            WriteRows(log, SAVED[0], log.IsDelivered() ? 0 : SAVED[1]);
        }
        Do("Save", [&] { return m_pService->WarmRestart(1, nullptr); });
        NoteFiles(true, kernel);
        Do("Stop", [&] { return m_pService->Stop(); });
    }

    void RunSecond() {
        TestKernel kernel;
        kernel.m_Control.m_bRestoreWanted = true;
        Begin(kernel);
        for (const FaultLog& log : CONFIGURED) {
            WriteRows(log, log.m_nLast, log.IsDelivered() ? 0 : log.m_nLast);
        }
        Do("Start", [&] { return m_pService->Start(); });
        Report(3);
        EXPECT_TRUE(Eventually([&] {
            const ELock lock(m_pService->m_QueueMutex, MUTEX_NAME);
            return m_pService->m_LogQueue.IsEmpty();
        }));
        Do("PrepareToStop", [&] { return m_pService->PrepareToStop(); });
        Report(4);
        Do("GetAgentLogFile",
           [this, file = EString(), format = 0]() mutable { return m_pService->GetAgentLogFile(file, format); });
        WARM_RESTART_STRUCT sections{};
        Do("ListSections", [&] { return m_pService->WarmRestart(3, &sections); });
        delete[] sections.m_pszSections;
        Do("Forget", [&] { return m_pService->WarmRestart(2, nullptr); });
        NoteFiles(false, kernel);
        Do("Stop", [&] { return m_pService->Stop(); });
    }

    // Has the module do something. What fails is asked for once more: nothing is in the way then.
    template <class Operation>
    void Do(const char* name, Operation operation) {
        EResult result = RC_OK;
        InKernel::Leave([&] { result = operation(); });
        if (Failed(result)) {
            m_Failed.emplace(result, name);
            m_bTold = true;
            InKernel::Leave([&] { result = operation(); });
        }
        EXPECT_EQ(result, RC_OK) << name;
    }

    // Makes a service that is prepared, configured and pre-started.
    void Begin(TestKernel& kernel) {
        Do("Construct", [&] {
            return Guarded([&] { return (m_pService = kvLogFileInitService(&kernel)) == g_pELogFile ? RC_OK : 1; });
        });
        Do("PrepareToStart", [&] { return m_pService->PrepareToStart(); });
        // What is left out, as the kernel was told, is read by a kernel that is started once more.
        Do("Restore", [&] {
            const EResult result = m_pService->Restore(0);
            const bool complete = m_pService->m_FileSpecs.GetCount() == static_cast<int>(CONFIGURED.size()) &&
                                  !m_pService->m_DateFormat.IsEmpty() && !m_pService->m_TimeFormat.IsEmpty();
            return complete || Failed(result) ? result : RC_ITEM_MISSING;
        });
        Do("PreStart", [&] { return m_pService->PreStart(); });
        if (kernel.m_Reporter.Count(138) != 0) {
            m_Failed.emplace(RC_READ, "saved requests");
        }
    }

    void Report(int row) {
        const wchar_t rowName[] = {static_cast<wchar_t>(L'A' + row), L'\0'};
        EONEVENTSTRUCT record = MakeRecord(rowName);
        Do("ReportEvent", [&] { return m_pService->ReportEvent(&record); });
    }

    void WriteRows(const FaultLog& log, int first, int last) {
        EString name = Wide(log.m_Items.m_Name);
        for (int row = first; row <= last; ++row) {
            const wchar_t rowName[] = {static_cast<wchar_t>(L'A' + row), L'\0'};
            EONEVENTSTRUCT record = MakeRecord(rowName);
            Do("LogAlarm", [&] { return m_pService->LogAlarm(name, &record); });
        }
    }

    // What is queued, as the worker does it.
    void Process(const TestKernel& kernel) {
        while (auto* info = static_cast<ELogInfo*>(m_pService->m_LogQueue.RemoveHead())) {
            const std::unique_ptr<ELogInfo> request(info);
            EResult result = RC_OK;
            InKernel::Leave([&] { result = Guarded([&] { return m_pService->ProcessLogFile(info); }); });
            if (Failed(result)) {
                const std::string log = Narrow(info->m_pFileSpec->m_Name);
                const bool jobless = kernel.m_Reporter.Count(304) != 0;
                m_Failed.emplace(result, info->m_Action != ACTION_DELIVERY ? "Row" : jobless ? log + " job" : log);
            }
        }
    }

    // Of the log files that are delivered, or of the others.
    void NoteFiles(bool delivered, const TestKernel& kernel) {
        Contents kept;
        Contents sent;
        for (const std::string& path : Workplace::Tree()) {
            if (path.ends_with(".log")) {
                kept[path] = ReadWhole(path);
            } else if (path.ends_with('/') ? path.find("$tmp") != std::string::npos : path != "kvLogFile.warm") {
                m_Strays.push_back(path);
            }
        }
        const auto note = [&](Contents contents) { sent.merge(contents); };
        std::ranges::for_each(kernel.m_Upload.m_Sent, note, &Sending::m_Contents);
        std::ranges::for_each(kernel.m_EMail.m_Sent, note, &Sending::m_Contents);
        for (const FaultLog& log : LOGS) {
            if (log.IsDelivered() == delivered) {
                m_Kept[log.m_Items.m_Name] = RowsIn(log, kept);
                m_Sent[log.m_Items.m_Name] = RowsIn(log, sent);
            }
        }
    }
};

} // namespace

Scenario Scenario::Run() {
    Life life;
    return std::move(static_cast<Scenario&>(life));
}
