/// The log configuration that GCInitLib reads from the working directory.
#pragma once

#include <fstream>

/// Writes one whose records go to ports where nobody listens, or the library's own to the given one.
inline void WriteLogConfig(unsigned port = 20711, int level = 100)
{
    std::ofstream("norvo_log.conf")
        << R"({"levels": {"hal": 100, "gentl": )" << level
        << R"(}, "ports": {"hal_out": 20712, "vesta_in": 20713, "zt_in": 20714, "gentl_in": 20715,)"
        << R"("gentl_out": )" << port << "}}";
}
