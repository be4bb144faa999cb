#pragma once

#include "base/ILogFile.h"

#include <filesystem>
#include <string>

class IKernelBase;
class IKernelService;

// The loaded module and its one service. What cannot be done throws std::runtime_error with a text for the operator.
class Module {
public:
    // `retreat` is an empty directory, see the destructor.
    Module(const std::filesystem::path& path, IKernelBase& kernel, const std::filesystem::path& retreat);
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;
    // Ends the service, whatever its state, and unloads the module. A service that goes deletes what its delivering log
    // files have not delivered yet, by relative names; the next start is to go on with those files, so they are put out
    // of its sight: the working directory is the retreat meanwhile.
    ~Module();

    IKernelService& Service() { return *m_pService; }
    ILogFile& LogFile() { return *m_pLogFile; }
    const wchar_t* SavedRequestsName() const { return m_pszSavedRequests; } // a file of the configuration directory

private:
    void* Symbol(const char* name) const;

    std::filesystem::path m_Retreat;
    void* m_pLibrary;
    IKernelService* m_pService = nullptr;
    ILogFile* m_pLogFile = nullptr;
    const wchar_t* m_pszSavedRequests = nullptr;
};
