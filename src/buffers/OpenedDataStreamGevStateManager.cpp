#include "buffers/OpenedDataStreamGevStateManager.h"

#include "buffers/Buffer.h"
#include "buffers/BufferFieldSets.h"
#include "frame/Error.h"
#include "stream/IHALGvsp.h"

#include <boost/thread/lock_guard.hpp>

namespace GenTL {
namespace {

using BufferLock = boost::lock_guard<boost::recursive_mutex>;

}  // namespace

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

int OpenedDataStreamGevStateManager::MoveBufferFrom_ANNOUNCED_to_INPUT(GenTLHandle* hBuffer, bool checkState)
{
    return MoveBufferFrom_DISCARD_to_INPUT(hBuffer, checkState);
}

int OpenedDataStreamGevStateManager::MoveBufferFrom_DISCARD_to_INPUT(GenTLHandle* hBuffer, bool checkState)
{
    return IsDriverFilling()
               ? HandToDriver(hBuffer)
               : OpenedDataStreamStateManager::MoveBufferFrom_DISCARD_to_INPUT(hBuffer, checkState);
}

int OpenedDataStreamGevStateManager::MoveBufferFrom_OUTPUT_to_INPUT(GenTLHandle* hBuffer, bool checkState)
{
    return IsDriverFilling()
               ? HandToDriver(hBuffer)
               : OpenedDataStreamStateManager::MoveBufferFrom_OUTPUT_to_INPUT(hBuffer, checkState);
}

int OpenedDataStreamGevStateManager::MoveAllBuffersFrom_OUTPUT_to_INPUT()
{
    if (!IsDriverFilling()) {
        return OpenedDataStreamStateManager::MoveAllBuffersFrom_OUTPUT_to_INPUT();
    }
    while (!m_outputBuffers.empty()) {
        GenTLHandle* hBuffer = m_outputBuffers.front();
        Buffer& buffer = BufferOf(hBuffer);
        const BufferLock lock(buffer.m_mutex);
        SetToDriver(buffer);
        m_outputBuffers.pop_front();
        if (const int code = QueueInDriver(hBuffer); code != GC_ERR_SUCCESS) {
            return AppendName(code);
        }
    }
    return GC_ERR_SUCCESS;
}

int OpenedDataStreamGevStateManager::MoveBufferFrom_USER_to_INPUT(GenTLHandle* hBuffer, bool checkState)
{
    return IsDriverFilling()
               ? HandToDriver(hBuffer)
               : OpenedDataStreamStateManager::MoveBufferFrom_USER_to_INPUT(hBuffer, checkState);
}

int OpenedDataStreamGevStateManager::MoveBufferFrom_ACQUIRING_to_INPUT(GenTLHandle* hBuffer, bool checkState)
{
    return IsDriverFilling()
               ? HandToDriver(hBuffer)
               : OpenedDataStreamStateManager::MoveBufferFrom_ACQUIRING_to_INPUT(hBuffer, checkState);
}

int OpenedDataStreamGevStateManager::MoveAllUnqueuedBuffers_to_INPUT()
{
    return MoveAllDiscarded(true);
}

int OpenedDataStreamGevStateManager::MoveAllBuffers_to_INPUT()
{
    for (GenTLHandle* hBuffer : m_announcedBuffers) {
        Buffer& buffer = BufferOf(hBuffer);
        const BufferLock lock(buffer.m_mutex);
        int code = GC_ERR_SUCCESS;
        switch (buffer.m_state) {
            case IN_INPUT:
            case IN_USER:
                break;
            case IN_DISCARDED:
                code = MoveBufferFrom_DISCARD_to_INPUT(hBuffer, true);
                break;
            case IN_OUTPUT:
                code = MoveBufferFrom_OUTPUT_to_INPUT(hBuffer, true);
                break;
            case IN_DRIVER:
                code = MoveBufferFrom_DRIVER_to_INPUT_(hBuffer, true);
                break;
            case IN_ACQUIRING:
                return Raise(GC_ERR_INVALID_BUFFER, "can not move currently filled buffer to input");
            case UNKNOWN:
                return Raise(GC_ERR_INVALID_BUFFER, "can not move Unknown state buffer to input");
        }
        if (code != GC_ERR_SUCCESS) {
            return AppendName(code);
        }
    }
    return GC_ERR_SUCCESS;
}

int OpenedDataStreamGevStateManager::MoveBufferFrom_DRIVER_to_INPUT_(GenTLHandle* hBuffer, bool)
{
    SetToInput(BufferOf(hBuffer));
    PushToInput(hBuffer);
    --m_numInDriver;
    return GC_ERR_SUCCESS;
}

int OpenedDataStreamGevStateManager::MoveBufferFrom_DRIVER_to_OUTPUT(GenTLHandle* hBuffer, bool)
{
    SetToOutput(BufferOf(hBuffer));
    PushToOutput(hBuffer);
    --m_numInDriver;
    return GC_ERR_SUCCESS;
}

int OpenedDataStreamGevStateManager::MoveAllBuffersFrom_DRIVER_to_OUTPUT()
{
    for (GenTLHandle* hBuffer : m_announcedBuffers) {
        Buffer& buffer = BufferOf(hBuffer);
        const BufferLock lock(buffer.m_mutex);
        if (buffer.m_state == IN_DRIVER) {
            SetToOutput(buffer);
            m_outputBuffers.push_back(hBuffer);
            --m_numInDriver;
        }
    }
    return GC_ERR_SUCCESS;
}

int OpenedDataStreamGevStateManager::MoveAllBuffersFrom_INPUT_to_DRIVER_toStartAcquisition()
{
    const std::size_t count = m_inputBuffers.size();
    if (const int code = m_pHal->SetupLwfDriverBuffers(static_cast<unsigned>(count));
        code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    for (std::size_t i = 0; i < count; ++i) {
        GenTLHandle* hBuffer = m_inputBuffers.front();
        Buffer& buffer = BufferOf(hBuffer);
        const BufferLock lock(buffer.m_mutex);
        SetToDriver(buffer);
        m_inputBuffers.pop_front();
        buffer.m_driverIndex = i;
        if (const int code = QueueInDriver(hBuffer); code != GC_ERR_SUCCESS) {
            return AppendName(code);
        }
    }
    return GC_ERR_SUCCESS;
}

int OpenedDataStreamGevStateManager::SetDriverType(DriverType type)
{
    if (type > kDriverTcp) {
        return Raise(GC_ERR_INVALID_PARAMETER, "bad driver type");
    }
    m_driverType = type;
    return GC_ERR_SUCCESS;
}

bool OpenedDataStreamGevStateManager::IsDriverFilling() const
{
    return m_isGrabbing && m_driverType == kDriverLwf;
}

int OpenedDataStreamGevStateManager::HandToDriver(GenTLHandle* hBuffer)
{
    SetToDriver(BufferOf(hBuffer));
    return QueueInDriver(hBuffer);
}

int OpenedDataStreamGevStateManager::QueueInDriver(GenTLHandle* hBuffer)
{
    const int code = m_pHal->QueueImageBufferInLwfDriver(hBuffer);
    if (code == GC_ERR_SUCCESS) {
        ++m_numInDriver;
    }
    return code;
}

}  // namespace GenTL
