#pragma once

#include "base/EString.h"

#include <vector>

// A growing array of texts. Except for SetAtGrow, an index must be less than the size.
class KVBASE_API EStringArray {
public:
    // Sets the element, growing the array with empty texts up to the index; index = GetSize() appends.
    void SetAtGrow(int index, const wchar_t* text) { SetAtGrow(index, EString(text)); }
    void SetAtGrow(int index, const EString& text);

    // Appends an empty text, to be filled in. Inline: a row calls it for every cell.
    EString& Add() {
        if (static_cast<std::size_t>(m_nSize) == m_Texts.size()) {
            return Grow(m_nSize);
        }
        EString& text = m_Texts[static_cast<std::size_t>(m_nSize++)];
        text.Empty(); // its memory is reused
        return text;
    }

    // Shrinks the array, or grows it with empty texts. The memory of removed texts is kept for later ones. `growBy` is
    // ignored.
    void SetSize(int size, int growBy);

    void Copy(const EStringArray& other) { *this = other; }

    EString& operator[](int index) { return m_Texts[static_cast<std::size_t>(index)]; }
    const EString& operator[](int index) const { return m_Texts[static_cast<std::size_t>(index)]; }
    int GetSize() const { return m_nSize; }

private:
    EString& Grow(int index);

    std::vector<EString> m_Texts; // may be longer than m_nSize: removed texts, kept for their memory
    int m_nSize = 0;
};
