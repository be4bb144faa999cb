#include "gateway/NameService.h"

#include "base/EFileIO.h"
#include "gateway/Console.h"
#include "gateway/Text.h"

#include <cstdint>
#include <limits>

int NameService::Split(EString& name) {
    const wchar_t* const text = name;
    int at = name.GetLength() - 1;
    std::int64_t id = 0;
    for (std::int64_t weight = 1; at >= 0 && text[at] >= L'0' && text[at] <= L'9'; --at, weight *= 10) {
        if (weight > std::numeric_limits<int>::max()) {
            return -1;
        }
        id += weight * (text[at] - L'0');
    }
    const int digits = name.GetLength() - 1 - at;
    const bool asJoined = digits == 1 || (digits > 1 && text[at + 1] != L'0'); // "name@07" is a plain name
    if (at < 1 || text[at] != L'@' || !asJoined || id > std::numeric_limits<int>::max()) {
        return -1;
    }
    name = EString(text, static_cast<std::size_t>(at));
    return static_cast<int>(id);
}

EString NameService::Join(const EString& name, int id) {
    EString joined = name;
    if (id >= 0) {
        joined.Format(L"%s@%d", static_cast<const wchar_t*>(name), id);
    }
    return joined;
}

EResult NameService::QualifyName(int id, EString* name) {
    *name = Join(*name, id);
    return RC_OK;
}

EResult NameService::ParseName(EString* name, int* id) {
    if (const int carried = Split(*name); carried >= 0) {
        *id = carried;
    }
    return RC_OK;
}

EResult NameService::ParseNameText(const wchar_t* name, int* id) {
    EString copy = name;
    return ParseName(&copy, id);
}

EResult NameService::GetUploadParameters(int id, EString* parameter1, EString* parameter2, EString* parameter3) {
    const auto identifier = m_Identifiers.find(id);
    if (identifier == m_Identifiers.end() || identifier->second.m_Url.empty()) {
        return RC_NOT_FOUND;
    }
    *parameter1 = Widen(identifier->second.m_Url);
    *parameter2 = Widen(identifier->second.m_User);
    *parameter3 = Widen(identifier->second.m_Password);
    return RC_OK;
}

EResult NameService::PreparePath(int /*id*/, EString* path) {
    if (EFileIO::CreateRecursiveDir(*path) != 0) {
        return RC_OK;
    }
    ++m_nFailures;
    Console::Say("error: the directory \"" + Narrow(*path) + "\" cannot be made");
    return RC_NOT_MADE;
}

EResult NameService::CheckId(int id, bool* accepted) {
    *accepted = id < 0 || m_Identifiers.contains(id);
    return RC_OK;
}
