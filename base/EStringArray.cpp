#include "base/EStringArray.h"

#include <utility>

EString& EStringArray::Grow(int index) {
    if (index >= m_nSize) {
        SetSize(index + 1, -1);
    }
    return m_Texts[static_cast<std::size_t>(index)];
}

void EStringArray::SetAtGrow(int index, const EString& text) {
    EString copy = text; // it may be an element of this array, which moves
    Grow(index) = std::move(copy);
}

void EStringArray::SetSize(int size, int /*growBy*/) {
    const auto count = static_cast<std::size_t>(size > 0 ? size : 0);
    if (count > m_Texts.size()) {
        m_Texts.resize(count);
    }
    for (auto i = static_cast<std::size_t>(m_nSize); i < count; ++i) {
        m_Texts[i].Empty(); // its memory is reused
    }
    m_nSize = static_cast<int>(count);
}
