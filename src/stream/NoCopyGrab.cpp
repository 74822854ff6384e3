#include "stream/NoCopyGrab.h"

#include "buffers/Buffer.h"
#include "buffers/IBuffer.h"
#include "frame/GenTLHandle.h"
#include "log/GLogger.h"
#include "log/localization.h"
#include "modules/ThreadPriority.h"
#include "modules/WorkerThread.h"
#include "stream/DataStreamGev.h"
#include "stream/IHALGvsp.h"

#include <boost/asio/deadline_timer.hpp>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/recursive_mutex.hpp>
#include <boost/thread/thread.hpp>

#include <algorithm>
#include <cstring>
#include <new>
#include <string>

namespace GenTL {
namespace {

using Lock = boost::lock_guard<boost::mutex>;
using BufferLock = boost::lock_guard<boost::recursive_mutex>;

/// The header size of the first stream that runs here stays that of all later ones, whatever their form.
std::size_t HeaderSizeOfProcess(bool extended)
{
    static const std::size_t sk_dataOffset = GvspHeaderSize(extended);
    return sk_dataOffset;
}

std::size_t Received(int length, std::size_t size)
{
    return length > 0 ? std::min(static_cast<std::size_t>(length), size) : 0;
}

bool IsKnownFormat(const ParsedGvspHeader& header)
{
    return header.m_format == kGvspLeader || header.m_format == kGvspTrailer ||
           header.m_format == kGvspPayload;
}

/// What the consumer is told of an image, without what tells how much of it came.
void CopyImageFields(const Buffer& from, Buffer& to)
{
    to.m_frameId = from.m_frameId;
    to.m_payloadType = from.m_payloadType;
    to.m_leaderReceived = from.m_leaderReceived;
    to.m_trailerReceived = from.m_trailerReceived;
    to.m_timestamp = from.m_timestamp;
    to.m_pixelFormat = from.m_pixelFormat;
    to.m_width = from.m_width;
    to.m_height = from.m_height;
    to.m_xOffset = from.m_xOffset;
    to.m_yOffset = from.m_yOffset;
    to.m_xPadding = from.m_xPadding;
    to.m_yPadding = from.m_yPadding;
    to.m_deliveredChunkPayloadSize = from.m_deliveredChunkPayloadSize;
    to.m_chunkLayoutId = from.m_chunkLayoutId;
    to.m_containsChunkData = from.m_containsChunkData;
    to.m_dataSize = from.m_dataSize;
    to.m_packetsRemaining = from.m_packetsRemaining;
}

}  // namespace

NoCopyGrab::NoCopyGrab(DataStreamGev& stream) : m_stream(stream), m_common(stream)
{
    MakeSpare();
}

NoCopyGrab::~NoCopyGrab()
{
    FreeSpare();
}

void NoCopyGrab::Run()
{
    RunUntilInterrupted(ThreadPriority::m_priorityGrabThread, [this] {
        GLogger::Info("DataStreamGev::GrabThread(NC): Starting");
        SetUp();
        GrabImages();
    });
    TearDown();
}

void NoCopyGrab::SetUp()
{
    StreamInfo& info = m_stream.m_streamInfo;
    m_headerSize = HeaderSizeOfProcess(info.m_extendedId);
    m_packetSize = std::min(info.m_packetSize, kLongestDatagram);
    m_packet.resize(std::max<std::size_t>(m_packetSize, kGvspParsedSpan));
    // What the run before has left goes out as an image of that run, or its ids would count as a gap.
    m_common.DeliverAllInFlight(GrabCommon::Ending::LeftOver);
    info.m_lastBlockId = 0;
    info.m_currentBlockId = 1;
    m_payloadPerPacket = GvspPayloadPerPacket(m_packetSize, m_headerSize);
    m_payloadPackets = PayloadPacketsPerImage(m_stream.m_firstBufferSize, m_payloadPerPacket);
    m_common.StartTimerThread();
}

/// The spare catches the image that comes while the input queue is empty, so that parsing stays in step.
void NoCopyGrab::MakeSpare()
{
    const std::uint64_t size = m_stream.m_firstBufferSize;
    // Zeroed by the system page by page as it is used: the first packets don't wait for it.
    m_spareMemory.reset(static_cast<char*>(std::calloc(std::max<std::size_t>(size, 1), 1)));
    if (m_spareMemory == nullptr) {
        throw std::bad_alloc();
    }
    m_spare = std::make_unique<Buffer>();
    m_spare->m_pData = m_spareMemory.get();
    m_spare->m_size = size;
    m_spare->m_userAllocated = true;
    m_spare->m_pNextPacketTimer = new boost::asio::deadline_timer(m_stream.m_ioService);
    m_spare->m_pBufferExpiryTimer = new boost::asio::deadline_timer(m_stream.m_ioService);
    void* hSpare = nullptr;
    AllocateHandle(&hSpare, static_cast<IBuffer*>(m_spare.get()));
    m_hSpare = static_cast<GenTLHandle*>(hSpare);
}

void NoCopyGrab::GrabImages()
{
    for (;;) {
        boost::this_thread::interruption_point();
        if (!BeginImage()) {
            boost::this_thread::yield();
            continue;
        }
        CollectPackets();
        EndImage();
        boost::this_thread::interruption_point();
    }
}

/// The image in collection stays in the list, and goes out at the start of the next run.
void NoCopyGrab::TearDown()
{
    const boost::this_thread::disable_interruption noInterruption;
    if (m_hBuffer != nullptr) {
        const BufferLock lock(m_pBuffer->m_mutex);
        m_pBuffer->m_isAcquiring = false;
        GrabCommon::CancelTimersLocked(*m_pBuffer);
    }
    m_stream.m_bufferInHand.Release();
    {
        const Lock inFlight(m_stream.m_inFlightMutex);
        m_common.CancelInFlightTimersLocked();
    }
    m_common.StopTimerThread();
    FreeSpare();
}

void NoCopyGrab::FreeSpare()
{
    if (m_spare != nullptr) {
        delete m_spare->m_pNextPacketTimer;
        delete m_spare->m_pBufferExpiryTimer;
        m_spare.reset();
    }
    if (m_hSpare != nullptr) {
        DeleteHandle(m_hSpare);
        m_hSpare = nullptr;
    }
}

/// m_inFlightMutex is held throughout: a buffer between two places can't be revoked.
bool NoCopyGrab::BeginImage()
{
    DataStreamGev& s = m_stream;
    const Lock inFlight(s.m_inFlightMutex);
    // Unless a waiting image is to be overwritten there is nothing to queue: the call fails and is logged.
    s.QueueBuffer(CheckBufferAvailability(s.m_inputBuffers, s.m_inputMutex, s.m_outputBuffers,
                                          s.m_outputMutex, s.m_bufferHandlingMode));
    m_hBuffer = PopNextBuffer(s.m_inputBuffers, s.m_inputMutex, m_hSpare, m_usesSpare);
    if (m_hBuffer == nullptr) {
        return false;
    }
    s.m_bufferInHand.Take(m_hBuffer);
    m_pBuffer = CastHandleToBufferPtr(m_hBuffer);
    m_isGivenUp = false;
    m_isComplete = false;
    m_isArmed = false;
    {
        const BufferLock lock(m_pBuffer->m_mutex);
        m_pBuffer->m_state = IN_ACQUIRING;
        m_pBuffer->m_packetSeen = false;
        m_pBuffer->m_imageExpired = false;
        m_pBuffer->m_packetsRemaining = static_cast<std::int64_t>(m_payloadPackets + kLeaderAndTrailer);
        m_pBuffer->m_frameId = s.m_streamInfo.m_currentBlockId;
    }
    m_common.CancelInFlightTimersLocked();
    if (!m_usesSpare) {
        // It may stand there from the run before, if it was flushed back since.
        s.m_inFlightBuffers.remove(m_hBuffer);
        s.m_inFlightBuffers.push_back(m_hBuffer);
    }
    return true;
}

void NoCopyGrab::CollectPackets()
{
    while (!m_isComplete) {
        boost::this_thread::interruption_point();
        GiveUpRecalledBuffer();
        if (!ReceivePacket() || !ParseHeader()) {
            continue;
        }
        std::atomic<std::uint64_t>& currentBlock = m_stream.m_streamInfo.m_currentBlockId;
        switch (CompareBlockIds(m_header.m_blockId, currentBlock, m_header.m_eiFlag != 0)) {
            case BlockOrder::Older:
                break;
            case BlockOrder::Newer:
                // Before its format is looked at: from here on the image's own packets are old.
                currentBlock = m_header.m_blockId;
                if (IsKnownFormat(m_header)) {
                    HoldForNextImage();
                }
                break;
            case BlockOrder::Equal:
                StorePacket();
                break;
        }
    }
}

void NoCopyGrab::EndImage()
{
    {
        const BufferLock lock(m_pBuffer->m_mutex);
        GrabCommon::CancelTimersLocked(*m_pBuffer);
    }
    if (m_usesSpare && !m_isGivenUp && !MoveSpareToInputBuffer()) {
        ++m_stream.m_numUnderrun;
    }
    m_common.CheckAndCompleteExpiredBuffers();
    m_stream.m_bufferInHand.Release();
    m_hBuffer = nullptr;
}

bool NoCopyGrab::MoveSpareToInputBuffer()
{
    const Lock inFlight(m_stream.m_inFlightMutex);
    GenTLHandle* hTarget = nullptr;
    {
        const Lock inputLock(m_stream.m_inputMutex);
        if (m_stream.m_inputBuffers.empty()) {
            return false;
        }
        hTarget = m_stream.m_inputBuffers.front();
        m_stream.m_inputBuffers.pop_front();
        CastHandleToBufferPtr(hTarget)->m_isQueued = false;
    }
    Buffer& target = *CastHandleToBufferPtr(hTarget);
    {
        const BufferLock lock(target.m_mutex);
        std::memcpy(target.m_pData, m_spare->m_pData, std::min(target.m_size, m_spare->m_size));
        CopyImageFields(*m_spare, target);
        if (m_spare->m_bytesReceived > target.m_size) {
            target.m_dataLargerThanBuffer = true;
        }
        GrabCommon::CancelTimersLocked(target);
    }
    m_stream.m_inFlightBuffers.remove(hTarget);
    m_stream.m_inFlightBuffers.push_back(hTarget);
    return true;
}

void NoCopyGrab::GiveUpRecalledBuffer()
{
    if (!m_stream.m_bufferInHand.IsRecalled()) {
        return;
    }
    m_spare->m_nextExpectedPacketId = m_pBuffer->m_nextExpectedPacketId;
    m_hBuffer = m_hSpare;
    m_pBuffer = m_spare.get();
    m_usesSpare = true;
    m_isGivenUp = true;
    m_stream.m_bufferInHand.Release();
    m_stream.m_bufferInHand.Take(m_hSpare);
}

bool NoCopyGrab::ReceivePacket()
{
    m_expected = m_pBuffer->m_nextExpectedPacketId;
    if (m_isHeld) {
        m_isHeld = false;
        return true;
    }
    const bool dataIsDue = m_expected != 0 && m_expected != m_payloadPackets + 1;
    return dataIsDue ? ReceiveIntoImage() : ReceiveWhole();
}

bool NoCopyGrab::ReceiveWhole()
{
    m_isWhole = true;
    return ReceiveWholePacket(*m_stream.m_pHalGvsp, m_packet, m_packetSize, m_length) == GC_ERR_SUCCESS;
}

bool NoCopyGrab::ReceiveIntoImage()
{
    if (m_expected > m_payloadPackets) {
        LogNumber("GrabThread(NC): Invalid expected packet Id: [{0}]", static_cast<std::int64_t>(m_expected));
    }
    const PacketPlace place = PlaceOf(m_expected);
    const std::uint64_t room = std::min<std::uint64_t>(m_payloadPerPacket, place.room);
    // Too little room would cut a leader or trailer that comes instead. Such a rest is copied from the packet
    // buffer.
    const bool landsInImage = room >= kGvspLongestInfo;
    m_pData = landsInImage ? Image() + place.offset : m_packet.data() + m_headerSize;
    const std::size_t size = landsInImage ? room : m_packet.size() - m_headerSize;

    int headerLength = 0;
    int dataLength = 0;
    const int result =
        m_stream.m_pHalGvsp->GetNextPacket(m_headerBytes.data(), static_cast<int>(m_headerSize), headerLength,
                                           m_pData, static_cast<int>(size), dataLength, kReceiveTimeout);
    const std::size_t datagram = Received(dataLength, kLongestDatagram);
    if (result == GC_ERR_BUFFER_TOO_SMALL) {
        const BufferLock lock(m_pBuffer->m_mutex);
        m_pBuffer->m_dataLargerThanBuffer = true;
        if (datagram <= room) {
            return false;
        }
    } else if (result != GC_ERR_SUCCESS) {
        return false;
    }
    m_isWhole = false;
    m_length = datagram;
    m_dataReceived = datagram > m_headerSize ? std::min(datagram - m_headerSize, size) : 0;
    // The datagram's length, header included: a packet shorter than its room counts its header too.
    m_dataLength = std::min<std::uint64_t>(datagram, room);
    return true;
}

/// False when the packet is to be dropped.
bool NoCopyGrab::ParseHeader()
{
    if (m_length < kGvspHeaderSize) {
        return false;
    }
    const char* packet = m_isWhole ? m_packet.data() : GatherHeader();
    // The sizes are only tested for being non-zero.
    if (GetPktHeaderInfo(packet, 10, 10, m_header) != GC_ERR_SUCCESS || m_header.m_status != 0) {
        return false;
    }
    const bool extended = m_header.m_eiFlag != 0;
    if (m_length < GvspHeaderSize(extended)) {
        return false;
    }
    if (extended != m_stream.m_streamInfo.m_extendedId) {
        const std::string block = std::to_string(m_header.m_blockId);
        GLogger::Error(
            loc::al("Invalid packet header for BlockId [{0}]! Expected EI bit [{1}], received header [{2}]",
                    {block.c_str(), extended ? "0" : "1", extended ? "1" : "0"})
                .c_str());
    }
    return true;
}

/// The header of a packet in two places. An extended header may reach into the data.
const char* NoCopyGrab::GatherHeader()
{
    if (m_headerSize < m_headerBytes.size()) {
        const std::size_t rest = std::min(m_headerBytes.size() - m_headerSize, m_dataReceived);
        std::memcpy(m_headerBytes.data() + m_headerSize, m_pData, rest);
    }
    return m_headerBytes.data();
}

/// Makes a packet in two places whole again.
void NoCopyGrab::JoinHeaderAndData()
{
    if (m_isWhole) {
        return;
    }
    char* data = m_packet.data() + m_headerSize;
    std::memcpy(m_packet.data(), m_headerBytes.data(), m_headerSize);
    if (m_pData != data) {
        std::memcpy(data, m_pData, m_dataReceived);
    }
    m_isWhole = true;
    m_length = std::min(m_length, m_headerSize) + m_dataReceived;
    ClearUnreceived(m_packet, m_length);
}

void NoCopyGrab::HoldForNextImage()
{
    JoinHeaderAndData();
    m_isHeld = true;
    m_isComplete = true;
}

void NoCopyGrab::StorePacket()
{
    if (!IsKnownFormat(m_header) || (IsPayload() && m_header.m_packetId == 0)) {
        return;
    }
    const BufferLock lock(m_pBuffer->m_mutex);
    if (m_expected == 0) {
        StoreFirstLocked();
    } else if (IsPayload() && !m_isWhole) {
        StoreInPlaceLocked();
    } else {
        JoinHeaderAndData();
        StoreWholeLocked();
    }
    m_pBuffer->m_packetSeen = true;
}

/// Nothing of the image has come before, or nothing that could be parsed.
void NoCopyGrab::StoreFirstLocked()
{
    if (StoreWholeLocked()) {
        m_stream.m_pLeaderSeen->Signal();
    }
    if (!m_isArmed) {
        m_isArmed = true;
        m_common.ArmTimersLocked(*m_pBuffer, m_hBuffer);
    }
}

/// A packet in the packet buffer. False when it couldn't be parsed.
bool NoCopyGrab::StoreWholeLocked()
{
    if (IsPayload()) {
        CopyPayloadLocked();
    } else if (!ParseInfoLocked()) {
        return false;
    }
    m_pBuffer->m_frameId = m_header.m_blockId;
    if (m_header.m_format != kGvspTrailer) {
        AdvanceExpectedPacketId(*m_pBuffer, m_header.m_packetId);
    }
    return true;
}

bool NoCopyGrab::ParseInfoLocked()
{
    StreamInfo& info = m_stream.m_streamInfo;
    if (m_header.m_format == kGvspLeader) {
        const int result = ParseGVSPLeader(info, m_packet.data(), *m_pBuffer, m_header);
        if (result != GC_ERR_SUCCESS) {
            LogNumber("GrabThread(): Failed to parse GVSP leader! Error: {0}", result);
        }
        return result == GC_ERR_SUCCESS;
    }
    const int result = ParseGVSPTrailer(info, m_packet.data(), *m_pBuffer, m_isComplete, m_header);
    if (result != GC_ERR_SUCCESS) {
        LogNumber("GrabThread(): Failed to parse GVSP trailer! Error: {0}", result);
        return false;
    }
    m_isComplete = true;
    info.m_currentBlockId = NextBlockId(m_header.m_blockId, m_header.m_eiFlag != 0);
    return true;
}

void NoCopyGrab::CopyPayloadLocked()
{
    const std::size_t headerSize = GvspHeaderSize(m_header.m_eiFlag != 0);
    const PacketPlace place = PlaceOf(m_header.m_packetId);
    const std::uint64_t bytes = m_length - headerSize;
    const std::uint64_t stored = std::min(bytes, place.room);
    if (stored < bytes) {
        m_pBuffer->m_dataLargerThanBuffer = true;
    }
    std::memcpy(Image() + place.offset, m_packet.data() + headerSize, stored);
    CountPayloadLocked(stored);
}

/// A payload packet whose data was received for the place of the expected one.
void NoCopyGrab::StoreInPlaceLocked()
{
    m_pBuffer->m_frameId = m_header.m_blockId;
    CountPayloadLocked(m_dataLength);
    const PacketPlace from = PlaceOf(m_expected);
    const std::uint64_t room = std::min<std::uint64_t>(m_payloadPerPacket, from.room);
    if (m_pData != Image() + from.offset) {
        // The rest of an image, received beside it.
        if (m_dataReceived > room) {
            m_pBuffer->m_dataLargerThanBuffer = true;
        }
        std::memcpy(Image() + from.offset, m_pData, std::min<std::uint64_t>(room, m_dataReceived));
    }
    if (m_header.m_packetId != m_expected) {
        // Out of order. The expected place keeps a copy until its own packet comes, if ever.
        const PacketPlace to = PlaceOf(m_header.m_packetId);
        if (m_dataReceived > to.room) {
            m_pBuffer->m_dataLargerThanBuffer = true;
        }
        std::memmove(Image() + to.offset, Image() + from.offset, std::min(room, to.room));
    }
    AdvanceExpectedPacketId(*m_pBuffer, m_header.m_packetId);
}

void NoCopyGrab::CountPayloadLocked(std::uint64_t bytes)
{
    m_pBuffer->m_bytesReceived += bytes;
    m_pBuffer->m_packetsRemaining -= 1;
}

PacketPlace NoCopyGrab::PlaceOf(std::uint64_t packetId) const
{
    return PlaceOfPacket(*m_pBuffer, m_payloadPerPacket, packetId);
}

char* NoCopyGrab::Image() const
{
    return static_cast<char*>(m_pBuffer->m_pData);
}

}  // namespace GenTL
