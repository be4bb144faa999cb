#pragma once

#include <atomic>

// The system's file calls as the base library makes them, and all allocations, pass through here: this program defines
// them in place of the C and C++ libraries', counts them, and lets chosen ones fail. Not so where InKernel marks.

enum class Call { Allocate, Open, FStat, Stat, PWrite, PRead, Truncate, Rename, Unlink, MkDir, RmDir, Close };

// How a file call fails: with an errno value, or
constexpr int SHORT = -1;     // reads or writes the half
constexpr int DISK_FULL = -2; // writes the half, and nothing the next time; cutting the file is then interrupted once

// While it lives, the n-th call of its kind from now on (the first is 1) fails, in whichever thread it comes.
class Fault {
public:
    Fault(Call call, int nth, int failure);
    ~Fault() { s_nLeft = 0; }

    static bool HasStruck() { return s_nLeft == 0; }
    static bool Strikes(Call call); // whether this call is to fail

    static inline std::atomic<int> s_nLeft = 0; // calls until the one that fails, that one included
    static inline std::atomic<Call> s_Call;
    static inline std::atomic<int> s_nFailure;
};
