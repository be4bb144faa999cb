#include "gateway/Report.h"

#include "gateway/Moments.h"
#include "gateway/Text.h"

#include <rapidjson/reader.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <map>
#include <string_view>

namespace {

// The members of a line, of a record, of its value and of its state, by their places in NAMES; then what has no name.
enum OfLine : unsigned { EVENT, LOG, ALARM, SNAPSHOT, ACTION, RECORDS };
enum OfRecord : unsigned { NAME = RECORDS + 1, TEXT, SOURCE, DETAIL, CODE, ALARM_NUMBER, IDENTIFIER, PREFIX, STATE };
enum OfValue : unsigned { VALUE = STATE + 1, TIME, QUALITY };
enum OfState : unsigned { ACTIVE = QUALITY + 1, ACKED };
enum Nameless : unsigned { LINE = ACKED + 1, RECORD, PREFIX_NUMBER };
constexpr std::string_view NAMES[] = {"event", "log",    "alarm",  "snapshot", "action",      "records",    "name",
                                      "text",  "source", "detail", "code",     "alarmNumber", "identifier", "prefix",
                                      "state", "value",  "time",   "quality",  "active",      "acked"};

using Members = std::uint32_t; // a set of them

template <class... Each>
constexpr Members SetOf(Each... members) {
    return ((1U << members) | ...);
}

constexpr Members OF_LINE = SetOf(EVENT, LOG, ALARM, SNAPSHOT, ACTION, RECORDS);
constexpr Members OF_RECORD =
    SetOf(NAME, TEXT, SOURCE, DETAIL, CODE, ALARM_NUMBER, IDENTIFIER, PREFIX, STATE, VALUE, TIME);
constexpr Members OF_VALUE = SetOf(VALUE, QUALITY, TIME);
constexpr Members OF_STATE = SetOf(ACTIVE, ACKED);

bool IsAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

template <class Number>
bool Take(std::int64_t value, Number& number) {
    number = static_cast<Number>(value);
    return number == value;
}

} // namespace

// Hears what the parser finds in a line, and puts it into the report at once. Whatever does not belong there is refused.
class ReportReader : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, ReportReader> {
public:
    explicit ReportReader(Report& report) : m_Report(report) {}

    // After the last of the line: whether it was all there. Fills in what it has left open.
    bool Finish(const ETimeStamp& reading) {
        using Kind = Report::Kind;
        static const std::map<Members, Kind> KINDS = {{SetOf(EVENT), Kind::Event},
                                                      {SetOf(LOG, ALARM), Kind::Alarm},
                                                      {SetOf(LOG, SNAPSHOT), Kind::SnapShot},
                                                      {SetOf(LOG, ACTION), Kind::Action},
                                                      {SetOf(LOG, ACTION, RECORDS), Kind::Action}};
        const auto kind = KINDS.find(m_Objects[1].m_Seen);
        const bool lacksRecords = m_Objects[1].m_Seen == SetOf(LOG, ACTION);
        if (kind == KINDS.end() || (lacksRecords && WritesRow(m_Report.m_Action))) {
            return false;
        }
        m_Report.m_Kind = kind->second;
        if (lacksRecords) {
            m_Report.AddOwnRecord(reading, "");
        }
        for (std::size_t i = 0; i < m_Seen.size(); ++i) {
            EONEVENTSTRUCT& record = m_Report.m_Records[i];
            if ((m_Seen[i] & SetOf(IDENTIFIER)) == 0) {
                record.m_nIdentifier = m_Report.m_nIdentifier;
            }
            const bool hasValuesTime = m_Report.m_Kind == Kind::SnapShot && record.m_Value.GetTimestamp().IsSet();
            if ((m_Seen[i] & SetOf(TIME)) == 0 && !hasValuesTime) { // the value's own time dates the row
                record.m_TimeStamp = reading;
            }
        }
        return true;
    }

    // What the parser calls.
    using Size = rapidjson::SizeType;
    bool Null() {
        if (m_Member == VALUE) {
            Record().m_Value.SetNothing();
        }
        return m_Member == VALUE;
    }
    bool Bool(bool value) {
        switch (m_Member) {
        case VALUE:
            Record().m_Value.SetBoolean(value);
            return true;
        case ACTIVE:
            Record().m_wState |= value ? EONEVENTSTRUCT::STATE_ACTIVE : 0U;
            return true;
        case ACKED:
            Record().m_wState |= value ? EONEVENTSTRUCT::STATE_ACKED : 0U;
            return true;
        default:
            return false;
        }
    }
    bool RawNumber(const char* digits, Size length, bool /*copy*/) {
        const char* const end = digits + length;
        std::int64_t integer = 0;
        if (std::from_chars(digits, end, integer) == std::from_chars_result{end, std::errc()}) {
            return TakeInteger(integer);
        }
        const double floating = std::strtod(std::string(digits, length).c_str(), nullptr);
        return std::isfinite(floating) && TakeDouble(floating);
    }
    bool String(const char* text, Size length, bool /*copy*/) {
        const std::string_view value(text, length);
        if (value.find('\0') != std::string_view::npos) {
            return false;
        }
        switch (m_Member) {
        case LOG:
            m_Report.SetLog(std::string(value));
            return IsAscii(value) || !Widen(m_Report.m_Log).IsEmpty();
        case ACTION:
            m_Report.m_Action = value;
            return IsAction(m_Report.m_Action);
        case NAME:
            return Keep(value, Record().m_pszName);
        case TEXT:
            return Keep(value, Record().m_pszText);
        case SOURCE:
            return Keep(value, Record().m_pszSource);
        case DETAIL:
            return Keep(value, Record().m_pszDetail);
        case VALUE: {
            const wchar_t* kept = nullptr;
            const bool isKept = Keep(value, kept);
            Record().m_Value.SetText(kept);
            return isKept;
        }
        default:
            ETimeStamp stamp;
            return m_Member == TIME && Moments::ParseRfc3339(std::string(value), stamp) && TakeTime(stamp);
        }
    }
    bool StartObject() {
        switch (m_Member) {
        case LINE:
            return Open(OF_LINE);
        case EVENT:
        case ALARM:
        case RECORD:
            m_Report.m_Records.emplace_back();
            return Open(OF_RECORD);
        case STATE:
            return Open(OF_STATE);
        case VALUE:
            return m_pObject->m_Allowed == OF_RECORD && Open(OF_VALUE);
        default:
            return false;
        }
    }
    bool Key(const char* text, Size length, bool /*copy*/) {
        const std::string_view name(text, length);
        const auto* const found = std::find(std::begin(NAMES), std::end(NAMES), name);
        m_Member = static_cast<unsigned>(found - std::begin(NAMES));
        const Members one = SetOf(m_Member);
        const bool taken = (m_pObject->m_Allowed & ~m_pObject->m_Seen & one) != 0; // neither unknown nor a second
        m_pObject->m_Seen |= one;
        return taken;
    }
    bool EndObject(Size /*count*/) {
        const Object& object = *m_pObject--;
        if (object.m_Allowed == OF_RECORD) {
            m_Seen.push_back(object.m_Seen);
        }
        m_Member = RECORD; // what may come next, when this was an item of a list
        return object.m_Allowed != OF_VALUE || (object.m_Seen & SetOf(VALUE)) != 0;
    }
    bool StartArray() {
        const bool isPrefix = m_Member == PREFIX;
        const bool taken = isPrefix || m_Member == SNAPSHOT || m_Member == RECORDS;
        m_Member = isPrefix ? PREFIX_NUMBER : RECORD;
        m_nPrefix = 0;
        return taken;
    }
    bool EndArray(Size /*count*/) {
        return m_Member == PREFIX_NUMBER ? m_nPrefix == std::size(Record().m_nPrefixNumbers) : !m_Seen.empty();
    }

private:
    struct Object {
        Members m_Allowed = 0;
        Members m_Seen = 0;
    };

    EONEVENTSTRUCT& Record() { return m_Report.m_Records.back(); }

    bool Open(Members allowed) {
        *++m_pObject = {allowed, 0};
        return true;
    }
    bool Keep(std::string_view text, const wchar_t*& kept) {
        kept = m_Report.Keep(text);
        return kept != nullptr;
    }
    bool TakeInteger(std::int64_t value) {
        switch (m_Member) {
        case CODE:
            return Take(value, Record().m_nCode);
        case ALARM_NUMBER:
            return Take(value, Record().m_nAlarmNumber);
        case IDENTIFIER:
            return Take(value, Record().m_nIdentifier);
        case STATE:
            return Take(value, Record().m_wState);
        case PREFIX_NUMBER:
            return m_nPrefix < std::size(Record().m_nPrefixNumbers) &&
                   Take(value, Record().m_nPrefixNumbers[m_nPrefix++]);
        case QUALITY: {
            std::uint32_t quality = 0;
            const bool fits = Take(value, quality);
            Record().m_Value.SetQuality(quality);
            return fits;
        }
        case VALUE:
            Record().m_Value.SetInteger(value);
            return true;
        default:
            return m_Member == TIME && TakeSeconds(static_cast<double>(value));
        }
    }
    bool TakeDouble(double value) {
        if (m_Member != VALUE) {
            return m_Member == TIME && TakeSeconds(value);
        }
        Record().m_Value.SetDouble(value);
        return true;
    }
    bool TakeSeconds(double seconds) {
        ETimeStamp stamp;
        return Moments::FromSeconds(seconds, stamp) && TakeTime(stamp);
    }
    bool TakeTime(const ETimeStamp& stamp) {
        if (m_pObject->m_Allowed == OF_VALUE) {
            Record().m_Value.SetTimestamp(stamp);
        } else {
            Record().m_TimeStamp = stamp;
        }
        return true;
    }

    Report& m_Report;
    Object m_Objects[4]; // that are open: none, the line, a record, its value or state
    Object* m_pObject = m_Objects;
    unsigned m_Member = LINE;    // whose value comes next
    std::size_t m_nPrefix = 0;   // numbers of the prefix so far
    std::vector<Members> m_Seen; // of each record
};

bool IsAction(const std::string& name) {
    return std::find(ACTIONS.begin(), ACTIONS.end(), name) != ACTIONS.end();
}

bool WritesRow(const std::string& action) {
    return action != ACTIONS[ACTION_DELIVERY] && action != ACTIONS[ACTION_RESTART_FILE];
}

bool Report::Parse(const std::string& line, const ETimeStamp& reading, std::string& reason) {
    if (ParseRight(line, reading)) {
        return true;
    }
    reason = FindReportFault(line);
    reason = reason.empty() ? "found a number of more than 300 digits" : reason; // nothing else is right and not taken
    return false;
}

bool Report::ParseRight(const std::string& line, const ETimeStamp& reading) {
    m_Action.clear();
    m_Log.clear();
    m_nIdentifier = -1;
    m_Records.clear();
    m_Texts.clear();
    m_Texts.reserve(line.size()); // a text's quotes leave room for its end
    constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";
    m_Scratch = line.starts_with(BYTE_ORDER_MARK) ? line.substr(BYTE_ORDER_MARK.size()) : line;
    ReportReader reader(*this);
    rapidjson::InsituStringStream stream(m_Scratch.data()); // puts the texts where their escapes stood
    constexpr unsigned FLAGS =
        rapidjson::kParseInsituFlag | rapidjson::kParseNumbersAsStringsFlag | rapidjson::kParseCommentsFlag;
    return line.find('\0') == std::string::npos && // which the parser takes for the end
           !rapidjson::Reader().Parse<FLAGS>(stream, reader).IsError() && reader.Finish(reading);
}

void Report::SetLog(const std::string& log) {
    m_Log = log;
    std::string name = log;
    m_nIdentifier = SplitName(name);
}

Report Report::MakeAction(const std::string& action, const std::string& log, const ETimeStamp& time,
                          const std::string& text) {
    Report report;
    report.m_Kind = Kind::Action;
    report.m_Action = action;
    report.SetLog(log);
    report.m_Texts.reserve(log.size() + text.size() + 2);
    report.AddOwnRecord(time, text);
    return report;
}

void Report::AddOwnRecord(const ETimeStamp& time, const std::string& text) {
    EONEVENTSTRUCT& record = m_Records.emplace_back();
    record.m_pszName = Keep(m_Log);
    record.m_pszText = Keep(text);
    record.m_pszSource = L"kvgateway";
    record.m_TimeStamp = time;
    record.m_nIdentifier = m_nIdentifier;
}

const wchar_t* Report::Keep(std::string_view text) {
    const std::size_t begin = m_Texts.size();
    if (IsAscii(text)) {
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
