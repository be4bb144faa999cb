#pragma once

#include "base/EString.h"
#include "base/IActionRegistry.h"
#include "base/IErrorReporter.h"
#include "base/IKernelBase.h"
#include "base/IKernelControl.h"
#include "base/IStringTable.h"
#include "gateway/NameService.h"

#include <array>
#include <atomic>
#include <map>
#include <string>

class ETransports;
class IKernelService;

// Puts the module's messages on stderr, with an English text.
class ErrorReporter : public IErrorReporter {
public:
    EResult Report(int level, int source, int messageNumber, const wchar_t* text) override;
    int Count() const { return m_nCount; } // messages so far

private:
    std::atomic<int> m_nCount{0};
};

// Remembers who carries out which action. The kernel's thread registers, before anybody asks.
class ActionRegistry : public IActionRegistry {
public:
    EResult RegisterAction(const wchar_t* name, IAction* action) override;
    IAction* Find(const std::string& name) const; // null when nobody does

private:
    std::map<std::string, IAction*> m_Actions;
};

// The texts that the module asks for: the headings of its columns.
class StringTable : public IStringTable {
public:
    explicit StringTable(const std::array<std::string, Configuration::HEADINGS>& headings);
    const wchar_t* GetString(unsigned long number, unsigned long reserved) override;

private:
    std::array<EString, Configuration::HEADINGS> m_Headings;
};

// Says whether there are saved requests to take up, and hears when that has failed.
class KernelControl : public IKernelControl {
public:
    EResult IsRestoreWanted() override { return m_bRestoreWanted ? 1 : 0; }
    EResult Operation9(unsigned long failed) override;
    EResult Operation6(unsigned long wanted) override;
    // The end of the notice: a gateway that restarted itself here would only meet the same file again.
    EResult Operation3() override { return RC_OK; }
    EResult Operation5() override { return RC_OK; }

    void WantRestore(bool wanted) { m_bRestoreWanted = wanted; }
    bool HasFailed() const { return m_bFailed; }

private:
    bool m_bRestoreWanted = false;
    bool m_bFailed = false;
};

// What the module meets as its kernel. It has to outlive the module, and the transports (which may be null) the kernel.
class Kernel : public IKernelBase {
public:
    Kernel(const Configuration& configuration, ETransports* transports);

    // RC_NOT_FOUND, and null, for a number that nobody serves.
    EResult GetInterface(unsigned long id, void** out) override;

    // The service that answers for its own interfaces, to whoever asks the kernel for them.
    void SetService(IKernelService* service) { m_pService = service; }

    ErrorReporter m_ErrorReporter;
    ActionRegistry m_Actions;
    NameService m_NameService;
    KernelControl m_Control;
    StringTable m_StringTable;

private:
    ETransports* m_pTransports;
    IKernelService* m_pService = nullptr;
};
