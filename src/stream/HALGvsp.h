/// The stream layer over UDP: the camera's stream channel 0 and the socket that its packets come in by.
#pragma once

#include "stream/IHALGvsp.h"
#include "stream/StreamHandle.h"

#include <atomic>
#include <cstdint>

namespace GenTL {

/// Owns: the stream socket, open from Start to Stop.
/// Threads: the consumer's calls Start and Stop; between them the grab thread alone calls GetNextPacket.
/// Locks: none.
class HALGvsp : public IHALGvsp
{
public:
    HALGvsp() = default;

    /// Writes the destination to the camera, tries the packet size and computes the time limits. Listeners of
    /// a multicast stream write nothing. After a failure the socket is closed.
    int Start(IHALGev* hal, void* device, StreamStartParams& params) override;
    /// Closes the camera's channel when access allows it. A time-out of that doesn't count as a failure;
    /// after any other the socket stays open.
    int Stop(IHALGev* hal, void* device, unsigned packetSize, int accessMode) override;
    int GetNextPacket(char* packet, int size, int& length, unsigned long timeout) override;
    int GetNextPacket(char* header,
                      int headerSize,
                      int& headerLength,
                      char* data,
                      int dataSize,
                      int& dataLength,
                      unsigned long timeout) override;
    DriverType GetDriverType() const override;
    int SetDriverType(DriverType type) override;
    int ConfigureExtendedId(IHALGev* hal, void* device, bool legacyRequested, bool& extended) override;
    int GetCameraPacketResendSupport(IHALGev* hal, void* device, bool& enable) override;

    // Filter driver: all GC_ERR_NOT_IMPLEMENTED.
    int SetupLwfDriverBuffers(unsigned count) override;
    int QueueImageBufferInLwfDriver(GenTLHandle* hBuffer) override;
    int WaitForNextLeader(unsigned long timeout) override;
    int ResetWaitForNextLeader() override;
    int GetNextPacketLwf(char*** packets, int& count, unsigned long timeout) override;
    int GetNextPacketLwfRingBuffer(char** packets, int& count, unsigned long timeout) override;
    int QueuePacketBufferLwf(LwfBuffer* buffer) override;
    int QueuePacketBufferLwfRingBuffer() override;

private:
    // The steps of Start raise in its name, which is function.

    /// portText is logged with the port before that is written; empty logs nothing.
    int StartUnicast(IHALGev* hal,
                     void* device,
                     StreamStartParams& params,
                     const char* portText,
                     const char* function = __builtin_FUNCTION());
    int StartMulticast(IHALGev* hal,
                       void* device,
                       StreamStartParams& params,
                       const char* function = __builtin_FUNCTION());
    int OpenMulticastMaster(IHALGev* hal, void* device, in_addr group, const char* function);
    int OpenMulticastListener(IHALGev* hal, void* device, in_addr group, const char* function);
    /// Tells the camera where to send: address, in host order, and the socket's port. Closes the socket when
    /// that fails.
    int WriteDestination(
        IHALGev* hal, void* device, unsigned address, const char* portText, const char* function);

    StreamHandle m_stream;
    std::uint32_t m_gvspCapabilities = 0;                    // 0: not read yet
    std::atomic<DriverType> m_driverType{kDriverUdpSocket};  // asked for by who queues buffers
    std::uint32_t m_gevVersion = 0;                          // 0: not read yet
};

}  // namespace GenTL
