#pragma once

#include "base/ETypedPtrList.h"
#include "base/GatewayType.h"
#include "base/ResultCodes.h"

class EAttribute;
class EONEVENTSTRUCT;
class EString;
class IErrorListener;

// A component that carries out named actions (interface 4123). Any thread may call.
class IAction {
public:
    // Carries out an action on the target `name` with `count` contiguous records, which are copied before the call
    // returns. The log file service ignores the attributes and the listener. RC_NO_RECORD for no records,
    // RC_NO_LOG_FILE for an unknown target, RC_NO_ACTION for an unknown action.
    virtual EResult Invoke(EString& actionName, EString& name, ETypedPtrList<EPtrList, EAttribute*>* attributes,
                           unsigned long count, EONEVENTSTRUCT* records, IErrorListener* listener) = 0;
    // RC_NO_RECORD for a null `type`.
    virtual EResult GetGatewayType(EString& actionName, GatewayType* type) = 0;
};
