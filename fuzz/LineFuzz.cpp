#include "base/EString.h"
#include "fuzz/Require.h"
#include "gateway/Report.h"
#include "gateway/ReportFault.h"

#include <algorithm>
#include <cwchar>

namespace {

bool Same(const EONEVENTSTRUCT& one, const EONEVENTSTRUCT& other) {
    const auto same = [](const wchar_t* text, const wchar_t* second) {
        return (text == nullptr) == (second == nullptr) && (text == nullptr || std::wcscmp(text, second) == 0);
    };
    EString value;
    EString second;
    one.m_Value.GetString(value, 0, 0, 0);
    other.m_Value.GetString(second, 0, 0, 0);
    const auto moment = [](const ETimeStamp& stamp) { return stamp.m_nSeconds * 1000ULL + stamp.m_nMilliseconds; };
    return same(one.m_pszName, other.m_pszName) && same(one.m_pszText, other.m_pszText) &&
           same(one.m_pszSource, other.m_pszSource) && same(one.m_pszDetail, other.m_pszDetail) && value == second &&
           one.m_Value.GetQuality() == other.m_Value.GetQuality() &&
           moment(one.m_Value.GetTimestamp()) == moment(other.m_Value.GetTimestamp()) &&
           moment(one.m_TimeStamp) == moment(other.m_TimeStamp) && one.m_wState == other.m_wState &&
           one.m_nCode == other.m_nCode && one.m_nAlarmNumber == other.m_nAlarmNumber &&
           std::equal(one.m_nPrefixNumbers, one.m_nPrefixNumbers + 4, other.m_nPrefixNumbers) &&
           one.m_nIdentifier == other.m_nIdentifier;
}

} // namespace

// The input is a line as the gateway reads it. A comment at its end makes the other parser read it.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    ETimeStamp reading;
    reading.m_nSeconds = 1706706309;
    Report report;
    std::string reason;
    const std::string line(data, data + size);
    if (!report.Parse(line, reading, reason)) {
        Require(!reason.empty(), "a refused line has a reason");
        Require(reason.find('\n') == std::string::npos, "of one line");
        return 0;
    }
    Require(FindReportFault(line).empty(), "what is accepted has no fault");
    Report other;
    Require(other.Parse(line + "\n//", reading, reason), "the other parser takes it too");
    Require(report.m_Kind == other.m_Kind && report.m_Log == other.m_Log && report.m_Action == other.m_Action &&
                report.m_nIdentifier == other.m_nIdentifier && report.m_Records.size() == other.m_Records.size() &&
                std::equal(report.m_Records.begin(), report.m_Records.end(), other.m_Records.begin(), &Same),
            "for the same report");
    Require(!report.m_Records.empty(), "an accepted one has a record");
    Require(report.m_Kind != Report::Kind::Event || report.m_Log.empty(), "an event names no log file");
    for (const EONEVENTSTRUCT& record : report.m_Records) {
        const EONEVENTSTRUCT copy(&record, true); // reads every text to its end
        Require(copy.m_pszName != nullptr, "and texts that live as long");
    }
    return 0;
}
