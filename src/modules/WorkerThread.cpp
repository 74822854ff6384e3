#include "modules/WorkerThread.h"

#include "log/LogUnlessMemoryIsShort.h"
#include "modules/ThreadPriority.h"

#include <boost/chrono/duration.hpp>
#include <boost/thread/thread.hpp>

#include <exception>

namespace GenTL {

void RunUntilInterrupted(long priority, const std::function<void()>& body)
{
    try {
        try {
            // Without the privilege for it the thread goes on as it is.
            ThreadPriority::ApplyThreadPrioritySetting(priority);
            body();
        } catch (const std::exception& e) {
            LogUnlessMemoryIsShort(e.what());
            for (;;) {
                boost::this_thread::sleep_for(boost::chrono::hours(1));
            }
        }
    } catch (const boost::thread_interrupted&) {
        // The end that is meant.
    }
}

}  // namespace GenTL
