#pragma once

#include "base/ILogFile.h"

#include <filesystem>
#include <string>

class IKernelBase;
class IKernelService;

// The loaded module and its one service. What cannot be done throws std::runtime_error with a text for the operator.
class Module {
public:
    Module(const std::filesystem::path& path, IKernelBase& kernel);
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;
    // Ends the service, whatever its state, and unloads the module. A service that goes deletes what its delivering log
    // files have not delivered yet; the next start is to go on with those files, so it is kept from deleting them.
    ~Module();

    IKernelService& Service() { return *m_pService; }
    ILogFile& LogFile() { return *m_pLogFile; }
    const wchar_t* SavedRequestsName() const { return m_pszSavedRequests; } // a file of the configuration directory

private:
    void* Symbol(const char* name) const;

    void* m_pLibrary;
    IKernelService* m_pService = nullptr;
    ILogFile* m_pLogFile = nullptr;
    const wchar_t* m_pszSavedRequests = nullptr;
};
