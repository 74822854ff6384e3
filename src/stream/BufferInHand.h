/// The buffer that a grab thread receives into, as the thread that wants to revoke it sees it.
#pragma once

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>

#include <atomic>

namespace GenTL {

struct GenTLHandle;

/// The grab thread blocks in the socket with the image memory as its target. Over UDP a buffer handed off at
/// its expiry can be revoked meanwhile: Recall then waits until the grab thread has let go of the memory,
/// which takes one receive time-out at most.
///
/// Owns: nothing. Threads: the grab thread takes and releases, the consumer's asks and recalls. Locks:
/// m_mutex, a leaf. Recall must be called with no lock of the stream held.
class BufferInHand
{
public:
    /// Grab thread: from here on it writes to hBuffer without a lock.
    void Take(GenTLHandle* hBuffer);
    /// Grab thread: it has let go of the buffer. Ends a Recall.
    void Release();
    /// Grab thread, between two packets: somebody waits for the buffer.
    bool IsRecalled() const { return m_isRecalled; }

    /// False for a null handle.
    bool Holds(const GenTLHandle* hBuffer) const;
    /// Returns when the grab thread doesn't hold hBuffer.
    void Recall(const GenTLHandle* hBuffer);

private:
    mutable boost::mutex m_mutex;
    boost::condition_variable m_released;
    const GenTLHandle* m_hBuffer = nullptr;
    std::atomic<bool> m_isRecalled{false};
};

}  // namespace GenTL
