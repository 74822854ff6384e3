#include "stream/StreamRegImpl.h"

#include "frame/Error.h"
#include "log/GLogger.h"
#include "modules/RegisterField.h"
#include "stream/DataStream.h"
#include "xml/LocalXml.h"

#include <algorithm>
#include <cstring>

namespace GenTL {
namespace {

constexpr int kInterPacketExpiry = 1009;  // info command, answered by no stream

}  // namespace

int StreamRegImpl::CheckStopped(const char* refusal)
{
    bool isGrabbing = false;
    unsigned long size = sizeof isGrabbing;
    if (const int code = GetStreamIsGrabbing_Reg(&isGrabbing, &size); code != GC_ERR_SUCCESS) {
        return code;
    }
    if (isGrabbing) {
        GLogger::Error(refusal, GC_ERR_RESOURCE_IN_USE);
        return GC_ERR_RESOURCE_IN_USE;
    }
    return GC_ERR_SUCCESS;
}

int StreamRegImpl::Set(int command, int type, const void* pBuffer, const unsigned long* piSize)
{
    return m_pStream->SetInfo(command, type, pBuffer, *piSize);
}

int StreamRegImpl::SetSwitch(int command, const void* pBuffer, const unsigned long* piSize)
{
    // The consumer may write any byte, and a bool has two values only.
    const bool isOn = *piSize > 0 && *static_cast<const unsigned char*>(pBuffer) != 0;
    const unsigned long size = std::min(*piSize, sizeof isOn);
    return Set(command, INFO_DATATYPE_BOOL8, &isOn, &size);
}

int StreamRegImpl::GetStreamID(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, STREAM_INFO_ID, pBuffer, piSize);
}
int StreamRegImpl::GetStreamType_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, kGigEVision, pBuffer, piSize);
}
int StreamRegImpl::GetStreamAnnouncedBufferCount_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, STREAM_INFO_NUM_ANNOUNCED, pBuffer, piSize);
}
int StreamRegImpl::GetStreamBufferHandlingMode_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, STREAM_INFO_BUFFER_HANDLING_MODE, pBuffer, piSize);
}
int StreamRegImpl::SetStreamBufferHandlingMode_Reg(const void* pBuffer, unsigned long* piSize)
{
    constexpr const char* kRefusal =
        "StreamRegImpl::SetStreamBufferHandlingMode_Reg failed, "
        "unable to set buffer handling mode while streaming";
    const int code = CheckStopped(kRefusal);
    if (code != GC_ERR_SUCCESS) {
        return code;
    }
    return Set(STREAM_INFO_BUFFER_HANDLING_MODE, INFO_DATATYPE_INT64, pBuffer, piSize);
}
int StreamRegImpl::GetStreamAnnounceBufferMinimum_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, STREAM_INFO_BUF_ANNOUNCE_MIN, pBuffer, piSize);
}
int StreamRegImpl::GetStreamDeliveredFrameCount_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, STREAM_INFO_NUM_DELIVERED, pBuffer, piSize);
}
int StreamRegImpl::GetStreamLostFrameCount_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, STREAM_INFO_NUM_UNDERRUN, pBuffer, piSize);
}
int StreamRegImpl::GetStreamInputBufferCount_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, STREAM_INFO_NUM_QUEUED, pBuffer, piSize);
}
int StreamRegImpl::GetStreamOutputBufferCount_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, STREAM_INFO_NUM_AWAIT_DELIVERY, pBuffer, piSize);
}
int StreamRegImpl::GetStreamStartedFrameCount_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, STREAM_INFO_NUM_ANNOUNCED, pBuffer, piSize);
}
int StreamRegImpl::GetPayloadSize_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, STREAM_INFO_PAYLOAD_SIZE, pBuffer, piSize);
}
int StreamRegImpl::GetStreamIsGrabbing_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, STREAM_INFO_IS_GRABBING, pBuffer, piSize);
}
int StreamRegImpl::GetStreamChunkCountMaximum_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, STREAM_INFO_NUM_CHUNKS_MAX, pBuffer, piSize);
}
int StreamRegImpl::GetStreamBufferAlignment_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, STREAM_INFO_BUF_ALIGNMENT, pBuffer, piSize);
}
int StreamRegImpl::GetStreamMissedImageCount_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, STREAM_INFO_MISSED_IMAGE_COUNT, pBuffer, piSize);
}
int StreamRegImpl::GetStreamMissedPacketCount_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, STREAM_INFO_MISSED_PACKET_COUNT, pBuffer, piSize);
}
int StreamRegImpl::GetStreamCumulativeMissedImageCount_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, STREAM_INFO_TOTAL_MISSED_IMAGE_COUNT, pBuffer, piSize);
}
int StreamRegImpl::GetStreamCumulativeIncompleteImageCount_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, STREAM_INFO_TOTAL_INCOMPLETE_IMAGE_COUNT, pBuffer, piSize);
}

int StreamRegImpl::GetStreamPacketResendEnable_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, STREAM_INFO_PACKET_RESEND_ENABLE, pBuffer, piSize);
}
int StreamRegImpl::SetStreamPacketResendEnable_Reg(const void* pBuffer, unsigned long* piSize)
{
    constexpr const char* kRefusal =
        "StreamRegImpl::SetStreamPacketResendEnable_Reg failed, "
        "unable to modify packet resend control while streaming";
    const int code = CheckStopped(kRefusal);
    if (code != GC_ERR_SUCCESS) {
        return code;
    }
    return SetSwitch(STREAM_INFO_PACKET_RESEND_ENABLE, pBuffer, piSize);
}
int StreamRegImpl::GetStreamAutoNegotiatePacketSize_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, STREAM_INFO_AUTO_PACKET_SIZE_ENABLE, pBuffer, piSize);
}
int StreamRegImpl::SetStreamAutoNegotiatePacketSize_Reg(const void* pBuffer, unsigned long* piSize)
{
    constexpr const char* kRefusal =
        "StreamRegImpl::SetAutoNegotiatePacketSize_Reg failed, "
        "unable to modify auto packet size control while streaming";
    const int code = CheckStopped(kRefusal);
    if (code != GC_ERR_SUCCESS) {
        return code;
    }
    return SetSwitch(STREAM_INFO_AUTO_PACKET_SIZE_ENABLE, pBuffer, piSize);
}
int StreamRegImpl::GetStreamMaxNumResendRequestsPerImage_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, STREAM_INFO_MAX_RESEND_REQUESTS, pBuffer, piSize);
}
int StreamRegImpl::SetStreamMaxNumResendRequestsPerImage_Reg(const void* pBuffer, unsigned long* piSize)
{
    constexpr const char* kRefusal =
        "StreamRegImpl::SetStreamMaxNumResendRequestsPerImage_Reg failed, "
        "unable to modify maximum number of resend requests per image while streaming";
    const int code = CheckStopped(kRefusal);
    if (code != GC_ERR_SUCCESS) {
        return code;
    }
    return Set(STREAM_INFO_MAX_RESEND_REQUESTS, INFO_DATATYPE_UINT32, pBuffer, piSize);
}
int StreamRegImpl::GetStreamMulticastEnable_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, STREAM_INFO_MULTICAST_ENABLE, pBuffer, piSize);
}
int StreamRegImpl::SetStreamMulticastEnable_Reg(const void* pBuffer, unsigned long* piSize)
{
    return SetSwitch(STREAM_INFO_MULTICAST_ENABLE, pBuffer, piSize);
}

int StreamRegImpl::GetLocalTLXML_Reg(void* pBuffer, unsigned long*)
{
    std::memcpy(pBuffer, kStreamXml.data(), kStreamXml.size());
    return GC_ERR_SUCCESS;
}

int StreamRegImpl::GetStreamInterPacketExpiry_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pStream, kInterPacketExpiry, pBuffer, piSize);
}
int StreamRegImpl::SetStreamInterPacketExpiry_Reg(const void* pBuffer, unsigned long* piSize)
{
    constexpr const char* kRefusal =
        "StreamRegImpl::SetStreamInterPacketExpiry_Reg failed, "
        "unable to modify inter-packet expiry time while streaming";
    const int code = CheckStopped(kRefusal);
    if (code != GC_ERR_SUCCESS) {
        return code;
    }
    return Set(kInterPacketExpiry, INFO_DATATYPE_UINT32, pBuffer, piSize);
}

}  // namespace GenTL
