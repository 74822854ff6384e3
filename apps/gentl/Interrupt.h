/// Ctrl-C and termination as a wish that loops ask for, so that a camera is stopped and closed properly.
#pragma once

namespace Tool::Interrupt {

/// From now on SIGINT and SIGTERM only set the wish; a second one ends the program at once. To be called
/// before any other thread starts.
void Catch();
bool Requested();

}  // namespace Tool::Interrupt
