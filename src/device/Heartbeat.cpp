#include "device/Heartbeat.h"

#include "frame/Error.h"
#include "gev/IHALGev.h"
#include "log/GLogger.h"
#include "log/localization.h"
#include "modules/ThreadPriority.h"

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/thread.hpp>

#include <string>

namespace GenTL {
namespace {

constexpr unsigned int kHeartbeatTimeoutAddress = 0x0938;

void LogCode(const char* text, int code)
{
    GLogger::Error(loc::al(text, {std::to_string(code).c_str()}).c_str(), code);
}

void SleepHalf(unsigned int timeoutMs)
{
    const boost::system_time wake =
        boost::posix_time::microsec_clock::universal_time() + boost::posix_time::milliseconds(timeoutMs >> 1);
    boost::this_thread::sleep(wake);
    // A moment that has passed already would not be one.
    boost::this_thread::interruption_point();
}

}  // namespace

void HeartbeatThread(IHALGev* hal, void* deviceHandle, bool& run)
{
    if (const int code =
            ThreadPriority::ApplyThreadPrioritySetting(ThreadPriority::m_priorityHeartbeatThread);
        code != GC_ERR_SUCCESS) {
        Append(code, ":IGNORABLE: failed to set thread priority");
    }
    unsigned int timeoutMs = 0;
    if (const int code = hal->ReadReg(deviceHandle, kHeartbeatTimeoutAddress, timeoutMs);
        code != GC_ERR_SUCCESS) {
        LogCode("anonymous::HeartbeatThread ReadReg  failed with: {0}", code);
        Append(code, "failed to read heartbeat timeout (0x0938) register");
        return;
    }
    while (run) {
        SleepHalf(timeoutMs);
        unsigned int read = timeoutMs;
        if (const int code = hal->ReadReg(deviceHandle, kHeartbeatTimeoutAddress, read);
            code != GC_ERR_SUCCESS) {
            LogCode("anonymous::HeartbeatThread ReadReg  failed with : {0}", code);
            Raise(code, ":IGNORABLE: failed to read heartbeat timeout (0x0938) register");
            continue;
        }
        timeoutMs = read;
        if (!run) {
            return;
        }
        if (const int code = hal->WriteReg(deviceHandle, kHeartbeatTimeoutAddress, timeoutMs);
            code != GC_ERR_SUCCESS) {
            GLogger::Error("anonymous::HeartbeatThread WriteReg  failed with", code);
            Raise(code, ":IGNORABLE: failed to write to heartbeat timeout (0x0938) register");
        }
    }
}

}  // namespace GenTL
