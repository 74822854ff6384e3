/// The log sink of the transport-layer side.
#pragma once

#include "log/LogSink.h"

namespace GenTL {

inline constexpr LogSide kGenTLSide = {
    "GenTL", "gentl", "gentl_out", {"vesta_in", "zt_in", "gentl_in"},
       3
};
extern template class LogSink<kGenTLSide>;

/// For the modules.
class GLogger : public LogSink<kGenTLSide>
{
};

}  // namespace GenTL
