#include "base/EMapStringToPtr.h"

#include <iterator>

int EMapStringToPtr::Lookup(const wchar_t* key, void*& value) const {
    const auto found = m_Entries.find(std::wstring_view(OrEmpty(key)));
    if (found == m_Entries.end()) {
        return 0;
    }
    value = found->second;
    return 1;
}

void*& EMapStringToPtr::operator[](const wchar_t* key) {
    return m_Entries[OrEmpty(key)];
}

void EMapStringToPtr::GetNextAssoc(Position& position, EString& key, void*& value) const {
    key = position->first.c_str();
    value = position->second;
    position = At(std::next(m_Entries.find(position->first)));
}
