#pragma once

#include "gateway/Findings.h"

#include <cstdint>
#include <set>
#include <string>

// Reads the members of a JSON object by name. What is missing, of a wrong type or out of range becomes a finding, and
// the value to be filled stays as it was. The object and the findings have to outlive the reader.
class JsonObject {
public:
    // `what` is how a message calls the object. A value that is no object is a finding, and has no members.
    JsonObject(const EJsonValue& value, const std::string& what, Findings& findings);

    bool IsObject() const { return m_bObject; }
    const EJsonValue& Value() const { return m_Value; }

    // The member, which counts as known from here on; null when there is none.
    const EJsonValue* Find(const std::string& name);
    // As Find; a missing member is a finding.
    const EJsonValue* Require(const std::string& name);

    // True when the member is there and was taken.
    bool Text(const std::string& name, std::string& text);
    bool Integer(const std::string& name, std::int64_t min, std::int64_t max, std::int64_t& number);
    bool Boolean(const std::string& name, bool& value);
    bool Texts(const std::string& name, std::vector<std::string>& texts); // a list of texts

    // The items of a list; empty when the member is missing or no list.
    const std::vector<EJsonValue>& List(const std::string& name);

    // Every member that nobody has asked for, and every second one of a name, is a finding.
    void Finish();

    // The same for single values. `name` is how a message calls the value, and may be empty.
    static bool TakeText(const EJsonValue& value, const std::string& name, Findings& findings, std::string& text);
    static bool TakeInteger(const EJsonValue& value, const std::string& name, std::int64_t min, std::int64_t max,
                            Findings& findings, std::int64_t& number);
    static void Refuse(const EJsonValue& value, const std::string& name, const std::string& expected,
                       Findings& findings);

private:
    const EJsonValue& m_Value;
    std::string m_What;
    Findings& m_Findings;
    std::set<std::string> m_Known;
    bool m_bObject;
};
