#include "buffers/Buffer.h"

#include "frame/Error.h"
#include "frame/PortableUtil.h"

namespace GenTL {
namespace {

void* MemoryForCopyOf(const Buffer& source)
{
    if (source.m_userAllocated) {
        return source.m_pData;
    }
    char* copy = new char[source.m_size];
    if (source.m_pData != nullptr) {
        memcpy_portable(copy, source.m_size, source.m_pData, source.m_size);
    }
    return copy;
}

}  // namespace

Buffer::Buffer() = default;

Buffer& Buffer::operator=(const Buffer& other)
{
    if (this == &other) {
        return *this;
    }
    // The memory first: should it throw, m_size must not promise more than there is.
    m_pData = MemoryForCopyOf(other);
    m_size = other.m_size;
    m_pUserPointer = other.m_pUserPointer;
    m_newData = other.m_newData;
    m_isQueued = other.m_isQueued;
    m_isAcquiring = other.m_isAcquiring;
    m_isIncomplete = other.m_isIncomplete;
    m_tlType = other.m_tlType;
    m_sizeFilled = other.m_sizeFilled;
    m_width = other.m_width;
    m_height = other.m_height;
    m_xOffset = other.m_xOffset;
    m_yOffset = other.m_yOffset;
    m_xPadding = other.m_xPadding;
    m_yPadding = other.m_yPadding;
    m_frameId = other.m_frameId;
    m_imagePresent = other.m_imagePresent;
    m_imageOffset = other.m_imageOffset;
    m_payloadType = other.m_payloadType;
    m_pixelFormat = other.m_pixelFormat;
    m_pixelFormatNamespace = other.m_pixelFormatNamespace;
    m_deliveredImageHeight = other.m_deliveredImageHeight;
    m_deliveredChunkPayloadSize = other.m_deliveredChunkPayloadSize;
    m_chunkLayoutId = other.m_chunkLayoutId;
    m_fileName = other.m_fileName;
    m_pixelEndianness = other.m_pixelEndianness;
    m_dataSize = other.m_dataSize;
    m_timestamp = other.m_timestamp;
    m_dataLargerThanBuffer = other.m_dataLargerThanBuffer;
    m_containsChunkData = other.m_containsChunkData;
    m_userAllocated = other.m_userAllocated;
    m_driverIndex = other.m_driverIndex;
    m_state = other.m_state.load();
    m_bytesReceived = other.m_bytesReceived;
    if (m_pNextPacketTimer == nullptr) {
        m_pNextPacketTimer = other.m_pNextPacketTimer;
    }
    m_nextPacketTimerDone = other.m_nextPacketTimerDone;
    m_imageExpired = other.m_imageExpired;
    m_nextExpectedPacketId = other.m_nextExpectedPacketId;
    m_resendRequestCount = other.m_resendRequestCount;
    m_trailerReceived = other.m_trailerReceived;
    m_leaderReceived = other.m_leaderReceived;
    m_packetsRemaining = other.m_packetsRemaining;
    return *this;
}

int Buffer::GetPortInfo(int, int*, void*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int Buffer::GetNumPortURLs(unsigned int* piNumURLs)
{
    if (piNumURLs == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "piNumURLs==nullptr");
    }
    *piNumURLs = 0;
    return GC_ERR_SUCCESS;
}

int Buffer::GetPortURLInfo(unsigned int, int, int*, void*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

}  // namespace GenTL
