/// The register map of the DataStream module: what its port has at which address.
#pragma once

#include "modules/RegisterMap.h"

#include <cstddef>

namespace GenTL {

/// Finds the accessor of an address; the values come from the implementation.
///
/// Every accessor answers 0 or a GC_ERR_ code. On entry *piSize is the room in pBuffer, or the length of what
/// it holds, in bytes. Numbers are little-endian; an accessor may move fewer bytes than the register is long.
///
/// Owns: nothing. Threads: the consumer's. Locks: none.
class StreamReg
{
public:
    virtual ~StreamReg() = default;

    virtual int GetStreamID(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamType_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamAnnouncedBufferCount_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamBufferHandlingMode_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetStreamBufferHandlingMode_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamAnnounceBufferMinimum_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamDeliveredFrameCount_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamLostFrameCount_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamInputBufferCount_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamOutputBufferCount_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamStartedFrameCount_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetPayloadSize_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamIsGrabbing_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamChunkCountMaximum_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamBufferAlignment_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamMissedImageCount_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamMissedPacketCount_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamCumulativeMissedImageCount_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamCumulativeIncompleteImageCount_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamPacketResendEnable_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetStreamPacketResendEnable_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamAutoNegotiatePacketSize_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetStreamAutoNegotiatePacketSize_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamMaxNumResendRequestsPerImage_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetStreamMaxNumResendRequestsPerImage_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamMulticastEnable_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetStreamMulticastEnable_Reg(const void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetLocalTLXML_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int GetStreamInterPacketExpiry_Reg(void* pBuffer, unsigned long* piSize) = 0;
    virtual int SetStreamInterPacketExpiry_Reg(const void* pBuffer, unsigned long* piSize) = 0;

    /// A null argument gives GC_ERR_INVALID_PARAMETER, an unknown address GC_ERR_INVALID_ADDRESS; everything
    /// else comes from the accessor.
    int DispatchRead(unsigned long address, void* pBuffer, unsigned long* piSize);
    /// A null argument gives GC_ERR_INVALID_PARAMETER, any address that can't be written, known or not,
    /// GC_ERR_ACCESS_DENIED; everything else comes from the accessor.
    int DispatchWrite(unsigned long address, const void* pBuffer, unsigned long* piSize);

    /// The whole table.
    static const RegisterRow<StreamReg>* Registers(std::size_t& count);
};

}  // namespace GenTL
