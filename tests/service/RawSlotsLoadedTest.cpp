#include "base/ETrigger.h"
#include "base/ITriggerListener.h"
#include "base/WARM_RESTART_STRUCT.h"
#include "tests/Workplace.h"
#include "tests/kernel/LoadedModule.h"
#include "tests/kernel/TestKernel.h"

#include <gtest/gtest.h>

// The module as a gateway meets it that was built elsewhere: exported names, and operations by their number in a table.

namespace {

// Calls the operation of this number, counted from 1. The object is the first argument, as the platform's compilers pass
// it; a virtual destructor takes two numbers.
template <class... Arguments>
EResult Call(void* object, int number, Arguments... arguments) {
    void* operation = (*static_cast<void***>(object))[number - 1];
    return reinterpret_cast<EResult (*)(void*, Arguments...)>(operation)(object, arguments...);
}

void* Ask(void* service, unsigned long id, EResult expected) {
    void* out = service;
    EXPECT_EQ(Call(service, 1, id, &out), expected) << id;
    return out;
}

class RawSlots : public testing::Test {
protected:
    void* Global() { return *static_cast<void**>(m_Module.Symbol("g_pELogFile")); }

    Workplace m_Workplace;
    TestKernel m_Kernel;
    LoadedModule m_Module;
    void* m_pService = m_Module.InitService(&m_Kernel);
};

TEST_F(RawSlots, EveryOperationStandsAtItsNumber) {
    EXPECT_EQ(*static_cast<std::int32_t*>(m_Module.Symbol("LOGFILE_VERSION")), 1);
    EXPECT_STREQ(*static_cast<const wchar_t**>(m_Module.Symbol("LOGFILE_WR_FILE_NAME")), L"kvLogFile.warm");
    EXPECT_STREQ(*static_cast<const wchar_t**>(m_Module.Symbol("LOGFILE_XML_NAME")), L"kvLogFile");
    EXPECT_EQ(Global(), m_pService);

    // The sub-objects in their order: the service itself, then one pointer to a table each.
    void* runTime = Ask(m_pService, IID_RUN_TIME, 1);
    void* logFile = Ask(m_pService, IID_LOG_FILE, 1);
    void* action = Ask(m_pService, IID_ACTION, 1);
    void* trigger = static_cast<void**>(action) + 1;
    EXPECT_EQ(Ask(m_pService, IID_KERNEL_SERVICE, 1), m_pService);
    EXPECT_EQ(runTime, static_cast<void*>(static_cast<void**>(m_pService) + 1));
    EXPECT_LT(runTime, logFile);
    EXPECT_EQ(action, static_cast<void*>(static_cast<void**>(logFile) + 1));

    unsigned long component = 0;
    EXPECT_EQ(Call(m_pService, 12, &component), RC_OK);
    EXPECT_EQ(component, 29U);
    EXPECT_EQ(Call(m_pService, 2, 0UL), RC_OK); // Save
    for (const auto& [object, first] : {std::pair{m_pService, 16}, std::pair{runTime, 1}}) {
        EXPECT_EQ(Call(object, first), 0xC0000009);     // RTPreStart
        EXPECT_EQ(Call(object, first + 1), 0xC0000009); // RTStart
    }

    EXPECT_EQ(Call(m_pService, 5), RC_OK); // PrepareToStart
    std::string registered;
    for (const auto& [name, object] : m_Kernel.m_Actions.m_Registered) {
        registered += name + (object == action ? " " : "?");
    }
    EXPECT_EQ(registered, "DoLogSnapShotToFile DoLogAlarmToFile DoLogEventToFile DoLogDelivery DoRestartLogFile ");
    m_Kernel.m_Missing = {IID_NAME_SERVICE};
    EXPECT_EQ(Call(m_pService, 4, 0UL, 0), 0xC0000002); // Restore with an index
    m_Kernel.m_Missing.clear();
    EXPECT_EQ(Call(m_pService, 4, 0UL, -1), RC_OK);                // -1 reads nothing: there is no section to be read
    EXPECT_EQ(Call(m_pService, 4, 0UL, 0), RC_SECTION_NOT_FOUND);  // the index arrives in its place
    EXPECT_EQ(Call(m_pService, 18, 0UL, 0), RC_SECTION_NOT_FOUND); // RTRestore, in the service's table and in its own
    Workplace::WriteSection({SpecItems{.m_nDelivery = 2}});
    EXPECT_EQ(Call(runTime, 3, 0UL, 0), RC_OK);

    EString name = L"Log@0";
    EString fileName;
    int format = -1;
    EONEVENTSTRUCT record = MakeRecord();
    EXPECT_EQ(Call(logFile, 4, &fileName, &format), 0xC0000005); // GetAgentLogFile: no kernel log yet
    EXPECT_EQ(Call(m_pService, 6), RC_OK);                       // PreStart
    EXPECT_EQ(Call(m_pService, 7), RC_OK);                       // Start
    EXPECT_EQ(Call(logFile, 4, &fileName, &format), RC_OK);
    EXPECT_EQ(format, 0);
    EXPECT_EQ(Call(m_pService, 8), RC_OK); // PrepareToStop

    EXPECT_EQ(Call(logFile, 1, nullptr), 0xC1150003); // ReportEvent
    EXPECT_EQ(Call(logFile, 1, &record), RC_OK);
    EXPECT_EQ(Workplace::Tree(), (std::vector<std::string>{"Kavro.log", "Spool/"}));
    EXPECT_EQ(Call(logFile, 2, &name, &record, 1UL), RC_OK); // LogSnapShot
    EXPECT_EQ(Call(logFile, 3, &name, &record), RC_OK);      // LogAlarm
    EString event = L"DoLogEventToFile";
    EXPECT_EQ(Call(action, 1, &event, &name, nullptr, 1UL, &record, nullptr), RC_OK); // Invoke
    for (const auto& [object, number] : {std::pair{action, 2}, std::pair{trigger, 3}}) {
        int type = -1; // GetGatewayType, of the action and of the trigger
        EXPECT_EQ(Call(object, number, &event, &type), RC_OK);
        EXPECT_EQ(type, 2);
    }

    WARM_RESTART_STRUCT info;
    EXPECT_EQ(Call(m_pService, 13, std::int32_t{1}, nullptr), RC_OK); // WarmRestart
    EXPECT_EQ(ReadWhole("kvLogFile.warm").substr(0, 4), std::string("\3\0\0\0", 4));
    EXPECT_EQ(Call(m_pService, 13, std::int32_t{3}, &info), RC_OK);
    delete[] info.m_pszSections;
    EXPECT_EQ(Call(m_pService, 9), RC_OK); // Stop
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

TEST_F(RawSlots, TheTriggerInformsInOrderThoseWhoAreStillSubscribed) {
    Listener listener;
    listener.m_pTrigger = reinterpret_cast<ETrigger*>(static_cast<void**>(Ask(m_pService, IID_ACTION, 1)) + 1);
    EString name(L"Up");
    void* handle = nullptr;
    listener.m_pTrigger->Subscribe(&listener, name, name, 1, &listener.m_pLeaving); // leaves while it is informed
    listener.m_pTrigger->Subscribe(&listener, name, name, 2, &handle);
    char data[] = "d";
    listener.m_pTrigger->InformListeners(name, name, 5, data);
    listener.m_pTrigger->InformListeners(name, name, 6, data);
    EXPECT_EQ(listener.m_Heard, "1d5 2d5 2d6 ");
    Call(m_pService, 9); // Stop
}

// Whichever way the kernel takes, the worker ends, and nothing finds the service afterwards.
TEST_F(RawSlots, EveryWayToEndTheServiceEndsIt) {
    const auto started = [](void* service) {
        EXPECT_EQ(Call(service, 5), RC_OK); // PrepareToStart
        EXPECT_EQ(Call(service, 7), RC_OK); // Start
        return service;
    };
    Call(started(m_pService), 9); // Stop
    EXPECT_EQ(Global(), nullptr);
    Call(started(m_Module.InitService(&m_Kernel)), 11); // Destroy
    EXPECT_EQ(Global(), nullptr);
    void* action = Ask(started(m_Module.InitService(&m_Kernel)), IID_ACTION, 1);
    Call(static_cast<void**>(action) + 1, 5); // the trigger's destructor, the one that frees
    EXPECT_EQ(Global(), nullptr);
    void* alone = m_Module.InitService(nullptr);
    EXPECT_EQ(Ask(alone, IID_STRING_TABLE, RC_OK), nullptr);
    Call(alone, 9);
}

TEST_F(RawSlots, ALookUpEndsInsideALookUpAndWhenTheKernelThrows) {
    int asked = 0;
    m_Kernel.m_OnLookUp = [&](unsigned long /*id*/) {
        ++asked; // asking on would never end
        EXPECT_EQ(Ask(m_pService, IID_STRING_TABLE, RC_OK), nullptr);
        EXPECT_NE(Ask(m_pService, IID_LOG_FILE, 1), nullptr);
    };
    EXPECT_EQ(Ask(m_pService, IID_NAME_SERVICE, RC_OK), static_cast<INameService*>(&m_Kernel.m_Names));
    EXPECT_EQ(Ask(m_pService, 4242, RC_MISSING), nullptr); // the kernel's own answer
    EXPECT_EQ(asked, 2);
    m_Kernel.m_OnLookUp = [](unsigned long /*id*/) { throw 1; };
    EXPECT_EQ(Ask(m_pService, IID_NAME_SERVICE, RC_NOT_MADE), nullptr);
    m_Kernel.m_OnLookUp = nullptr;
    EXPECT_EQ(Ask(m_pService, IID_NAME_SERVICE, RC_OK), static_cast<INameService*>(&m_Kernel.m_Names));
    Call(m_pService, 9);
}

} // namespace
