/// The state manager of a GigE Vision stream.
#pragma once

#include "buffers/OpenedDataStreamStateManager.h"
#include "stream/DriverType.h"

#include <atomic>

namespace GenTL {

class IHALGvsp;

/// Knows which kind of stream HAL fills the buffers. Owns, threads and locks as the base class.
class OpenedDataStreamGevStateManager : public OpenedDataStreamStateManager
{
public:
    OpenedDataStreamGevStateManager(std::vector<GenTLHandle*>& announcedBuffers,
                                    boost::recursive_mutex& announcedMutex,
                                    std::deque<GenTLHandle*>& inputBuffers,
                                    boost::mutex& inputMutex,
                                    boost::condition_variable& inputCondition,
                                    std::deque<GenTLHandle*>& outputBuffers,
                                    boost::mutex& outputMutex,
                                    boost::condition_variable& outputCondition,
                                    std::uint64_t& numInDriver,
                                    DriverType driverType,
                                    const std::atomic<bool>& isGrabbing,
                                    IHALGvsp*& pHal);

    /// GC_ERR_INVALID_PARAMETER on a type that doesn't exist.
    int SetDriverType(DriverType type);

private:
    DriverType m_driverType;
    [[maybe_unused]] const std::atomic<bool>& m_isGrabbing;
    [[maybe_unused]] IHALGvsp*& m_pHal;
};

}  // namespace GenTL
