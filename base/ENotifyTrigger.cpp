#include "base/ENotifyTrigger.h"

#include "base/ITriggerListener.h"

EResult ENotifyTrigger::InformOneListener(void* listener, unsigned long value1, unsigned long value2, void* data) {
    static_cast<ITriggerListener*>(listener)->OnTrigger(value1, value2, data);
    return RC_OK;
}
