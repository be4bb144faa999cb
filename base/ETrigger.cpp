#include "base/ETrigger.h"

#include <algorithm>

EResult ETrigger::Subscribe(ITriggerListener* listener, EString& trigger, EString& item, unsigned long context,
                            void** handle) {
    return Subscribe(static_cast<void*>(listener), trigger, item, context, handle);
}

EResult ETrigger::Unsubscribe(void* handle) {
    return m_Listeners.remove_if([&](const EListener& entry) { return &entry == handle; }) > 0 ? RC_OK : RC_NOT_FOUND;
}

EResult ETrigger::GetGatewayType(EString& /*actionName*/, GatewayType* type) {
    *type = GATEWAY_TYPE_ANY;
    return RC_OK;
}

EResult ETrigger::Subscribe(void* listener, EString& /*trigger*/, EString& /*item*/, unsigned long context,
                            void** handle) {
    *handle = &m_Listeners.emplace_back(EListener{listener, context});
    return RC_OK;
}

EResult ETrigger::Unsubscribe(void* listener, EString& /*trigger*/, EString& /*item*/) {
    const auto isIts = [&](const EListener& entry) { return entry.m_pListener == listener; };
    return m_Listeners.remove_if(isIts) > 0 ? RC_OK : RC_NOT_FOUND;
}

EResult ETrigger::FullyUnsubscribe() {
    m_Listeners.clear();
    return RC_OK;
}

EResult ETrigger::InformListeners(const wchar_t* /*trigger*/, const wchar_t* /*item*/, unsigned long value,
                                  void* data) {
    for (auto next = m_Listeners.begin(); next != m_Listeners.end();) {
        const EListener listener = *next++;
        InformOneListener(listener.m_pListener, listener.m_nContext, value, data);
    }
    return RC_OK;
}

EResult ETrigger::SubscribersFor(const wchar_t* /*trigger*/, const wchar_t* /*item*/) {
    return static_cast<EResult>(m_Listeners.size());
}

EResult ETrigger::FindListener(void* handle, EListener*& listener) {
    const auto found = std::ranges::find(m_Listeners, handle, [](EListener& entry) -> void* { return &entry; });
    listener = found != m_Listeners.end() ? &*found : nullptr;
    return listener != nullptr ? RC_OK : RC_NOT_FOUND;
}

EResult ETrigger::RegisterTrigger(const wchar_t* /*name*/) {
    return RC_NOT_PROVIDED;
}

EResult ETrigger::RegisterTrigger(const wchar_t* /*name*/, INotifyMgr* /*manager*/) {
    return RC_NOT_PROVIDED;
}
