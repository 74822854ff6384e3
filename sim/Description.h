#pragma once

#include "sim/Camera.h"

#include <string>

namespace sim {

/// The camera's GenApi description (schema 1.1), which names the registers in `Feature` and the bootstrap
/// registers of use to a consumer. Byte order and limits follow the configuration.
std::string MakeDescription(const Config& config);

}  // namespace sim
