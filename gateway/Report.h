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

    // Reads a line, in place of what was read before. False, and the reason, when it cannot be used; the report is of no
    // use then. `reading` dates what has no time of its own. One object for all lines saves their allocations.
    bool Parse(const std::string& line, const ETimeStamp& reading, std::string& reason);

    // An action that nobody has reported: one record with the log file's name, the time and the text.
    static Report MakeAction(const std::string& action, const std::string& log, const ETimeStamp& time,
                             const std::string& text);

    Kind m_Kind = Kind::Event;
    std::string m_Action;                  // of Kind::Action
    std::string m_Log;                     // the log file; empty for Kind::Event
    int m_nIdentifier = -1;                // the one that its name carries: the records' own unless they say otherwise
    std::vector<EONEVENTSTRUCT> m_Records; // at least one

private:
    friend class ReportReader;

    void SetLog(const std::string& log);
    void AddOwnRecord(const ETimeStamp& time, const std::string& text); // for what nobody has given a record
    bool ParseRight(const std::string& line, const ETimeStamp& reading);
    const wchar_t* Keep(std::string_view text); // null for what is not UTF-8

    std::string m_Scratch;
    std::vector<wchar_t> m_Texts; // what the records refer to; its room is made before, for they must stay in place
};

// Reads a line that has been refused once more, with the places of what stands in it: what is wrong, and where. Empty
// when it finds nothing, which is a fault of the one that has refused it.
std::string FindReportFault(const std::string& line);
