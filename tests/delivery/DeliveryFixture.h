#pragma once

#include "tests/ServiceFixture.h"

#include <map>
#include <regex>
#include <string>

// Requests processed in the test's own thread, and what they leave on disk.
class DeliveryTest : public ServiceTest {
protected:
    using When = TestNotices::When;
    using Contents = std::map<std::string, std::string>; // path to bytes

    EResult Process(EFileSpec* spec, ActionType action, const EONEVENTSTRUCT* record) {
        ELogInfo request(spec, action, 1, record);
        return m_pService->ProcessLogFile(&request);
    }
    void Row(EFileSpec* spec, const wchar_t* text = L"T") {
        const EONEVENTSTRUCT record = MakeRecord(L"N", text);
        Process(spec, ACTION_LOG_ALARM, &record);
    }
    EResult Deliver(EFileSpec* spec) {
        const EONEVENTSTRUCT record = MakeRecord();
        return Process(spec, ACTION_DELIVERY, &record);
    }
    void GiveNotices(int threads = 2) {
        m_Kernel.m_EMail.m_Notices.Deliver(threads);
        m_Kernel.m_Upload.m_Notices.Deliver(threads);
    }
    int Jobs() const { return m_pService->m_Deliveries.GetCount(); }

    // A text of paths, with every job's directory called "JOB/".
    static std::string Known(const std::string& paths) {
        return std::regex_replace(paths, std::regex("Spool/\\$tmp[0-9a-f]{8}/"), "JOB/");
    }

    // Every file of the working directory, by its known path; directories, which end in '/', have no bytes.
    static Contents OnDisk() {
        Contents contents;
        for (const std::string& path : Workplace::Tree()) {
            contents[Known(path)] = path.back() == '/' ? "" : ReadWhole(path);
        }
        return contents;
    }
};
