/// The command `gentl list`.
#pragma once

#include "gentl/Producer.h"

#include <cstdint>

namespace Tool {

/// Prints the interfaces and the cameras that answer within the time. Throws Failure.
/// \return the program's exit code: failed when there is no camera
int List(const Producer& producer, std::uint64_t discoveryMilliseconds);

}  // namespace Tool
