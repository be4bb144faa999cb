#include "base/EString.h"

#include "base/EFileIO.h"
#include "base/LittleEndian.h"

#include <cwchar>

EString::EString(const wchar_t* text) : m_Text(OrEmpty(text)) {}

EString::EString(const wchar_t* text, std::size_t length) : m_Text(text, length) {}

EString& EString::operator=(const wchar_t* text) {
    m_Text = OrEmpty(text);
    return *this;
}

EString& EString::operator+=(const wchar_t* text) {
    m_Text += OrEmpty(text);
    return *this;
}

EString& EString::operator+=(const EString& text) {
    m_Text += text.m_Text;
    return *this;
}

void EString::Replace(const wchar_t* from, const wchar_t* to) {
    const std::wstring old = OrEmpty(from);
    if (old.empty()) {
        return;
    }
    const std::wstring replacement = OrEmpty(to);
    for (std::size_t at = m_Text.find(old); at != std::wstring::npos; at = m_Text.find(old, at)) {
        m_Text.replace(at, old.size(), replacement);
        at += replacement.size();
    }
}

void EString::TrimRight() {
    // Not iswspace, which depends on the locale.
    m_Text.erase(m_Text.find_last_not_of(L" \t\n\v\f\r") + 1);
}

wchar_t* EString::GetBuffer(int minimum) {
    if (minimum > 0) {
        m_Text.reserve(static_cast<std::size_t>(minimum));
    }
    return m_Text.data();
}

int EString::Save(EFileIO* file) const {
    unsigned long written = 0;
    return file->WriteNumber(static_cast<std::uint32_t>(m_Text.size())) != 0 &&
           file->WriteToFile(m_Text.data(), 4 * m_Text.size(), written) != 0;
}

int EString::Restore(EFileIO* file) {
    std::uint32_t length = 0;
    if (file->ReadNumber(length) == 0 || length > LONGEST_TEXT || length > file->GetBytesLeft() / 4) {
        return 0;
    }
    std::wstring text(length, L'\0');
    unsigned long read = 0;
    if (file->ReadFrmFile(text.data(), 4 * text.size(), read) == 0 || read != 4 * text.size()) {
        return 0;
    }
    text.resize(std::wcslen(text.c_str())); // a damaged file may contain null characters
    m_Text.swap(text);
    return 1;
}

EString operator+(const EString& left, const EString& right) {
    EString sum = left;
    sum += right;
    return sum;
}
