#include "stream/ResendGrab.h"

#include "buffers/Buffer.h"
#include "buffers/OpenedDataStreamGevStateManager.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"
#include "log/GLogger.h"
#include "log/localization.h"
#include "modules/ThreadPriority.h"
#include "modules/WorkerThread.h"
#include "stream/DataStreamGev.h"
#include "stream/IHALGvsp.h"
#include "stream/PacketTracking.h"

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/recursive_mutex.hpp>
#include <boost/thread/thread.hpp>

#include <algorithm>
#include <cstring>
#include <string>

namespace GenTL {
namespace {

using Lock = boost::lock_guard<boost::mutex>;
using BufferLock = boost::lock_guard<boost::recursive_mutex>;

constexpr std::uint32_t kResendRetryInterval = 25;  // ms
constexpr std::uint16_t kResentStatus = 0x0100;     // of a packet that was asked for; as good as success

/// What a former image left and the next leader may not replace.
void ClearImageFields(Buffer& buffer)
{
    buffer.m_width = 0;
    buffer.m_height = 0;
    buffer.m_xOffset = 0;
    buffer.m_yOffset = 0;
    buffer.m_xPadding = 0;
    buffer.m_yPadding = 0;
    buffer.m_payloadType = 0;
    buffer.m_pixelFormat = 0;
    buffer.m_deliveredChunkPayloadSize = 0;
    buffer.m_chunkLayoutId = 0;
    buffer.m_timestamp = 0;
}

/// The payload type of the stream's last leader. Before the first one nothing is known, and all is stored.
bool IsStored(unsigned payloadType)
{
    return payloadType == 0 || payloadType == kGvspChunkData || IsGvspImage(payloadType);
}

}  // namespace

ResendGrab::ResendGrab(DataStreamGev& stream) : m_stream(stream), m_common(stream), m_requests(stream) {}

void ResendGrab::Run()
{
    RunUntilInterrupted(ThreadPriority::m_priorityGrabThread, [this] {
        GLogger::Info(
            loc::al("DataStreamGev::GrabThreadResend({0}): Starting", {m_stream.m_portInfo.id.c_str()})
                .c_str());
        SetUp();
        GrabImages();
    });
    TearDown();
}

void ResendGrab::SetUp()
{
    StreamInfo& info = m_stream.m_streamInfo;
    m_packetSize = std::min(info.m_packetSize, kLongestDatagram);
    m_packet.resize(std::max<std::size_t>(m_packetSize, kGvspParsedSpan));
    // What a run without resend left in collection has no timers, and would be waited for without end. It
    // goes out as an image of that run, or its ids would count as a gap.
    m_common.DeliverAllInFlight(GrabCommon::Ending::LeftOver);
    info.m_currentBlockId = 1;
    info.m_lastBlockId = 0;
    info.m_resendRetryInterval = kResendRetryInterval;
    const std::uint32_t perPacket = GvspPayloadPerPacket(m_packetSize, GvspHeaderSize(info.m_extendedId));
    const std::uint64_t payloadPackets = PayloadPacketsPerImage(m_stream.m_firstBufferSize, perPacket);
    info.m_packetsPerImage = static_cast<std::uint32_t>(payloadPackets) + kLeaderAndTrailer;
    m_common.StartTimerThread();
}

void ResendGrab::GrabImages()
{
    for (;;) {
        boost::this_thread::interruption_point();
        RecycleOldest();
        m_isImageDone = false;
        while (!m_isImageDone) {
            boost::this_thread::interruption_point();
            if (ReceivePacket() && ParseHeader()) {
                TakePacket();
            }
        }
        m_common.CheckAndCompleteExpiredBuffers();
    }
}

/// Everything in collection is delivered as it is.
void ResendGrab::TearDown()
{
    const boost::this_thread::disable_interruption noInterruption;
    m_common.DeliverAllInFlight(GrabCommon::Ending::Stopped);
    m_common.StopTimerThread();
}

/// A waiting image is to be overwritten. The move demands a buffer that was being filled; one that never was
/// is refused, and stays out of the queues until the consumer flushes.
void ResendGrab::RecycleOldest()
{
    DataStreamGev& s = m_stream;
    const Lock inFlight(s.m_inFlightMutex);
    GenTLHandle* hOldest = CheckBufferAvailability(s.m_inputBuffers, s.m_inputMutex, s.m_outputBuffers,
                                                   s.m_outputMutex, s.m_bufferHandlingMode);
    if (hOldest == nullptr) {
        return;
    }
    const BufferLock bufferLock(CastHandleToBufferPtr(hOldest)->m_mutex);
    const Lock inputLock(s.m_inputMutex);
    const int code = s.m_pStateManager->MoveBufferFrom_ACQUIRING_to_INPUT(hOldest, true);
    if (code != GC_ERR_SUCCESS) {
        AppendName(code, "GrabThreadResend");
    }
}

bool ResendGrab::ReceivePacket()
{
    const int result = ReceiveWholePacket(*m_stream.m_pHalGvsp, m_packet, m_packetSize, m_length);
    if (result == GC_ERR_TIMEOUT) {
        GLogger::Debug("GrabThreadResend(): Timed out waiting for packet");
    } else if (result != GC_ERR_SUCCESS) {
        LogNumber("GrabThreadResend(): Failed to retrieve a packet. Error: {0}", result);
    }
    return result == GC_ERR_SUCCESS;
}

/// False when the packet is to be dropped.
bool ResendGrab::ParseHeader()
{
    if (GetPktHeaderInfo(m_packet.data(), static_cast<int>(m_packetSize), static_cast<int>(m_length),
                         m_header) != GC_ERR_SUCCESS) {
        return false;
    }
    const bool hasPlace = m_header.m_format != kGvspPayload || m_header.m_packetId != 0;
    return (m_header.m_status & ~kResentStatus) == 0 && m_length >= GvspHeaderSize(IsExtended()) && hasPlace;
}

void ResendGrab::TakePacket()
{
    const Lock inFlight(m_stream.m_inFlightMutex);
    Buffer* pBuffer = FindImageInFlightLocked();
    if (pBuffer == nullptr) {
        return;
    }
    Buffer& buffer = *pBuffer;
    const BufferLock lock(buffer.m_mutex);
    buffer.m_packetSeen = true;
    if (IsPacketReceived(buffer.m_pPacketBitmap, buffer.m_packetBitmapSize, m_header.m_packetId)) {
        GLogger::Error("GrabThreadResend(): Duplicate packet received");
        return;
    }
    AddToImageLocked(buffer);
}

/// The image of the packet's block, opened if need be. Null when the packet is to be dropped.
Buffer* ResendGrab::FindImageInFlightLocked()
{
    std::atomic<std::uint64_t>& currentBlock = m_stream.m_streamInfo.m_currentBlockId;
    Buffer* pCurrent = nullptr;
    for (GenTLHandle* hBuffer : m_stream.m_inFlightBuffers) {
        Buffer* pBuffer = CastHandleToBufferPtr(hBuffer);
        const std::uint64_t block = pBuffer->m_frameId;
        if (block == m_header.m_blockId) {
            return pBuffer;
        }
        if (block == currentBlock) {
            pCurrent = pBuffer;
        }
    }
    switch (CompareBlockIds(m_header.m_blockId, currentBlock, IsExtended())) {
        case BlockOrder::Older:
            return nullptr;
        case BlockOrder::Newer:
            if (pCurrent != nullptr) {
                AskForTailInFlightLocked(*pCurrent);
            }
            currentBlock = m_header.m_blockId;
            break;
        case BlockOrder::Equal:
            break;
    }
    return OpenImageInFlightLocked();
}

/// The next block has begun, and the trailer of the current one hasn't come.
void ResendGrab::AskForTailInFlightLocked(Buffer& buffer)
{
    const BufferLock lock(buffer.m_mutex);
    m_requests.AskForRangeLocked(buffer, buffer.m_nextExpectedPacketId, LastPacketId());
}

Buffer* ResendGrab::OpenImageInFlightLocked()
{
    bool usedFallback = false;
    GenTLHandle* hBuffer =
        PopNextBuffer(m_stream.m_inputBuffers, m_stream.m_inputMutex, nullptr, usedFallback);
    if (hBuffer == nullptr) {
        if (!m_isStarved) {
            GLogger::Error("GrabThreadResend(): Grab thread starved of input image buffers");
        }
        m_isStarved = true;
        return nullptr;
    }
    m_isStarved = false;
    // A buffer that was queued or flushed while its image was in collection stands there still.
    m_stream.m_inFlightBuffers.remove(hBuffer);
    m_stream.m_inFlightBuffers.push_back(hBuffer);
    Buffer& buffer = *CastHandleToBufferPtr(hBuffer);
    const BufferLock lock(buffer.m_mutex);
    m_requests.CancelAllLocked(buffer);
    BeginImageLocked(buffer, hBuffer);
    return &buffer;
}

void ResendGrab::BeginImageLocked(Buffer& buffer, GenTLHandle* hBuffer)
{
    const std::uint32_t packets = m_stream.m_streamInfo.m_packetsPerImage;
    ClearImageFields(buffer);
    buffer.m_frameId = m_header.m_blockId;
    buffer.m_packetsRemaining = packets;
    buffer.m_packetsReceived = 0;
    buffer.m_imageExpired = false;
    buffer.m_packetSeen = false;
    AllocatePacketBitmap(buffer, packets);
    m_common.ArmTimersLocked(buffer, hBuffer);
}

void ResendGrab::AddToImageLocked(Buffer& buffer)
{
    const bool extended = m_stream.m_streamInfo.m_extendedId;
    if (IsExtended() != extended) {
        GLogger::Error(
            loc::al("GrabThreadResend(): Invalid packet header expected. EI bit = {0} received header = {1}",
                    {extended ? "1" : "0", extended ? "0" : "1"})
                .c_str());
    }
    const bool isLate = IsLateLocked(buffer);
    const std::uint32_t expected = buffer.m_nextExpectedPacketId;
    if (m_header.m_packetId > expected) {
        m_requests.AskForRangeLocked(buffer, expected, m_header.m_packetId - 1);
    }
    if (!StoreLocked(buffer)) {
        return;
    }
    if (isLate) {
        m_requests.BookLocked(buffer, m_header.m_packetId);
    } else if (m_header.m_format == kGvspTrailer) {
        m_stream.m_streamInfo.m_currentBlockId = NextBlockId(m_header.m_blockId, IsExtended());
    }
    if (buffer.m_packetsReceived == m_stream.m_streamInfo.m_packetsPerImage) {
        FinishLocked(buffer);
    }
}

/// Whether the packet fills a gap. Only its ids tell, not its status.
bool ResendGrab::IsLateLocked(const Buffer& buffer) const
{
    const std::uint64_t current = m_stream.m_streamInfo.m_currentBlockId;
    const std::uint32_t expected = buffer.m_nextExpectedPacketId;
    const std::uint32_t id = m_header.m_packetId;
    return (m_header.m_blockId < current && id <= expected) ||
           (m_header.m_blockId == current && id < expected);
}

/// False when the packet is left alone.
bool ResendGrab::StoreLocked(Buffer& buffer)
{
    switch (m_header.m_format) {
        case kGvspLeader:
            StoreLeaderLocked(buffer);
            break;
        case kGvspTrailer:
            StoreTrailerLocked(buffer);
            break;
        case kGvspPayload:
            return StorePayloadLocked(buffer);
        default:
            LogNumber("GrabThreadResend(): Unsupported GVSP packet format: {0}", m_header.m_format);
            break;
    }
    return true;
}

void ResendGrab::StoreLeaderLocked(Buffer& buffer)
{
    StreamInfo& info = m_stream.m_streamInfo;
    const int result = ParseGVSPLeader(info, m_packet.data(), buffer, m_header);
    if (result != GC_ERR_SUCCESS) {
        LogNumber("GrabThreadResend(): Failed to parse GVSP leader! Error: {0}", result);
        return;
    }
    buffer.m_payloadType = info.m_payloadType;
    CountLocked(buffer);
    AdvanceExpectedPacketId(buffer, m_header.m_packetId);
    m_stream.m_pLeaderSeen->Signal();
}

/// What is expected stays as it is: it tells how far the payload has come.
void ResendGrab::StoreTrailerLocked(Buffer& buffer)
{
    bool endsImage = false;  // here only the last packet does
    const int result = ParseGVSPTrailer(m_stream.m_streamInfo, m_packet.data(), buffer, endsImage, m_header);
    if (result != GC_ERR_SUCCESS) {
        LogNumber("GrabThreadResend(): Failed to parse GVSP trailer! Error: {0}", result);
        return;
    }
    CountLocked(buffer);
}

bool ResendGrab::StorePayloadLocked(Buffer& buffer)
{
    if (buffer.m_dataLargerThanBuffer) {
        buffer.m_packetsReceived += 1;
        AdvanceExpectedPacketId(buffer, m_header.m_packetId);
        return true;
    }
    const unsigned type = m_stream.m_streamInfo.m_payloadType;
    if (!IsStored(type)) {
        LogNumber("ParseGVSPPayload(): Payload type [{0}] not supported", type);
        LogNumber("GrabThreadResend(): Failed to parse GVSP payload! Error: {0}", GC_ERR_NOT_IMPLEMENTED);
        return false;
    }
    CopyPayloadLocked(buffer);
    buffer.m_packetsRemaining -= 1;
    CountLocked(buffer);
    AdvanceExpectedPacketId(buffer, m_header.m_packetId);
    return true;
}

/// The packet's own header form tells where its data begin and how much of it the others have.
void ResendGrab::CopyPayloadLocked(Buffer& buffer)
{
    const std::size_t headerSize = GvspHeaderSize(IsExtended());
    const PacketPlace place =
        PlaceOfPacket(buffer, GvspPayloadPerPacket(m_packetSize, headerSize), m_header.m_packetId);
    const std::uint64_t bytes = m_length - headerSize;
    const std::uint64_t stored = std::min(bytes, place.room);
    if (stored < bytes) {
        buffer.m_dataLargerThanBuffer = true;
    }
    std::memcpy(static_cast<char*>(buffer.m_pData) + place.offset, m_packet.data() + headerSize, stored);
    buffer.m_bytesReceived += stored;
}

void ResendGrab::CountLocked(Buffer& buffer)
{
    SetPacketReceived(buffer.m_pPacketBitmap, buffer.m_packetBitmapSize, m_header.m_packetId);
    buffer.m_packetsReceived += 1;
}

/// The image is whole. It is handed off when those before it are.
void ResendGrab::FinishLocked(Buffer& buffer)
{
    m_isImageDone = true;
    buffer.m_isAcquiring = false;
    GrabCommon::CancelTimersLocked(buffer);
    m_requests.CancelAllLocked(buffer);
}

std::uint32_t ResendGrab::LastPacketId() const
{
    return m_stream.m_streamInfo.m_packetsPerImage - 1;
}

}  // namespace GenTL
