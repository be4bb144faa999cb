#include "gateway/Module.h"

#include "base/EFileIO.h"
#include "base/EPersistent.h"
#include "base/IKernelService.h"
#include "base/InterfaceIds.h"

#include <stdexcept>

#include <dlfcn.h>

Module::Module(const std::filesystem::path& path, IKernelBase& kernel)
    : m_pLibrary(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (m_pLibrary == nullptr) {
        throw std::runtime_error(std::string("the module cannot be loaded: ") + dlerror());
    }
    constexpr std::int32_t KNOWN_VERSION = 1;
    const std::int32_t version = *static_cast<const std::int32_t*>(Symbol("LOGFILE_VERSION"));
    if (version != KNOWN_VERSION) {
        throw std::runtime_error("the module " + path.string() + " is of version " + std::to_string(version) +
                                 ", expected " + std::to_string(KNOWN_VERSION));
    }
    m_pszSavedRequests = *static_cast<const wchar_t* const*>(Symbol("LOGFILE_WR_FILE_NAME"));
    const auto init = reinterpret_cast<void* (*)(IKernelBase*)>(Symbol("kvLogFileInitService"));
    m_pService = static_cast<IKernelService*>(init(&kernel)); // the service is its own IKernelService
    void* logFile = nullptr;
    m_pService->GetInterface(IID_LOG_FILE, &logFile);
    m_pLogFile = static_cast<ILogFile*>(logFile);
}

void* Module::Symbol(const char* name) const {
    void* const symbol = dlsym(m_pLibrary, name);
    if (symbol == nullptr) {
        throw std::runtime_error(std::string("the module has no ") + name);
    }
    return symbol;
}

Module::~Module() {
    EFileIO::SetDeleting(false);
    m_pService->Stop();
    EFileIO::SetDeleting(true);
    EPersistent::RemoveFactories(); // their code is about to go
    dlclose(m_pLibrary);
}
