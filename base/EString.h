#pragma once

#include "base/Export.h"

#include <string>
#include <type_traits>

class EFileIO;

// A null text counts as empty.
inline const wchar_t* OrEmpty(const wchar_t* text) {
    return text != nullptr ? text : L"";
}

// A wide text (32-bit characters). A null pointer as an argument counts as an empty text.
class KVBASE_API EString {
public:
    EString() = default;
    EString(const wchar_t* text);
    EString(const wchar_t* text, std::size_t length);
    EString(const EString&) = default;
    EString(EString&&) noexcept = default;
    ~EString() = default;

    EString& operator=(const EString&) = default;
    EString& operator=(EString&&) noexcept = default;
    EString& operator=(const wchar_t* text);

    EString& operator+=(wchar_t character) {
        m_Text += character;
        return *this;
    }
    EString& operator+=(const wchar_t* text);
    EString& operator+=(const EString& text);

    void Empty() { m_Text.clear(); }
    bool IsEmpty() const { return m_Text.empty(); }
    int GetLength() const { return static_cast<int>(m_Text.size()); }

    // Replaces the text by what wprintf(3) would print; the arguments may refer to this text. "%s" takes wide text
    // (null prints nothing), "%c" a wide character. The text becomes empty for an invalid format, and for more than
    // LONGEST_TEXT characters.
    template <class... Arguments>
    void Format(const wchar_t* format, const Arguments&... arguments) {
        Print(format, ForPrint(arguments)...);
    }

    // Replaces every occurrence of `from`, left to right. An empty `from` replaces nothing.
    void Replace(const wchar_t* from, const wchar_t* to);

    // Removes white space (iswspace in the C locale) at the end.
    void TrimRight();

    // The characters, null-terminated, with room for at least `minimum`; valid until the text is next changed.
    wchar_t* GetBuffer(int minimum);

    operator const wchar_t*() const { return m_Text.c_str(); }

    friend bool operator==(const EString& left, const EString& right) { return left.m_Text == right.m_Text; }
    friend bool operator==(const EString& left, const wchar_t* right) { return left.m_Text == OrEmpty(right); }

    // Write and read the text at the file's position: its length in characters, then each character, 32-bit
    // little-endian numbers. Non-zero on success. Restore allocates nothing for a length beyond the rest of the file or
    // beyond LONGEST_TEXT; it fails, and leaves the text unchanged.
    int Save(EFileIO* file) const;
    int Restore(EFileIO* file);

private:
    template <class Argument>
    static auto ForPrint(const Argument& argument) {
        if constexpr (std::is_convertible_v<const Argument&, const wchar_t*>) {
            return OrEmpty(argument);
        } else {
            return argument;
        }
    }

    void Print(const wchar_t* format, ...);

    std::wstring m_Text;
};

KVBASE_API EString operator+(const EString& left, const EString& right);
