#pragma once

#include <utility>

// Marks that this thread runs the test kernel's own code: faults that a test makes for the module do not strike there.
class InKernel {
public:
    InKernel() { ++s_nDepth; }
    ~InKernel() { --s_nDepth; }
    InKernel(const InKernel&) = delete;
    InKernel& operator=(const InKernel&) = delete;

    static bool IsHere() { return s_nDepth > 0; }

    // Calls back into the module.
    template <class Call>
    static void Leave(Call call) {
        const int depth = std::exchange(s_nDepth, 0);
        call();
        s_nDepth = depth;
    }

private:
    static inline thread_local int s_nDepth = 0;
};
