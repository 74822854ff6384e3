/// What the program says to the shell.
#pragma once

namespace Tool::ExitCode {

inline constexpr int kDone = 0;
inline constexpr int kFailed = 1;
inline constexpr int kUsage = 2;
inline constexpr int kDamaged = 3;  ///< images incomplete or lost
inline constexpr int kInterrupted = 130;

}  // namespace Tool::ExitCode
