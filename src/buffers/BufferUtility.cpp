#include "buffers/BufferUtility.h"

#include "buffers/Buffer.h"
#include "frame/GenTLHandle.h"

#include <cstring>

namespace GenTL {
namespace {

constexpr const char* kStateNames[] = {
    "IN_DISCARDED", "IN_INPUT", "IN_ACQUIRING", "IN_DRIVER", "IN_OUTPUT", "IN_USER", "UNKNOWN",
};

using Comparison = bool (*)(const Buffer&, const Buffer&);

bool Compare(const Buffer* a, const Buffer* b, Comparison compare)
{
    return a == nullptr || b == nullptr ? a == b : compare(*a, *b);
}

/// A module that is no buffer counts as null.
bool Compare(const IBaseModule* a, const IBaseModule* b, Comparison compare)
{
    return Compare(dynamic_cast<const Buffer*>(a), dynamic_cast<const Buffer*>(b), compare);
}

const IBaseModule* Module(const GenTLHandle* handle)
{
    return handle == nullptr ? nullptr : CastHandle(const_cast<GenTLHandle*>(handle));
}

bool Compare(const GenTLHandle* a, const GenTLHandle* b, Comparison compare)
{
    return Compare(Module(a), Module(b), compare);
}

bool AreEqualGeometries(const Buffer& a, const Buffer& b)
{
    return a.m_sizeFilled == b.m_sizeFilled && a.m_width == b.m_width && a.m_height == b.m_height &&
           a.m_xOffset == b.m_xOffset && a.m_yOffset == b.m_yOffset && a.m_xPadding == b.m_xPadding &&
           a.m_yPadding == b.m_yPadding;
}

bool AreEqualPayloads(const Buffer& a, const Buffer& b)
{
    return a.m_imageOffset == b.m_imageOffset && a.m_payloadType == b.m_payloadType &&
           a.m_pixelFormat == b.m_pixelFormat && a.m_pixelFormatNamespace == b.m_pixelFormatNamespace &&
           a.m_deliveredImageHeight == b.m_deliveredImageHeight &&
           a.m_deliveredChunkPayloadSize == b.m_deliveredChunkPayloadSize &&
           a.m_chunkLayoutId == b.m_chunkLayoutId;
}

bool AreEqualProgresses(const Buffer& a, const Buffer& b)
{
    return a.m_bytesReceived == b.m_bytesReceived && a.m_pNextPacketTimer == b.m_pNextPacketTimer &&
           a.m_nextPacketTimerDone == b.m_nextPacketTimerDone && a.m_imageExpired == b.m_imageExpired &&
           a.m_nextExpectedPacketId == b.m_nextExpectedPacketId &&
           a.m_resendRequestCount == b.m_resendRequestCount && a.m_trailerReceived == b.m_trailerReceived &&
           a.m_leaderReceived == b.m_leaderReceived && a.m_packetsRemaining == b.m_packetsRemaining;
}

}  // namespace

std::string BufferUtility::getStateAsStr(int state)
{
    const bool isKnown = state >= IN_DISCARDED && state <= UNKNOWN;
    return isKnown ? kStateNames[state] : "STATUS IS IN ENUM";
}

bool BufferUtility::areEqualMemebers(const Buffer& a, const Buffer& b)
{
    return a.m_size == b.m_size && a.m_pUserPointer == b.m_pUserPointer && a.m_newData == b.m_newData &&
           a.m_isQueued == b.m_isQueued && a.m_isAcquiring == b.m_isAcquiring &&
           a.m_isIncomplete == b.m_isIncomplete && a.m_tlType == b.m_tlType && AreEqualGeometries(a, b) &&
           a.m_frameId == b.m_frameId && a.m_imagePresent == b.m_imagePresent && AreEqualPayloads(a, b) &&
           a.m_fileName == b.m_fileName && a.m_pixelEndianness == b.m_pixelEndianness &&
           a.m_dataSize == b.m_dataSize && a.m_timestamp == b.m_timestamp &&
           a.m_dataLargerThanBuffer == b.m_dataLargerThanBuffer &&
           a.m_containsChunkData == b.m_containsChunkData && a.m_userAllocated == b.m_userAllocated &&
           a.m_driverIndex == b.m_driverIndex && a.m_state == b.m_state && AreEqualProgresses(a, b);
}

bool BufferUtility::areEqualMemebers(const Buffer* a, const Buffer* b)
{
    return Compare(a, b, areEqualMemebers);
}
bool BufferUtility::areEqualMemebers(const IBuffer* a, const IBuffer* b)
{
    return Compare(a, b, areEqualMemebers);
}

bool BufferUtility::areEqualMemebers(const IBaseModule* a, const IBaseModule* b)
{
    return Compare(a, b, areEqualMemebers);
}

bool BufferUtility::areEqualMemebers(const GenTLHandle* a, const GenTLHandle* b)
{
    return Compare(a, b, areEqualMemebers);
}

bool BufferUtility::areEqualDataArray(const Buffer& a, const Buffer& b)
{
    if (a.m_size != b.m_size || a.m_sizeFilled != b.m_sizeFilled ||
        a.m_deliveredChunkPayloadSize != b.m_deliveredChunkPayloadSize || a.m_dataSize != b.m_sizeFilled) {
        return false;
    }
    return a.m_pData == b.m_pData || a.m_size == 0 || std::memcmp(a.m_pData, b.m_pData, a.m_size) == 0;
}

bool BufferUtility::areEqualDataArray(const Buffer* a, const Buffer* b)
{
    return Compare(a, b, areEqualDataArray);
}
bool BufferUtility::areEqualDataArray(const IBuffer* a, const IBuffer* b)
{
    return Compare(a, b, areEqualDataArray);
}

bool BufferUtility::areEqualDataArray(const IBaseModule* a, const IBaseModule* b)
{
    return Compare(a, b, areEqualDataArray);
}

bool BufferUtility::areEqualDataArray(const GenTLHandle* a, const GenTLHandle* b)
{
    return Compare(a, b, areEqualDataArray);
}

bool BufferUtility::areEqual(const Buffer& a, const Buffer& b)
{
    const bool sameMembers = areEqualMemebers(a, b);
    const bool sameData = areEqualDataArray(a, b);
    return sameMembers && sameData;
}

bool BufferUtility::areEqual(const Buffer* a, const Buffer* b)
{
    return Compare(a, b, areEqual);
}
bool BufferUtility::areEqual(const IBuffer* a, const IBuffer* b)
{
    return Compare(a, b, areEqual);
}
bool BufferUtility::areEqual(const IBaseModule* a, const IBaseModule* b)
{
    return Compare(a, b, areEqual);
}
bool BufferUtility::areEqual(const GenTLHandle* a, const GenTLHandle* b)
{
    return Compare(a, b, areEqual);
}

}  // namespace GenTL
