#include "fuzz/Require.h"
#include "gateway/Moments.h"
#include "gateway/Report.h"
#include "gateway/Text.h"

#include <nlohmann/json.hpp>

#include <deque>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace {

using Json = nlohmann::json;

const ETimeStamp READING{1706706309, 0};

void Expect(bool condition) {
    if (!condition) {
        throw std::invalid_argument("not as expected");
    }
}

void Print(std::ostream& text, const EONEVENTSTRUCT& record) {
    EString value;
    record.m_Value.GetString(value, 0, 0, 0);
    for (const wchar_t* const each : {record.m_pszName, record.m_pszText, record.m_pszSource, record.m_pszDetail}) {
        text << '|' << (each == nullptr ? "" : Narrow(each));
    }
    text << '|' << static_cast<int>(record.m_Value.GetType()) << Narrow(value) << ' ' << record.m_Value.GetQuality();
    for (const ETimeStamp& time : {record.m_Value.GetTimestamp(), record.m_TimeStamp}) {
        text << ' ' << time.m_nSeconds << '.' << time.m_nMilliseconds;
    }
    for (const std::int32_t number : record.m_nPrefixNumbers) {
        text << ' ' << number;
    }
    text << ' ' << record.m_nCode << ' ' << record.m_nAlarmNumber << ' ' << record.m_nIdentifier << ' '
         << record.m_wState;
}

// What a line should become, read slowly with another parser. What is wrong throws, in that parser as well.
class Model {
public:
    explicit Model(const std::string& line) {
        std::map<int, std::set<std::string>> names; // by depth
        const auto hear = [&](int depth, Json::parse_event_t event, const Json& parsed) {
            Expect(event != Json::parse_event_t::key || names[depth].insert(parsed).second);
            if (event == Json::parse_event_t::object_start) {
                names.erase(depth + 1);
            }
            return true;
        };
        Expect(line.find('\0') == std::string::npos);
        const Json root = Json::parse(line, hear, true, true);
        static const std::set<std::set<std::string>> RIGHT = {
            {"event"}, {"alarm", "log"}, {"log", "snapshot"}, {"action", "log", "records"}, {"action", "log"}};
        Expect(RIGHT.contains(names[1]));
        std::string log = Narrow(Keep(root.value("log", "")));
        const std::string action = root.value("action", ACTIONS[ACTION_DELIVERY]);
        Expect(IsAction(action) && (root.contains("records") || !WritesRow(action)));
        m_Text << log << root.value("action", "");
        const Json records = root.contains("event")      ? Json::array({root["event"]})
                             : root.contains("alarm")    ? Json::array({root["alarm"]})
                             : root.contains("snapshot") ? root["snapshot"]
                                                         : root.value("records", Json::array({Json::object()}));
        Expect(records.is_array() && !records.empty());
        const int identifier = SplitName(log);
        for (const Json& record : records) {
            Add(record, identifier, root.contains("snapshot"));
        }
    }
    std::string Text() const { return m_Text.str(); }

private:
    static Json With(Json defaults, const Json& object) {
        const std::size_t size = defaults.size();
        defaults.update(object);
        Expect(defaults.size() == size);
        return defaults;
    }
    const wchar_t* Keep(const std::string& text) {
        Expect(text.find('\0') == std::string::npos);
        return m_Kept.emplace_back(Widen(text));
    }
    static bool IsInteger(const Json& value) { // of 64 bits with a sign
        return value.is_number_integer() && value.dump() == std::to_string(value.get<std::int64_t>());
    }
    template <class Number>
    static Number Integer(const Json& value) {
        Expect(IsInteger(value) && std::in_range<Number>(value.get<std::int64_t>()));
        return value.get<Number>();
    }
    static ETimeStamp Time(const Json& value) {
        ETimeStamp stamp;
        Expect(value.is_string() ? Moments::ParseRfc3339(value, stamp)
                                 : value.is_number() && Moments::FromSeconds(value, stamp));
        return stamp;
    }
    void Add(const Json& object, int identifier, bool isSnapShot) {
        const Json all = With({{"name", ""},
                               {"text", ""},
                               {"source", ""},
                               {"detail", ""},
                               {"code", 0},
                               {"alarmNumber", 0},
                               {"identifier", identifier},
                               {"prefix", {0, 0, 0, 0}},
                               {"state", 0},
                               {"value", nullptr},
                               {"time", READING.m_nSeconds}},
                              object);
        EONEVENTSTRUCT record;
        record.m_pszName = Keep(all["name"]);
        record.m_pszText = Keep(all["text"]);
        record.m_pszSource = Keep(all["source"]);
        record.m_pszDetail = Keep(all["detail"]);
        record.m_nCode = Integer<std::int32_t>(all["code"]);
        record.m_nAlarmNumber = Integer<std::int32_t>(all["alarmNumber"]);
        record.m_nIdentifier = Integer<std::int32_t>(all["identifier"]);
        Expect(all["prefix"].is_array() && all["prefix"].size() == 4);
        std::transform(all["prefix"].begin(), all["prefix"].end(), record.m_nPrefixNumbers, &Integer<std::int32_t>);
        Json state = all["state"];
        if (state.is_object()) {
            state = With({{"active", false}, {"acked", false}}, state);
            state = (state["active"].get<bool>() ? 2 : 0) + (state["acked"].get<bool>() ? 4 : 0);
        }
        record.m_wState = Integer<std::uint16_t>(state);
        const bool hasParts = all["value"].is_object();
        const Json parts = With({{"value", nullptr}, {"quality", CDataValue::QUALITY_GOOD}, {"time", 0}},
                                hasParts ? all["value"] : Json{{"value", all["value"]}});
        Expect(!hasParts || all["value"].contains("value"));
        record.m_Value.SetQuality(Integer<std::uint32_t>(parts["quality"]));
        record.m_Value.SetTimestamp(Time(parts["time"]));
        if (const Json& value = parts["value"]; value.is_string()) {
            record.m_Value.SetText(Keep(value));
        } else if (IsInteger(value)) {
            record.m_Value.SetInteger(value);
        } else if (value.is_number()) {
            record.m_Value.SetDouble(value);
        } else if (!value.is_null()) {
            record.m_Value.SetBoolean(value.get<bool>());
        }
        const bool isValuesTime = isSnapShot && !object.contains("time") && record.m_Value.GetTimestamp().IsSet();
        record.m_TimeStamp = isValuesTime ? ETimeStamp() : Time(all["time"]);
        Print(m_Text, record);
    }

    std::ostringstream m_Text;
    std::deque<EString> m_Kept;
};

} // namespace

// The input is a line as the gateway reads it.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const std::string line(data, data + size);
    std::string expected;
    try {
        expected = Model(line).Text();
    } catch (const std::exception&) {
        expected.clear();
    }
    Report report;
    std::string reason;
    std::ostringstream text;
    if (report.Parse(line, READING, reason)) {
        text << report.m_Log << report.m_Action;
        for (const EONEVENTSTRUCT& record : report.m_Records) {
            Print(text, record);
        }
    } else {
        Require(reason.starts_with("column ") && reason.find('\n') == std::string::npos, "a reason of one line");
    }
    const bool isComment = line.find("//") != std::string::npos; // one parser ends it at \r, the other at \n alone
    const bool isHuge = reason.find("Number too big") != std::string::npos; // 0e999, and more than 300 digits
    Require(text.str() == expected || isComment || isHuge, "both readers find the same");
    return 0;
}
