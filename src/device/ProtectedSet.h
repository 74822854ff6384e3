/// A set of values that several threads share.
#pragma once

#include "frame/Error.h"

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>

#include <algorithm>
#include <vector>

namespace GenTL {

/// Threads: any. Locks: the mutex, a leaf.
template <typename T>
class ProtectedSet
{
public:
    /// False when the value is in the set already.
    bool AddToSet(const T& value)
    {
        const boost::lock_guard<boost::mutex> lock(m_mutex);
        if (std::find(m_values.begin(), m_values.end(), value) != m_values.end()) {
            return false;
        }
        m_values.push_back(value);
        return true;
    }

    /// GC_ERR_RESOURCE_IN_USE when the value isn't there.
    int RemoveFromSet(const T& value)
    {
        {
            const boost::lock_guard<boost::mutex> lock(m_mutex);
            const auto found = std::find(m_values.begin(), m_values.end(), value);
            if (found != m_values.end()) {
                m_values.erase(found);
                return GC_ERR_SUCCESS;
            }
        }
        return Store(GC_ERR_RESOURCE_IN_USE);
    }

private:
    boost::mutex m_mutex;
    std::vector<T> m_values;
};

/// The memory of every consumer-owned buffer that is announced at this moment, on any stream. Never
/// destroyed: buffers may be revoked while the process ends.
extern ProtectedSet<void*>& g_userBuffersProtectedSet;

}  // namespace GenTL
