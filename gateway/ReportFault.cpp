#include "gateway/ReportFault.h"

#include "gateway/JsonObject.h"
#include "gateway/Moments.h"
#include "gateway/Report.h"

namespace {

using JsonKind = EJsonValue::Kind;

void CheckTime(JsonObject& object) {
    const EJsonValue* const value = object.Find("time");
    ETimeStamp stamp;
    const bool isNumber =
        value != nullptr && (value->m_Kind == JsonKind::Integer || value->m_Kind == JsonKind::Floating);
    if (value != nullptr &&
        (isNumber ? !Moments::FromSeconds(value->m_Double, stamp)
                  : value->m_Kind != JsonKind::Text || !Moments::ParseRfc3339(value->m_Text, stamp))) {
        object.Refuse("time", "a time such as \"2024-01-31T13:05:09.042Z\", or seconds since 1970, from 1970 to 2106");
    }
}

void CheckState(JsonObject& object) {
    if (const EJsonValue* const value = object.Find("state"); value == nullptr || value->m_Kind != JsonKind::Object) {
        std::uint16_t state = 0;
        object.Integer("state", state);
        return;
    }
    object.Object("state", [](JsonObject& bits) {
        bool bit = false;
        bits.Boolean("active", bit);
        bits.Boolean("acked", bit);
    });
}

void CheckPrefix(JsonObject& object) {
    constexpr std::size_t NUMBERS = 4;
    const EJsonValue* const value = object.Find("prefix");
    const std::vector<EJsonValue>& list = object.List("prefix");
    if (value != nullptr && value->m_Kind == JsonKind::Array && list.size() != NUMBERS) {
        object.Refuse("prefix", "a list of four integers");
        return;
    }
    for (const EJsonValue& item : list) {
        std::int32_t number = 0;
        object.TakeInteger(item, "prefix", number, INT32_MIN, INT32_MAX);
    }
}

void CheckScalar(JsonObject& object, const EJsonValue& value) {
    if (std::string text; value.m_Kind == JsonKind::Text) {
        object.TakeText(value, "value", text);
    } else if (value.m_Kind == JsonKind::Array || value.m_Kind == JsonKind::Object) {
        object.Refuse("value", "a number, a text, true, false or null");
    }
}

void CheckValue(JsonObject& object) {
    const EJsonValue* const value = object.Find("value");
    if (value == nullptr || value->m_Kind != JsonKind::Object) {
        if (value != nullptr) {
            CheckScalar(object, *value);
        }
        return;
    }
    object.Object("value", [](JsonObject& parts) {
        if (const EJsonValue* const scalar = parts.Require("value"); scalar != nullptr) {
            CheckScalar(parts, *scalar);
        }
        std::uint32_t quality = 0;
        parts.Integer("quality", quality);
        CheckTime(parts);
    });
}

void CheckRecord(JsonObject& object) {
    std::string text;
    for (const char* const name : {"name", "text", "source", "detail"}) {
        object.Text(name, text);
    }
    std::int32_t number = 0;
    for (const char* const name : {"code", "alarmNumber", "identifier"}) {
        object.Integer(name, number);
    }
    CheckPrefix(object);
    CheckState(object);
    CheckValue(object);
    CheckTime(object);
}

void CheckRecords(JsonObject& object, const char* name) {
    object.Objects(name, "record", &CheckRecord);
    if (const EJsonValue* const list = object.Find(name); list->m_Kind == JsonKind::Array && list->m_Items.empty()) {
        object.Refuse(name, "at least one record");
    }
}

void CheckLine(JsonObject& object) {
    if (object.Find("event") != nullptr) {
        object.Object("event", &CheckRecord);
        return;
    }
    object.Require("log");
    std::string text;
    object.Text("log", text);
    if (object.Find("alarm") != nullptr) {
        object.Object("alarm", &CheckRecord);
    } else if (object.Find("snapshot") != nullptr) {
        CheckRecords(object, "snapshot");
    } else if (object.Find("action") != nullptr) {
        std::string action;
        if (object.Text("action", action) && !IsAction(action)) {
            object.Refuse("action", "the name of an action");
        }
        if (WritesRow(action) ? object.Require("records") != nullptr : object.Find("records") != nullptr) {
            CheckRecords(object, "records");
        }
    } else {
        object.Error(object.Value().m_Begin,
                     R"(found none of "event", "alarm", "snapshot" and "action", expected one)");
    }
}

} // namespace

std::string FindReportFault(const std::string& line) {
    EJsonValue root;
    EJsonFault fault;
    Findings findings;
    if (EJsonText::Parse(line, root, fault)) {
        JsonObject object(root, "report", findings);
        CheckLine(object);
        object.Finish();
    } else {
        findings.Error(fault.m_Place, fault.m_Message);
    }
    return findings.HasErrors() ? findings.Lines().front() : "";
}
