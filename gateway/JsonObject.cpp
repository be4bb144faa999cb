#include "gateway/JsonObject.h"

#include <algorithm>

using Kind = EJsonValue::Kind;

void Findings::ErrorWithPlace(const std::string& text) {
    m_Lines.push_back(text);
    m_bErrors = true;
}

std::string Findings::Prefix(const EJsonPlace& place) const {
    return m_File + ':' + std::to_string(place.m_nLine) + ':' + std::to_string(place.m_nColumn) + ": ";
}

JsonObject::JsonObject(const EJsonValue& value, const std::string& what, Findings& findings)
    : m_Value(value), m_What(what), m_Findings(findings) {
    if (value.m_Kind != Kind::Object) {
        Refuse(value, value.m_Name, "an object (" + what + ")");
    }
}

const EJsonValue* JsonObject::Find(const std::string& name) {
    m_Known.insert(name);
    const std::vector<EJsonValue>& items = m_Value.m_Items; // those of a list have no names
    const auto member = std::find_if(items.begin(), items.end(), [&](const EJsonValue& i) { return i.m_Name == name; });
    return member != items.end() ? &*member : nullptr;
}

const EJsonValue* JsonObject::Require(const std::string& name) {
    const EJsonValue* const member = Find(name);
    if (member == nullptr && m_Value.m_Kind == Kind::Object) {
        Error(m_Value.m_End, "found no " + EJsonText::Quote(name) + ", expected one");
    }
    return member;
}

bool JsonObject::Text(const std::string& name, std::string& text) {
    const EJsonValue* const member = Find(name);
    return member != nullptr && TakeText(*member, name, text);
}

const std::vector<EJsonValue>& JsonObject::List(const std::string& name) {
    static const std::vector<EJsonValue> none;
    const EJsonValue* const member = Find(name);
    const bool isList = member != nullptr && member->m_Kind == Kind::Array;
    RefuseIf(!isList, name, "a list");
    return isList ? member->m_Items : none;
}

bool JsonObject::Object(const std::string& name, const Reader& read) {
    const EJsonValue* const member = Find(name);
    if (member != nullptr) {
        Read(*member, name, read);
    }
    return member != nullptr;
}

void JsonObject::Objects(const std::string& name, const std::string& what, const Reader& read) {
    for (const EJsonValue& item : List(name)) {
        Read(item, what, read);
    }
}

void JsonObject::Read(const EJsonValue& value, const std::string& what, const Reader& read) {
    JsonObject object(value, what, m_Findings);
    if (value.m_Kind == Kind::Object) {
        read(object);
        object.Finish();
    }
}

void JsonObject::RefuseIf(bool condition, const std::string& name, const std::string& expected) {
    if (const EJsonValue* const member = Find(name); condition && member != nullptr && !m_Refused.contains(name)) {
        Refuse(*member, name, expected);
    }
}

void JsonObject::WarnIf(bool condition, const std::string& name, const std::string& text) {
    if (const EJsonValue* const member = Find(name); condition && member != nullptr && !m_Refused.contains(name)) {
        m_Findings.Warning(member->m_Begin, EJsonText::Quote(name) + ": " + text);
    }
}

void JsonObject::ErrorIf(bool condition, const std::string& text) {
    if (condition) {
        Error(m_Value.m_Begin, text);
    }
}

void JsonObject::Finish() {
    std::string known;
    for (const std::string& name : m_Known) {
        known.append(known.empty() ? "" : ", ").append(name);
    }
    std::set<std::string> seen;
    for (const EJsonValue& member : m_Value.m_Items) {
        const std::string found = EJsonText::Quote(member.m_Name);
        if (!m_Known.contains(member.m_Name)) {
            Error(member.m_NamePlace, std::string("found ").append(found).append(", expected one of ").append(known));
        } else if (!seen.insert(member.m_Name).second) {
            Error(member.m_NamePlace, "found a second " + found + ", expected one");
        }
    }
}

bool JsonObject::TakeText(const EJsonValue& value, const std::string& name, std::string& text) {
    // A null character would end the text for everybody behind this.
    if (value.m_Kind != Kind::Text || value.m_Text.find('\0') != std::string::npos) {
        Refuse(value, name, value.m_Kind == Kind::Text ? "a text without null characters" : "a text");
        return false;
    }
    text = value.m_Text;
    return true;
}

void JsonObject::Refuse(const EJsonValue& value, const std::string& name, const std::string& expected) {
    m_Refused.insert(name);
    std::string text = name.empty() ? "" : EJsonText::Quote(name) + ": ";
    text += "found " + (value.m_Kind == Kind::Text ? EJsonText::Quote(value.m_Text) : value.Describe());
    m_Findings.Error(value.m_Begin, text + ", expected " + expected);
}
