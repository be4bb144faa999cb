#pragma once

#include "base/EJsonText.h"

#include <cstdint>
#include <functional>
#include <limits>
#include <set>
#include <string>
#include <vector>

// What is wrong or doubtful in the files of a configuration.
class Findings {
public:
    void SetFile(const std::string& file) { m_File = file; } // where the findings that follow belong

    void Error(const EJsonPlace& place, const std::string& text) { ErrorWithPlace(Prefix(place) + text); }
    void ErrorWithPlace(const std::string& text); // a text that names its place already
    void Warning(const EJsonPlace& place, const std::string& text) {
        m_Lines.push_back(Prefix(place) + "warning: " + text);
    }

    bool HasErrors() const { return m_bErrors; }
    const std::vector<std::string>& Lines() const { return m_Lines; } // "FILE:LINE:COLUMN: text"

private:
    std::string Prefix(const EJsonPlace& place) const;

    std::string m_File;
    std::vector<std::string> m_Lines;
    bool m_bErrors = false;
};

// Reads the members of a JSON object by name. What is missing, of a wrong type or out of range becomes a finding, and
// the value to be filled stays as it was. The object and the findings have to outlive the reader.
class JsonObject {
public:
    // `what` is how a message calls the object. A value that is no object is a finding, and has no members.
    JsonObject(const EJsonValue& value, const std::string& what, Findings& findings);

    // The member, which counts as known from here on; null when there is none.
    const EJsonValue* Find(const std::string& name);
    const EJsonValue* Require(const std::string& name); // a missing member is a finding

    // True when the member is there and was taken.
    bool Text(const std::string& name, std::string& text);
    template <class Number>
    bool Integer(const std::string& name, Number& number, std::int64_t min = std::numeric_limits<Number>::min(),
                 std::int64_t max = std::numeric_limits<Number>::max()) {
        const EJsonValue* const member = Find(name);
        const bool fits = member != nullptr && member->m_Kind == EJsonValue::Kind::Integer &&
                          member->m_nInteger >= min && member->m_nInteger <= max;
        RefuseIf(!fits, name, "an integer from " + std::to_string(min) + " to " + std::to_string(max));
        number = fits ? static_cast<Number>(member->m_nInteger) : number;
        return fits;
    }
    const std::vector<EJsonValue>& List(const std::string& name); // empty when it is missing or no list

    // Lets `read` see the member, or every item of the list, when it is an object, and then looks for unknown members.
    using Reader = std::function<void(JsonObject& object)>;
    bool Object(const std::string& name, const Reader& read); // false when it is missing
    void Objects(const std::string& name, const std::string& what, const Reader& read);

    // When the condition holds the member is wrong, or doubtful. Nothing is said of a missing one, nor of one that was
    // refused before.
    void RefuseIf(bool condition, const std::string& name, const std::string& expected);
    void WarnIf(bool condition, const std::string& name, const std::string& text);

    // Something about the object as a whole is wrong.
    void Error(const EJsonPlace& place, const std::string& text) { m_Findings.Error(place, m_What + ": " + text); }
    void ErrorIf(bool condition, const std::string& text);

    // Every member that nobody has asked for, and every second one of a name, is a finding.
    void Finish();

    // For items of lists, which have no name: `name` is how a message calls them.
    bool TakeText(const EJsonValue& value, const std::string& name, std::string& text);
    void Refuse(const EJsonValue& value, const std::string& name, const std::string& expected);

    const EJsonValue& Value() const { return m_Value; }

private:
    void Read(const EJsonValue& value, const std::string& what, const Reader& read);

    const EJsonValue& m_Value;
    std::string m_What;
    Findings& m_Findings;
    std::set<std::string> m_Known;
    std::set<std::string> m_Refused;
};
