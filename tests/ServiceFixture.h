#pragma once

#include "config/EFileSpec.h"
#include "service/ELogFile.h"
#include "service/Entry.h"
#include "tests/Workplace.h"
#include "tests/kernel/TestKernel.h"

#include <gtest/gtest.h>

// A service in this very program, with everything of it in reach, in a working directory of the test's own.
class ServiceTest : public testing::Test {
protected:
    ServiceTest() {
        setenv("TZ", "UTC", 1);
        tzset();
        Make();
    }
    ~ServiceTest() override {
        End();
        EPersistent::RemoveFactories();
    }

    void Make() { m_pService = kvLogFileInitService(&m_Kernel); }

    // As the kernel ends the service; what it deletes is gone then.
    void End() {
        if (m_pService != nullptr) {
            m_pService->PrepareToStop();
            m_pService->Stop();
            m_pService = nullptr;
        }
    }

    // Prepares, and restores these elements of the list; without a name service, unless an index is given.
    EResult Configure(const std::vector<std::string>& specs) {
        Workplace::WriteSection(specs);
        m_pService->PrepareToStart();
        return m_pService->Restore(0);
    }

    EFileSpec* Spec(const wchar_t* name = L"Log") { return m_pService->FindFileSpec(name); }

    Workplace m_Workplace;
    TestKernel m_Kernel;
    ELogFile* m_pService = nullptr;
};
