/// Keeps the seed and the draw of a port search together.
#pragma once

#include <mutex>

namespace GenTL {

/// Held around every srand and the rand behind it. A seed by another thread in between would give the two
/// sockets of a discovery different ports. A leaf; of a kind that needs no destruction, as a consumer's
/// static objects may call in while the process ends.
inline std::mutex g_randomMutex;

}  // namespace GenTL
