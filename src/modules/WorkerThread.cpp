#include "modules/WorkerThread.h"

#include "log/GLogger.h"

#include <boost/chrono/duration.hpp>
#include <boost/thread/thread.hpp>

#include <exception>

namespace GenTL {

void RunUntilInterrupted(const std::function<void()>& body)
{
    try {
        try {
            body();
        } catch (const std::exception& e) {
            GLogger::Error(e.what());
            for (;;) {
                boost::this_thread::sleep_for(boost::chrono::hours(1));
            }
        }
    } catch (const boost::thread_interrupted&) {
        // The end that is meant.
    }
}

}  // namespace GenTL
