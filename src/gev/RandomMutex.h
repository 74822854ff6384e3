/// Keeps the seed and the draw of a port search together.
#pragma once

#include <boost/thread/mutex.hpp>

namespace GenTL {

/// Held around every srand and the rand behind it. A seed by another thread in between would give the two
/// sockets of a discovery different ports. A leaf.
inline boost::mutex g_randomMutex;

}  // namespace GenTL
