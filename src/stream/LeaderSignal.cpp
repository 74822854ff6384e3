#include "stream/LeaderSignal.h"

#include "frame/Error.h"

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/thread_time.hpp>

#include <cstdint>
#include <limits>

namespace GenTL {

int LeaderSignal::Wait(unsigned long timeout, const char* function)
{
    if (timeout != GENTL_INFINITE && timeout > std::numeric_limits<std::uint32_t>::max()) {
        return StoreName(GC_ERR_INVALID_PARAMETER, function);
    }
    const auto isOver = [this] { return m_leaderSeen || m_hasEnded; };
    Guard lock(m_leaderMutex);
    if (timeout == GENTL_INFINITE) {
        m_leaderCondition.wait(lock, isOver);
    } else {
        const boost::system_time deadline =
            boost::posix_time::microsec_clock::universal_time() +
            boost::posix_time::milliseconds(static_cast<std::int64_t>(timeout));
        m_leaderCondition.timed_wait(lock, deadline, isOver);
    }
    if (m_hasEnded || !m_leaderSeen) {
        return StoreName(m_hasEnded ? GC_ERR_ABORT : GC_ERR_TIMEOUT, function);
    }
    m_leaderSeen = false;
    return GC_ERR_SUCCESS;
}

void LeaderSignal::Signal()
{
    {
        const Guard lock(m_leaderMutex);
        m_leaderSeen = true;
    }
    m_leaderCondition.notify_all();
}

void LeaderSignal::Reset()
{
    const Guard lock(m_leaderMutex);
    m_leaderSeen = false;
}

void LeaderSignal::End()
{
    // Under the lock: who is sent away may be the last to hold the signal.
    const Guard lock(m_leaderMutex);
    m_hasEnded = true;
    m_leaderCondition.notify_all();
}

void LeaderSignal::Begin()
{
    const Guard lock(m_leaderMutex);
    m_hasEnded = false;
}

}  // namespace GenTL
