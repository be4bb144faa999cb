#include "gateway/Kernel.h"

#include "base/IEMailService.h"
#include "base/IKernelService.h"
#include "base/IUploadService.h"
#include "base/InterfaceIds.h"
#include "base/Messages.h"
#include "gateway/Console.h"
#include "gateway/Text.h"
#include "gateway/transport/Transports.h"

namespace {

constexpr unsigned long FIRST_HEADING = 956;

const char* TextOf(int messageNumber) {
    switch (messageNumber) {
    case MSG_PENDING_NOT_RESTORED:
        return "the saved requests could not all be read back";
    case MSG_PATH_NOT_PREPARED:
        return "a log directory could not be prepared";
    case MSG_NOT_CREATED:
        return "a directory or a delivery could not be made";
    case MSG_NO_UPLOAD_SERVICE:
        return "a log file is left out: it is to be uploaded, and uploads are not configured";
    case MSG_NO_EMAIL_SERVICE:
        return "a log file is left out: it is to be mailed, and e-mail is not configured";
    case MSG_UPLOAD_NOT_STARTED:
        return "an upload could not be started";
    case MSG_EMAIL_NOT_STARTED:
        return "an e-mail could not be started";
    default:
        return "unknown message";
    }
}

} // namespace

EResult ErrorReporter::Report(int level, int source, int messageNumber, const wchar_t* text) {
    ++m_nCount;
    std::string line = level >= LEVEL_ERROR ? "error " : "warning ";
    line += std::to_string(messageNumber) + " (source " + std::to_string(source) + "): " + TextOf(messageNumber);
    if (text != nullptr) {
        line += ": " + Narrow(text);
    }
    Console::Say(line);
    return RC_OK;
}

EResult ActionRegistry::RegisterAction(const wchar_t* name, IAction* action) {
    if (name == nullptr || action == nullptr) {
        return RC_ARGUMENT;
    }
    m_Actions[Narrow(name)] = action;
    return RC_OK;
}

IAction* ActionRegistry::Find(const std::string& name) const {
    const auto action = m_Actions.find(name);
    return action != m_Actions.end() ? action->second : nullptr;
}

StringTable::StringTable(const std::array<std::string, Configuration::HEADINGS>& headings) {
    for (std::size_t i = 0; i < headings.size(); ++i) {
        m_Headings[i] = Widen(headings[i]);
    }
}

const wchar_t* StringTable::GetString(unsigned long number, unsigned long /*reserved*/) {
    const bool known = number >= FIRST_HEADING && number < FIRST_HEADING + m_Headings.size();
    return known ? static_cast<const wchar_t*>(m_Headings[number - FIRST_HEADING]) : nullptr;
}

EResult KernelControl::Operation9(unsigned long failed) {
    m_bFailed = failed != 0;
    return RC_OK;
}

EResult KernelControl::Operation6(unsigned long wanted) {
    m_bRestoreWanted = wanted != 0;
    return RC_OK;
}

Kernel::Kernel(const Configuration& configuration, ETransports* transports)
    : m_NameService(configuration.m_Identifiers), m_StringTable(configuration.m_Headings), m_pTransports(transports) {}

EResult Kernel::GetInterface(unsigned long id, void** out) {
    *out = nullptr;
    switch (id) {
    case IID_ERROR_REPORTER:
        *out = static_cast<IErrorReporter*>(&m_ErrorReporter);
        break;
    case IID_EMAIL_SERVICE:
        *out = m_pTransports != nullptr ? m_pTransports->EMail() : nullptr;
        break;
    case IID_ACTION_REGISTRY:
        *out = static_cast<IActionRegistry*>(&m_Actions);
        break;
    case IID_NAME_SERVICE:
        *out = static_cast<INameService*>(&m_NameService);
        break;
    case IID_KERNEL_CONTROL:
        *out = static_cast<IKernelControl*>(&m_Control);
        break;
    case IID_STRING_TABLE:
        *out = static_cast<IStringTable*>(&m_StringTable);
        break;
    case IID_UPLOAD_SERVICE:
        *out = m_pTransports != nullptr ? m_pTransports->Upload() : nullptr;
        break;
    case IID_KERNEL_SERVICE:
    case IID_ACTION:
    case IID_LOG_FILE:
    case IID_RUN_TIME:
        return m_pService != nullptr ? m_pService->GetInterface(id, out) : RC_NOT_FOUND;
    default:
        break;
    }
    return *out != nullptr ? RC_OK : RC_NOT_FOUND;
}
