#include "tests/kernel/LoadedModule.h"

#include "base/EPersistent.h"
#include "base/InterfaceIds.h"

#include <dlfcn.h>
#include <stdexcept>

LoadedModule::LoadedModule() : m_pModule(dlopen(KVLOGFILE_PATH, RTLD_NOW | RTLD_LOCAL)) {
    if (m_pModule == nullptr) {
        throw std::runtime_error(dlerror());
    }
}

LoadedModule::~LoadedModule() {
    EPersistent::RemoveFactories(); // their code goes with the module
    dlclose(m_pModule);
}

void* LoadedModule::Symbol(const char* name) {
    return dlsym(m_pModule, name);
}

IKernelService* LoadedModule::InitService(IKernelBase* kernel) {
    // The service's class is the module's own; its kernel service interface stands at its beginning.
    auto* init = reinterpret_cast<IKernelService* (*)(IKernelBase*)>(Symbol("kvLogFileInitService"));
    return init(kernel);
}

ILogFile* LoadedModule::LogFile(IKernelService* service) {
    void* found = nullptr;
    service->GetInterface(IID_LOG_FILE, &found);
    return static_cast<ILogFile*>(found);
}

IAction* LoadedModule::Action(IKernelService* service) {
    void* found = nullptr;
    service->GetInterface(IID_ACTION, &found);
    return static_cast<IAction*>(found);
}
