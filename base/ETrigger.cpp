#include "base/ETrigger.h"

#include "base/INotifyMgr.h"

#include <algorithm>
#include <iterator>

namespace {

bool Stands(const EString& subscribed, const wchar_t* raised) {
    return subscribed.IsEmpty() || subscribed == raised;
}

} // namespace

ETrigger::ETrigger() = default;

ETrigger::~ETrigger() = default;

EResult ETrigger::Subscribe(ITriggerListener* listener, EString& trigger, EString& item, unsigned long context,
                            void** handle) {
    if (listener == nullptr || handle == nullptr) {
        return RC_ARGUMENT;
    }
    auto added = std::make_shared<EListener>(EListener{listener, trigger, item, context});
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Listeners.push_back(added);
    *handle = added.get();
    return RC_OK;
}

EResult ETrigger::Subscribe(void* listener, EString& trigger, EString& item, unsigned long context, void** handle) {
    return Subscribe(static_cast<ITriggerListener*>(listener), trigger, item, context, handle);
}

EResult ETrigger::Unsubscribe(void* handle) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    const auto removed = std::erase_if(m_Listeners, [&](const auto& listener) { return listener.get() == handle; });
    return removed != 0 ? RC_OK : RC_NOT_FOUND;
}

EResult ETrigger::Unsubscribe(void* listener, EString& trigger, EString& item) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    const auto removed = std::erase_if(m_Listeners, [&](const auto& entry) {
        return entry->m_pListener == listener && entry->m_Trigger == trigger && entry->m_Item == item;
    });
    return removed != 0 ? RC_OK : RC_NOT_FOUND;
}

EResult ETrigger::FullyUnsubscribe() {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Listeners.clear();
    return RC_OK;
}

EResult ETrigger::GetGatewayType(EString& /*actionName*/, GatewayType* type) {
    if (type == nullptr) {
        return RC_NO_RECORD;
    }
    *type = GATEWAY_TYPE_ANY;
    return RC_OK;
}

ETrigger::Listeners ETrigger::Matching(const wchar_t* trigger, const wchar_t* item) {
    Listeners matching;
    const std::lock_guard<std::mutex> lock(m_Mutex);
    std::copy_if(m_Listeners.begin(), m_Listeners.end(), std::back_inserter(matching), [&](const auto& listener) {
        return Stands(listener->m_Trigger, trigger) && Stands(listener->m_Item, item);
    });
    return matching;
}

EResult ETrigger::InformListeners(const wchar_t* trigger, const wchar_t* item, unsigned long value, void* data) {
    for (const auto& listener : Matching(trigger, item)) {
        // One who was informed before may have unsubscribed this one, which need not exist any more.
        EListener* subscribed = nullptr;
        if (ETrigger::FindListener(listener.get(), subscribed) == RC_OK) {
            InformOneListener(listener->m_pListener, listener->m_nContext, value, data);
        }
    }
    return RC_OK;
}

EResult ETrigger::SubscribersFor(const wchar_t* trigger, const wchar_t* item) {
    return static_cast<EResult>(Matching(trigger, item).size());
}

EResult ETrigger::FindListener(void* handle, EListener*& listener) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    const auto found =
        std::find_if(m_Listeners.begin(), m_Listeners.end(), [&](const auto& entry) { return entry.get() == handle; });
    listener = found != m_Listeners.end() ? found->get() : nullptr;
    return listener != nullptr ? RC_OK : RC_NOT_FOUND;
}

EResult ETrigger::RegisterTrigger(const wchar_t* /*name*/) {
    return RC_MISSING;
}

EResult ETrigger::RegisterTrigger(const wchar_t* name, INotifyMgr* manager) {
    return manager != nullptr ? manager->AddTrigger(name, this) : RC_MISSING;
}
