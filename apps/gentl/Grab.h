/// The command `gentl grab`.
#pragma once

#include "gentl/GrabOptions.h"
#include "gentl/Producer.h"

namespace Tool {

/// Receives images and prints what came of it. Throws Failure.
/// \return the program's exit code: complete, damaged (images incomplete or lost), or interrupted before the
/// end
int Grab(const Producer& producer, const GrabOptions& options);

}  // namespace Tool
