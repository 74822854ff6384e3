/// The state manager of a GigE Vision stream.
#pragma once

#include "buffers/BufferStateSetterGev.h"
#include "buffers/OpenedDataStreamStateManager.h"
#include "stream/DriverType.h"

#include <atomic>

namespace GenTL {

class IHALGvsp;

/// Adds the buffers in the driver: a stream HAL of type kDriverLwf takes buffers over while the stream grabs
/// and fills them by itself, so that what goes to the input queue otherwise is handed to it.
///
/// Owns, threads and locks as the base class. Borrows: the stream's HAL, which is there while the stream is
/// open; whatever hands buffers to the driver needs an open stream.
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

    // With a driver that fills the buffers the single moves to the input queue hand the buffer to it instead,
    // whatever its state, and take it out of no queue: the caller does. They answer what the HAL answers; a
    // buffer that the driver refused stays in the state of one in the driver, and isn't counted.
    int MoveBufferFrom_ANNOUNCED_to_INPUT(GenTLHandle* hBuffer, bool checkState) override;
    int MoveBufferFrom_DISCARD_to_INPUT(GenTLHandle* hBuffer, bool checkState) override;
    int MoveBufferFrom_OUTPUT_to_INPUT(GenTLHandle* hBuffer, bool checkState) override;
    /// Ends with the first buffer that the driver refuses, which has left the output queue by then.
    int MoveAllBuffersFrom_OUTPUT_to_INPUT() override;
    int MoveBufferFrom_USER_to_INPUT(GenTLHandle* hBuffer, bool checkState) override;
    int MoveBufferFrom_ACQUIRING_to_INPUT(GenTLHandle* hBuffer, bool checkState) override;
    int MoveAllUnqueuedBuffers_to_INPUT() override;
    /// Takes buffers back from the driver too.
    int MoveAllBuffers_to_INPUT() override;

    // Out of the driver, without any test; always 0.
    int MoveBufferFrom_DRIVER_to_INPUT_(GenTLHandle* hBuffer, bool checkState);
    int MoveBufferFrom_DRIVER_to_OUTPUT(GenTLHandle* hBuffer, bool checkState);
    /// Wakes nobody who waits for an output buffer.
    int MoveAllBuffersFrom_DRIVER_to_OUTPUT();
    /// Tells the driver the number of input buffers and hands them to it in their order. Ends with the first
    /// one that it refuses, which has left the input queue by then.
    int MoveAllBuffersFrom_INPUT_to_DRIVER_toStartAcquisition();
    /// GC_ERR_INVALID_PARAMETER on a type that doesn't exist.
    int SetDriverType(DriverType type);

private:
    bool IsDriverFilling() const;
    int HandToDriver(GenTLHandle* hBuffer);
    int QueueInDriver(GenTLHandle* hBuffer);

    BufferStateSetterGev m_stateSetterGev;
    DriverType m_driverType;
    const std::atomic<bool>& m_isGrabbing;
    IHALGvsp*& m_pHal;
};

}  // namespace GenTL
