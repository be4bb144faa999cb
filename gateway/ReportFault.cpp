#include "gateway/JsonObject.h"
#include "gateway/Moments.h"
#include "gateway/Report.h"

namespace {

using Kind = EJsonValue::Kind;

void CheckTime(JsonObject& object) {
    if (const EJsonValue* const value = object.Find("time"); value != nullptr) {
        ETimeStamp stamp;
        const bool isNumber = value->m_Kind == Kind::Integer || value->m_Kind == Kind::Floating;
        const bool isTime = isNumber ? Moments::FromSeconds(value->m_Double, stamp)
                                     : value->m_Kind == Kind::Text && Moments::ParseRfc3339(value->m_Text, stamp);
        object.RefuseIf(!isTime, "time",
                        "a time such as \"2024-01-31T13:05:09.042Z\", or seconds since 1970, from 1970 to 2106");
    }
}

void CheckState(JsonObject& object) {
    std::uint16_t state = 0;
    if (!object.Is("state", Kind::Object)) {
        object.Integer("state", state);
        return;
    }
    object.Object("state", [](JsonObject& bits) {
        for (const char* const bit : {"active", "acked"}) {
            bits.RefuseIf(!bits.Is(bit, Kind::Boolean), bit, "true or false");
        }
    });
}

void CheckPrefix(JsonObject& object) {
    const std::vector<EJsonValue>& list = object.List("prefix");
    object.RefuseIf(list.size() != 4, "prefix", "a list of four integers");
    for (const EJsonValue& item : list) {
        std::int32_t number = 0;
        object.TakeInteger(item, "prefix", number, INT32_MIN, INT32_MAX);
    }
}

void CheckScalar(JsonObject& object) {
    if (std::string text; object.Is("value", Kind::Text)) {
        object.Text("value", text);
    }
    object.RefuseIf(object.Is("value", Kind::Array) || object.Is("value", Kind::Object), "value",
                    "a number, a text, true, false or null");
}

void CheckValue(JsonObject& object) {
    if (!object.Is("value", Kind::Object)) {
        CheckScalar(object);
        return;
    }
    object.Object("value", [](JsonObject& parts) {
        std::uint32_t quality = 0;
        parts.Require("value");
        CheckScalar(parts);
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
    object.RefuseIf(object.List(name).empty(), name, "at least one record");
}

void CheckLine(JsonObject& object) {
    if (object.Object("event", &CheckRecord)) {
        return;
    }
    std::string text;
    object.Require("log");
    object.Text("log", text);
    if (object.Object("alarm", &CheckRecord)) {
        return;
    }
    if (object.Find("snapshot") != nullptr) {
        CheckRecords(object, "snapshot");
    } else if (object.Find("action") != nullptr) {
        std::string action;
        object.Text("action", action);
        object.RefuseIf(!IsAction(action), "action", "the name of an action");
        if (WritesRow(action)) {
            object.Require("records");
        }
        CheckRecords(object, "records");
    } else {
        object.ErrorIf(true, R"(found none of "event", "alarm", "snapshot" and "action", expected one)");
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
