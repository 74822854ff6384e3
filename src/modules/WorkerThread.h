/// The frame of the library's threads that work until they are interrupted.
#pragma once

#include <functional>

namespace GenTL {

/// Runs body on the calling thread and returns when that is interrupted. When body throws anything else,
/// which is for want of memory, that is logged, and the thread waits for the interruption: whoever started it
/// counts on joining it. Doesn't throw.
void RunUntilInterrupted(const std::function<void()>& body);

}  // namespace GenTL
