#include "frame/GenTLHandle.h"

#include "buffers/Buffer.h"
#include "buffers/IBuffer.h"
#include "frame/Error.h"
#include "modules/IBaseModule.h"

#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>

namespace GenTL {
namespace {

/// The memory of all records. It is never given back, so that a stale handle still points at memory of
/// ours and CheckHandle can refuse it; freed records are used again oldest first, to keep the tag of a
/// stale handle clear as long as possible.
///
/// Threads: any. Locks: m_mutex, a leaf.
class HandlePool
{
public:
    GenTLHandle* Take(IBaseModule* module)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        GenTLHandle* record = nullptr;
        if (m_free.size() > kKeptBack) {
            record = m_free.front();
            m_free.pop_front();
        } else {
            record = &m_records.emplace_back();
        }
        *record = {kHandleTag, module};
        return record;
    }

    void Give(GenTLHandle* record)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        // Queued first: should it throw, the record stays as it was.
        m_free.push_back(record);
        *record = {0, nullptr};
    }

    void Forget(const IBaseModule* module)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (GenTLHandle& record : m_records) {
            if (record.module == module) {
                record.module = nullptr;
            }
        }
    }

private:
    static constexpr std::size_t kKeptBack = 64;

    std::mutex m_mutex;
    std::deque<GenTLHandle> m_records;
    std::deque<GenTLHandle*> m_free;
};

/// Never destroyed: a consumer's own static objects may close handles while the process ends.
HandlePool& Pool()
{
    static auto* pool = new HandlePool();
    return *pool;
}

/// What a consumer hands in need not be aligned.
bool HasTag(const void* h)
{
    std::uint64_t tag = 0;
    std::memcpy(&tag, h, sizeof tag);
    return tag == kHandleTag;
}

}  // namespace

int AllocateHandle(void** phHandle, IBaseModule* module)
{
    *phHandle = Pool().Take(module);
    return GC_ERR_SUCCESS;
}

int CheckHandle(void* h)
{
    if (h == nullptr) {
        return StoreBare(GC_ERR_INVALID_HANDLE, "failed to cast handle to a GenTLHandle*");
    }
    if (!HasTag(h)) {
        return StoreBare(GC_ERR_INVALID_HANDLE, "received a non-GenTL handle");
    }
    return GC_ERR_SUCCESS;
}

IBaseModule* CastHandleToIBasePtr(void* h)
{
    // Every entry point has checked the handle before: a bad one here is a fault of this library.
    if (CheckHandle(h) != GC_ERR_SUCCESS) {
        std::abort();
    }
    return static_cast<GenTLHandle*>(h)->module;
}

IBaseModule* CastHandle(void* h)
{
    return CastHandleToIBasePtr(h);
}

IBuffer* CastHandleToIBufferPtr(void* h)
{
    return dynamic_cast<IBuffer*>(CastHandleToIBasePtr(h));
}

Buffer* CastHandleToBufferPtr(void* h)
{
    return dynamic_cast<Buffer*>(CastHandleToIBasePtr(h));
}

int DeleteHandle(void* h)
{
    if (h == nullptr) {
        // Goes on to the fault on purpose: every caller has checked the handle or made it itself.
        Append(GC_ERR_INVALID_HANDLE, "failed to cast hHandle to a GenTLHandle*; hHandle was not freed");
        return static_cast<int>(static_cast<volatile GenTLHandle*>(h)->tag);  // NOLINT(clang-analyzer-core.*)
    }
    if (!HasTag(h)) {
        return StoreBare(GC_ERR_INVALID_HANDLE, "received a non-GenTLHandle*; hHandle was not freed");
    }
    Pool().Give(static_cast<GenTLHandle*>(h));
    return GC_ERR_SUCCESS;
}

void ForgetModule(const IBaseModule* module)
{
    Pool().Forget(module);
}

}  // namespace GenTL
