/// Tells consumers that an image has begun to arrive.
#pragma once

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>

namespace GenTL {

/// Raised by a stream's receiving side, lowered by the first consumer that has waited for it.
///
/// Owns: nothing else. Threads: the grab thread signals, the consumer's wait and reset; the destructor may
/// run while some still wait. Locks: m_leaderMutex, a leaf.
class LeaderSignal
{
public:
    LeaderSignal() = default;
    LeaderSignal(const LeaderSignal&) = delete;
    LeaderSignal& operator=(const LeaderSignal&) = delete;
    /// Sends the waiting consumers away with GC_ERR_ABORT, and returns when they have left.
    ~LeaderSignal();

    /// Waits up to timeout ms (at most 32 bits, or all ones for ever), and lowers the signal.
    /// GC_ERR_INVALID_PARAMETER, GC_ERR_TIMEOUT; raised in the name of the caller.
    int Wait(unsigned long timeout, const char* function = __builtin_FUNCTION());
    void Signal();
    void Reset();

private:
    using Guard = boost::unique_lock<boost::mutex>;
    /// False when the time is up.
    bool WaitUntilSeen(Guard& lock, unsigned long timeout);

    boost::condition_variable m_leaderCondition;
    boost::condition_variable m_waitersLeft;
    boost::mutex m_leaderMutex;  // guards what follows
    bool m_leaderSeen = false;
    bool m_isEnding = false;
    unsigned m_numWaiters = 0;
};

}  // namespace GenTL
