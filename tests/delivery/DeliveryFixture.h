#pragma once

#include "intake/ELogInfo.h"
#include "tests/ServiceFixture.h"

#include <map>
#include <string>

// Requests processed in the test's own thread, and what they leave on disk.
class DeliveryTest : public ServiceTest {
protected:
    using When = TestNotices::When;

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
    // "Spool/$tmp0123abcd/"
    static bool IsJobDirectory(const std::string& path) {
        constexpr std::string_view START = "Spool/$tmp";
        return path.starts_with(START) && path.ends_with('/') && path.size() == START.size() + 9 &&
               path.find_first_not_of("0123456789abcdef", START.size()) == path.size() - 1;
    }
    int Jobs() const { return m_pService->m_Deliveries.GetCount(); }

    // Every file of the working directory with its bytes; directories, which end in '/', with none.
    static std::map<std::string, std::string> Contents() {
        std::map<std::string, std::string> contents;
        for (const std::string& path : Workplace::Tree()) {
            contents[path] = path.back() == '/' ? "" : ReadWhole(path);
        }
        return contents;
    }
};
