/// The stream layer over TCP: the camera's stream channel 0 and the connection that its frames come in by.
#pragma once

#include "stream/IHALGvsp.h"
#include "stream/LeaderSignal.h"
#include "stream/TCPSocket.h"

#include <netinet/in.h>

#include <atomic>
#include <cstdint>

namespace GenTL {

/// The registers are those of the UDP stream in another use: SCDA0 tells the camera the host's address, SCP0
/// the port at which the camera is to listen, and the host connects.
///
/// Owns: the connection, from Start to Stop. Threads: the consumer's calls all operations but GetNextPacket,
/// which the grab thread alone calls; Stop may run beside that and ends it. What the cameras can is kept for
/// the whole process, without a lock: with several cameras the last one read counts. Locks: none.
class HALGvspTCP : public IHALGvsp
{
public:
    HALGvspTCP() = default;

    /// Has the camera listen and connects to it, which takes as long as the system tries. Reads nothing of
    /// params but the access mode; without control of the camera GC_ERR_RESOURCE_IN_USE.
    int Start(IHALGev* hal, void* device, StreamStartParams& params) override;
    /// Closes the camera's channel when access allows it, then the connection, and releases who waits for a
    /// leader. A time-out of the camera doesn't count as a failure; after any other the connection stays
    /// open.
    int Stop(IHALGev* hal, void* device, unsigned packetSize, int accessMode) override;
    /// Not for TCP: GC_ERR_NOT_IMPLEMENTED.
    int GetNextPacket(char* packet, int size, int& length, unsigned long timeout) override;
    /// Receives one frame of dataSize bytes and copies its head, see TCPSocket::GetNextResult. headerLength
    /// is set whatever comes of it.
    int GetNextPacket(char* header,
                      int headerSize,
                      int& headerLength,
                      char* data,
                      int dataSize,
                      int& dataLength,
                      unsigned long timeout) override;
    /// Always kDriverTcp.
    DriverType GetDriverType() const override;
    /// GC_ERR_INVALID_PARAMETER on any but kDriverTcp.
    int SetDriverType(DriverType type) override;
    int ConfigureExtendedId(IHALGev* hal, void* device, bool legacyRequested, bool& extended) override;
    /// Not for TCP: GC_ERR_NOT_IMPLEMENTED.
    int GetCameraPacketResendSupport(IHALGev* hal, void* device, bool& enable) override;

    // Filter driver: all GC_ERR_NOT_IMPLEMENTED but the two about leaders.
    int SetupLwfDriverBuffers(unsigned count) override;
    int QueueImageBufferInLwfDriver(GenTLHandle* hBuffer) override;
    /// Waits up to timeout ms (at most 32 bits, or all ones for ever) for a frame to begin.
    int WaitForNextLeader(unsigned long timeout) override;
    int ResetWaitForNextLeader() override;
    /// The addresses of both ends on the control channel, in network order. GC_ERR_INVALID_HANDLE.
    virtual int GetServerAddrTCP(void* device, sockaddr_in& address);
    virtual int GetHostAddrTCP(void* device, sockaddr_in& address);
    int GetNextPacketLwf(char*** packets, int& count, unsigned long timeout) override;
    int GetNextPacketLwfRingBuffer(char** packets, int& count, unsigned long timeout) override;
    int QueuePacketBufferLwf(LwfBuffer* buffer) override;
    int QueuePacketBufferLwfRingBuffer() override;

    /// Releases who waits for a leader.
    void _signalNextLeader();
    /// The stream closes: who waits for a leader, now or later, gets GC_ERR_ABORT.
    void EndLeaderWaits();

private:
    int WriteDestination(IHALGev* hal, void* device);

    TCPSocket m_socket;
    sockaddr_in m_hostAddress{};
    sockaddr_in m_serverAddress{};
    LeaderSignal m_nextLeaderSeen;
    static std::atomic<std::uint32_t> m_capabilities;  // 0: not read yet
    static std::atomic<std::uint32_t> m_gevVersion;    // 0: not read yet
};

}  // namespace GenTL
