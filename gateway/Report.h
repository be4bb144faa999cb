#pragma once

#include "base/EJsonText.h"
#include "base/EONEVENTSTRUCT.h"
#include "base/EString.h"

#include <deque>
#include <string>
#include <vector>

class Findings;
class JsonObject;

// The actions that a log file can be asked for.
extern const char* const ACTION_SNAPSHOT;
extern const char* const ACTION_ALARM;
extern const char* const ACTION_EVENT;
extern const char* const ACTION_DELIVERY;
extern const char* const ACTION_RESTART;
bool IsAction(const std::string& name);

// One line of the input.
class Report {
public:
    enum class Kind { Event, Alarm, SnapShot, Action };

    // Reads a line. False, and the reason, when it cannot be used. `reading` dates what has no time of its own.
    bool Parse(const std::string& line, const ETimeStamp& reading, std::string& reason);

    // An action that nobody has reported: one record with the log file's name, the time and the text.
    static Report MakeAction(const std::string& action, const std::string& log, const ETimeStamp& time,
                             const std::string& text);

    Kind m_Kind = Kind::Event;
    std::string m_Action;                  // of Kind::Action
    std::string m_Log;                     // the log file; empty for Kind::Event
    std::vector<EONEVENTSTRUCT> m_Records; // at least one

private:
    void ParseMembers(const EJsonValue& line, Findings& findings);
    void ParseAction(JsonObject& object, const EJsonValue& action, Findings& findings);
    void AddRecords(JsonObject& object, const char* name, const EJsonValue& list, Findings& findings);
    void AddRecord(const EJsonValue& value, Findings& findings);
    void AddOwnRecord(const std::string& text); // for what nobody has given a record
    void ParseValue(const EJsonValue& value, CDataValue& data, Findings& findings);
    void ParseScalar(const EJsonValue& value, CDataValue& data, Findings& findings);
    const wchar_t* Keep(const std::string& text);

    ETimeStamp m_Reading;
    int m_nIdentifier = -1;      // the one that the log file's name carries: the records' own unless they say otherwise
    std::deque<EString> m_Texts; // what the records refer to
};
