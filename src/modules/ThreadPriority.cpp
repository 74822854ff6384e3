#include "modules/ThreadPriority.h"

#include "frame/Error.h"
#include "log/GLogger.h"

#include <pthread.h>
#include <sched.h>

#include <cerrno>
#include <iterator>

namespace GenTL {
namespace {

struct Scheduling
{
    int policy;
    int priority;
};

constexpr Scheduling kSchedulings[] = {
    {SCHED_IDLE,  0 }, // BelowNormal
    {SCHED_OTHER, 0 }, // Normal
    {SCHED_BATCH, 0 }, // AboveNormal
    {SCHED_RR,    20}, // Critical
};
constexpr long kNormal = 1;

}  // namespace

std::atomic<long> ThreadPriority::m_priorityGrabThread{kNormal};
std::atomic<long> ThreadPriority::m_priorityEventThread{kNormal};
std::atomic<long> ThreadPriority::m_priorityHeartbeatThread{kNormal};

int ThreadPriority::ApplyThreadPrioritySetting(long value)
{
    if (value < 0 || value >= static_cast<long>(std::size(kSchedulings))) {
        return Store(GC_ERR_INVALID_PARAMETER);
    }
    const Scheduling& wanted = kSchedulings[value];
    sched_param parameters{};
    parameters.sched_priority = wanted.priority;
    // The call answers the error and leaves errno alone.
    errno = pthread_setschedparam(pthread_self(), wanted.policy, &parameters);
    if (errno != 0) {
        GLogger::Error("Failed to set Thread priority", errno);
        return Raise(GC_ERR_IO, "Failed to set Thread priority!");
    }
    return GC_ERR_SUCCESS;
}

}  // namespace GenTL
