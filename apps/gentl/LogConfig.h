/// "norvo_log.conf": the file in the working directory without which the producer doesn't come up.
#pragma once

#include "gentl/Failure.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Tool::LogConfig {

inline constexpr char kFileName[] = "norvo_log.conf";

bool Exists();
/// Writes the sample file into the working directory. Throws Failure when there is one already or it can't be
/// written.
void WriteSample();
/// The ports to which a producer sends its records, each once. Throws Failure.
std::vector<std::uint16_t> OutPorts();
/// Says that the file is missing or can't be used for this reason, and how to get one.
Failure Unusable(const std::string& reason);

}  // namespace Tool::LogConfig
