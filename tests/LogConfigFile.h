/// The log configuration that GCInitLib reads from the working directory.
#pragma once

#include <fstream>

/// Writes one whose records go to ports where nobody listens.
inline void WriteLogConfig()
{
    std::ofstream("norvo_log.conf") << R"({
        "ports": {"gentl_out": 20711, "hal_out": 20712, "vesta_in": 20713, "zt_in": 20714, "gentl_in": 20715},
        "levels": {"gentl": 100, "hal": 100}
    })";
}
