#pragma once

#include "base/Contract.h"
#include "base/EByteArray.h"
#include "base/EMAILSTATUS.h"
#include "base/EMapStringToPtr.h"
#include "base/EMutex.h"
#include "base/ENotifyTrigger.h"
#include "base/EPersistentString.h"
#include "base/EPtrList.h"
#include "base/ESingleEvent.h"
#include "base/EString.h"
#include "base/EStringArray.h"
#include "base/EThread.h"
#include "base/ETime.h"
#include "base/ETimeStamp.h"
#include "base/IAction.h"
#include "base/ILogFile.h"
#include "base/ISMListener.h"
#include "base/ThreadSafety.h"
#include "service/CKernelService.h"

#include <atomic>
#include <cstdint>

class CDataValue;
class EFileIO;
class EFileSpec;
class ELogFileDeliverySpec;
class ELogInfo;
class EONEVENTSTRUCT;
class IEMailService;
class IErrorReporter;
class IKernelControl;
class IStringTable;
class IUploadService;
struct EMailMessage;

// Every mutex of the service carries this name.
constexpr const wchar_t* MUTEX_NAME = L"Unknown";

// The log file service: turns reported events, alarms and snapshots into rows of configured log files.
//
// Threads. The kernel's thread runs the lifecycle, Restore, WarmRestart and the destructor, one call at a time. Any
// thread may report (ILogFile, IAction). One worker thread processes queued requests while the service is started;
// before and after, ReportEvent processes event rows itself, in the reporting thread. Requests are processed by one
// thread at a time. Completion notices come on any thread.
//
// Locks. m_FileSpecMutex, m_QueueMutex and m_DeliveryMutex are never held together; a completion takes m_DeliveryMutex
// while it holds m_CompletionMutex. The compiler checks what each guards; docs/threads.md shows who takes which.
//
// Errors. Interface operations return an EResult and throw nothing. The operations on files return 1 for success,
// otherwise 0; a row that cannot be written is dropped.
class ELogFile : public CKernelService, public ILogFile, public IAction, public ENotifyTrigger, public ISMListener {
public:
    // service/: construction, destruction, interfaces. Throws when memory runs out.
    explicit ELogFile(IKernelBase* kernel);
    ~ELogFile() override;
    EResult GetInterface(unsigned long id, void** out) override;
    EResult GetComponentId(unsigned long& id) override;
    void Initialize(); // takes the column headings from the string table

    // service/: lifecycle.
    EResult PrepareToStart() override;
    EResult PreStart() override;
    EResult Start() override;
    EResult PrepareToStop() override;
    EResult Stop() override;

    // config/: the service's section and the registry of file specifications.
    using CKernelService::Restore;
    EResult Restore(unsigned long section) override;
    EResult Save(unsigned long section) override;
    EResult GetAgentLogFile(EString& fileName, int& format) override;
    EResult GetGatewayType(EString& actionName, GatewayType* type) override;
    EFileSpec* FindFileSpec(const wchar_t* name); // or null; valid as long as the service

    // intake/: reports and actions, from any thread.
    EResult ReportEvent(EONEVENTSTRUCT* record) override;
    EResult LogSnapShot(EString& name, EONEVENTSTRUCT* records, unsigned long count) override;
    EResult LogAlarm(EString& name, EONEVENTSTRUCT* record) override;
    EResult Invoke(EString& actionName, EString& name, ETypedPtrList<EPtrList, EAttribute*>* attributes,
                   unsigned long count, EONEVENTSTRUCT* records, IErrorListener* listener) override;

    // intake/: the queue. Takes ownership of the request, and drops it when QUEUE_LIMIT requests wait. The caller wakes
    // the worker afterwards.
    void PushLogInfo(ELogInfo* info) KV_THREAD_SAFETY(requires_capability(m_QueueMutex));
    std::uint32_t GetDeliveryId();
    // The time of a snapshot row: the record's when it is set, otherwise the value's.
    ETimeStamp GetEventTimeStamp(const EONEVENTSTRUCT* record, const CDataValue* value);

    // intake/: the worker thread, and the processing of one request, which the caller keeps.
    static void* LogFileThreadStub(void* service);
    unsigned long LogFileThread();
    EResult ProcessLogFile(ELogInfo* info);

    // files/: for the thread that processes requests. The two texts are appended to `out`.
    EResult FormatDateStr(ETime& time, EString& out);
    EResult FormatTimeStr(ETime& time, EString& out);
    // The name of a file of the set, with or without its directory. Also sets m_CurrentFile.
    void CalcFileName(EFileSpec* spec, int index, const ETimeStamp* time, bool withPath, EString& name);
    void RotateFiles(EFileSpec* spec, const ETimeStamp* previous);
    void DeleteFiles(EFileSpec* spec);
    int StartFile(EFileSpec* spec);
    int StopFile(EFileSpec* spec);
    int RestartFile(EFileSpec* spec);
    void WriteToFile(EFileSpec* spec, const EStringArray* row);

    // delivery/: sends a job of m_Deliveries. Non-zero when the sending was started; the job may already be freed when
    // the call returns.
    EResult DeliverEMail(ELogFileDeliverySpec* job, ELogInfo* info);
    EResult DeliverESFile(ELogFileDeliverySpec* job);
    static void OnEMailComplete(EMAILSTATUS status, void* job);
    void OnUploadComplete(unsigned long job, unsigned long status) override;

    // warm/: requests across a warm restart.
    EResult WarmRestart(WR_OPERATION operation, WARM_RESTART_STRUCT* info) override;
    EResult SavePendingLogEntries(const EString& path);
    EResult RestorePendingLogEntries(const EString& path);
    EResult SaveLogInfo(EFileIO* file, ELogInfo* info);
    EResult RestoreLogInfo(EFileIO* file);

    IErrorReporter* m_pErrorReporter = nullptr; // interface 4106; interfaces are not owned
    IUploadService* m_pUploadService = nullptr; // 4149; null: the gateway has none
    IEMailService* m_pEMailService = nullptr;   // 4117; null: the gateway has none

private:
    IKernelControl* m_pKernelControl = nullptr; // 4138
    IStringTable* m_pStringTable = nullptr;     // 4142

public:
    std::atomic<EFileSpec*> m_pKernelLogSpec{nullptr}; // named "KernelLog"; owned by m_FileSpecs
    EMapStringToPtr m_FileSpecs KV_THREAD_SAFETY(guarded_by(m_FileSpecMutex)){4}; // name to EFileSpec*, owned
    EMutex m_FileSpecMutex{MUTEX_NAME};
    EPersistentString m_TimeFormat;
    EPersistentString m_DateFormat;
    std::atomic<bool> m_bRunning{false}; // false: the worker ends

private:
    EThread m_LogThread{4096, false};
    ESingleEvent m_WakeEvent;

public:
    EMutex m_QueueMutex{MUTEX_NAME};
    // EONEVENTSTRUCT*, owned: reported before there was a kernel log, or during Restore.
    EPtrList m_EarlyEvents KV_THREAD_SAFETY(guarded_by(m_QueueMutex)){4};
    EPtrList m_LogQueue KV_THREAD_SAFETY(guarded_by(m_QueueMutex)){4}; // ELogInfo*, owned

private:
    EStringArray m_SnapShotHeaders;
    EString m_SnapShotTitle; // the three titles and the event headings stay empty
    EStringArray m_AlarmHeaders;
    EString m_AlarmTitle;
    EStringArray m_EventHeaders;
    EString m_EventTitle;

public:
    EPtrList m_Deliveries KV_THREAD_SAFETY(guarded_by(m_DeliveryMutex)){4}; // ELogFileDeliverySpec*, owned
    EMutex m_DeliveryMutex KV_THREAD_SAFETY(acquired_after(m_CompletionMutex)){MUTEX_NAME};
    EMutex m_NameMutex{MUTEX_NAME}; // lets GetAgentLogFile read m_CurrentFile of the kernel log on any thread

private:
    EMutex m_CompletionMutex{MUTEX_NAME}; // one completion at a time

    // service/
    // For the destructor: no other thread is left, and no lock is needed.
    void DiscardRequests() KV_THREAD_SAFETY(no_thread_safety_analysis);
    void DestroyFileSpecs() KV_THREAD_SAFETY(requires_capability(m_FileSpecMutex));
    void DestroyDeliveries() KV_THREAD_SAFETY(no_thread_safety_analysis);
    EResult RegisterActions();
    void MakeKernelLog();

    // config/
    EResult RestoreSettings(unsigned long section);
    void RegisterFileSpec(EFileSpec* spec);
    int HoldEvents();
    void ReleaseEvents(int before);
    bool IsDeliverable(const EFileSpec& spec);

    // intake/
    EResult Log(EString& name, int action, unsigned long count, EONEVENTSTRUCT* records);
    EResult QueueRequest(EFileSpec* spec, int action, unsigned long count, EONEVENTSTRUCT* records);
    int IdentifierOf(const EString& name);
    void WriteEventNow(EONEVENTSTRUCT* record) KV_THREAD_SAFETY(requires_capability(m_QueueMutex));
    void WriteEarlyEvents() KV_THREAD_SAFETY(requires_capability(m_QueueMutex));
    ELogInfo* TakeRequest();
    EStringArray& NewRow();
    void AppendDateAndTime(const ETimeStamp& stamp, EStringArray& row);
    void ProcessAlarm(EFileSpec* spec, const EONEVENTSTRUCT& record);
    void ProcessEvent(EFileSpec* spec, const EONEVENTSTRUCT& record);
    void ProcessSnapShot(ELogInfo* info);
    EResult ProcessDelivery(ELogInfo* info);
    bool CanDeliver(const EFileSpec& spec);
    void MoveFilesToJob(EFileSpec* spec, ELogFileDeliverySpec* job);

    bool m_bRestoring KV_THREAD_SAFETY(guarded_by(m_QueueMutex)) = false; // events are held

    // files/
    bool AppendRow(EFileSpec* spec, const EByteArray& bytes, bool limited);

    // The current row: its time, cells and bytes. They are reused: no row has to allocate, and most rows fall into the
    // same minute as the row before.
    ETime m_RowTime{ETimeStamp{}};
    EStringArray m_Row;
    EByteArray m_RowBytes;

    // delivery/
    bool IsDelivering(const ELogFileDeliverySpec* job);
    // Counts `finished` more transfers of the job, or all of them. The last one ends the job, unless `mayEnd` is false
    // because more will be started. Does nothing when the job has already ended.
    static constexpr int ALL_TRANSFERS = -1;
    void CompleteTransfers(ELogFileDeliverySpec* job, int finished, bool mayEnd = true);
    bool LoadDefinition(const ELogFileDeliverySpec* job, EMailMessage* message);

    // warm/
    EString PendingEntriesPath();
    bool IsAccepted(const EFileSpec& spec);
    EResult SkipEvents(EFileIO* file, std::uint32_t count);
};
