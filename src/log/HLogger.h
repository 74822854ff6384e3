/// The log sink of the hardware-abstraction side.
#pragma once

#include "log/LogSink.h"

namespace GenTL {

inline constexpr LogSide kHalSide = {
    "HAL", "hal", "hal_out", {"vesta_in", "zt_in", nullptr},
       2
};
extern template class LogSink<kHalSide>;

/// For the classes that touch sockets and camera registers.
class HLogger : public LogSink<kHalSide>
{
};

}  // namespace GenTL
