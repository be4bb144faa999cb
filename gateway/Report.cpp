#include "gateway/Report.h"

#include "base/EJsonText.h"
#include "gateway/Moments.h"
#include "gateway/Text.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <span>

namespace {

using Json = rapidjson::Value; // its texts and names stay where they stand in the line

constexpr const char* A_TEXT = "a text without null characters";
constexpr const char* AN_INTEGER = "an integer from -2147483648 to 2147483647";
constexpr const char* A_TIME = R"(a time such as "2024-01-31T13:05:09.042Z", or seconds since 1970, from 1970 to 2106)";

// Why a line is refused, and where.
struct Fault {
    const char* m_pPlace;
    std::string m_Expected;
};

// Rounds numbers right, which the parser does not, and refuses deep nesting: the parser calls itself for each level.
class Document : public rapidjson::Document {
public:
    using Base = rapidjson::Document;
    using Size = rapidjson::SizeType;
    using Base::Base;

    bool RawNumber(const char* digits, Size length, bool /*copy*/) {
        std::int64_t integer = 0;
        if (std::from_chars(digits, digits + length, integer) == std::from_chars_result{digits + length, {}}) {
            return Int64(integer);
        }
        const double floating = std::strtod(digits, nullptr); // no number goes on in what follows it
        return std::isfinite(floating) && Double(floating);
    }
    bool StartObject() { return ++m_nDepth <= DEEPEST && Base::StartObject(); }
    bool EndObject(Size count) { return --m_nDepth >= 0 && Base::EndObject(count); }
    bool StartArray() { return ++m_nDepth <= DEEPEST && Base::StartArray(); }
    bool EndArray(Size count) { return --m_nDepth >= 0 && Base::EndArray(count); }

private:
    static constexpr int DEEPEST = 8;
    int m_nDepth = 0;
};

// A null character would end a text for everybody behind this.
bool IsText(const Json& value) {
    return value.IsString() && std::string_view(value.GetString()).size() == value.GetStringLength();
}

} // namespace

// Puts what a line says into a report. What does not belong there is refused with a Fault.
class ReportReader {
public:
    ReportReader(Report& report, const ETimeStamp& reading) : m_Report(report), m_Reading(reading) {}

    void Read(const Json& line) {
        using Kind = Report::Kind;
        enum : unsigned { EVENT = 1, LOG = 2, ALARM = 4, SNAPSHOT = 8, ACTION = 16, RECORDS = 32 };
        static constexpr Member MEMBERS[] = {{"event", &Reader::TakeRecord, "a record"},
                                             {"log", &Reader::TakeLog, A_TEXT},
                                             {"alarm", &Reader::TakeRecord, "a record"},
                                             {"snapshot", &Reader::TakeRecords, "a list of at least one record"},
                                             {"action", &Reader::TakeAction, "the name of an action"},
                                             {"records", &Reader::TakeRecords, "a list of at least one record"}};
        static constexpr unsigned NEEDED[] = {EVENT, LOG | ALARM, LOG | SNAPSHOT, LOG | ACTION | RECORDS}; // by kinds
        const auto log = line.FindMember("log"); // the records depend on it, and on the kind
        if (log != line.MemberEnd() && IsText(log->value)) {
            m_Report.SetLog(log->value.GetString());
        }
        m_Report.m_Kind = line.HasMember("snapshot") ? Kind::SnapShot : Kind::Action;
        const unsigned taken = TakeMembers(line, MEMBERS);
        const auto* const kind = std::find(std::begin(NEEDED), std::end(NEEDED), taken);
        if (taken == (LOG | ACTION) && !WritesRow(m_Report.m_Action)) {
            TakeRecord(Json(rapidjson::kObjectType)); // an empty one
        } else if (kind == std::end(NEEDED)) {
            throw Fault{m_Report.m_Scratch.data(),
                        R"("event", or "log" with "alarm", "snapshot" or "action" (and "records" to be logged))"};
        } else {
            m_Report.m_Kind = static_cast<Kind>(kind - std::begin(NEEDED));
        }
    }

private:
    using Reader = ReportReader;

    struct Member {
        std::string_view m_Name;
        bool (Reader::*m_pTake)(const Json& value); // false unless the value is what is expected
        const char* m_pExpected;
    };

    // Takes all that the object has. The result has a bit for each, by its place among `members`.
    unsigned TakeMembers(const Json& object, std::span<const Member> members) {
        unsigned taken = 0;
        for (const auto& [name, value] : object.GetObject()) {
            const std::string_view found(name.GetString(), name.GetStringLength());
            std::size_t i = 0;
            while (i < members.size() && members[i].m_Name != found) {
                ++i;
            }
            if (i == members.size() || (taken >> i & 1U) != 0) {
                std::string names;
                for (const Member& member : members) {
                    names.append(names.empty() ? "one of " : ", ").append(member.m_Name);
                }
                throw Fault{name.GetString() - 1, names + ", each once"};
            }
            if (!(this->*members[i].m_pTake)(value)) {
                throw Fault{name.GetString() - 1, members[i].m_pExpected};
            }
            taken |= 1U << i;
        }
        return taken;
    }

    EONEVENTSTRUCT& Record() { return m_Report.m_Records.back(); }

    bool TakeLog(const Json& value) { return IsText(value) && m_Report.Keep(value.GetString()) != nullptr; }
    bool TakeAction(const Json& value) {
        m_Report.m_Action = IsText(value) ? value.GetString() : "";
        return IsAction(m_Report.m_Action);
    }
    bool TakeRecords(const Json& value) {
        return value.IsArray() && !value.Empty() &&
               std::all_of(value.Begin(), value.End(), [this](const Json& item) { return TakeRecord(item); });
    }
    bool TakeRecord(const Json& value) {
        static constexpr Member MEMBERS[] = {
            {"time", &Reader::TakeField<&EEventFields::m_TimeStamp>, A_TIME},
            {"name", &Reader::TakeField<&EEventFields::m_pszName>, A_TEXT},
            {"text", &Reader::TakeField<&EEventFields::m_pszText>, A_TEXT},
            {"source", &Reader::TakeField<&EEventFields::m_pszSource>, A_TEXT},
            {"detail", &Reader::TakeField<&EEventFields::m_pszDetail>, A_TEXT},
            {"code", &Reader::TakeField<&EEventFields::m_nCode>, AN_INTEGER},
            {"alarmNumber", &Reader::TakeField<&EEventFields::m_nAlarmNumber>, AN_INTEGER},
            {"identifier", &Reader::TakeField<&EEventFields::m_nIdentifier>, AN_INTEGER},
            {"prefix", &Reader::TakeField<&EEventFields::m_nPrefixNumbers>, "a list of four integers"},
            {"state", &Reader::TakeField<&EEventFields::m_wState>, "an integer from 0 to 65535, or an object"},
            {"value", &Reader::TakeValue, "a number, a text, true, false, null, or an object with a \"value\""}};
        if (!value.IsObject()) {
            return false;
        }
        EONEVENTSTRUCT& record = m_Report.m_Records.emplace_back();
        record.m_TimeStamp = m_Reading;
        record.m_nIdentifier = m_Report.m_nIdentifier;
        const bool hasTime = (TakeMembers(value, MEMBERS) & 1U) != 0;
        if (m_Report.m_Kind == Report::Kind::SnapShot && !hasTime && record.m_Value.GetTimestamp().IsSet()) {
            record.m_TimeStamp = {}; // the value's own time dates the row
        }
        return true;
    }
    template <auto FIELD>
    bool TakeField(const Json& value) {
        return Take(value, Record().*FIELD);
    }
    bool Take(const Json& value, const wchar_t*& text) {
        text = IsText(value) ? m_Report.Keep(value.GetString()) : nullptr;
        return text != nullptr;
    }
    static bool Take(const Json& value, std::int32_t& number) {
        number = value.IsInt() ? value.GetInt() : 0;
        return value.IsInt();
    }
    static bool Take(const Json& value, ETimeStamp& stamp) {
        return IsText(value) ? Moments::ParseRfc3339(value.GetString(), stamp)
                             : value.IsNumber() && Moments::FromSeconds(value.GetDouble(), stamp);
    }
    static bool Take(const Json& value, std::int32_t (&numbers)[4]) {
        return value.IsArray() && value.Size() == std::size(numbers) &&
               std::equal(value.Begin(), value.End(), numbers,
                          [](auto& item, auto& number) { return Take(item, number); });
    }
    bool Take(const Json& value, std::uint16_t& state) {
        static constexpr Member MEMBERS[] = {
            {"active", &Reader::TakeBit<EONEVENTSTRUCT::STATE_ACTIVE>, "true or false"},
            {"acked", &Reader::TakeBit<EONEVENTSTRUCT::STATE_ACKED>, "true or false"}};
        if (value.IsObject()) {
            TakeMembers(value, MEMBERS);
            return true;
        }
        state = static_cast<std::uint16_t>(value.IsUint() ? value.GetUint() : 0);
        return value.IsUint() && value.GetUint() == state;
    }
    template <unsigned BIT>
    bool TakeBit(const Json& value) {
        Record().m_wState = static_cast<std::uint16_t>(Record().m_wState | (value.IsTrue() ? BIT : 0));
        return value.IsBool();
    }
    bool TakeValue(const Json& value) {
        static constexpr Member MEMBERS[] = {{"value", &Reader::TakeScalar, "a number, a text, true, false or null"},
                                             {"quality", &Reader::TakeQuality, "an integer from 0 to 4294967295"},
                                             {"time", &Reader::TakeValuesTime, A_TIME}};
        return value.IsObject() ? (TakeMembers(value, MEMBERS) & 1U) != 0 : TakeScalar(value);
    }
    bool TakeScalar(const Json& value) {
        CDataValue& taken = Record().m_Value;
        if (value.IsInt64()) {
            taken.SetInteger(value.GetInt64());
        } else if (value.IsNumber()) {
            taken.SetDouble(value.GetDouble());
        } else if (value.IsBool()) {
            taken.SetBoolean(value.GetBool());
        } else if (const wchar_t* text = nullptr; Take(value, text)) {
            taken.SetText(text);
        } else {
            return value.IsNull();
        }
        return true;
    }
    bool TakeQuality(const Json& value) {
        Record().m_Value.SetQuality(value.IsUint() ? value.GetUint() : 0);
        return value.IsUint();
    }
    bool TakeValuesTime(const Json& value) {
        ETimeStamp stamp;
        const bool isTime = Take(value, stamp);
        Record().m_Value.SetTimestamp(stamp);
        return isTime;
    }

    Report& m_Report;
    const ETimeStamp& m_Reading;
};

bool IsAction(const std::string& name) {
    return std::find(ACTIONS.begin(), ACTIONS.end(), name) != ACTIONS.end();
}

bool WritesRow(const std::string& action) {
    return action != ACTIONS[ACTION_DELIVERY] && action != ACTIONS[ACTION_RESTART_FILE];
}

bool Report::Parse(const std::string& line, const ETimeStamp& reading, std::string& reason) {
    m_Action.clear();
    SetLog("");
    m_Records.clear();
    m_Texts.clear();
    m_Texts.reserve(line.size()); // a text's quotes leave room for its end
    const std::string_view text = std::string_view(line).substr(line.starts_with("\xEF\xBB\xBF") ? 3 : 0);
    m_Scratch = text;
    try {
        ReadScratch(reading);
        return true;
    } catch (const Fault& fault) {
        const auto* const place = text.begin() + (fault.m_pPlace - m_Scratch.data());
        const auto column = 1 + std::count_if(text.begin(), place, [](char c) { return (c & 0xC0) != 0x80; });
        const std::string rest = EJsonText::Quote(std::string(place, text.end()));
        const std::string found = Widen(rest).IsEmpty() ? "text that is not UTF-8" : rest.substr(1, rest.size() - 2);
        reason = "column " + std::to_string(column) + ": expected " + fault.m_Expected + ", found " +
                 (found.empty() ? "the end" : found);
        return false;
    }
}

void Report::ReadScratch(const ETimeStamp& reading) {
    alignas(std::max_align_t) char room[1U << 14U];
    rapidjson::MemoryPoolAllocator<> memory(room, sizeof room);
    Document document(&memory);
    rapidjson::InsituStringStream stream(m_Scratch.data()); // puts the texts where their escapes stood
    constexpr unsigned FLAGS =
        rapidjson::kParseInsituFlag | rapidjson::kParseNumbersAsStringsFlag | rapidjson::kParseCommentsFlag;
    const auto parse = [&](Document::Base& /*itself*/) {
        if (const auto result = rapidjson::Reader().Parse<FLAGS>(stream, document); result.IsError()) {
            const bool isTermination = result.Code() == rapidjson::kParseErrorTermination; // by the document
            throw Fault{&m_Scratch[result.Offset()],
                        isTermination ? "numbers that a double can hold, and at most 8 levels of nesting"
                                      : std::string("JSON (") + rapidjson::GetParseError_En(result.Code()) + ')'};
        }
        return true;
    };
    document.Populate(parse);
    if (!document.IsObject() || stream.Tell() < m_Scratch.size()) { // a null character ends the stream
        throw Fault{m_Scratch.data(), "one object"};
    }
    ReportReader(*this, reading).Read(document);
}

void Report::SetLog(const std::string& log) {
    m_Log = log;
    std::string name = log;
    m_nIdentifier = SplitName(name);
}

const wchar_t* Report::Keep(std::string_view text) {
    const std::size_t begin = m_Texts.size();
    if (std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
        m_Texts.insert(m_Texts.end(), text.begin(), text.end());
    } else {
        const EString wide = Widen(std::string(text));
        if (wide.IsEmpty()) {
            return nullptr;
        }
        m_Texts.insert(m_Texts.end(), &wide[0], &wide[wide.GetLength()]);
    }
    m_Texts.push_back(L'\0');
    return m_Texts.data() + begin;
}
