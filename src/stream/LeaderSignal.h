/// Tells consumers that an image has begun to arrive.
#pragma once

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>

namespace GenTL {

/// Raised by a stream's receiving side, lowered by the first consumer that has waited for it.
///
/// Owns: nothing else. Threads: the grab thread signals, the consumer's do the rest. Locks: m_leaderMutex, a
/// leaf.
class LeaderSignal
{
public:
    /// Waits up to timeout ms (at most 32 bits, or all ones for ever), and lowers the signal.
    /// GC_ERR_INVALID_PARAMETER, GC_ERR_TIMEOUT, GC_ERR_ABORT; raised in the name of the caller.
    int Wait(unsigned long timeout, const char* function = __builtin_FUNCTION());
    void Signal();
    void Reset();
    /// Nobody is to wait any more: all waits, those that come too, give GC_ERR_ABORT.
    void End();
    /// Waits work again.
    void Begin();

private:
    using Guard = boost::unique_lock<boost::mutex>;

    boost::condition_variable m_leaderCondition;
    boost::mutex m_leaderMutex;  // guards what follows
    bool m_leaderSeen = false;
    bool m_hasEnded = false;
};

}  // namespace GenTL
