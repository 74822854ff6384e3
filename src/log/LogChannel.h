/// Finds the hosting program's log channel, or makes the built-in one.
#pragma once

#include "log/INorvoLog.h"

namespace GenTL::LogChannel {

/// A channel and the function that gives it back to where it came from.
struct Channel
{
    INorvoLog* log;
    void (*release)(INorvoLog*);
};

/// The channel of NorvoLog::Init() when the process offers it and NorvoLog::Deinit(INorvoLog*), else a
/// built-in one that sends each record as a datagram to 127.0.0.1 at the out port. log is null when the
/// host's Init gives null.
Channel Init();

}  // namespace GenTL::LogChannel
