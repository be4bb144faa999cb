#pragma once

// While it lives, the n-th allocation from now on (the first is 1) fails, in whichever thread it is asked for; the test
// kernel's own are neither counted nor failed. This program's allocation operators see to it.
class MemoryFault {
public:
    explicit MemoryFault(int nth);
    MemoryFault(const MemoryFault&) = delete;
    MemoryFault& operator=(const MemoryFault&) = delete;
    ~MemoryFault();

    bool HasStruck() const;
};
