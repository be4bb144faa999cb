#pragma once

#include "base/EString.h"

#include <vector>

// A growing array of texts. Indexes are counted from 0 and must lie inside the array where nothing else is said.
class KVBASE_API EStringArray {
public:
    // Sets the element, growing the array with empty texts up to the index; index = GetSize() appends.
    void SetAtGrow(int index, const wchar_t* text);
    void SetAtGrow(int index, const EString& text);

    // Appends an empty text, to be filled in. Here, since a row calls it for every cell.
    EString& Add() {
        if (static_cast<std::size_t>(m_nSize) == m_Texts.size()) {
            return Grow(m_nSize);
        }
        EString& text = m_Texts[static_cast<std::size_t>(m_nSize++)];
        text.Empty(); // it was kept for its room
        return text;
    }

    // Cuts the array or grows it with empty texts. An array that is emptied and filled again reuses the room of its
    // former texts. `growBy` is accepted for the callers' sake; growth is geometric whatever it says.
    void SetSize(int size, int growBy);

    void Copy(const EStringArray& other);

    EString& operator[](int index) { return m_Texts[static_cast<std::size_t>(index)]; }
    const EString& operator[](int index) const { return m_Texts[static_cast<std::size_t>(index)]; }
    int GetSize() const { return m_nSize; }

private:
    EString& Grow(int index);

    std::vector<EString> m_Texts; // may be longer than the array: texts kept for their room
    int m_nSize = 0;
};
