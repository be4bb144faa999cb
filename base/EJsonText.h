#pragma once

#include "base/EString.h"
#include "base/ResultCodes.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// A place in a file as editors show it: lines and columns count from 1, and a column is a character.
struct EJsonPlace {
    int m_nLine = 1;
    int m_nColumn = 1;
};

// A value of a JSON text, and where it stands.
struct KVBASE_API EJsonValue {
    enum class Kind { Null, Boolean, Integer, LargeInteger, Floating, Text, Array, Object };

    Kind m_Kind = Kind::Null;
    bool m_bBoolean = false;
    std::int64_t m_nInteger = 0;     // Integer; a LargeInteger is one that does not fit here
    double m_Double = 0;             // any number, rounded
    std::string m_Text;              // Text: the UTF-8 text, null characters included; a number: as it is written
    std::vector<EJsonValue> m_Items; // Array, Object: the elements or members in the file's order, duplicates kept
    EJsonPlace m_Begin;
    EJsonPlace m_End; // Array, Object: the closing bracket

    std::string m_Name; // a member's name, and where it begins
    EJsonPlace m_NamePlace;

    // What to call the value in a message: "true", "3.5" (numbers as written), "a text", "a list", "an object".
    std::string Describe() const;
};

// Why and where a text is not valid.
struct EJsonFault {
    EJsonPlace m_Place;
    std::string m_Message; // in UTF-8; texts of the input are not repeated in it
};

// Reads JSON (RFC 8259, in UTF-8, with // and /* */ comments) whose outermost value is an object.
class KVBASE_API EJsonText {
public:
    static constexpr std::size_t MAX_DEPTH = 64;         // objects and lists inside one another
    static constexpr std::uint32_t MAX_SIZE = 4U << 20U; // bytes of a file

    // False and the fault when the text is not valid; `root` is then unusable. Throws std::bad_alloc.
    static bool Parse(const std::string& text, EJsonValue& root, EJsonFault& fault);

    // Parses the file. On failure RC_SECTION_NOT_FOUND, RC_SECTION_UNREADABLE (also for anything but a regular file) or
    // RC_SECTION_MALFORMED, and a message that begins with the file's name. Throws std::bad_alloc.
    static EResult Load(const wchar_t* fileName, EJsonValue& root, EString& message);

    // "FILE:LINE:COLUMN: text"; the text is UTF-8.
    static EString Locate(const wchar_t* fileName, const EJsonPlace& place, const std::string& text);

    // The text in double quotes for a message: cut when it is long, control characters replaced by '?'.
    static std::string Quote(const std::string& text);
};
