#include "base/EByteArray.h"

void EByteArray::SetSize(int size, int /*growBy*/) {
    m_Bytes.resize(static_cast<std::size_t>(size > 0 ? size : 0));
}

void EByteArray::Append(const EByteArray& other) {
    if (this == &other) {
        const std::vector<unsigned char> copy = other.m_Bytes;
        m_Bytes.insert(m_Bytes.end(), copy.begin(), copy.end());
        return;
    }
    m_Bytes.insert(m_Bytes.end(), other.m_Bytes.begin(), other.m_Bytes.end());
}
