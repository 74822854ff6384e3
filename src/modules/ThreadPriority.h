/// The scheduling of the library's own threads.
#pragma once

#include <atomic>

namespace GenTL {

/// Process-wide, 0 BelowNormal to 3 Critical; a thread takes the value of its kind as it starts.
struct ThreadPriority
{
    static std::atomic<long> m_priorityGrabThread;
    static std::atomic<long> m_priorityEventThread;
    static std::atomic<long> m_priorityHeartbeatThread;

    /// Gives the calling thread the policy of value. GC_ERR_INVALID_PARAMETER on an unknown one, GC_ERR_IO
    /// when the system refuses: Critical needs a privilege. The thread then goes on as it was.
    static int ApplyThreadPrioritySetting(long value);
};

}  // namespace GenTL
