#pragma once

#include "base/Export.h"

#include <cstddef>
#include <vector>

// A growing array of bytes.
class KVBASE_API EByteArray {
public:
    // Shrinks the array, or grows it with zero bytes. `growBy` is ignored.
    void SetSize(int size, int growBy);

    void Append(const EByteArray& other);

    unsigned char* GetData() { return m_Bytes.data(); }
    const unsigned char* GetData() const { return m_Bytes.data(); }
    int GetSize() const { return static_cast<int>(m_Bytes.size()); }

private:
    std::vector<unsigned char> m_Bytes;
};
