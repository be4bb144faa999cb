#include "gateway/JsonObject.h"

using Kind = EJsonValue::Kind;

JsonObject::JsonObject(const EJsonValue& value, const std::string& what, Findings& findings)
    : m_Value(value), m_What(what), m_Findings(findings), m_bObject(value.m_Kind == Kind::Object) {
    if (!m_bObject) {
        Refuse(value, value.m_Name, "an object (" + what + ")", findings);
    }
}

const EJsonValue* JsonObject::Find(const std::string& name) {
    m_Known.insert(name);
    if (m_bObject) {
        for (const EJsonValue& member : m_Value.m_Items) {
            if (member.m_Name == name) {
                return &member;
            }
        }
    }
    return nullptr;
}

const EJsonValue* JsonObject::Require(const std::string& name) {
    const EJsonValue* member = Find(name);
    if (member == nullptr && m_bObject) {
        m_Findings.Error(m_Value.m_End, m_What + ": found no " + EJsonText::Quote(name) + ", expected one");
    }
    return member;
}

bool JsonObject::Text(const std::string& name, std::string& text) {
    const EJsonValue* member = Find(name);
    return member != nullptr && TakeText(*member, name, m_Findings, text);
}

bool JsonObject::Integer(const std::string& name, std::int64_t min, std::int64_t max, std::int64_t& number) {
    const EJsonValue* member = Find(name);
    return member != nullptr && TakeInteger(*member, name, min, max, m_Findings, number);
}

bool JsonObject::Boolean(const std::string& name, bool& value) {
    const EJsonValue* member = Find(name);
    if (member == nullptr) {
        return false;
    }
    if (member->m_Kind != Kind::Boolean) {
        Refuse(*member, name, "true or false", m_Findings);
        return false;
    }
    value = member->m_bBoolean;
    return true;
}

bool JsonObject::Texts(const std::string& name, std::vector<std::string>& texts) {
    bool taken = false;
    for (const EJsonValue& item : List(name)) {
        std::string text;
        if (TakeText(item, name, m_Findings, text)) {
            texts.push_back(std::move(text));
            taken = true;
        }
    }
    return taken;
}

const std::vector<EJsonValue>& JsonObject::List(const std::string& name) {
    static const std::vector<EJsonValue> none;
    const EJsonValue* member = Find(name);
    if (member == nullptr) {
        return none;
    }
    if (member->m_Kind != Kind::Array) {
        Refuse(*member, name, "a list", m_Findings);
        return none;
    }
    return member->m_Items;
}

void JsonObject::Finish() {
    if (!m_bObject) {
        return;
    }
    std::set<std::string> seen;
    for (const EJsonValue& member : m_Value.m_Items) {
        const std::string quoted = EJsonText::Quote(member.m_Name);
        if (!m_Known.contains(member.m_Name)) {
            std::string known;
            for (const std::string& name : m_Known) {
                known += (known.empty() ? "" : ", ") + name;
            }
            m_Findings.Error(member.m_NamePlace, m_What + ": found " + quoted + ", expected one of " + known);
        } else if (!seen.insert(member.m_Name).second) {
            m_Findings.Error(member.m_NamePlace, m_What + ": found a second " + quoted + ", expected one");
        }
    }
}

bool JsonObject::TakeText(const EJsonValue& value, const std::string& name, Findings& findings, std::string& text) {
    if (value.m_Kind != Kind::Text) {
        Refuse(value, name, "a text", findings);
        return false;
    }
    if (value.m_Text.find('\0') != std::string::npos) { // would end the text for everybody behind this
        findings.Error(value.m_Begin,
                       (name.empty() ? "" : EJsonText::Quote(name) + ": ") + "found a null character, expected text");
        return false;
    }
    text = value.m_Text;
    return true;
}

bool JsonObject::TakeInteger(const EJsonValue& value, const std::string& name, std::int64_t min, std::int64_t max,
                             Findings& findings, std::int64_t& number) {
    if (value.m_Kind != Kind::Integer || value.m_nInteger < min || value.m_nInteger > max) {
        Refuse(value, name, "an integer from " + std::to_string(min) + " to " + std::to_string(max), findings);
        return false;
    }
    number = value.m_nInteger;
    return true;
}

void JsonObject::Refuse(const EJsonValue& value, const std::string& name, const std::string& expected,
                        Findings& findings) {
    const std::string found = value.m_Kind == Kind::Text ? EJsonText::Quote(value.m_Text) : value.Describe();
    findings.Error(value.m_Begin,
                   (name.empty() ? "" : EJsonText::Quote(name) + ": ") + "found " + found + ", expected " + expected);
}
