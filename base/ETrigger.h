#pragma once

#include "base/EListener.h"
#include "base/EString.h"
#include "base/Export.h"
#include "base/GatewayType.h"
#include "base/ResultCodes.h"

#include <memory>
#include <mutex>
#include <vector>

class INotifyMgr;
class ITriggerListener;

// Something that others subscribe to and that informs them when it is raised. A subscription names a trigger and an item
// of it; an empty name or item stands for all. Any thread may call; listeners are informed outside the trigger's lock,
// one after the other in the order of subscription, and must stay alive while they are subscribed.
class KVBASE_API ETrigger {
public:
    ETrigger();
    ETrigger(const ETrigger&) = delete;
    ETrigger& operator=(const ETrigger&) = delete;

    // `handle` gets a value for Unsubscribe and FindListener. RC_ARGUMENT for a null listener or handle.
    virtual EResult Subscribe(ITriggerListener* listener, EString& trigger, EString& item, unsigned long context,
                              void** handle);
    virtual EResult Unsubscribe(void* handle); // RC_NOT_FOUND for an unknown handle
    virtual EResult GetGatewayType(EString& actionName, GatewayType* type);
    virtual ~ETrigger();
    virtual EResult Subscribe(void* listener, EString& trigger, EString& item, unsigned long context, void** handle);
    virtual EResult Unsubscribe(void* listener, EString& trigger, EString& item);
    virtual EResult FullyUnsubscribe(); // all of them
    virtual EResult InformListeners(const wchar_t* trigger, const wchar_t* item, unsigned long value, void* data);
    virtual EResult InformOneListener(void* listener, unsigned long value1, unsigned long value2, void* data) = 0;
    virtual EResult SubscribersFor(const wchar_t* trigger, const wchar_t* item); // how many there are
    virtual EResult FindListener(void* handle, EListener*& listener);
    virtual EResult RegisterTrigger(const wchar_t* name); // RC_MISSING: no notification manager is known
    virtual EResult RegisterTrigger(const wchar_t* name, INotifyMgr* manager);

private:
    using Listeners = std::vector<std::shared_ptr<EListener>>;

    Listeners Matching(const wchar_t* trigger, const wchar_t* item);

    std::mutex m_Mutex;
    Listeners m_Listeners;
};
