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

// What the module meets as its kernel: the look-up of interfaces, and most of them. The configuration and the outbox have
// to outlive the kernel, and the kernel the module.
class Kernel : public IKernelBase,
               public IErrorReporter,
               public IActionRegistry,
               public INameService,
               public IKernelControl,
               public IStringTable {
public:
    Kernel(const Configuration& configuration, Outbox& outbox);

    // The service is asked for the interfaces that are its own.
    void SetService(IKernelService* service) { m_pService = service; }
    IAction* FindAction(const std::string& name) const; // null when nobody carries it out
    int Messages() const { return m_nMessages; }        // so far

    // RC_NOT_FOUND, and null, for a number that nobody serves.
    EResult GetInterface(unsigned long id, void** out) override;

    // Puts the module's messages on stderr, with an English text.
    EResult Report(int level, int source, int messageNumber, const wchar_t* text) override;

    // On the kernel's thread, before the first FindAction.
    EResult RegisterAction(const wchar_t* name, IAction* action) override;

    EResult QualifyName(int id, EString* name) override;
    EResult ParseName(EString* name, int* id) override;
    EResult ParseNameText(const wchar_t* name, int* id) override;
    EResult GetUploadParameters(int id, EString* parameter1, EString* parameter2, EString* parameter3) override;
    EResult PreparePath(int /*id*/, EString* /*path*/) override {
        return RC_OK;
    } // the gateway has made all directories

    // The gateway reports saved requests again itself: the service restores none, and calls neither CheckId
    // nor Operation3 to 9.
    EResult IsRestoreWanted() override { return 0; }
    EResult CheckId(int /*id*/, bool* accepted) override {
        *accepted = true;
        return RC_OK;
    }
    EResult Operation9(unsigned long /*failed*/) override { return RC_OK; }
    EResult Operation6(unsigned long /*wanted*/) override { return RC_OK; }
    EResult Operation3() override { return RC_OK; }
    EResult Operation5() override { return RC_OK; }

    const wchar_t* GetString(unsigned long number, unsigned long reserved) override; // the headings of columns

private:
    const std::map<int, Target>& m_Identifiers;
    Outbox& m_Outbox;
    IKernelService* m_pService = nullptr;
    std::map<std::string, IAction*> m_Actions;
    std::vector<EString> m_Headings;
    std::atomic<int> m_nMessages{0};
};
