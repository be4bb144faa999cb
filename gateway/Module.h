#pragma once

#include "base/ILogFile.h"

#include <filesystem>
#include <string>

class IKernelBase;
class IKernelService;

// The loaded module and its one service. Throws std::runtime_error with a text for the operator.
class Module {
public:
    Module(const std::filesystem::path& path, IKernelBase& kernel);
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;
    // Stops the service in any state and unloads the module. Stopping deletes files that are not delivered yet, so deleting
    // is switched off meanwhile: the next start goes on with them.
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
