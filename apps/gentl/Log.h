/// The command `gentl log`.
#pragma once

namespace Tool {

/// Prints the records that arrive at the ports of the log configuration until interrupted. Throws Failure.
int ShowLog();
/// Writes a sample of the log configuration into the working directory. Throws Failure.
int InitLog();

}  // namespace Tool
