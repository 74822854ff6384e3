/// The values behind the DataStream module's register map.
#pragma once

#include "frame/InfoUtility.h"
#include "stream/StreamReg.h"

namespace GenTL {

class DataStream;

/// Answers from a DataStream, by its info commands.
///
/// While the stream grabs, the settings refuse a write with GC_ERR_RESOURCE_IN_USE, which is logged and not
/// cached. A start between that look and the write is not kept out: settings act at the next start.
///
/// Owns: nothing. Borrows: the stream. Threads: the consumer's, as the stream's own info commands. Locks:
/// none.
class StreamRegImpl : public StreamReg
{
public:
    explicit StreamRegImpl(DataStream* stream) : m_pStream(stream) {}

    int GetStreamID(void* pBuffer, unsigned long* piSize) override;
    int GetStreamType_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetStreamAnnouncedBufferCount_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetStreamBufferHandlingMode_Reg(void* pBuffer, unsigned long* piSize) override;
    /// 8 bytes: 0 oldest first, 1 oldest first with overwriting, 2 newest only.
    int SetStreamBufferHandlingMode_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetStreamAnnounceBufferMinimum_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetStreamDeliveredFrameCount_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetStreamLostFrameCount_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetStreamInputBufferCount_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetStreamOutputBufferCount_Reg(void* pBuffer, unsigned long* piSize) override;
    /// The number of announced buffers; STREAM_INFO_NUM_STARTED is no register.
    int GetStreamStartedFrameCount_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetPayloadSize_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetStreamIsGrabbing_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetStreamChunkCountMaximum_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetStreamBufferAlignment_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetStreamMissedImageCount_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetStreamMissedPacketCount_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetStreamCumulativeMissedImageCount_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetStreamCumulativeIncompleteImageCount_Reg(void* pBuffer, unsigned long* piSize) override;
    // The switches are 1 byte, the number of resend requests 4.
    int GetStreamPacketResendEnable_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetStreamPacketResendEnable_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetStreamAutoNegotiatePacketSize_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetStreamAutoNegotiatePacketSize_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetStreamMaxNumResendRequestsPerImage_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetStreamMaxNumResendRequestsPerImage_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetStreamMulticastEnable_Reg(void* pBuffer, unsigned long* piSize) override;
    /// Taken while the stream grabs, too; it acts at the next start.
    int SetStreamMulticastEnable_Reg(const void* pBuffer, unsigned long* piSize) override;

    /// Copies the whole description, whatever *piSize says: the buffer must hold the size in the port's URL.
    int GetLocalTLXML_Reg(void* pBuffer, unsigned long* piSize) override;

    // At no address, and of an info command that the streams don't have.
    int GetStreamInterPacketExpiry_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetStreamInterPacketExpiry_Reg(const void* pBuffer, unsigned long* piSize) override;

private:
    /// Logs refusal and answers GC_ERR_RESOURCE_IN_USE while the stream grabs.
    int CheckStopped(const char* refusal);
    int Set(int command, int type, const void* pBuffer, const unsigned long* piSize);
    /// Any byte but 0 is on.
    int SetSwitch(int command, const void* pBuffer, const unsigned long* piSize);

    DataStream* m_pStream;
    InfoUtility m_info;
};

}  // namespace GenTL
