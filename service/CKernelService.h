#pragma once

#include "base/IKernelService.h"
#include "base/IRunTime.h"

#include <atomic>
#include <cstdint>

class INameService;

// The base of a kernel service: the default of each operation, the look-up of interfaces through the kernel, and the
// lifecycle state. Any thread may call GetInterface; the kernel's thread calls everything else.
class CKernelService : public IKernelService, public IRunTime {
public:
    // States: each phase up to the start adds a bit.
    static constexpr std::uint32_t STATE_CREATED = 0;
    static constexpr std::uint32_t STATE_PREPARED = 1;
    static constexpr std::uint32_t STATE_PRE_STARTED = 3;
    static constexpr std::uint32_t STATE_STARTED = 7;
    static constexpr std::uint32_t STATE_STOPPED = 8;

    explicit CKernelService(IKernelBase* kernel);
    CKernelService(const CKernelService&) = delete;
    CKernelService& operator=(const CKernelService&) = delete;

    // Answers IID_KERNEL_SERVICE and asks the kernel for everything else. While the kernel is asked, it may call this
    // again: the result is then RC_OK, and `out` is unchanged. RC_NOT_MADE when the kernel throws.
    EResult GetInterface(unsigned long id, void** out) override;
    EResult Save(unsigned long section) override;
    EResult Restore(unsigned long section) override;
    // Fetches the name service and restores, unless the index is -1. Call it between PrepareToStart and PreStart only.
    // RC_MISSING without a name service.
    EResult Restore(unsigned long section, int index) override;
    EResult PrepareToStart() override;
    EResult PreStart() override;
    EResult Start() override;
    EResult PrepareToStop() override;
    EResult Stop() override; // frees the object
    EResult AddService(IKernelService* service, ETypedPtrList<EPtrList, IKernelService*>* services) override;
    EResult Destroy() override; // the same as Stop
    EResult GetComponentId(unsigned long& id) override;
    EResult WarmRestart(WR_OPERATION operation, WARM_RESTART_STRUCT* info) override;
    virtual ~CKernelService();
    EResult RTPreStart() override;
    EResult RTStart() override;
    EResult RTRestore(unsigned long section, int index) override;

    INameService* m_pNameService = nullptr; // interface 4136; not owned
    std::int32_t m_nRestoreIndex = -1;      // the index of the last Restore
    IKernelBase* m_pKernelBase;             // not owned
    std::atomic<bool> m_bInGetInterface{false};
    std::atomic<std::uint32_t> m_State{STATE_CREATED};

protected:
    // Asks GetInterface; null when there is no such interface.
    template <class Interface>
    Interface* Fetch(unsigned long id) {
        void* found = nullptr;
        GetInterface(id, &found);
        return static_cast<Interface*>(found);
    }
};
