#pragma once

#include "base/Contract.h"
#include "base/EONEVENTSTRUCT.h"
#include "base/EUtility.h"

#include <array>
#include <string>
#include <string_view>
#include <vector>

// The actions that a log file can be asked for, by their numbers in saved requests.
inline const std::array ACTIONS{Narrow(ACTION_NAME_ALARM), Narrow(ACTION_NAME_EVENT), Narrow(ACTION_NAME_SNAPSHOT),
                                Narrow(ACTION_NAME_DELIVERY), Narrow(ACTION_NAME_RESTART)};
bool IsAction(const std::string& name);
bool WritesRow(const std::string& action);

// One line of the input.
class Report {
public:
    enum class Kind { Event, Alarm, SnapShot, Action };

    // Reads a line in place of the last one; one object for all lines saves allocations. False, and the reason, when the
    // line cannot be used: do not use the report then. `reading` is the time of records that have none.
    bool Parse(const std::string& line, const ETimeStamp& reading, std::string& reason);

    Kind m_Kind = Kind::Event;
    std::string m_Action;                  // of Kind::Action
    std::string m_Log;                     // the log file; empty for Kind::Event
    int m_nIdentifier = -1;                // in the log file's name; for records without one of their own
    std::vector<EONEVENTSTRUCT> m_Records; // at least one

private:
    friend class ReportReader;

    void SetLog(const std::string& log);
    void ReadScratch(const ETimeStamp& reading);
    const wchar_t* Keep(std::string_view text); // null for what is not UTF-8

    std::string m_Scratch;
    std::vector<wchar_t> m_Texts; // of the records; reserved before, so that they never move
};
