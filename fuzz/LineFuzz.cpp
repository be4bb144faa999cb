#include "fuzz/Require.h"
#include "gateway/Report.h"

// The input is a line as the gateway reads it.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    ETimeStamp reading;
    reading.m_nSeconds = 1706706309;
    Report report;
    std::string reason;
    const std::string line(data, data + size);
    if (!report.Parse(line, reading, reason)) {
        Require(!reason.empty(), "a refused line has a reason");
        Require(!FindReportFault(line).empty() || reason.find("300 digits") != std::string::npos, "the right one");
        Require(reason.find('\n') == std::string::npos, "of one line");
        return 0;
    }
    Require(FindReportFault(line).empty(), "what is accepted has no fault");
    Require(!report.m_Records.empty(), "an accepted one has a record");
    Require(report.m_Kind != Report::Kind::Event || report.m_Log.empty(), "an event names no log file");
    for (const EONEVENTSTRUCT& record : report.m_Records) {
        const EONEVENTSTRUCT copy(&record, true); // reads every text to its end
        Require(copy.m_pszName != nullptr, "and texts that live as long");
    }
    return 0;
}
