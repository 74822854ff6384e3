/// Queues of buffer handles.
#pragma once

#include <algorithm>

namespace GenTL {

struct GenTLHandle;

/// queue is any container of handles.
template <typename Queue>
bool Contains(const Queue& queue, const GenTLHandle* hBuffer)
{
    return std::find(queue.begin(), queue.end(), hBuffer) != queue.end();
}

}  // namespace GenTL
