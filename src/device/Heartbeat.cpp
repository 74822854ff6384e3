#include "device/Heartbeat.h"

#include "frame/Error.h"
#include "gev/IHALGev.h"
#include "log/GLogger.h"
#include "log/LogUnlessMemoryIsShort.h"
#include "log/localization.h"
#include "modules/ThreadPriority.h"

#include <boost/chrono/duration.hpp>
#include <boost/thread/thread.hpp>

#include <exception>
#include <string>

namespace GenTL {
namespace {

constexpr unsigned int kHeartbeatTimeoutAddress = 0x0938;
constexpr const char* kFunction = "HeartbeatThread";  // in whose name errors are raised

void LogCode(const char* text, int code)
{
    GLogger::Error(loc::al(text, {std::to_string(code).c_str()}).c_str(), code);
}

/// By a clock that nobody sets: one put back would cost the camera.
void SleepHalf(unsigned int timeoutMs)
{
    boost::this_thread::sleep_for(boost::chrono::milliseconds(timeoutMs >> 1));
    // A sleep of 0 would not be one.
    boost::this_thread::interruption_point();
}

/// Reads the time-out, keeps it in timeoutMs, and writes it back.
void Beat(IHALGev* hal, void* deviceHandle, const bool& run, unsigned int& timeoutMs)
{
    unsigned int read = timeoutMs;
    if (const int code = hal->ReadReg(deviceHandle, kHeartbeatTimeoutAddress, read); code != GC_ERR_SUCCESS) {
        LogCode("anonymous::HeartbeatThread ReadReg  failed with : {0}", code);
        Raise(code, ":IGNORABLE: failed to read heartbeat timeout (0x0938) register", kFunction);
        return;
    }
    timeoutMs = read;
    if (!run) {
        return;
    }
    if (const int code = hal->WriteReg(deviceHandle, kHeartbeatTimeoutAddress, timeoutMs);
        code != GC_ERR_SUCCESS) {
        GLogger::Error("anonymous::HeartbeatThread WriteReg  failed with", code);
        Raise(code, ":IGNORABLE: failed to write to heartbeat timeout (0x0938) register", kFunction);
    }
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
        try {
            Beat(hal, deviceHandle, run, timeoutMs);
        } catch (const std::exception& e) {
            // For want of memory: without the next beat the camera would be lost.
            LogUnlessMemoryIsShort(e.what());
        }
    }
}

}  // namespace GenTL
