#include "base/EJsonText.h"

#include "base/EFileIO.h"
#include "base/EJsonWalker.h"
#include "base/EUtility.h"

#include <nlohmann/json.hpp>

#include <optional>

#include <sys/stat.h>

namespace {

using Kind = EJsonValue::Kind;

// Hears of every value that the parser has accepted, and puts it into the tree. The parser tells neither where a token
// begins nor, in words for a user, what is wrong: the walker follows it over the same text and knows both.
class Builder {
public:
    Builder(const std::string& text, EJsonValue& root, EJsonFault& fault)
        : m_Walker(text), m_Root(root), m_Fault(fault) {}

    bool null() { return AddWord(Kind::Null, 4) != nullptr; }
    bool boolean(bool value) {
        EJsonValue* added = AddWord(Kind::Boolean, value ? 4 : 5);
        if (added == nullptr) {
            return false;
        }
        added->m_bBoolean = value;
        return true;
    }
    bool number_integer(std::int64_t value) { return AddNumber(Kind::Integer, value, static_cast<double>(value)); }
    bool number_unsigned(std::uint64_t value) {
        const bool fits = value <= static_cast<std::uint64_t>(INT64_MAX);
        return AddNumber(fits ? Kind::Integer : Kind::LargeInteger, fits ? static_cast<std::int64_t>(value) : 0,
                         static_cast<double>(value));
    }
    bool number_float(double value, const std::string& written) {
        const bool isInteger = written.find_first_of(".eE") == std::string::npos;
        return AddNumber(isInteger ? Kind::LargeInteger : Kind::Floating, 0, value);
    }
    bool string(std::string& value) {
        EJsonValue* added = Add(Kind::Text);
        if (added == nullptr) {
            return false;
        }
        added->m_Text = std::move(value);
        m_Walker.SkipText();
        return true;
    }
    bool binary(nlohmann::json::binary_t& /*bytes*/) { return false; } // never in a text
    bool start_object(std::size_t /*count*/) { return Open(Kind::Object); }
    bool start_array(std::size_t /*count*/) { return Open(Kind::Array); }
    bool end_object() { return Close(); }
    bool end_array() { return Close(); }
    bool key(std::string& name) {
        GoToToken();
        EJsonValue& member = m_Open.back()->m_Items.emplace_back();
        member.m_Name = std::move(name);
        member.m_NamePlace = m_Walker.Place();
        m_Walker.SkipText();
        m_Last = Last::Name;
        return true;
    }
    bool parse_error(std::size_t /*position*/, const std::string& /*token*/, const nlohmann::json::exception& error) {
        constexpr int NUMBER_OVERFLOW = 406;
        const std::string expected = GoToFault();
        EJsonWalker probe = m_Walker;
        if (error.id == NUMBER_OVERFLOW) {
            return Refuse({std::string(EJsonWalker::Clip(probe.SkipNumber())), "a smaller number"});
        }
        if (m_Walker.Peek() == '"') {
            if (const std::optional<EJsonWalker::Fault> fault = probe.FindTextFault()) {
                m_Walker = probe;
                return Refuse(*fault);
            }
        }
        return Refuse({m_Walker.DescribeToken(), expected});
    }

    // The parser takes a null character for the end of the text.
    bool CheckNulls(const std::string& text) {
        const std::size_t offset = text.find('\0');
        if (offset == std::string::npos) {
            return true;
        }
        m_Walker.StepTo(offset);
        return Refuse({m_Walker.DescribeToken(), "text"});
    }

private:
    enum class Last { Nothing, Opening, Name, Value };

    bool Refuse(const EJsonWalker::Fault& fault) {
        m_Fault.m_Place = m_Walker.Place();
        m_Fault.m_Message = "found " + fault.m_Found + ", expected " + fault.m_Expected;
        return false;
    }

    // From the end of one token to the beginning of the next; the parser has checked that the separator belongs there.
    void GoToToken() {
        if (m_Last == Last::Name) {
            m_Walker.Eat(':');
        } else if (m_Last == Last::Value) {
            m_Walker.Eat(',');
        }
        m_Walker.SkipBlank();
    }

    // The room for the value whose token comes next; null when it is refused.
    EJsonValue* Add(Kind kind) {
        GoToToken();
        m_Last = Last::Value;
        if (m_Open.empty() && kind != Kind::Object) {
            Refuse({m_Walker.DescribeToken(), "an object"});
            return nullptr;
        }
        EJsonValue* added = &m_Root;
        if (!m_Open.empty()) {
            std::vector<EJsonValue>& items = m_Open.back()->m_Items;
            added = m_Open.back()->m_Kind == Kind::Array ? &items.emplace_back() : &items.back();
        }
        added->m_Kind = kind;
        added->m_Begin = m_Walker.Place();
        return added;
    }

    EJsonValue* AddWord(Kind kind, std::size_t length) {
        EJsonValue* added = Add(kind);
        if (added != nullptr) {
            m_Walker.Step(length);
        }
        return added;
    }

    bool AddNumber(Kind kind, std::int64_t integer, double rounded) {
        EJsonValue* added = Add(kind);
        if (added == nullptr) {
            return false;
        }
        added->m_nInteger = integer;
        added->m_Double = rounded;
        added->m_Text = m_Walker.SkipNumber();
        return true;
    }

    bool Open(Kind kind) {
        EJsonValue* added = Add(kind);
        if (added == nullptr) {
            return false;
        }
        if (m_Open.size() >= EJsonText::MAX_DEPTH) {
            const std::string limit = std::to_string(EJsonText::MAX_DEPTH);
            return Refuse({"more than " + limit + " levels of nesting", "at most " + limit});
        }
        m_Open.push_back(added); // stays where it is: its parent gets no further item before it is closed
        m_Walker.Step();
        m_Last = Last::Opening;
        return true;
    }

    bool Close() {
        m_Walker.SkipBlank();
        m_Open.back()->m_End = m_Walker.Place();
        m_Open.pop_back();
        m_Walker.Step();
        m_Last = Last::Value;
        return true;
    }

    // Moves to the token that the parser has refused; what it should have been.
    std::string GoToFault() {
        std::string expected;
        const bool inObject = !m_Open.empty() && m_Open.back()->m_Kind == Kind::Object;
        if (m_Last == Last::Nothing) {
            expected = "an object";
        } else if (m_Open.empty()) {
            expected = "the end of the file";
        } else if (m_Last == Last::Opening) {
            expected = inObject ? "a member name or '}'" : "a value or ']'";
        } else if (m_Last == Last::Name) {
            expected = m_Walker.Eat(':') ? "a value" : "':'";
        } else if (m_Walker.Eat(',')) {
            expected = inObject ? "a member name" : "a value";
        } else {
            expected = inObject ? "',' or '}'" : "',' or ']'";
        }
        m_Walker.SkipBlank();
        return expected;
    }

    EJsonWalker m_Walker;
    EJsonValue& m_Root;
    EJsonFault& m_Fault;
    std::vector<EJsonValue*> m_Open;
    Last m_Last = Last::Nothing;
};

// All bytes of a regular file.
EResult ReadWhole(const wchar_t* fileName, std::string& bytes, EString& message) {
    const auto refuse = [&](const std::string& reason) {
        EString wide;
        EUtility::Utf8Decode(reason.data(), reason.size(), wide);
        message.Format(L"%s: cannot be read: %s", fileName, static_cast<const wchar_t*>(wide));
        return RC_SECTION_UNREADABLE;
    };
    if (EFileIO::IsMissing(fileName)) {
        message.Format(L"%s: no such file", fileName);
        return RC_SECTION_NOT_FOUND;
    }
    unsigned long mode = 0;
    if (EFileIO::Exists(fileName, &mode) == 0) {
        return refuse(EFileIO::LastError());
    }
    if (!S_ISREG(mode)) { // a pipe might keep the reader waiting
        return refuse("Not a regular file");
    }
    EFileIO file(fileName, EFileIO::OPEN_FOR_READING);
    const std::uint32_t size = file.IsOpen() ? file.GetFileSize() : 0;
    if (size > EJsonText::MAX_SIZE) {
        message.Format(L"%s: %u bytes, expected at most %u", fileName, size, EJsonText::MAX_SIZE);
        return RC_SECTION_MALFORMED;
    }
    bytes.resize(size);
    unsigned long read = 0;
    if (!file.IsOpen() || file.ReadFrmFile(bytes.data(), size, read) == 0) {
        return refuse(EFileIO::LastError());
    }
    bytes.resize(read);
    return RC_OK;
}

} // namespace

std::string EJsonValue::Describe() const {
    switch (m_Kind) {
    case Kind::Null:
        return "null";
    case Kind::Boolean:
        return m_bBoolean ? "true" : "false";
    case Kind::Text:
        return "a text";
    case Kind::Array:
        return "a list";
    case Kind::Object:
        return "an object";
    default:
        return std::string(EJsonWalker::Clip(m_Text));
    }
}

bool EJsonText::Parse(const std::string& text, EJsonValue& root, EJsonFault& fault) {
    root = EJsonValue();
    Builder builder(text, root, fault);
    return builder.CheckNulls(text) && nlohmann::json::sax_parse(text.begin(), text.end(), &builder,
                                                                 nlohmann::json::input_format_t::json, true, true);
}

EResult EJsonText::Load(const wchar_t* fileName, EJsonValue& root, EString& message) {
    std::string text;
    const EResult result = ReadWhole(fileName, text, message);
    EJsonFault fault;
    if (Failed(result) || Parse(text, root, fault)) {
        return result;
    }
    message = Locate(fileName, fault.m_Place, fault.m_Message);
    return RC_SECTION_MALFORMED;
}

EString EJsonText::Locate(const wchar_t* fileName, const EJsonPlace& place, const std::string& text) {
    EString wide;
    EUtility::Utf8Decode(text.data(), text.size(), wide);
    EString message;
    message.Format(L"%s:%d:%d: %s", fileName, place.m_nLine, place.m_nColumn, static_cast<const wchar_t*>(wide));
    return message;
}

std::string EJsonText::Quote(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : EJsonWalker::Clip(text)) {
        const bool control = static_cast<unsigned char>(c) < 0x20U || c == 0x7F;
        quoted += control ? '?' : c;
    }
    quoted += quoted.size() <= text.size() ? "...\"" : "\"";
    return quoted;
}
