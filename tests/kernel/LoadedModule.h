#pragma once

#include "base/EPersistent.h"
#include "base/IKernelBase.h"
#include "base/IKernelService.h"

#include <dlfcn.h>
#include <stdexcept>

// The built module, loaded as the gateway loads it, and unloaded at the end.
class LoadedModule {
public:
    LoadedModule() {
        if (m_pModule == nullptr) {
            throw std::runtime_error(dlerror());
        }
    }
    ~LoadedModule() {
        EPersistent::RemoveFactories(); // their code goes with the module
        dlclose(m_pModule);
    }
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;

    // An exported name; null when there is none.
    void* Symbol(const char* name) { return dlsym(m_pModule, name); }

    // A new service, by the exported entry; it belongs to the caller until its Stop. Its class is the module's own, with
    // the kernel service interface at its beginning.
    IKernelService* InitService(IKernelBase* kernel) {
        return reinterpret_cast<IKernelService* (*)(IKernelBase*)>(Symbol("kvLogFileInitService"))(kernel);
    }

private:
    void* m_pModule = dlopen(KVLOGFILE_PATH, RTLD_NOW | RTLD_LOCAL);
};
