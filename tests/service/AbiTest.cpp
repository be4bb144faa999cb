#include "base/WARM_RESTART_STRUCT.h"
#include "tests/ServiceFixture.h"

#include <cstring>

// What a kernel was compiled with stays as it is: it is not built again when it gets a new module.

namespace {

using List = std::vector<std::size_t>;

// The numbers of operations in their interface's table, counted from 1.
template <class... Operations>
List Slots(Operations... operations) {
    // A pointer to a virtual operation holds its place in the table, and marks itself as one in the lowest bit: on ARM of
    // the second word, for code there has odd addresses of its own; elsewhere of the first.
    const auto slot = [](auto operation) {
        std::size_t words[2];
        static_assert(sizeof(operation) == sizeof(words));
        std::memcpy(words, &operation, sizeof(words));
#if defined(__arm__)
        EXPECT_EQ(words[1], 1U);
#else
        EXPECT_EQ(words[0]-- % 2, 1U);
#endif
        return words[0] / sizeof(void*) + 1;
    };
    return {slot(operations)...};
}

TEST(Abi, OperationsOfTheKernelStayAtTheirNumbers) {
    EXPECT_EQ(Slots(&ISMListener::OnUploadComplete), List{1});
    EXPECT_EQ(Slots(&IErrorReporter::Report), List{1});
    EXPECT_EQ(Slots(&IEMailService::SendMessage, &IEMailService::CreateMessage, &IEMailService::ReleaseMessage,
                    &IEMailService::StoreMessage, &IEMailService::LoadMessage),
              (List{3, 4, 5, 6, 7}));
    EXPECT_EQ(Slots(&IActionRegistry::RegisterAction), List{2});
    EXPECT_EQ(Slots(&INameService::QualifyName, &INameService::ParseName, &INameService::ParseNameText,
                    &INameService::GetUploadParameters, &INameService::PreparePath, &INameService::CheckId),
              (List{8, 9, 10, 11, 28, 38}));
    EXPECT_EQ(Slots(&IKernelControl::Operation3, &IKernelControl::Operation5, &IKernelControl::Operation6,
                    &IKernelControl::IsRestoreWanted, &IKernelControl::Operation9),
              (List{3, 5, 6, 7, 9}));
    EXPECT_EQ(Slots(&IStringTable::GetString), List{1});
    EXPECT_EQ(Slots(&IUploadService::UploadFiles), List{2});
}

TEST(Abi, OperationsOfTheServiceStayAtTheirNumbers) {
    const auto restore = static_cast<EResult (IKernelService::*)(unsigned long)>(&IKernelService::Restore);
    const auto restoreOne = static_cast<EResult (IKernelService::*)(unsigned long, int)>(&IKernelService::Restore);
    EXPECT_EQ(Slots(&IKernelService::GetInterface, &IKernelService::Save, restore, restoreOne,
                    &IKernelService::PrepareToStart, &IKernelService::PreStart, &IKernelService::Start,
                    &IKernelService::PrepareToStop, &IKernelService::Stop, &IKernelService::AddService,
                    &IKernelService::Destroy, &IKernelService::GetComponentId, &IKernelService::WarmRestart,
                    &CKernelService::RTPreStart, &CKernelService::RTStart, &CKernelService::RTRestore),
              (List{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 16, 17, 18}));
    EXPECT_EQ(Slots(&IRunTime::RTPreStart, &IRunTime::RTStart, &IRunTime::RTRestore), (List{1, 2, 3}));
    EXPECT_EQ(Slots(&ILogFile::ReportEvent, &ILogFile::LogSnapShot, &ILogFile::LogAlarm, &ILogFile::GetAgentLogFile),
              (List{1, 2, 3, 4}));
    EXPECT_EQ(Slots(&IAction::Invoke, &IAction::GetGatewayType, &ETrigger::GetGatewayType), (List{1, 2, 3}));
}

TEST(Abi, RecordsKeepTheirLayout) {
    const struct {
        const char* m_pszWhat;
        std::size_t m_nFound, m_n32, m_n64;
    } layouts[] = {
        {"ETimeStamp", sizeof(ETimeStamp), 6, 6},
        {"CDataValue", sizeof(CDataValue), 24, 24},
        {"EString", sizeof(EString), 24, 32},                // the standard library's text, handed over by its address
        {"EONEVENTSTRUCT", sizeof(EONEVENTSTRUCT), 88, 104}, // an array of these is a snapshot
        {"m_pszName", offsetof(EEventFields, m_pszName), 0, 0},
        {"m_pszText", offsetof(EEventFields, m_pszText), 4, 8},
        {"m_pszSource", offsetof(EEventFields, m_pszSource), 8, 16},
        {"m_Value", offsetof(EEventFields, m_Value), 16, 32},
        {"m_TimeStamp", offsetof(EEventFields, m_TimeStamp), 40, 56},
        {"m_wState", offsetof(EEventFields, m_wState), 46, 62},
        {"m_nAlarmNumber", offsetof(EEventFields, m_nAlarmNumber), 52, 68},
        {"m_nIdentifier", offsetof(EEventFields, m_nIdentifier), 72, 88},
        {"m_nIndex", offsetof(EEventFields, m_nIndex), 76, 92},
        {"EUploadFile", sizeof(EUploadFile), 28, 40},
        {"EUploadFiles", sizeof(EUploadFiles), 24, 48},
        {"EMailMessage", sizeof(EMailMessage), 48, 64},
        {"m_Attachments", offsetof(EMailMessage, m_Attachments), 24, 32},
        {"WARM_RESTART_STRUCT", sizeof(WARM_RESTART_STRUCT), 4, 8},
    };
    for (const auto& layout : layouts) {
        EXPECT_EQ(layout.m_nFound, sizeof(void*) == 4 ? layout.m_n32 : layout.m_n64) << layout.m_pszWhat;
    }

    CDataValue value;
    value.SetInteger(0x3837363534333231); // "12345678", the lowest byte first
    value.SetQuality(0x64636261);
    value.SetTimestamp({0x44434241, 0x4645});
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&value), 19), std::string("12345678abcdABCDEF\2"));
}

} // namespace
