#pragma once

#include "base/ELock.h"
#include "base/Messages.h"
#include "config/EFileSpec.h"
#include "intake/ELogInfo.h"
#include "service/ELogFile.h"
#include "service/Entry.h"
#include "tests/kernel/TestKernel.h"

#include <gtest/gtest.h>

// A service in this very program, with everything of it in reach, in a working directory of the test's own.
class Service : protected Workplace {
protected:
    using Texts = std::vector<std::string>;
    using Messages = std::vector<ReportedMessage>;

    void Make() { m_pService = kvLogFileInitService(&m_Kernel); }

    // As the kernel ends the service; what it deletes is gone then.
    void End() {
        if (m_pService != nullptr) {
            m_pService->PrepareToStop();
            m_pService->Stop();
            m_pService = nullptr;
        }
    }

    // Prepares, and restores these elements of the list; with a name service if an index is given.
    EResult Configure(const Texts& specs, int index = -1) {
        WriteSection(specs);
        return Restore(index);
    }
    EResult Restore(int index = -1) {
        m_pService->PrepareToStart();
        return index == -1 ? m_pService->Restore(0) : m_pService->RTRestore(0, index);
    }
    EResult StartAnew(const Texts& specs, int index = -1) {
        End();
        Make();
        return Configure(specs, index);
    }

    EFileSpec* Spec(const wchar_t* name = L"Log") { return m_pService->FindFileSpec(name); }

    EResult Alarm(const wchar_t* text, EString name = L"Log") {
        EONEVENTSTRUCT record = MakeRecord(L"N", text);
        return m_pService->LogAlarm(name, &record);
    }
    EResult Event(const wchar_t* text) {
        EONEVENTSTRUCT record = MakeRecord(L"N", text);
        return m_pService->ReportEvent(&record);
    }
    EResult Invoke(EString action, EString name, EONEVENTSTRUCT* records, unsigned long count = 1) {
        return m_pService->Invoke(action, name, nullptr, count, records, nullptr);
    }

    EResult Process(ActionType action, const EONEVENTSTRUCT* records = nullptr, unsigned long count = 1,
                    const wchar_t* name = L"Log") {
        ELogInfo request(Spec(name), action, count, records);
        return m_pService->ProcessLogFile(&request);
    }

    // Lets the worker write what waits, and stops it.
    void WriteAll() {
        m_pService->Start();
        EXPECT_TRUE(Eventually([&] { return Queued().empty(); }));
        m_pService->PrepareToStop();
    }

    // The waiting requests, oldest first, each as the texts of its records: "first,second".
    Texts Queued() {
        Texts queued;
        const ELock lock(m_pService->m_QueueMutex, MUTEX_NAME);
        for (auto at = m_pService->m_LogQueue.GetHeadPosition(); at != nullptr;) {
            const auto* request = static_cast<ELogInfo*>(m_pService->m_LogQueue.GetNext(at));
            std::string texts;
            for (std::uint32_t i = 0; i < request->m_nEventCount; ++i) {
                texts += (i > 0 ? "," : "") + Narrow(request->m_pEvents[i].m_pszText);
            }
            queued.push_back(texts);
        }
        return queued;
    }

    static std::string EventRow(const std::string& text) { return "01-31-2024 13:05:09.042 S N: " + text + '\n'; }

    TestKernel m_Kernel;
    ELogFile* m_pService = nullptr;
};

class ServiceTest : public testing::Test, protected Service {
protected:
    ServiceTest() { Make(); }
    ~ServiceTest() override {
        End();
        EPersistent::RemoveFactories();
    }
};
