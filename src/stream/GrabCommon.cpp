#include "stream/GrabCommon.h"

#include "buffers/Buffer.h"
#include "buffers/BufferFieldSets.h"
#include "buffers/HandleQueue.h"
#include "frame/GenTLHandle.h"
#include "log/GLogger.h"
#include "log/LogUnlessMemoryIsShort.h"
#include "log/localization.h"
#include "stream/DataStreamGev.h"
#include "stream/GvspPacket.h"
#include "stream/IHALGvsp.h"
#include "stream/PacketTracking.h"
#include "stream/ResendRequests.h"
#include "stream/StreamInfo.h"

#include <boost/asio/deadline_timer.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/recursive_mutex.hpp>
#include <boost/thread/thread.hpp>

#include <algorithm>
#include <cstring>
#include <exception>
#include <string>

namespace GenTL {
namespace {

using Lock = boost::lock_guard<boost::mutex>;
using BufferLock = boost::lock_guard<boost::recursive_mutex>;

/// A HAL that leaves an expiry at 0 must not make its timer spin.
boost::posix_time::milliseconds TimerPeriod(std::uint32_t ms)
{
    return boost::posix_time::milliseconds(std::max(ms, 1U));
}

}  // namespace

int ReceiveWholePacket(IHALGvsp& hal,
                       std::vector<char>& packet,
                       std::uint32_t packetSize,
                       std::size_t& length)
{
    int received = 0;
    const int result =
        hal.GetNextPacket(packet.data(), static_cast<int>(packetSize), received, kReceiveTimeout);
    if (result == GC_ERR_SUCCESS) {
        length = received > 0 ? std::min<std::size_t>(static_cast<std::size_t>(received), packetSize) : 0;
        ClearUnreceived(packet, length);
    }
    return result;
}

void ClearUnreceived(std::vector<char>& packet, std::size_t length)
{
    if (length < kGvspParsedSpan) {
        std::memset(packet.data() + length, 0, kGvspParsedSpan - length);
    }
}

void LogNumber(const char* text, std::int64_t number)
{
    GLogger::Error(loc::al(text, {std::to_string(number).c_str()}).c_str());
}

GenTLHandle* CheckBufferAvailability(const std::deque<GenTLHandle*>& input,
                                     boost::mutex& inputMutex,
                                     std::deque<GenTLHandle*>& output,
                                     boost::mutex& outputMutex,
                                     std::int64_t mode)
{
    if (mode != kOldestFirstOverwrite) {
        return nullptr;
    }
    const Lock inputLock(inputMutex);
    const Lock outputLock(outputMutex);
    if (!input.empty() || output.empty()) {
        return nullptr;
    }
    GenTLHandle* hOldest = output.front();
    output.pop_front();
    return hOldest;
}

GenTLHandle* PopNextBuffer(std::deque<GenTLHandle*>& input,
                           boost::mutex& inputMutex,
                           GenTLHandle* fallback,
                           bool& usedFallback)
{
    GenTLHandle* hBuffer = nullptr;
    {
        const Lock inputLock(inputMutex);
        usedFallback = input.empty() && fallback != nullptr;
        if (!input.empty()) {
            hBuffer = input.front();
            input.pop_front();
            CastHandleToBufferPtr(hBuffer)->m_isQueued = false;
        } else {
            hBuffer = fallback;
        }
    }
    if (hBuffer != nullptr) {
        Buffer& buffer = *CastHandleToBufferPtr(hBuffer);
        const BufferLock lock(buffer.m_mutex);
        ForgetFill(buffer);
        FreePacketBitmap(buffer);
    }
    return hBuffer;
}

void TakeBackLocked(std::deque<GenTLHandle*>& input, GenTLHandle* hBuffer)
{
    const auto rest = std::remove(input.begin(), input.end(), hBuffer);
    if (rest != input.end()) {
        input.erase(rest, input.end());
        CastHandleToBufferPtr(hBuffer)->m_isQueued = false;
    }
}

void UpdateImageInfo(const StreamInfo& stream, Buffer& buffer)
{
    buffer.m_newData = true;
    buffer.m_imagePresent = false;
    // A packet that came twice counts twice. What the consumer may read ends with the memory all the same.
    const std::uint64_t filled = std::min<std::uint64_t>(buffer.m_bytesReceived, buffer.m_size);
    buffer.m_sizeFilled = filled;

    const std::uint64_t bitsPerLine = (buffer.m_pixelFormat >> 16 & 0xFF) * buffer.m_width;
    buffer.m_deliveredImageHeight = bitsPerLine != 0 ? filled * 8 / bitsPerLine : 0;

    const unsigned type = stream.m_payloadType;
    if (!SwitchPayloadType(type, buffer) && (type & 0xF000) == 0x4000) {
        buffer.m_containsChunkData = true;
    }
}

void UpdateBufferInfoResend(StreamInfo& stream, Buffer& buffer)
{
    UpdateImageInfo(stream, buffer);
    const std::uint64_t filled = buffer.m_bytesReceived;
    if (filled == buffer.m_dataSize) {
        buffer.m_isIncomplete = false;
    } else if (filled < buffer.m_dataSize) {
        ++stream.m_totalIncompleteImageCount;
    }

    buffer.m_packetsRemaining = std::max<std::int64_t>(buffer.m_packetsRemaining, 0);
    const auto remaining = static_cast<std::uint64_t>(buffer.m_packetsRemaining);
    // One less than the distance; two images of one id count one down.
    const std::uint64_t gap = DiffBlockId(buffer.m_frameId, stream.m_lastBlockId, stream.m_extendedId) - 1;
    stream.m_lastBlockId = buffer.m_frameId;
    stream.m_missedImageCount += gap;
    // An estimate: every image in the gap is charged with the size of this one.
    stream.m_missedPacketCount += remaining + (remaining + buffer.m_packetsReceived) * gap;
}

void GrabCommon::CheckAndCompleteExpiredBuffers()
{
    const Lock inFlight(m_stream.m_inFlightMutex);
    while (HandOffOldestInFlightLocked()) {
    }
}

void GrabCommon::DeliverAllInFlight(Ending ending)
{
    const Lock inFlight(m_stream.m_inFlightMutex);
    while (!m_stream.m_inFlightBuffers.empty()) {
        GenTLHandle* hBuffer = m_stream.m_inFlightBuffers.front();
        m_stream.m_inFlightBuffers.pop_front();
        HandOffInFlightLocked(hBuffer, ending);
    }
}

/// False when there is none or it is still waited for.
bool GrabCommon::HandOffOldestInFlightLocked()
{
    if (m_stream.m_inFlightBuffers.empty()) {
        return false;
    }
    GenTLHandle* hBuffer = m_stream.m_inFlightBuffers.front();
    Buffer& buffer = *CastHandleToBufferPtr(hBuffer);
    {
        const BufferLock bufferLock(buffer.m_mutex);
        const bool isExpired = buffer.m_bufferExpiryDone && buffer.m_nextPacketTimerDone;
        if (!isExpired && buffer.m_packetsReceived != m_stream.m_streamInfo.m_packetsPerImage) {
            return false;
        }
    }
    m_stream.m_inFlightBuffers.pop_front();
    HandOffInFlightLocked(hBuffer, Ending::Done);
    return true;
}

/// m_inFlightMutex stays held while the virtual QueueBuffer runs, so that no buffer is revoked between two
/// queues. It is called with no other lock held: it takes the buffer's and the queue's itself.
void GrabCommon::HandOffInFlightLocked(GenTLHandle* hBuffer, Ending ending)
{
    StreamInfo& info = m_stream.m_streamInfo;
    Buffer& buffer = *CastHandleToBufferPtr(hBuffer);
    std::vector<GenTLHandle*> unread;  // go back to the input queue
    {
        const BufferLock bufferLock(buffer.m_mutex);
        AbandonLocked(buffer);
        const Lock inputLock(m_stream.m_inputMutex);
        const Lock outputLock(m_stream.m_outputMutex);
        if (ending == Ending::Done) {
            TakeBackLocked(m_stream.m_inputBuffers, hBuffer);
        }
        if (StandsInQueueLocked(hBuffer)) {
            // Delivered already, or flushed back while nothing was received: this image is void.
        } else if (!buffer.m_leaderReceived) {
            if (ending == Ending::Done) {
                info.m_missedPacketCount += static_cast<std::uint64_t>(buffer.m_packetsRemaining);
                info.m_missedImageCount +=
                    DiffBlockId(buffer.m_frameId, info.m_lastBlockId, info.m_extendedId);
                info.m_lastBlockId = buffer.m_frameId;
            }
            unread.push_back(hBuffer);
        } else {
            UpdateBufferInfoResend(info, buffer);
            if (ending != Ending::Stopped && m_stream.m_bufferHandlingMode == kNewestOnly) {
                unread.assign(m_stream.m_outputBuffers.begin(), m_stream.m_outputBuffers.end());
                m_stream.m_outputBuffers.clear();
            }
            m_stream.m_outputBuffers.push_back(hBuffer);
            buffer.m_isAcquiring = false;
            m_stream.m_outputCondition.notify_one();
        }
    }
    for (GenTLHandle* hUnread : unread) {
        m_stream.QueueBuffer(hUnread);
    }
}

bool GrabCommon::StandsInQueueLocked(const GenTLHandle* hBuffer) const
{
    return Contains(m_stream.m_inputBuffers, hBuffer) || Contains(m_stream.m_outputBuffers, hBuffer);
}

/// What only a collection needs.
void GrabCommon::AbandonLocked(Buffer& buffer)
{
    CancelTimersLocked(buffer);
    ResendRequests(m_stream).CancelAllLocked(buffer);
    FreePacketBitmap(buffer);
}

void GrabCommon::ArmTimersLocked(Buffer& buffer, GenTLHandle* hBuffer)
{
    const TimedImage image{&m_stream, hBuffer, ++buffer.m_timerGeneration};
    buffer.m_bufferExpiryDone = false;
    buffer.m_nextPacketTimerDone = false;
    buffer.m_pBufferExpiryTimer->expires_from_now(TimerPeriod(m_stream.m_streamInfo.m_bufferExpiry));
    buffer.m_pBufferExpiryTimer->async_wait(
        [image](const boost::system::error_code& error) { BufferExpiryTimerEventHandler(error, image); });
    ArmNextPacketTimerLocked(buffer, image);
}

void GrabCommon::ArmNextPacketTimerLocked(Buffer& buffer, const TimedImage& image)
{
    buffer.m_pNextPacketTimer->expires_from_now(TimerPeriod(m_stream.m_streamInfo.m_interPacketExpiry));
    buffer.m_pNextPacketTimer->async_wait(
        [image](const boost::system::error_code& error) { NextPacketTimerEventHandler(error, image); });
}

void GrabCommon::CancelTimersLocked(Buffer& buffer)
{
    ++buffer.m_timerGeneration;
    if (!buffer.m_bufferExpiryDone) {
        buffer.m_pBufferExpiryTimer->cancel();
        buffer.m_bufferExpiryDone = true;
    }
    if (!buffer.m_nextPacketTimerDone) {
        buffer.m_pNextPacketTimer->cancel();
        buffer.m_nextPacketTimerDone = true;
    }
}

void GrabCommon::CancelInFlightTimersLocked()
{
    for (GenTLHandle* hBuffer : m_stream.m_inFlightBuffers) {
        Buffer& buffer = *CastHandleToBufferPtr(hBuffer);
        const BufferLock lock(buffer.m_mutex);
        CancelTimersLocked(buffer);
    }
}

void GrabCommon::StartTimerThread()
{
    boost::asio::io_service& service = m_stream.m_ioService;
    m_stream.m_streamInfo.m_timerThread =
        boost::thread([&service] { InterPacketTimerWorkerThread(service); });
}

void GrabCommon::StopTimerThread()
{
    boost::asio::io_service& service = m_stream.m_ioService;
    service.stop();
    if (m_stream.m_streamInfo.m_timerThread.joinable()) {
        m_stream.m_streamInfo.m_timerThread.join();
    }
    service.reset();
    service.poll();
    service.reset();
}

void GrabCommon::InterPacketTimerWorkerThread(boost::asio::io_service& service)
{
    const boost::asio::io_service::work keepsRunning(service);
    while (!service.stopped()) {
        try {
            service.run();
        } catch (const std::exception& e) {
            // Out of memory in a handler, which has given up its image's timer: the next image gets new ones.
            LogUnlessMemoryIsShort(e.what());
        }
    }
}

bool GrabCommon::IsInCollectionInFlightLocked(GenTLHandle* hBuffer) const
{
    return Contains(m_stream.m_inFlightBuffers, hBuffer) || m_stream.m_bufferInHand.Holds(hBuffer);
}

void GrabCommon::BufferExpiryTimerEventHandler(const boost::system::error_code& error,
                                               const TimedImage& image)
{
    if (error == boost::asio::error::operation_aborted) {
        return;
    }
    // A buffer that is in neither place may be gone: its memory is not touched.
    const Lock inFlight(image.pStream->m_inFlightMutex);
    if (!GrabCommon(*image.pStream).IsInCollectionInFlightLocked(image.hBuffer)) {
        return;
    }
    Buffer& buffer = *CastHandleToBufferPtr(image.hBuffer);
    const BufferLock lock(buffer.m_mutex);
    if (buffer.m_timerGeneration == image.generation) {
        ResendRequests(*image.pStream).AskForRestLocked(buffer, "BufferExpiryTimerEventHandler");
        buffer.m_bufferExpiryDone = true;
        buffer.m_imageExpired = true;
    }
}

void GrabCommon::NextPacketTimerEventHandler(const boost::system::error_code& error, const TimedImage& image)
{
    if (error == boost::asio::error::operation_aborted) {
        return;
    }
    GrabCommon common(*image.pStream);
    const Lock inFlight(image.pStream->m_inFlightMutex);
    if (!common.IsInCollectionInFlightLocked(image.hBuffer)) {
        return;
    }
    Buffer& buffer = *CastHandleToBufferPtr(image.hBuffer);
    {
        const BufferLock lock(buffer.m_mutex);
        if (buffer.m_timerGeneration != image.generation) {
            return;
        }
        const bool wasSilent = !buffer.m_packetSeen;
        buffer.m_packetSeen = false;
        buffer.m_nextPacketTimerDone = true;  // unless it can be armed again
        if (!wasSilent || !buffer.m_imageExpired) {
            if (wasSilent) {
                ResendRequests(*image.pStream).AskForRestLocked(buffer, "NextPacketTimerEventHandler");
            }
            common.ArmNextPacketTimerLocked(buffer, image);
            buffer.m_nextPacketTimerDone = false;
            return;
        }
    }
    // Still under m_inFlightMutex: once it is let go of, the list may hold the next image already.
    while (common.HandOffOldestInFlightLocked()) {
    }
}

}  // namespace GenTL
