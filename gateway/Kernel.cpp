#include "gateway/Kernel.h"

#include "base/IEMailService.h"
#include "base/IKernelService.h"
#include "base/IUploadService.h"
#include "base/InterfaceIds.h"
#include "base/Messages.h"
#include "gateway/Console.h"
#include "gateway/Text.h"
#include "gateway/outbox/Outbox.h"

#include <cwchar>

namespace {

const std::map<int, const char*> MESSAGES = {
    {MSG_NOT_CREATED, "a directory or a delivery could not be made"},
    {MSG_NO_UPLOAD_SERVICE, "a log file is left out: it is to be uploaded, and uploads are not configured"},
    {MSG_NO_EMAIL_SERVICE, "a log file is left out: it is to be mailed, and e-mail is not configured"},
    {MSG_UPLOAD_NOT_STARTED, "an upload could not be started"},
    {MSG_EMAIL_NOT_STARTED, "an e-mail could not be started"}};

} // namespace

Kernel::Kernel(const Configuration& configuration, Outbox& outbox)
    : m_Identifiers(configuration.m_Identifiers), m_Outbox(outbox) {
    for (const std::string& heading : configuration.m_Headings) {
        m_Headings.push_back(Widen(heading));
    }
}

EResult Kernel::GetInterface(unsigned long id, void** out) {
    const std::map<unsigned long, void*> interfaces = {{IID_ERROR_REPORTER, static_cast<IErrorReporter*>(this)},
                                                       {IID_EMAIL_SERVICE, m_Outbox.Mails()},
                                                       {IID_ACTION_REGISTRY, static_cast<IActionRegistry*>(this)},
                                                       {IID_NAME_SERVICE, static_cast<INameService*>(this)},
                                                       {IID_KERNEL_CONTROL, static_cast<IKernelControl*>(this)},
                                                       {IID_STRING_TABLE, static_cast<IStringTable*>(this)},
                                                       {IID_UPLOAD_SERVICE, m_Outbox.Uploads()}};
    const auto found = interfaces.find(id);
    *out = found != interfaces.end() ? found->second : nullptr;
    const bool isOwn = id == IID_KERNEL_SERVICE || id == IID_ACTION || id == IID_LOG_FILE || id == IID_RUN_TIME;
    if (isOwn && m_pService != nullptr) {
        return m_pService->GetInterface(id, out);
    }
    return *out != nullptr ? RC_OK : RC_NOT_FOUND;
}

EResult Kernel::Report(int level, int source, int messageNumber, const wchar_t* text) {
    ++m_nMessages;
    const auto message = MESSAGES.find(messageNumber);
    Console::Say((level >= LEVEL_ERROR ? "error " : "warning ") + std::to_string(messageNumber) + " (source " +
                 std::to_string(source) + "): " + (message != MESSAGES.end() ? message->second : "unknown message") +
                 (text != nullptr ? ": " + Narrow(text) : ""));
    return RC_OK;
}

EResult Kernel::RegisterAction(const wchar_t* name, IAction* action) {
    if (name == nullptr || action == nullptr) {
        return RC_ARGUMENT;
    }
    m_Actions[Narrow(name)] = action;
    return RC_OK;
}

IAction* Kernel::FindAction(const std::string& name) const {
    const auto action = m_Actions.find(name);
    return action != m_Actions.end() ? action->second : nullptr;
}

EResult Kernel::QualifyName(int id, EString* name) {
    *name = Widen(JoinName(Narrow(*name), id));
    return RC_OK;
}

EResult Kernel::ParseName(EString* name, int* id) {
    std::string plain = Narrow(*name);
    if (const int carried = SplitName(plain); carried >= 0) {
        *id = carried;
        *name = Widen(plain);
    }
    return RC_OK;
}

EResult Kernel::ParseNameText(const wchar_t* name, int* id) {
    if (std::wcschr(name, L'@') == nullptr) { // nearly all, and every row asks
        return RC_OK;
    }
    EString copy = name;
    return ParseName(&copy, id);
}

EResult Kernel::GetUploadParameters(int id, EString* parameter1, EString* /*parameter2*/, EString* /*parameter3*/) {
    if (!m_Identifiers.contains(id)) {
        return RC_NOT_FOUND;
    }
    *parameter1 = Widen(std::to_string(id));
    return RC_OK;
}

const wchar_t* Kernel::GetString(unsigned long number, unsigned long /*reserved*/) {
    const bool known = number >= HEADING_DATE && number < HEADING_DATE + m_Headings.size();
    return known ? static_cast<const wchar_t*>(m_Headings[number - HEADING_DATE]) : nullptr;
}
