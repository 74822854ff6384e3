/// The stream layer as the stream modules see it.
#pragma once

#include "stream/DriverType.h"

namespace GenTL {

class IHALGev;
struct GenTLHandle;
struct LwfBuffer;  // of the filter driver, whose contents no part of this library uses
struct StreamStartParams;

/// Opens the camera's stream channel and receives its packets. Operations return 0 or a GenTL code; device is
/// the control channel's device handle; time-outs are milliseconds.
class IHALGvsp
{
public:
    IHALGvsp() = default;
    IHALGvsp(const IHALGvsp&) = delete;
    IHALGvsp& operator=(const IHALGvsp&) = delete;
    virtual ~IHALGvsp() = default;

    virtual int Start(IHALGev* hal, void* device, StreamStartParams& params) = 0;
    virtual int Stop(IHALGev* hal, void* device, unsigned packetSize, int accessMode) = 0;
    /// Receives one datagram of at most size bytes. GC_ERR_TIMEOUT when none comes.
    virtual int GetNextPacket(char* packet, int size, int& length, unsigned long timeout) = 0;
    /// Receives into two places. Over UDP one datagram, header first, of which dataLength counts the header's
    /// bytes too; over TCP one frame into data, the head of which is copied to header.
    virtual int GetNextPacket(char* header,
                              int headerSize,
                              int& headerLength,
                              char* data,
                              int dataSize,
                              int& dataLength,
                              unsigned long timeout) = 0;
    virtual DriverType GetDriverType() const = 0;
    virtual int SetDriverType(DriverType type) = 0;
    /// Finds out which header form the camera sends. The camera's registers decide, not the request.
    virtual int ConfigureExtendedId(IHALGev* hal, void* device, bool legacyRequested, bool& extended) = 0;
    /// Clears enable, and returns a code, when the camera can't resend packets.
    virtual int GetCameraPacketResendSupport(IHALGev* hal, void* device, bool& enable) = 0;

    // Filter driver. The two about leaders serve TCP too.
    virtual int SetupLwfDriverBuffers(unsigned count) = 0;
    virtual int QueueImageBufferInLwfDriver(GenTLHandle* hBuffer) = 0;
    virtual int WaitForNextLeader(unsigned long timeout) = 0;
    virtual int ResetWaitForNextLeader() = 0;
    virtual int GetNextPacketLwf(char*** packets, int& count, unsigned long timeout) = 0;
    virtual int GetNextPacketLwfRingBuffer(char** packets, int& count, unsigned long timeout) = 0;
    virtual int QueuePacketBufferLwf(LwfBuffer* buffer) = 0;
    virtual int QueuePacketBufferLwfRingBuffer() = 0;
};

}  // namespace GenTL
