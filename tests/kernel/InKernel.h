#pragma once

#include <string>
#include <utility>

// Marks that this thread runs a test's own code, where the faults that it makes do not strike. The operation named in
// s_Throwing throws, and nothing that has a base class.
class InKernel {
public:
    explicit InKernel(const char* operation = "") {
        if (operation == s_Throwing && !s_Throwing.empty()) {
            throw 1;
        }
        ++s_nDepth;
    }
    ~InKernel() { --s_nDepth; }

    static bool IsHere() { return s_nDepth > 0; }

    template <class Call>
    static void Leave(Call call) {
        const int depth = std::exchange(s_nDepth, 0);
        call();
        s_nDepth = depth;
    }

    static inline std::string s_Throwing;

private:
    static inline thread_local int s_nDepth = 0;
};
