#include "delivery/ELogFileDeliverySpec.h"

#include "base/EFileIO.h"
#include "base/ELock.h"
#include "config/EFileSpec.h"
#include "service/ELogFile.h"
#include "service/Guarded.h"

#include <array>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

namespace {

// The memory of freed jobs, in the order in which they were freed.
class RestingMemory {
public:
    RestingMemory() = default;
    RestingMemory(const RestingMemory&) = delete;
    RestingMemory& operator=(const RestingMemory&) = delete;
    ~RestingMemory() {
        for (void* memory : m_Memory) {
            ::operator delete(memory);
        }
    }

    // Takes this one to rest and gives the one that has rested longest, or null, which is the caller's.
    void* Exchange(void* memory) {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        std::swap(memory, m_Memory[m_nOldest]);
        m_nOldest = (m_nOldest + 1) % m_Memory.size();
        return memory;
    }

private:
    std::mutex m_Mutex;
    std::array<void*, ELogFileDeliverySpec::RESTING_JOBS> m_Memory{};
    std::size_t m_nOldest = 0;
};

RestingMemory s_RestingMemory;

constexpr int WIPED = 0xDD; // makes no address: a use of a freed job fails at once instead of finding what it was

} // namespace

ELogFileDeliverySpec::ELogFileDeliverySpec(ELogFile* logFile, EFileSpec* fileSpec, const wchar_t* spoolDir)
    : m_pLogFile(logFile), m_pFileSpec(fileSpec), m_SpoolDir(spoolDir) {}

ELogFileDeliverySpec::~ELogFileDeliverySpec() = default;

void* ELogFileDeliverySpec::operator new(std::size_t size) {
    return ::operator new(size);
}

void ELogFileDeliverySpec::operator delete(void* memory, std::size_t size) {
    std::memset(memory, WIPED, size);
    ::operator delete(s_RestingMemory.Exchange(memory));
}

void ELogFileDeliverySpec::OnComplete() {
    if (m_nCompleted < m_Files.GetSize()) {
        return;
    }
    Finalize(m_pFileSpec->m_KeepCopy != 0);
    {
        const ELock lock(m_pLogFile->m_DeliveryMutex, MUTEX_NAME);
        if (const auto position = m_pLogFile->m_Deliveries.Find(this, nullptr); position != nullptr) {
            m_pLogFile->m_Deliveries.RemoveAt(position);
        }
    }
    delete this;
}

void ELogFileDeliverySpec::Finalize(bool keepFiles) {
    for (int i = 0; i < m_Files.GetSize(); ++i) {
        // A file whose path memory does not suffice for stays, as one that cannot be moved; the job ends all the same.
        Guarded([&] {
            const EString source = m_SpoolDir + m_Files[i];
            if (keepFiles) {
                const EString target = m_pFileSpec->m_LogPath + m_Files[i];
                EFileIO::DeleteFile(target, false);
                EFileIO::RenameFile(source, target);
            } else {
                EFileIO::DeleteFile(source, false);
            }
            return RC_OK;
        });
    }
    EFileIO::RemoveDir(m_SpoolDir);
}
