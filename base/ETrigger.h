#pragma once

#include "base/Export.h"
#include "base/GatewayType.h"
#include "base/ResultCodes.h"

#include <list>

class EString;
class INotifyMgr;
class ITriggerListener;

// One subscription of a trigger.
struct EListener {
    void* m_pListener; // not owned
    unsigned long m_nContext;
};

// Informs its listeners, in the order of subscription, when it is raised. It has one trigger and one item: the names
// are ignored. Not thread-safe. A listener must outlive its subscription. While it is informed it may unsubscribe
// itself, but no other.
class KVBASE_API ETrigger {
public:
    ETrigger() = default;
    ETrigger(const ETrigger&) = delete;
    ETrigger& operator=(const ETrigger&) = delete;

    // `handle` gets a value for Unsubscribe and FindListener.
    virtual EResult Subscribe(ITriggerListener* listener, EString& trigger, EString& item, unsigned long context,
                              void** handle);
    virtual EResult Unsubscribe(void* handle); // RC_NOT_FOUND for an unknown handle
    virtual EResult GetGatewayType(EString& actionName, GatewayType* type);
    virtual ~ETrigger() = default;
    virtual EResult Subscribe(void* listener, EString& trigger, EString& item, unsigned long context, void** handle);
    virtual EResult Unsubscribe(void* listener, EString& trigger, EString& item);
    virtual EResult FullyUnsubscribe(); // all of them
    virtual EResult InformListeners(const wchar_t* trigger, const wchar_t* item, unsigned long value, void* data);
    virtual EResult InformOneListener(void* listener, unsigned long value1, unsigned long value2, void* data) = 0;
    virtual EResult SubscribersFor(const wchar_t* trigger, const wchar_t* item); // how many there are
    virtual EResult FindListener(void* handle, EListener*& listener);
    virtual EResult RegisterTrigger(const wchar_t* name); // triggers are not registered: RC_NOT_PROVIDED
    virtual EResult RegisterTrigger(const wchar_t* name, INotifyMgr* manager);

private:
    std::list<EListener> m_Listeners;
};
