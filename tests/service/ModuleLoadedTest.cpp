#include "base/Contract.h"
#include "base/ETrigger.h"
#include "base/IAction.h"
#include "base/IKernelService.h"
#include "base/ILogFile.h"
#include "base/IRunTime.h"
#include "base/ITriggerListener.h"
#include "tests/kernel/TestKernel.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

// The module as a kernel meets it that was built elsewhere: by its exported names and its interfaces.

namespace {

class Loaded : public testing::Test, protected Workplace {
protected:
    ~Loaded() override {
        if (Global() != nullptr) {
            Global()->Stop();
        }
        EPersistent::RemoveFactories(); // their code goes with the module
        dlclose(m_pModule);
    }

    template <class T>
    T& Exported(const char* name) {
        return *reinterpret_cast<T*>(dlsym(m_pModule, name));
    }
    // A new service. Its class is the module's own, with the kernel service interface at its beginning.
    IKernelService* InitService(IKernelBase* kernel) {
        return Exported<IKernelService*(IKernelBase*)>("kvLogFileInitService")(kernel);
    }
    IKernelService* Global() { return Exported<IKernelService*>("g_pELogFile"); }

    static void* Ask(IKernelService* service, unsigned long id, EResult expected = 1) {
        void* out = service;
        EXPECT_EQ(service->GetInterface(id, &out), expected) << id;
        return out;
    }

    void* m_pModule = dlopen(KVLOGFILE_PATH, RTLD_NOW | RTLD_LOCAL);
    TestKernel m_Kernel;
    IKernelService* m_pService = InitService(&m_Kernel);
};

TEST_F(Loaded, TheServiceIsFoundByItsNamesAndEachInterfaceAtItsPlace) {
    EXPECT_EQ(Exported<std::int32_t>("LOGFILE_VERSION"), 1);
    EXPECT_STREQ(Exported<const wchar_t*>("LOGFILE_WR_FILE_NAME"), L"kvLogFile.warm");
    EXPECT_STREQ(Exported<const wchar_t*>("LOGFILE_XML_NAME"), L"kvLogFile");
    EXPECT_EQ(Global(), m_pService);

    // The sub-objects in their order: the service itself, then one pointer to a table each.
    auto* const runTime = static_cast<IRunTime*>(Ask(m_pService, IID_RUN_TIME));
    auto* const logFile = static_cast<ILogFile*>(Ask(m_pService, IID_LOG_FILE));
    auto* const action = static_cast<IAction*>(Ask(m_pService, IID_ACTION));
    EXPECT_EQ(Ask(m_pService, IID_KERNEL_SERVICE), m_pService);
    EXPECT_EQ(static_cast<void*>(runTime), reinterpret_cast<void**>(m_pService) + 1);
    EXPECT_LT(static_cast<void*>(runTime), static_cast<void*>(logFile));
    EXPECT_EQ(static_cast<void*>(action), reinterpret_cast<void**>(logFile) + 1);

    unsigned long component = 0;
    EXPECT_EQ(m_pService->GetComponentId(component), RC_OK);
    EXPECT_EQ(component, 29U);
    EXPECT_EQ(m_pService->Save(0), RC_OK);
    EXPECT_EQ(runTime->RTPreStart(), RC_NOT_PROVIDED);
    EXPECT_EQ(runTime->RTStart(), RC_NOT_PROVIDED);
    EXPECT_EQ(m_pService->PrepareToStart() | m_pService->PrepareToStart(), RC_OK) << "the second does nothing";
    std::string registered;
    for (const auto& [name, object] : m_Kernel.m_Actions.m_Registered) {
        registered += name + (object == action ? " " : "?");
    }
    EXPECT_EQ(registered, "DoLogSnapShotToFile DoLogAlarmToFile DoLogEventToFile DoLogDelivery DoRestartLogFile ");
    m_Kernel.m_Missing = {IID_NAME_SERVICE};
    EXPECT_EQ(m_pService->Restore(0, 0), RC_MISSING);
    m_Kernel.m_Missing.clear();
    EXPECT_EQ(m_pService->Restore(0, -1), RC_OK) << "-1 reads nothing: there is no section to be read";
    EXPECT_EQ(m_pService->AddService(nullptr, nullptr), RC_OK);

    EString name = L"old";
    int format = -1;
    EXPECT_EQ(logFile->GetAgentLogFile(name, format), RC_NOT_FOUND) << "no kernel log yet";
    EXPECT_TRUE(name.IsEmpty());
    EString event = ACTION_NAME_EVENT;
    GatewayType type{};
    EXPECT_EQ(action->GetGatewayType(event, &type), RC_OK);
    EXPECT_EQ(static_cast<int>(type), 2);
    EXPECT_EQ(action->GetGatewayType(name, &type), RC_OK);
    EXPECT_EQ(static_cast<int>(type), 0);
}

struct Listener final : ITriggerListener {
    EResult OnTrigger(unsigned long context, unsigned long value, void* data) override {
        m_Heard += std::to_string(context) + static_cast<const char*>(data) + std::to_string(value) + ' ';
        return m_pTrigger->Unsubscribe(m_pLeaving);
    }
    ETrigger* m_pTrigger;
    std::string m_Heard;
    void* m_pLeaving = nullptr;
};

TEST_F(Loaded, TheTriggerInformsInOrderThoseWhoAreStillSubscribed) {
    Listener listener;
    listener.m_pTrigger = reinterpret_cast<ETrigger*>(static_cast<void**>(Ask(m_pService, IID_ACTION)) + 1);
    EString name(L"Up");
    void* handle = nullptr;
    listener.m_pTrigger->Subscribe(&listener, name, name, 1, &listener.m_pLeaving); // leaves while it is informed
    listener.m_pTrigger->Subscribe(&listener, name, name, 2, &handle);
    char data[] = "d";
    listener.m_pTrigger->InformListeners(name, name, 5, data);
    listener.m_pTrigger->InformListeners(name, name, 6, data);
    EXPECT_EQ(listener.m_Heard, "1d5 2d5 2d6 ");
    EListener* found = nullptr;
    EXPECT_EQ(listener.m_pTrigger->FindListener(handle, found), RC_OK);
    EXPECT_EQ(listener.m_pTrigger->FindListener(nullptr, found), RC_NOT_FOUND);
    EXPECT_EQ(listener.m_pTrigger->Unsubscribe(&listener, name, name), RC_OK);
    EXPECT_EQ(listener.m_pTrigger->Unsubscribe(&listener, name, name), RC_NOT_FOUND);
}

TEST_F(Loaded, EveryWayToEndTheServiceEndsIt) {
    const auto start = [this] {
        IKernelService* const service = m_Kernel.m_Actions.m_Registered.empty() ? m_pService : InitService(&m_Kernel);
        EXPECT_EQ(service->PrepareToStart(), RC_OK);
        EXPECT_EQ(service->Start(), RC_OK);
        return service;
    };
    start()->Stop();
    EXPECT_EQ(Global(), nullptr);
    start()->Destroy();
    EXPECT_EQ(Global(), nullptr);
    delete reinterpret_cast<ETrigger*>(static_cast<void**>(Ask(start(), IID_ACTION)) + 1);
    EXPECT_EQ(Global(), nullptr);
    EXPECT_EQ(Ask(InitService(nullptr), IID_STRING_TABLE, RC_OK), nullptr);
}

TEST_F(Loaded, ALookUpEndsInsideALookUpAndWhenTheKernelThrows) {
    int asked = 0;
    m_Kernel.m_OnLookUp = [&](unsigned long /*id*/) {
        ++asked; // asking on would never end
        EXPECT_EQ(Ask(m_pService, IID_STRING_TABLE, RC_OK), nullptr);
        EXPECT_NE(Ask(m_pService, IID_LOG_FILE), nullptr);
    };
    EXPECT_EQ(Ask(m_pService, IID_NAME_SERVICE, RC_OK), static_cast<INameService*>(&m_Kernel.m_Names));
    EXPECT_EQ(Ask(m_pService, 4242, RC_MISSING), nullptr); // the kernel's own answer
    EXPECT_EQ(asked, 2);
    m_Kernel.m_OnLookUp = [](unsigned long /*id*/) { throw 1; };
    EXPECT_EQ(Ask(m_pService, IID_NAME_SERVICE, RC_NOT_MADE), nullptr);
    m_Kernel.m_OnLookUp = [](unsigned long /*id*/) {};
    EXPECT_EQ(Ask(m_pService, IID_NAME_SERVICE, RC_OK), static_cast<INameService*>(&m_Kernel.m_Names));
}

} // namespace
