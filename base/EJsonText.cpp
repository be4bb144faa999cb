#include "base/EJsonText.h"

#include "base/EFileIO.h"
#include "base/EUtility.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <string_view>

#include <sys/stat.h>

namespace {

using Kind = EJsonValue::Kind;

bool IsContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

// Short enough for a message, cut between two characters.
std::string_view Clip(std::string_view text, std::size_t bytes = 60) {
    std::size_t end = std::min(text.size(), bytes);
    while (end > 0 && end < text.size() && IsContinuation(text[end])) {
        --end;
    }
    return text.substr(0, end);
}

// Finds the places of the tokens. The parser does not tell them, so this follows it through the text.
class Walker {
public:
    explicit Walker(std::string_view text) : m_Text(text) {
        if (text.starts_with("\xEF\xBB\xBF")) { // the byte order mark: editors show it as no column
            m_nOffset = 3;
        }
    }

    std::size_t Offset() const { return m_nOffset; }

    EJsonPlace StepTo(std::size_t offset) { // an offset beyond the end means the end
        for (offset = std::min(offset, m_Text.size()); m_nOffset < offset; ++m_nOffset) {
            const char c = m_Text[m_nOffset];
            if (c == '\n') {
                m_Place = {m_Place.m_nLine + 1, 1};
            } else if (!IsContinuation(c)) {
                ++m_Place.m_nColumn;
            }
        }
        return m_Place;
    }

    // Steps over blanks, comments and separators.
    EJsonPlace GoToToken() {
        for (;;) {
            StepTo(m_Text.find_first_not_of(" \t\r\n,:", m_nOffset));
            if (m_Text.substr(m_nOffset).starts_with("//")) {
                StepTo(m_Text.find_first_of("\r\n", m_nOffset));
            } else if (m_Text.substr(m_nOffset).starts_with("/*")) {
                StepTo(m_Text.find("*/", m_nOffset + 2));
                StepTo(m_nOffset + 2);
            } else {
                return m_Place;
            }
        }
    }

    // Steps over the token that begins here, and returns it.
    std::string_view TakeToken() {
        const std::size_t begin = m_nOffset;
        std::size_t end = begin + 1;
        if (m_Text[begin] == '"') {
            while (m_Text[end] != '"') {
                end += m_Text[end] == '\\' ? 2 : 1;
            }
            ++end;
        } else if (std::string_view("{}[]").find(m_Text[begin]) == std::string_view::npos) {
            end = m_Text.find_first_of(" \t\r\n,:{}[]/", end);
        }
        StepTo(end);
        return m_Text.substr(begin, m_nOffset - begin);
    }

private:
    std::string_view m_Text;
    std::size_t m_nOffset = 0;
    EJsonPlace m_Place;
};

// Gets every value from the parser and builds the tree.
class Builder {
public:
    Builder(const std::string& text, EJsonValue& root, EJsonFault& fault)
        : m_Text(text), m_Walker(text), m_Root(root), m_Fault(fault) {}

    bool null() {
        Add(Kind::Null);
        return true;
    }
    bool boolean(bool value) {
        Add(Kind::Boolean).m_bBoolean = value;
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
        Add(Kind::Text).m_Text = std::move(value);
        return true;
    }
    bool binary(nlohmann::json::binary_t& /*bytes*/) { return false; } // not in JSON
    bool start_object(std::size_t /*count*/) { return Open(Kind::Object); }
    bool start_array(std::size_t /*count*/) { return Open(Kind::Array); }
    bool end_object() { return Close(); }
    bool end_array() { return Close(); }
    bool key(std::string& name) {
        EJsonValue& member = m_Open.back()->m_Items.emplace_back();
        member.m_Name = std::move(name);
        member.m_NamePlace = m_Walker.GoToToken();
        m_Walker.TakeToken();
        return true;
    }
    // `position`: how many bytes were read.
    bool parse_error(std::size_t position, const std::string& token, const nlohmann::json::exception& error) {
        std::string message = error.what();
        message.erase(0, message.find("] ") + 2); // the parser's error number
        if (message.starts_with("parse error at")) {
            message.erase(0, message.find(": ") + 2);
        }
        m_Fault.m_Place = Walker(m_Text).StepTo(position - 1); // where the parser stopped
        const std::string read = "; last read: '" + token + '\'';
        if (const std::size_t at = message.find(read); at != std::string::npos) {
            message.erase(at, read.size()); // it may be part of a password
        } else if (const EJsonPlace begin = m_Walker.GoToToken(); m_Walker.Offset() < position) {
            m_Fault.m_Place = begin; // the parser stopped behind this token
        }
        m_Fault.m_Message = Clip(message, 160);
        return false;
    }

private:
    EJsonValue& Add(Kind kind) {
        EJsonValue* added = &m_Root;
        if (!m_Open.empty()) {
            std::vector<EJsonValue>& items = m_Open.back()->m_Items;
            added = m_Open.back()->m_Kind == Kind::Array ? &items.emplace_back() : &items.back();
        }
        added->m_Kind = kind;
        added->m_Begin = m_Walker.GoToToken();
        added->m_Text = m_Walker.TakeToken();
        return *added;
    }

    bool AddNumber(Kind kind, std::int64_t integer, double rounded) {
        EJsonValue& added = Add(kind);
        added.m_nInteger = integer;
        added.m_Double = rounded;
        return true;
    }

    bool Open(Kind kind) {
        m_Open.push_back(&Add(kind)); // the pointer stays valid: the parent gets no further item until this is closed
        if (m_Open.size() <= EJsonText::MAX_DEPTH) {
            return true;
        }
        m_Fault = {m_Open.back()->m_Begin, "more than " + std::to_string(EJsonText::MAX_DEPTH) + " levels of nesting"};
        return false;
    }

    bool Close() {
        m_Open.back()->m_End = m_Walker.GoToToken();
        m_Walker.TakeToken();
        m_Open.pop_back();
        return true;
    }

    const std::string& m_Text;
    Walker m_Walker;
    EJsonValue& m_Root;
    EJsonFault& m_Fault;
    std::vector<EJsonValue*> m_Open;
};

// All bytes of a regular file.
EResult ReadWhole(const wchar_t* fileName, std::string& bytes, EString& message) {
    const auto refuse = [&](const std::string& reason) {
        message.Format(L"%s: cannot be read: %s", fileName, static_cast<const wchar_t*>(Widen(reason)));
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
    if (!S_ISREG(mode)) { // reading a pipe could block
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
        return std::string(Clip(m_Text));
    }
}

bool EJsonText::Parse(const std::string& text, EJsonValue& root, EJsonFault& fault) {
    root = EJsonValue();
    if (const std::size_t end = text.find('\0'); end != std::string::npos) { // the parser would stop there
        fault = {Walker(text).StepTo(end), "found a null character, expected text"};
        return false;
    }
    Builder builder(text, root, fault);
    if (!nlohmann::json::sax_parse(text.begin(), text.end(), &builder, nlohmann::json::input_format_t::json, true,
                                   true)) {
        return false;
    }
    fault = {root.m_Begin, "found " + root.Describe() + ", expected an object"};
    return root.m_Kind == Kind::Object;
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
    EString message;
    message.Format(L"%s:%d:%d: %s", fileName, place.m_nLine, place.m_nColumn, Widen(text));
    return message;
}

std::string EJsonText::Quote(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : Clip(text)) {
        const bool control = static_cast<unsigned char>(c) < 0x20U || c == 0x7F;
        quoted += control ? '?' : c;
    }
    quoted += quoted.size() <= text.size() ? "...\"" : "\"";
    return quoted;
}
