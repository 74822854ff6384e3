#include "buffers/OpenedDataStreamGevStateManager.h"

#include "frame/Error.h"

namespace GenTL {

OpenedDataStreamGevStateManager::OpenedDataStreamGevStateManager(std::vector<GenTLHandle*>& announcedBuffers,
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
                                                                 IHALGvsp*& pHal)
    : OpenedDataStreamStateManager(announcedBuffers,
                                   announcedMutex,
                                   inputBuffers,
                                   inputMutex,
                                   inputCondition,
                                   outputBuffers,
                                   outputMutex,
                                   outputCondition,
                                   numInDriver),
      m_driverType(driverType),
      m_isGrabbing(isGrabbing),
      m_pHal(pHal)
{
}

int OpenedDataStreamGevStateManager::SetDriverType(DriverType type)
{
    if (type > kDriverTcp) {
        return Raise(GC_ERR_INVALID_PARAMETER, "bad driver type");
    }
    m_driverType = type;
    return GC_ERR_SUCCESS;
}

}  // namespace GenTL
