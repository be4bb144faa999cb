#pragma once

#include "base/EONEVENTSTRUCT.h"
#include "base/EString.h"

#include <array>
#include <deque>
#include <string>
#include <vector>

class Findings;
class JsonObject;
struct EJsonValue;

// The actions that a log file can be asked for, by their numbers in saved requests.
constexpr std::array ACTIONS{"DoLogAlarmToFile", "DoLogEventToFile", "DoLogSnapShotToFile", "DoLogDelivery",
                             "DoRestartLogFile"};
constexpr const char* ACTION_ALARM = ACTIONS[0];
constexpr const char* ACTION_DELIVERY = ACTIONS[3];
constexpr const char* ACTION_RESTART = ACTIONS[4];
bool IsAction(const std::string& name);
bool WritesRow(const std::string& action);

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
    int m_nIdentifier = -1;                // the one that its name carries: the records' own unless they say otherwise
    std::vector<EONEVENTSTRUCT> m_Records; // at least one

private:
    void SetLog(const std::string& log);
    void ReadMembers(JsonObject& object);
    void AddRecords(JsonObject& object, const char* name);
    void AddRecord(JsonObject& object);
    void AddOwnRecord(const std::string& text); // for what nobody has given a record
    void TakeValue(JsonObject& object, CDataValue& data);
    void TakeScalar(JsonObject& object, const EJsonValue& value, CDataValue& data);
    const wchar_t* Keep(const std::string& text);

    ETimeStamp m_Reading;
    std::deque<EString> m_Texts; // what the records refer to
};
