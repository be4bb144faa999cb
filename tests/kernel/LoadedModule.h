#pragma once

#include "base/IAction.h"
#include "base/IKernelBase.h"
#include "base/IKernelService.h"
#include "base/ILogFile.h"

// The built module, loaded as the gateway loads it, and unloaded at the end.
class LoadedModule {
public:
    LoadedModule(); // throws std::runtime_error
    ~LoadedModule();
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;

    // A new service, by the exported entry; it belongs to the caller until its Stop.
    IKernelService* InitService(IKernelBase* kernel);
    // An exported name; null when there is none.
    void* Symbol(const char* name);

    static ILogFile* LogFile(IKernelService* service);
    static IAction* Action(IKernelService* service);

private:
    void* m_pModule;
};
