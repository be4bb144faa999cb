#include "gateway/Report.h"

#include "gateway/JsonObject.h"
#include "gateway/Moments.h"
#include "gateway/Text.h"

#include <algorithm>

namespace {

using JsonKind = EJsonValue::Kind;
using Int32 = std::numeric_limits<std::int32_t>;

// True when there is a time.
bool TakeTime(JsonObject& object, ETimeStamp& stamp) {
    const EJsonValue* const value = object.Find("time");
    if (value == nullptr) {
        return false;
    }
    const bool isNumber = value->m_Kind == JsonKind::Integer || value->m_Kind == JsonKind::Floating;
    if (isNumber ? !Moments::FromSeconds(value->m_Double, stamp)
                 : value->m_Kind != JsonKind::Text || !Moments::ParseRfc3339(value->m_Text, stamp)) {
        object.Refuse("time", "a time such as \"2024-01-31T13:05:09.042Z\", or seconds since 1970, from 1970 to 2106");
    }
    return true;
}

void TakeState(JsonObject& object, std::uint16_t& state) {
    const EJsonValue* const value = object.Find("state");
    if (value == nullptr || value->m_Kind != JsonKind::Object) {
        object.Integer("state", state);
        return;
    }
    bool active = false;
    bool acked = false;
    object.Object("state", [&](JsonObject& bits) {
        bits.Boolean("active", active);
        bits.Boolean("acked", acked);
    });
    state = static_cast<std::uint16_t>((active ? EONEVENTSTRUCT::STATE_ACTIVE : 0) |
                                       (acked ? EONEVENTSTRUCT::STATE_ACKED : 0));
}

void TakePrefix(JsonObject& object, std::int32_t (&numbers)[4]) {
    const EJsonValue* const value = object.Find("prefix");
    const std::vector<EJsonValue>& list = object.List("prefix");
    if (value != nullptr && value->m_Kind == JsonKind::Array && list.size() != std::size(numbers)) {
        object.Refuse("prefix", "a list of four integers");
        return;
    }
    for (std::size_t i = 0; i < list.size(); ++i) {
        object.TakeInteger(list[i], "prefix", numbers[i], Int32::min(), Int32::max());
    }
}

} // namespace

bool IsAction(const std::string& name) {
    return std::find(ACTIONS.begin(), ACTIONS.end(), name) != ACTIONS.end();
}

bool WritesRow(const std::string& action) {
    return action != ACTION_DELIVERY && action != ACTION_RESTART;
}

bool Report::Parse(const std::string& line, const ETimeStamp& reading, std::string& reason) {
    EJsonValue root;
    EJsonFault fault;
    Findings findings;
    m_Reading = reading;
    if (EJsonText::Parse(line, root, fault)) {
        JsonObject object(root, "report", findings);
        ReadMembers(object);
        object.Finish();
    } else {
        findings.Error(fault.m_Place, fault.m_Message);
    }
    reason = findings.HasErrors() ? findings.Lines().front() : "";
    return !findings.HasErrors();
}

void Report::SetLog(const std::string& log) {
    m_Log = log;
    std::string name = log;
    m_nIdentifier = SplitName(name);
}

void Report::ReadMembers(JsonObject& object) {
    if (object.Find("event") != nullptr) {
        object.Object("event", [this](JsonObject& record) { AddRecord(record); });
        return;
    }
    object.Require("log");
    if (std::string log; object.Text("log", log)) {
        SetLog(log);
    }
    if (object.Find("alarm") != nullptr) {
        m_Kind = Kind::Alarm;
        object.Object("alarm", [this](JsonObject& record) { AddRecord(record); });
    } else if (object.Find("snapshot") != nullptr) {
        m_Kind = Kind::SnapShot;
        AddRecords(object, "snapshot");
    } else if (object.Find("action") != nullptr) {
        m_Kind = Kind::Action;
        if (object.Text("action", m_Action) && !IsAction(m_Action)) {
            object.Refuse("action", "the name of an action");
        }
        if (WritesRow(m_Action) ? object.Require("records") != nullptr : object.Find("records") != nullptr) {
            AddRecords(object, "records");
        } else {
            AddOwnRecord("");
        }
    } else {
        object.Error(object.Value().m_Begin,
                     R"(found none of "event", "alarm", "snapshot" and "action", expected one)");
    }
}

void Report::AddRecords(JsonObject& object, const char* name) {
    object.Objects(name, "record", [this](JsonObject& record) { AddRecord(record); });
    if (const EJsonValue* const list = object.Find(name); list->m_Kind == JsonKind::Array && list->m_Items.empty()) {
        object.Refuse(name, "at least one record");
    }
}

void Report::AddRecord(JsonObject& object) {
    EONEVENTSTRUCT& record = m_Records.emplace_back();
    record.m_nIdentifier = m_nIdentifier;
    const std::pair<const char*, const wchar_t*&> texts[] = {{"name", record.m_pszName},
                                                             {"text", record.m_pszText},
                                                             {"source", record.m_pszSource},
                                                             {"detail", record.m_pszDetail}};
    for (const auto& [name, member] : texts) {
        if (std::string text; object.Text(name, text)) {
            member = Keep(text);
        }
    }
    object.Integer("code", record.m_nCode);
    object.Integer("alarmNumber", record.m_nAlarmNumber);
    object.Integer("identifier", record.m_nIdentifier);
    TakePrefix(object, record.m_nPrefixNumbers);
    TakeState(object, record.m_wState);
    TakeValue(object, record.m_Value);
    if (!TakeTime(object, record.m_TimeStamp) && (m_Kind != Kind::SnapShot || !record.m_Value.GetTimestamp().IsSet())) {
        record.m_TimeStamp = m_Reading; // otherwise the value's own time dates the row
    }
}

void Report::TakeValue(JsonObject& object, CDataValue& data) {
    const EJsonValue* const value = object.Find("value");
    if (value == nullptr || value->m_Kind != JsonKind::Object) {
        if (value != nullptr) {
            TakeScalar(object, *value, data);
        }
        return;
    }
    object.Object("value", [&](JsonObject& parts) {
        if (const EJsonValue* const scalar = parts.Require("value"); scalar != nullptr) {
            TakeScalar(parts, *scalar, data);
        }
        std::uint32_t quality = CDataValue::QUALITY_GOOD;
        parts.Integer("quality", quality);
        data.SetQuality(quality);
        if (ETimeStamp stamp; TakeTime(parts, stamp)) {
            data.SetTimestamp(stamp);
        }
    });
}

void Report::TakeScalar(JsonObject& object, const EJsonValue& value, CDataValue& data) {
    switch (value.m_Kind) {
    case JsonKind::Null:
        data.SetNothing();
        break;
    case JsonKind::Boolean:
        data.SetBoolean(value.m_bBoolean);
        break;
    case JsonKind::Integer:
        data.SetInteger(value.m_nInteger);
        break;
    case JsonKind::LargeInteger:
    case JsonKind::Floating:
        data.SetDouble(value.m_Double);
        break;
    case JsonKind::Text:
        if (std::string text; object.TakeText(value, "value", text)) {
            data.SetText(Keep(text));
        }
        break;
    default:
        object.Refuse("value", "a number, a text, true, false or null");
    }
}

Report Report::MakeAction(const std::string& action, const std::string& log, const ETimeStamp& time,
                          const std::string& text) {
    Report report;
    report.m_Kind = Kind::Action;
    report.m_Action = action;
    report.m_Reading = time;
    report.SetLog(log);
    report.AddOwnRecord(text);
    return report;
}

void Report::AddOwnRecord(const std::string& text) {
    EONEVENTSTRUCT& record = m_Records.emplace_back();
    record.m_pszName = Keep(m_Log);
    record.m_pszText = Keep(text);
    record.m_pszSource = L"kvgateway";
    record.m_TimeStamp = m_Reading;
    record.m_nIdentifier = m_nIdentifier;
}

const wchar_t* Report::Keep(const std::string& text) {
    return m_Texts.emplace_back(Widen(text));
}
