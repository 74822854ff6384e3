#include "stream/TcpGrab.h"

#include "buffers/Buffer.h"
#include "buffers/HandleQueue.h"
#include "frame/GenTLHandle.h"
#include "gev/BigEndian.h"
#include "log/GLogger.h"
#include "log/localization.h"
#include "modules/ThreadPriority.h"
#include "modules/WorkerThread.h"
#include "stream/DataStreamGevTCP.h"
#include "stream/GrabCommon.h"
#include "stream/GvspPacket.h"
#include "stream/IHALGvsp.h"

#include <boost/chrono/duration.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/lock_types.hpp>
#include <boost/thread/recursive_mutex.hpp>
#include <boost/thread/thread.hpp>

#include <algorithm>
#include <climits>
#include <deque>
#include <string>

namespace GenTL {
namespace {

using Lock = boost::lock_guard<boost::mutex>;
using BufferLock = boost::lock_guard<boost::recursive_mutex>;

constexpr unsigned long kReadTimeout = 200;  // ms
constexpr std::int64_t kInputWait = 25;      // ms
constexpr auto kFailurePause = boost::chrono::milliseconds(10);

/// True when the frame is of the geometry that the camera had when the buffer was announced.
bool CompareTCPHeaderVsCache(const unsigned char* header, const Buffer& buffer)
{
    const std::uint32_t width = Load32(header + TcpFrame::kSizeX);
    const std::uint32_t height = Load32(header + TcpFrame::kSizeY);
    if (width == buffer.m_width && height == buffer.m_height &&
        Load32(header + TcpFrame::kOffsetX) == buffer.m_xOffset &&
        Load32(header + TcpFrame::kOffsetY) == buffer.m_yOffset &&
        Load32(header + TcpFrame::kPixelFormat) == buffer.m_pixelFormat) {
        return true;
    }
    GLogger::Error(loc::al("CompareTCPHeaderVsCache(): Invalid Leader Data  w = [{0}], h = [{1}]",
                           {std::to_string(width).c_str(), std::to_string(height).c_str()})
                       .c_str());
    return false;
}

}  // namespace

void TcpGrab::Run()
{
    RunUntilInterrupted(ThreadPriority::m_priorityGrabThread, [this] {
        // In the words of the UDP stream; the ID tells which one starts.
        GLogger::Info(
            loc::al("DataStreamGev::GrabThreadResend({0}): Starting", {m_stream.m_portInfo.id.c_str()})
                .c_str());
        m_stream.m_streamInfo.m_currentBlockId = 1;
        m_stream.m_streamInfo.m_lastBlockId = 0;
        GrabImages();
    });
    const boost::this_thread::disable_interruption noInterruption;
    PutDown();
}

void TcpGrab::GrabImages()
{
    for (;;) {
        boost::this_thread::interruption_point();
        if (!AwaitInput() || !TakeBuffer()) {
            continue;
        }
        if (!ReceiveFrame()) {
            // The buffer is the consumer's to flush. With the connection broken each next read may fail at
            // once: the pause keeps the queue from being emptied at full speed, and can be interrupted.
            PutDown();
            boost::this_thread::sleep_for(kFailurePause);
            continue;
        }
        ReadHeader();
        HandOff();
    }
}

bool TcpGrab::AwaitInput()
{
    const boost::system_time deadline =
        boost::posix_time::microsec_clock::universal_time() + boost::posix_time::milliseconds(kInputWait);
    boost::unique_lock<boost::mutex> lock(m_stream.m_inputMutex);
    while (m_stream.m_inputBuffers.empty()) {
        if (!m_stream.m_inputCondition.timed_wait(lock, deadline) && m_stream.m_inputBuffers.empty()) {
            return false;
        }
    }
    return true;
}

/// m_moveMutex is held throughout: a buffer between two places can't be revoked. False when a flush has been
/// faster.
bool TcpGrab::TakeBuffer()
{
    DataStreamGevTCP& s = m_stream;
    const Lock move(s.m_moveMutex);
    if (s.m_bufferHandlingMode == kOldestFirstOverwrite) {
        // With a buffer waiting for input there is nothing to overwrite, and the call fails.
        s.QueueBuffer(CheckBufferAvailability(s.m_inputBuffers, s.m_inputMutex, s.m_outputBuffers,
                                              s.m_outputMutex, s.m_bufferHandlingMode));
    }
    bool usedFallback = false;
    m_hBuffer = PopNextBuffer(s.m_inputBuffers, s.m_inputMutex, nullptr, usedFallback);
    if (m_hBuffer == nullptr) {
        return false;
    }
    s.m_bufferInHand.Take(m_hBuffer);
    m_pBuffer = CastHandleToBufferPtr(m_hBuffer);
    return true;
}

bool TcpGrab::ReceiveFrame()
{
    boost::this_thread::interruption_point();
    m_pBuffer->m_dataSize = m_pBuffer->m_size;
    char* frame = static_cast<char*>(m_pBuffer->m_pData) - TcpFrame::kHeaderSize;
    // A larger buffer gets the first 2 GB of its frame, and isn't complete then.
    const int size = static_cast<int>(std::min<std::uint64_t>(m_pBuffer->m_size, INT_MAX));
    for (;;) {
        boost::this_thread::interruption_point();
        int headerLength = 0;
        m_received = 0;
        const int code =
            m_stream.m_pHalGvsp->GetNextPacket(m_header.data(), static_cast<int>(m_header.size()),
                                               headerLength, frame, size, m_received, kReadTimeout);
        if (code != GC_ERR_TIMEOUT) {
            return code == GC_ERR_SUCCESS;
        }
    }
}

void TcpGrab::ReadHeader()
{
    const auto* header = reinterpret_cast<const unsigned char*>(m_header.data());
    const auto received = static_cast<std::size_t>(std::max(m_received, 0));
    // A frame of a buffer without room for the head has none.
    const bool isWhole = received >= m_header.size();
    // With no lock held, as it may log.
    const bool isAsAnnounced = isWhole && CompareTCPHeaderVsCache(header, *m_pBuffer);

    StreamInfo& info = m_stream.m_streamInfo;
    const BufferLock lock(m_pBuffer->m_mutex);
    info.m_payloadType = Load16(header + TcpFrame::kPayloadType);
    if (isAsAnnounced) {
        m_pBuffer->m_timestamp = Load64(header + TcpFrame::kTimestamp);
        m_pBuffer->m_dataSize = Load32(header + TcpFrame::kPayloadSize);
        m_pBuffer->m_xPadding = Load16(header + TcpFrame::kPaddingX);
        m_pBuffer->m_yPadding = Load16(header + TcpFrame::kPaddingY);
    } else {
        info.m_payloadType = kGvspImage;
    }
    m_pBuffer->m_frameId = Load64(header + TcpFrame::kBlockId);
    m_pBuffer->m_bytesReceived = isWhole ? received - m_header.size() : 0;
}

/// m_moveMutex is held throughout, as it is when a buffer is taken.
void TcpGrab::HandOff()
{
    DataStreamGevTCP& s = m_stream;
    const Lock move(s.m_moveMutex);
    std::deque<GenTLHandle*> unread;  // go back to the input queue
    {
        const BufferLock bufferLock(m_pBuffer->m_mutex);
        const Lock inputLock(s.m_inputMutex);
        const Lock outputLock(s.m_outputMutex);
        TakeBackLocked(s.m_inputBuffers, m_hBuffer);
        if (!Contains(s.m_outputBuffers, m_hBuffer)) {
            CompleteLocked();
            if (s.m_bufferHandlingMode == kNewestOnly) {
                unread.swap(s.m_outputBuffers);
            }
            s.m_outputBuffers.push_back(m_hBuffer);
        }
        PutDown();
    }
    s.m_outputCondition.notify_one();
    for (GenTLHandle* hUnread : unread) {
        s.QueueBuffer(hUnread);
    }
}

/// Writes what the consumer reads about the image, and counts it.
void TcpGrab::CompleteLocked()
{
    Buffer& buffer = *m_pBuffer;
    StreamInfo& info = m_stream.m_streamInfo;
    buffer.m_isQueued = false;
    UpdateImageInfo(info, buffer);
    if (buffer.m_sizeFilled == buffer.m_dataSize) {
        buffer.m_isIncomplete = false;
    } else {
        ++info.m_totalIncompleteImageCount;
    }
    // No packets are counted on this transport, so that none is ever missing.
    buffer.m_packetsRemaining = 0;
}

void TcpGrab::PutDown()
{
    if (m_hBuffer != nullptr) {
        m_pBuffer->m_isAcquiring = false;
        m_stream.m_bufferInHand.Release();
        m_hBuffer = nullptr;
    }
}

}  // namespace GenTL
