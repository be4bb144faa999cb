#pragma once

#include "base/EString.h"
#include "base/IActionRegistry.h"
#include "base/IErrorReporter.h"
#include "base/IKernelBase.h"
#include "base/IKernelControl.h"
#include "base/INameService.h"
#include "base/IStringTable.h"
#include "gateway/Configuration.h"

#include <atomic>
#include <map>
#include <string>

class Outbox;
class IKernelService;

// What the module meets as its kernel: the look-up of interfaces, and most of them. The configuration and the outbox (which
// may be null) have to outlive the kernel, and the kernel the module.
class Kernel : public IKernelBase,
               public IErrorReporter,
               public IActionRegistry,
               public INameService,
               public IKernelControl,
               public IStringTable {
public:
    Kernel(const Configuration& configuration, Outbox* outbox);

    // The service that answers for its own interfaces, to whoever asks the kernel for them.
    void SetService(IKernelService* service) { m_pService = service; }
    void WantRestore() { m_bRestoreWanted = true; } // there are saved requests to take up
    bool HasRestoreFailed() const { return m_bRestoreFailed; }
    IAction* FindAction(const std::string& name) const; // null when nobody carries it out
    int Messages() const { return m_nMessages; }        // so far
    int Failures() const { return m_nFailures; }        // directories that could not be made so far

    // RC_NOT_FOUND, and null, for a number that nobody serves.
    EResult GetInterface(unsigned long id, void** out) override;

    // Puts the module's messages on stderr, with an English text.
    EResult Report(int level, int source, int messageNumber, const wchar_t* text) override;

    // The kernel's thread registers, before anybody asks.
    EResult RegisterAction(const wchar_t* name, IAction* action) override;

    EResult QualifyName(int id, EString* name) override;
    EResult ParseName(EString* name, int* id) override;
    EResult ParseNameText(const wchar_t* name, int* id) override;
    EResult GetUploadParameters(int id, EString* parameter1, EString* parameter2, EString* parameter3) override;
    EResult PreparePath(int id, EString* path) override;
    EResult CheckId(int id, bool* accepted) override;

    EResult IsRestoreWanted() override { return m_bRestoreWanted ? 1 : 0; }
    EResult Operation9(unsigned long failed) override {
        m_bRestoreFailed = failed != 0;
        return RC_OK;
    }
    EResult Operation6(unsigned long wanted) override {
        m_bRestoreWanted = wanted != 0;
        return RC_OK;
    }
    // The end of the notice: a gateway that restarted itself here would only meet the same file again.
    EResult Operation3() override { return RC_OK; }
    EResult Operation5() override { return RC_OK; }

    const wchar_t* GetString(unsigned long number, unsigned long reserved) override; // the headings of columns

private:
    const std::map<int, Target>& m_Identifiers;
    Outbox* m_pOutbox;
    IKernelService* m_pService = nullptr;
    std::map<std::string, IAction*> m_Actions;
    std::vector<EString> m_Headings;
    std::atomic<int> m_nMessages{0};
    std::atomic<int> m_nFailures{0};
    bool m_bRestoreWanted = false;
    bool m_bRestoreFailed = false;
};
