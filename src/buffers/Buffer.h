/// One image buffer of a data stream.
#pragma once

#include "buffers/IBuffer.h"
#include "buffers/Relaxed.h"
#include "modules/ModuleOf.h"

#include <boost/asio/deadline_timer.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/recursive_mutex.hpp>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace GenTL {

struct PacketResendRequest;

/// The underlying type is fixed, so that a number out of the list can be held and compared.
enum BufferState : int {
    IN_DISCARDED = 0,  ///< out of every queue, contents void
    IN_INPUT = 1,      ///< waits for a grab thread
    IN_ACQUIRING = 2,  ///< a grab thread writes into it
    IN_DRIVER = 3,     ///< a filter driver writes into it
    IN_OUTPUT = 4,     ///< waits for the consumer
    IN_USER = 5,       ///< the consumer's, and just announced
    UNKNOWN = 6,       ///< never announced
};

/// A block of memory with all that the consumer can ask about what it holds, and the progress of its filling.
///
/// Owns: nothing; the stream owns buffer, memory (unless m_userAllocated) and timers. Threads: the grab
/// thread and the timer thread fill it, the consumer's read and queue it. Locks: m_mutex, taken before the
/// queues' mutexes, guards what is written during a fill; the fields can all be read without it.
/// m_resendRequestsMutex comes after m_mutex.
class Buffer : public ModuleOf<IBuffer>
{
public:
    Buffer();
    /// Copies the contents, not the locks nor the resend bookkeeping. Memory of the library's is copied into
    /// a new block, a consumer's is shared; what this buffer held before is not freed. A buffer without a
    /// next-packet timer shows the source's, which goes on owning it; an announced one keeps its own, since
    /// revoking both would free a shared one twice. Throws std::bad_alloc with nothing changed.
    Buffer& operator=(const Buffer& other);

    // A buffer has no port.
    int GetPortInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;
    int GetNumPortURLs(unsigned int* piNumURLs) override;
    int GetPortURLInfo(
        unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;

    // What BUFFER_INFO commands answer. Sizes in bytes.
    void* m_pData = nullptr;
    std::uint64_t m_size = 0;
    void* m_pUserPointer = nullptr;
    Relaxed<bool> m_newData;
    Relaxed<bool> m_isQueued;
    Relaxed<bool> m_isAcquiring;
    Relaxed<bool> m_isIncomplete;  // false only when exactly m_dataSize bytes came
    std::string m_tlType;          // stays empty: the stream's is answered
    Relaxed<std::uint64_t> m_sizeFilled;
    Relaxed<std::uint64_t> m_width;
    Relaxed<std::uint64_t> m_height;
    Relaxed<std::uint64_t> m_xOffset;
    Relaxed<std::uint64_t> m_yOffset;
    Relaxed<std::uint64_t> m_xPadding;
    Relaxed<std::uint64_t> m_yPadding;
    Relaxed<std::uint64_t> m_frameId;  // the block id
    Relaxed<bool> m_imagePresent;
    std::uint64_t m_imageOffset = 0;
    Relaxed<std::uint64_t> m_payloadType;  // a PAYLOAD_TYPE value
    Relaxed<std::uint64_t> m_pixelFormat;
    std::uint64_t m_pixelFormatNamespace = 0;
    Relaxed<std::uint64_t> m_deliveredImageHeight;
    Relaxed<std::uint64_t> m_deliveredChunkPayloadSize;
    Relaxed<std::uint64_t> m_chunkLayoutId;
    std::string m_fileName;
    std::int32_t m_pixelEndianness = 0;
    Relaxed<std::uint64_t> m_dataSize;   // what the leader or the trailer promises
    Relaxed<std::uint64_t> m_timestamp;  // in ticks of the camera's clock
    Relaxed<bool> m_dataLargerThanBuffer;
    Relaxed<bool> m_containsChunkData;

    bool m_userAllocated = false;  // the memory is the consumer's; else it was made by new[]
    std::uint64_t m_driverIndex = 0;
    std::atomic<BufferState> m_state{UNKNOWN};
    boost::recursive_mutex m_mutex;

    // The progress of a fill. Packet id 0 is the leader's.
    Relaxed<std::uint64_t> m_bytesReceived;
    boost::asio::deadline_timer* m_pNextPacketTimer = nullptr;  // made and freed by the stream
    Relaxed<bool> m_nextPacketTimerDone;
    Relaxed<bool> m_imageExpired{true};
    Relaxed<bool> m_packetSeen;  // since the last tick of the next-packet timer
    Relaxed<std::uint32_t> m_nextExpectedPacketId;
    std::uint32_t m_resendRequestCount = 0;
    Relaxed<bool> m_trailerReceived;
    Relaxed<bool> m_leaderReceived;
    Relaxed<std::int64_t> m_packetsRemaining;  // below 0 when packets came twice
    Relaxed<std::uint64_t> m_packetsReceived;
    std::uint8_t* m_pPacketBitmap = nullptr;
    std::uint64_t m_packetBitmapSize = 0;
    boost::asio::deadline_timer* m_pBufferExpiryTimer = nullptr;  // made and freed by the stream
    Relaxed<bool> m_bufferExpiryDone;
    std::vector<PacketResendRequest*> m_resendRequests;
    boost::mutex m_resendRequestsMutex;
    /// Changes with each arming and each cancelling: tells a handler that was due before its timer was
    /// cancelled that it is stale.
    std::uint64_t m_timerGeneration = 0;
};

}  // namespace GenTL
