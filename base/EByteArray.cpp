#include "base/EByteArray.h"

#include <algorithm>

void EByteArray::SetSize(int size, int /*growBy*/) {
    m_Bytes.resize(static_cast<std::size_t>(size > 0 ? size : 0));
}

void EByteArray::Append(const EByteArray& other) {
    const std::size_t added = other.m_Bytes.size();
    m_Bytes.resize(m_Bytes.size() + added); // the other one may be this one
    std::copy_n(other.m_Bytes.begin(), added, m_Bytes.end() - static_cast<std::ptrdiff_t>(added));
}
