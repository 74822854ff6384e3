#include "stream/LeaderSignal.h"

#include "frame/Error.h"

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/thread.hpp>
#include <boost/thread/thread_time.hpp>

#include <cstdint>
#include <limits>

namespace GenTL {

LeaderSignal::~LeaderSignal()
{
    const boost::this_thread::disable_interruption noInterruption;
    Guard lock(m_leaderMutex);
    m_isEnding = true;
    m_leaderCondition.notify_all();
    while (m_numWaiters != 0) {
        m_waitersLeft.wait(lock);
    }
}

int LeaderSignal::Wait(unsigned long timeout, const char* function)
{
    if (timeout != GENTL_INFINITE && timeout > std::numeric_limits<std::uint32_t>::max()) {
        return StoreName(GC_ERR_INVALID_PARAMETER, function);
    }
    Guard lock(m_leaderMutex);
    const bool isInTime = WaitUntilSeen(lock, timeout);
    if (m_isEnding) {
        return StoreName(GC_ERR_ABORT, function);
    }
    if (!isInTime) {
        return StoreName(GC_ERR_TIMEOUT, function);
    }
    m_leaderSeen = false;
    return GC_ERR_SUCCESS;
}

bool LeaderSignal::WaitUntilSeen(Guard& lock, unsigned long timeout)
{
    // A wait may be left by an interruption of its thread as well.
    struct Waiter
    {
        explicit Waiter(LeaderSignal& leader) : m_leader(leader) { ++m_leader.m_numWaiters; }
        ~Waiter()
        {
            if (--m_leader.m_numWaiters == 0) {
                m_leader.m_waitersLeft.notify_all();
            }
        }
        Waiter(const Waiter&) = delete;
        Waiter& operator=(const Waiter&) = delete;

        LeaderSignal& m_leader;
    };
    const Waiter waiter(*this);
    const auto isOver = [this] { return m_leaderSeen || m_isEnding; };
    if (timeout == GENTL_INFINITE) {
        m_leaderCondition.wait(lock, isOver);
        return true;
    }
    const boost::system_time deadline = boost::posix_time::microsec_clock::universal_time() +
                                        boost::posix_time::milliseconds(static_cast<std::int64_t>(timeout));
    return m_leaderCondition.timed_wait(lock, deadline, isOver);
}

void LeaderSignal::Signal()
{
    {
        const boost::lock_guard<boost::mutex> lock(m_leaderMutex);
        m_leaderSeen = true;
    }
    m_leaderCondition.notify_all();
}

void LeaderSignal::Reset()
{
    const boost::lock_guard<boost::mutex> lock(m_leaderMutex);
    m_leaderSeen = false;
}

}  // namespace GenTL
