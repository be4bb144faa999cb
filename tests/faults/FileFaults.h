#pragma once

// The system's file calls as the base library makes them pass through here: this program defines them in place of the
// C library's, counts them, and lets chosen ones fail. The test kernel's own calls are neither counted nor failed.

enum class FileCall { Open, FStat, Stat, PWrite, PRead, Truncate, Rename, Unlink, MkDir, RmDir, Close };

enum class Failure {
    NoSpace,
    InOut,
    Access,
    TooManyFiles,
    Interrupted, // before it has done anything, as a signal does
    Short,       // reads or writes the half
    DiskFull,    // writes the half, and nothing the next time; cutting the file is then interrupted once
};

// While it lives, the n-th call of its kind from now on (the first is 1) fails, in whichever thread it comes.
class FileFault {
public:
    FileFault(FileCall call, int nth, Failure failure);
    FileFault(const FileFault&) = delete;
    FileFault& operator=(const FileFault&) = delete;
    ~FileFault();

    bool HasStruck() const;
};
