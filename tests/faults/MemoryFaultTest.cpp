#include "base/WARM_RESTART_STRUCT.h"
#include "intake/Actions.h"
#include "intake/ELogInfo.h"
#include "service/ELogFile.h"
#include "service/Entry.h"
#include "service/Guarded.h"
#include "tests/faults/Faults.h"
#include "tests/faults/Scenario.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

using Results = std::set<EResult>;

constexpr int BEFORE = 2; // rows that every log file has before the operation that memory fails in: a file is full
constexpr int ROW = 3;    // what that operation writes, if it writes
constexpr int AFTER = 4;  // and what is written when there is memory again

enum class Phase { Nothing, Constructed, Prepared, Configured, Working };

// A service that has reached a phase, and what the operations need, made beforehand.
struct Life {
    explicit Life(Phase phase) {
        Scenario::WriteSection();
        m_Kernel.m_EMail.m_Definitions["mail"] = "";
        m_Kernel.m_EMail.m_Notices.m_When = m_Kernel.m_Upload.m_Notices.m_When = TestNotices::When::Inside;
        m_pService = phase >= Phase::Constructed ? kvLogFileInitService(&m_Kernel) : nullptr;
        if (phase >= Phase::Prepared) {
            m_pService->PrepareToStart();
        }
        if (phase >= Phase::Configured) {
            m_pService->Restore(0);
        }
        if (phase >= Phase::Working) {
            m_pService->PreStart();
            Log(1, BEFORE);
            Work();
            m_bWritten = true;
        }
    }
    ~Life() {
        m_pService->PrepareToStop();
        m_pService->Stop();
        EPersistent::RemoveFactories();
    }
    Life(const Life&) = delete;
    Life& operator=(const Life&) = delete;

    void Log(int first, int last) {
        for (const FaultLog& log : Scenario::Logs()) {
            WriteRows(m_pService, log, first, last);
        }
    }

    // The next request, taken from the queue.
    std::unique_ptr<ELogInfo> Next() {
        return std::unique_ptr<ELogInfo>(static_cast<ELogInfo*>(m_pService->m_LogQueue.RemoveHead()));
    }

    // Processes what is queued, as the worker does; the last result.
    EResult Work() {
        EResult result = RC_OK;
        while (const auto request = Next()) {
            result = Guarded([&] { return m_pService->ProcessLogFile(request.get()); });
        }
        return result;
    }

    // There is memory again: the service takes up its life where it stands, logs, and delivers.
    void GoOn() {
        m_pService = m_pService == nullptr ? kvLogFileInitService(&m_Kernel) : m_pService;
        m_pService->PrepareToStop(); // what follows processes requests in this thread, and nobody else may
        EXPECT_EQ(m_pService->PrepareToStart(), RC_OK);
        if (m_pService->m_FileSpecs.GetCount() < static_cast<int>(Scenario::Logs().size()) ||
            m_pService->m_DateFormat.IsEmpty() || m_pService->m_TimeFormat.IsEmpty()) {
            EXPECT_EQ(m_pService->Restore(0), RC_OK);
        }
        EXPECT_EQ(m_pService->PreStart(), RC_OK);
        Log(AFTER, AFTER);
        Work();
        for (const FaultLog& log : Scenario::Logs()) {
            EXPECT_EQ(Ask(m_pService, log, ACTION_NAME_DELIVERY), log.IsDelivered() ? RC_OK : RC_NO_ACTION);
        }
        EXPECT_EQ(Work(), RC_OK);
        EXPECT_TRUE(m_pService->m_Deliveries.IsEmpty());
        EXPECT_EQ(m_Kernel.m_EMail.m_Definitions["mail"], "");
        EXPECT_EQ(m_Kernel.m_EMail.m_nRecords, 0);
    }

    Workplace m_Workplace;
    TestKernel m_Kernel;
    ELogFile* m_pService = nullptr;
    bool m_bWritten = false; // the rows before the operation, and its end has not deleted any
    EONEVENTSTRUCT m_Record = MakeRecord(L"r103");
    EString m_Name = L"comma";
    EString m_Action = ACTION_NAME_ALARM;
    WARM_RESTART_STRUCT m_Sections{};
    EString m_AgentFile;
    int m_nAgentFormat = 0;
};

struct Step {
    const char* m_pszName; // of a log file: ROW is written to it, or it is delivered
    Phase m_Phase;
    void (*m_pPrepare)(Life&, const FaultLog&);
    EResult (*m_pOperate)(Life&);
    Results m_Results; // of the failures of all allocations and of none: exactly these
};

void Nothing(Life&, const FaultLog&) {}

void Queue(Life& life, const FaultLog& log) {
    if (log.IsDelivered()) {
        Ask(life.m_pService, log, ACTION_NAME_DELIVERY);
    } else {
        WriteRows(life.m_pService, log, ROW, ROW);
    }
}

void QueueAll(Life& life, const FaultLog&) {
    life.Log(ROW, ROW);
}

// Also leaves an early event to be written to it.
void MakeKernelLog(Life& life, const FaultLog&) {
    life.m_pService->ReportEvent(&life.m_Record);
    life.m_pService->Start();
    life.m_pService->PrepareToStop();
}

// Leaves requests in the file of saved ones, and none in the queue.
void SaveAll(Life& life, const FaultLog&) {
    life.Log(ROW, ROW);
    life.m_pService->WarmRestart(1, nullptr);
    while (life.Next() != nullptr) {
    }
    life.m_Kernel.m_Control.m_bRestoreWanted = true;
}

EResult Construct(Life& life) {
    try {
        life.m_pService = kvLogFileInitService(&life.m_Kernel);
        return RC_OK;
    } catch (const std::bad_alloc&) {
        return g_pELogFile == nullptr ? RC_NOT_MADE : RC_MISSING;
    }
}

EResult PreStart(Life& life) {
    const EResult result = life.m_pService->PreStart();
    const bool complete = life.m_pService->m_LogQueue.GetCount() == static_cast<int>(Scenario::Logs().size());
    EXPECT_EQ(life.m_Kernel.m_Reporter.Count(138), complete ? 0 : 1);
    return result;
}

EResult End(Life& life) {
    life.m_bWritten = false; // what waits to be delivered goes with the service
    return std::exchange(life.m_pService, nullptr)->Stop();
}

EResult Invoke(Life& life) {
    life.m_Record.m_nIdentifier = -1; // the one of a log file whose name carries none
    return life.m_pService->Invoke(life.m_Action, life.m_Name, nullptr, 1, &life.m_Record, nullptr);
}

EResult ListSections(Life& life) {
    const EResult result = life.m_pService->WarmRestart(3, &life.m_Sections);
    delete[] life.m_Sections.m_pszSections;
    return result;
}

EResult Work(Life& life) {
    return life.Work();
}

const Results OR_NOT_MADE{RC_OK, RC_NOT_MADE};
const Results OF_DELIVERY{RC_OK, RC_MISSING, RC_NOT_MADE};

// clang-format off
const Step STEPS[] = {
    {"Construct", Phase::Nothing, Nothing, Construct, OR_NOT_MADE},
    {"PrepareToStart", Phase::Constructed, Nothing, [](Life& it) { return it.m_pService->PrepareToStart(); }, OR_NOT_MADE},
    {"Restore", Phase::Prepared, Nothing, [](Life& it) { return it.m_pService->Restore(0); }, OR_NOT_MADE},
    {"PreStart", Phase::Configured, SaveAll, PreStart, {RC_OK}},
    {"Start", Phase::Working, Nothing, [](Life& it) { return it.m_pService->Start(); }, OR_NOT_MADE},
    {"Stop", Phase::Working, QueueAll, End, {RC_OK}},
    {"EarlyEvent", Phase::Working, Nothing, [](Life& it) { return it.m_pService->ReportEvent(&it.m_Record); }, OR_NOT_MADE},
    {"Event", Phase::Working, MakeKernelLog, [](Life& it) { return it.m_pService->ReportEvent(&it.m_Record); }, OR_NOT_MADE},
    {"LogAlarm", Phase::Working, Nothing, [](Life& it) { return it.m_pService->LogAlarm(it.m_Name, &it.m_Record); }, OR_NOT_MADE},
    {"Invoke", Phase::Working, Nothing, Invoke, OR_NOT_MADE},
    {"AgentLog", Phase::Working, [](Life& it, const FaultLog& log) { MakeKernelLog(it, log); it.m_pService->ReportEvent(&it.m_Record); },
     [](Life& it) { return it.m_pService->GetAgentLogFile(it.m_AgentFile, it.m_nAgentFormat); }, OR_NOT_MADE},
    {"plain", Phase::Working, Queue, Work, OR_NOT_MADE},
    {"comma", Phase::Working, Queue, Work, OR_NOT_MADE},
    {"html", Phase::Working, Queue, Work, OR_NOT_MADE},
    {"upKept", Phase::Working, Queue, Work, OF_DELIVERY},
    {"upDeleted", Phase::Working, Queue, Work, OF_DELIVERY},
    {"mailKept", Phase::Working, Queue, Work, OF_DELIVERY},
    {"mailDeleted", Phase::Working, Queue, Work, OF_DELIVERY},
    {"Save", Phase::Working, QueueAll, [](Life& it) { return it.m_pService->WarmRestart(1, nullptr); }, OR_NOT_MADE},
    {"ListSections", Phase::Working, Nothing, ListSections, OR_NOT_MADE},
};
// clang-format on

class MemoryFaultTest : public testing::TestWithParam<Step> {
protected:
    static std::set<int> RowsOf(const FaultLog& log, const Life& life) {
        const FaultOutcome outcome = log.OutcomeOf(life.m_Kernel);
        std::set<int> rows(outcome.m_Kept.begin(), outcome.m_Kept.end());
        rows.insert(outcome.m_Sent.begin(), outcome.m_Sent.end());
        return rows;
    }

    static bool IsStepOf(const FaultLog& log) { return GetParam().m_pszName == log.m_Name; }

    // The step's log file, or the first one.
    static const FaultLog& StepsLog() {
        const auto found = std::ranges::find_if(Scenario::Logs(), IsStepOf);
        return found != Scenario::Logs().end() ? *found : Scenario::Logs().front();
    }

    // A delivered file is kept, was sent, or waits for the next delivery. Only one that is not kept is gone when its
    // sending could not be started.
    static void CheckDelivery(const Life& life, EResult result) {
        const FaultLog& log = StepsLog();
        if (IsStepOf(log) && log.IsDelivered() && (log.m_nKeepCopy != 0 || result != RC_MISSING)) {
            EXPECT_EQ(RowsOf(log, life), (std::set<int>{1, BEFORE}));
        }
    }

    // Every file is whole; what was written before and afterwards is there, or was sent.
    static void Check(const Life& life, EResult result) {
        for (const FaultLog& log : Scenario::Logs()) {
            SCOPED_TRACE(log.m_Name);
            const std::set<int> rows = RowsOf(log, life);
            EXPECT_EQ(rows.count(AFTER), 1U);
            if (log.IsDelivered() && life.m_bWritten && !IsStepOf(log)) {
                EXPECT_EQ(rows.count(1) + rows.count(BEFORE), 2U);
            }
            if (IsStepOf(log) && !log.IsDelivered()) {
                EXPECT_EQ(rows.count(ROW), Failed(result) ? 0U : 1U);
            }
        }
    }
};

} // namespace

// Lets each allocation of an operation fail in turn.
TEST_P(MemoryFaultTest, IsToldAndGoesOn) {
    setenv("TZ", "UTC", 1);
    tzset();
    Results results;
    bool struck = true;
    int runs = -1;
    for (int nth = 1; struck && !HasFailure(); ++nth, ++runs) {
        SCOPED_TRACE("allocation " + std::to_string(nth));
        Life life(GetParam().m_Phase);
        GetParam().m_pPrepare(life, StepsLog());
        EResult result = RC_OK;
        {
            const Fault fault(Call::Allocate, nth);
            result = GetParam().m_pOperate(life);
            struck = Fault::HasStruck();
        }
        results.insert(result);
        CheckDelivery(life, result);
        life.GoOn();
        Check(life, result);
    }
    EXPECT_EQ(results, GetParam().m_Results);
    RecordProperty("runs", runs);
    std::printf("fault runs: %d\n", runs);
}

INSTANTIATE_TEST_SUITE_P(Steps, MemoryFaultTest, testing::ValuesIn(STEPS),
                         [](const auto& test) { return std::string(test.param.m_pszName); });
