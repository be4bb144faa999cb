#pragma once

#include "base/ETypedPtrList.h"
#include "base/IKernelBase.h"

#include <cstdint>

struct WARM_RESTART_STRUCT;

// What the kernel calls of a service: one operation at a time, in the order PrepareToStart, Restore, PreStart, Start,
// PrepareToStop, Stop. The order of declaration is the order in the virtual table.
class IKernelService : public IKernelBase {
public:
    using WR_OPERATION = std::int32_t;

    virtual EResult Save(unsigned long section) = 0;
    virtual EResult Restore(unsigned long section) = 0;
    virtual EResult Restore(unsigned long section, int index) = 0;
    virtual EResult PrepareToStart() = 0;
    virtual EResult PreStart() = 0;
    virtual EResult Start() = 0;
    virtual EResult PrepareToStop() = 0;
    virtual EResult Stop() = 0; // ends the object's life
    virtual EResult AddService(IKernelService* service, ETypedPtrList<EPtrList, IKernelService*>* services) = 0;
    virtual EResult Destroy() = 0; // ends the object's life
    virtual EResult GetComponentId(unsigned long& id) = 0;
    virtual EResult WarmRestart(WR_OPERATION operation, WARM_RESTART_STRUCT* info) = 0;
};
