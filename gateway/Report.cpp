#include "gateway/Report.h"

#include "gateway/Findings.h"
#include "gateway/JsonObject.h"
#include "gateway/Moments.h"
#include "gateway/NameService.h"
#include "gateway/Text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>

const char* const ACTION_SNAPSHOT = "DoLogSnapShotToFile";
const char* const ACTION_ALARM = "DoLogAlarmToFile";
const char* const ACTION_EVENT = "DoLogEventToFile";
const char* const ACTION_DELIVERY = "DoLogDelivery";
const char* const ACTION_RESTART = "DoRestartLogFile";

namespace {

using JsonKind = EJsonValue::Kind;
using Int32 = std::numeric_limits<std::int32_t>;

constexpr std::int64_t MAX_STATE = 0xFFFF;
constexpr std::int64_t MAX_QUALITY = 0xFFFFFFFF;

void TakeInt32(JsonObject& object, const char* name, std::int32_t& number) {
    std::int64_t taken = number;
    object.Integer(name, Int32::min(), Int32::max(), taken);
    number = static_cast<std::int32_t>(taken);
}

bool TakeTime(const EJsonValue& value, Findings& findings, ETimeStamp& stamp) {
    const bool isNumber = value.m_Kind == JsonKind::Integer || value.m_Kind == JsonKind::Floating;
    if (isNumber ? Moments::FromSeconds(value.m_Double, stamp)
                 : value.m_Kind == JsonKind::Text && Moments::ParseRfc3339(value.m_Text, stamp)) {
        return true;
    }
    JsonObject::Refuse(value, value.m_Name,
                       "a time such as \"2024-01-31T13:05:09.042Z\", or seconds since 1970, from 1970 to 2106",
                       findings);
    return false;
}

void TakeState(const EJsonValue& value, Findings& findings, std::uint16_t& state) {
    std::int64_t number = 0;
    if (value.m_Kind != JsonKind::Object) {
        if (JsonObject::TakeInteger(value, "state", 0, MAX_STATE, findings, number)) {
            state = static_cast<std::uint16_t>(number);
        }
        return;
    }
    JsonObject object(value, "state", findings);
    bool active = false;
    bool acked = false;
    object.Boolean("active", active);
    object.Boolean("acked", acked);
    object.Finish();
    state = static_cast<std::uint16_t>((active ? EONEVENTSTRUCT::STATE_ACTIVE : 0) |
                                       (acked ? EONEVENTSTRUCT::STATE_ACKED : 0));
}

void TakePrefix(JsonObject& object, Findings& findings, std::int32_t (&numbers)[4]) {
    const EJsonValue* prefix = object.Find("prefix");
    if (prefix == nullptr) {
        return;
    }
    if (prefix->m_Kind != JsonKind::Array || prefix->m_Items.size() != std::size(numbers)) {
        JsonObject::Refuse(*prefix, "prefix", "a list of four integers", findings);
        return;
    }
    for (std::size_t i = 0; i < std::size(numbers); ++i) {
        std::int64_t number = 0;
        if (JsonObject::TakeInteger(prefix->m_Items[i], "prefix", Int32::min(), Int32::max(), findings, number)) {
            numbers[i] = static_cast<std::int32_t>(number);
        }
    }
}

} // namespace

bool IsAction(const std::string& name) {
    const std::array actions{ACTION_SNAPSHOT, ACTION_ALARM, ACTION_EVENT, ACTION_DELIVERY, ACTION_RESTART};
    return std::find(actions.begin(), actions.end(), name) != actions.end();
}

bool Report::Parse(const std::string& line, const ETimeStamp& reading, std::string& reason) {
    EJsonValue root;
    EJsonFault fault;
    Findings findings;
    if (EJsonText::Parse(line, root, fault)) {
        m_Reading = reading;
        ParseMembers(root, findings);
    } else {
        findings.Error(fault.m_Place, fault.m_Message);
    }
    if (!findings.HasErrors()) {
        return true;
    }
    const Finding& first = findings.List().front();
    reason = "column " + std::to_string(first.m_Place.m_nColumn) + ": " + first.m_Text;
    return false;
}

void Report::ParseMembers(const EJsonValue& line, Findings& findings) {
    JsonObject object(line, "report", findings);
    if (const EJsonValue* const event = object.Find("event"); event != nullptr) {
        m_Kind = Kind::Event;
        AddRecord(*event, findings);
        object.Finish();
        return;
    }
    if (object.Require("log") != nullptr && object.Text("log", m_Log)) {
        EString name = Widen(m_Log);
        m_nIdentifier = NameService::Split(name);
    }
    if (const EJsonValue* const alarm = object.Find("alarm"); alarm != nullptr) {
        m_Kind = Kind::Alarm;
        AddRecord(*alarm, findings);
    } else if (const EJsonValue* const snapshot = object.Find("snapshot"); snapshot != nullptr) {
        m_Kind = Kind::SnapShot;
        AddRecords(object, "snapshot", *snapshot, findings);
    } else if (const EJsonValue* const action = object.Find("action"); action != nullptr) {
        m_Kind = Kind::Action;
        ParseAction(object, *action, findings);
    } else {
        findings.Error(line.m_Begin, R"(found no report, expected one of "event", "alarm", "snapshot" and "action")");
        return;
    }
    object.Finish();
}

void Report::ParseAction(JsonObject& object, const EJsonValue& action, Findings& findings) {
    if (object.Text("action", m_Action) && !IsAction(m_Action)) {
        JsonObject::Refuse(action, "action", "the name of an action", findings);
        return;
    }
    const bool logsRecords = m_Action != ACTION_DELIVERY && m_Action != ACTION_RESTART;
    const EJsonValue* const records = logsRecords ? object.Require("records") : object.Find("records");
    if (records != nullptr) {
        AddRecords(object, "records", *records, findings);
    } else {
        AddOwnRecord("");
    }
}

void Report::AddRecords(JsonObject& object, const char* name, const EJsonValue& list, Findings& findings) {
    for (const EJsonValue& record : object.List(name)) {
        AddRecord(record, findings);
    }
    if (list.m_Kind == JsonKind::Array && list.m_Items.empty()) {
        JsonObject::Refuse(list, name, "at least one record", findings);
    }
}

void Report::AddRecord(const EJsonValue& value, Findings& findings) {
    JsonObject object(value, "record", findings);
    EONEVENTSTRUCT record;
    record.m_nIdentifier = m_nIdentifier;
    const std::pair<const char*, const wchar_t*&> texts[] = {{"name", record.m_pszName},
                                                             {"text", record.m_pszText},
                                                             {"source", record.m_pszSource},
                                                             {"detail", record.m_pszDetail}};
    for (const auto& [name, member] : texts) {
        std::string text;
        if (object.Text(name, text)) {
            member = Keep(text);
        }
    }
    TakeInt32(object, "code", record.m_nCode);
    TakeInt32(object, "alarmNumber", record.m_nAlarmNumber);
    TakeInt32(object, "identifier", record.m_nIdentifier);
    TakePrefix(object, findings, record.m_nPrefixNumbers);
    if (const EJsonValue* const state = object.Find("state"); state != nullptr) {
        TakeState(*state, findings, record.m_wState);
    }
    if (const EJsonValue* const data = object.Find("value"); data != nullptr) {
        ParseValue(*data, record.m_Value, findings);
    }
    if (const EJsonValue* const time = object.Find("time"); time != nullptr) {
        TakeTime(*time, findings, record.m_TimeStamp);
    } else if (m_Kind != Kind::SnapShot || !record.m_Value.GetTimestamp().IsSet()) {
        record.m_TimeStamp = m_Reading; // otherwise the value's own time dates the row
    }
    object.Finish();
    m_Records.push_back(std::move(record));
}

void Report::ParseValue(const EJsonValue& value, CDataValue& data, Findings& findings) {
    if (value.m_Kind != JsonKind::Object) {
        ParseScalar(value, data, findings);
        return;
    }
    JsonObject object(value, "value", findings);
    if (const EJsonValue* const scalar = object.Require("value"); scalar != nullptr) {
        ParseScalar(*scalar, data, findings);
    }
    std::int64_t quality = CDataValue::QUALITY_GOOD;
    object.Integer("quality", 0, MAX_QUALITY, quality);
    data.SetQuality(static_cast<std::uint32_t>(quality));
    ETimeStamp stamp;
    const EJsonValue* const time = object.Find("time");
    if (time != nullptr && TakeTime(*time, findings, stamp)) {
        data.SetTimestamp(stamp);
    }
    object.Finish();
}

void Report::ParseScalar(const EJsonValue& value, CDataValue& data, Findings& findings) {
    switch (value.m_Kind) {
    case JsonKind::Null:
        data.SetNothing();
        return;
    case JsonKind::Boolean:
        data.SetBoolean(value.m_bBoolean);
        return;
    case JsonKind::Integer:
        data.SetInteger(value.m_nInteger);
        return;
    case JsonKind::LargeInteger:
    case JsonKind::Floating:
        data.SetDouble(value.m_Double);
        return;
    case JsonKind::Text: {
        std::string text;
        if (JsonObject::TakeText(value, "value", findings, text)) {
            data.SetText(Keep(text));
        }
        return;
    }
    default:
        JsonObject::Refuse(value, "value", "a number, a text, true, false or null", findings);
    }
}

Report Report::MakeAction(const std::string& action, const std::string& log, const ETimeStamp& time,
                          const std::string& text) {
    Report report;
    report.m_Kind = Kind::Action;
    report.m_Action = action;
    report.m_Log = log;
    report.m_Reading = time;
    EString name = Widen(log);
    report.m_nIdentifier = NameService::Split(name);
    report.AddOwnRecord(text);
    return report;
}

void Report::AddOwnRecord(const std::string& text) {
    EONEVENTSTRUCT record;
    record.m_pszName = Keep(m_Log);
    record.m_pszText = Keep(text);
    record.m_pszSource = L"kvgateway";
    record.m_TimeStamp = m_Reading;
    record.m_nIdentifier = m_nIdentifier;
    m_Records.push_back(std::move(record));
}

const wchar_t* Report::Keep(const std::string& text) {
    return m_Texts.emplace_back(Widen(text));
}
