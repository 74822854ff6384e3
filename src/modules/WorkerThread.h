/// The frame of the library's threads that work until they are interrupted.
#pragma once

#include <functional>

namespace GenTL {

/// Gives the calling thread its priority, one of ThreadPriority's, runs body on it and returns when it is
/// interrupted. When body throws anything else, which is for want of memory, that is logged, and the thread
/// waits for the interruption: whoever started it counts on joining it. Doesn't throw.
void RunUntilInterrupted(long priority, const std::function<void()>& body);

}  // namespace GenTL
