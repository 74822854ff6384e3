#include "stream/BufferInHand.h"

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/lock_types.hpp>
#include <boost/thread/thread.hpp>

namespace GenTL {

void BufferInHand::Take(GenTLHandle* hBuffer)
{
    const boost::lock_guard<boost::mutex> lock(m_mutex);
    m_hBuffer = hBuffer;
    m_isRecalled = false;
}

void BufferInHand::Release()
{
    {
        const boost::lock_guard<boost::mutex> lock(m_mutex);
        m_hBuffer = nullptr;
        m_isRecalled = false;
    }
    m_released.notify_all();
}

bool BufferInHand::Holds(const GenTLHandle* hBuffer) const
{
    const boost::lock_guard<boost::mutex> lock(m_mutex);
    return m_hBuffer != nullptr && m_hBuffer == hBuffer;
}

void BufferInHand::Recall(const GenTLHandle* hBuffer)
{
    // The memory must not be freed under the grab thread, whatever happens to the consumer's.
    const boost::this_thread::disable_interruption noInterruption;
    boost::unique_lock<boost::mutex> lock(m_mutex);
    while (m_hBuffer != nullptr && m_hBuffer == hBuffer) {
        m_isRecalled = true;
        m_released.wait(lock);
    }
}

}  // namespace GenTL
