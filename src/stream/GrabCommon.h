/// What the grab paths of the UDP stream share: taking buffers, the deadline timers, and the hand-off.
#pragma once

#include <boost/asio/io_service.hpp>
#include <boost/system/error_code.hpp>
#include <boost/thread/mutex.hpp>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace GenTL {

inline constexpr unsigned long kReceiveTimeout = 50;      // ms; a stop waits as long at most
inline constexpr std::uint32_t kLongestDatagram = 65536;  // bytes
inline constexpr std::uint32_t kLeaderAndTrailer = 2;     // packets

class Buffer;
class DataStreamGev;
class IHALGvsp;
struct GenTLHandle;
struct StreamInfo;

/// With mode 1 (OldestFirstOverwrite) and an empty input queue, takes the oldest buffer off the output queue;
/// else null. Takes the input mutex, then the output mutex.
GenTLHandle* CheckBufferAvailability(const std::deque<GenTLHandle*>& input,
                                     boost::mutex& inputMutex,
                                     std::deque<GenTLHandle*>& output,
                                     boost::mutex& outputMutex,
                                     std::int64_t mode);

/// Takes the oldest input buffer, or fallback when there is none, and resets it for a new image. Null when
/// there is neither. Takes the input mutex, then the buffer's.
GenTLHandle* PopNextBuffer(std::deque<GenTLHandle*>& input,
                           boost::mutex& inputMutex,
                           GenTLHandle* fallback,
                           bool& usedFallback);

/// A flush, or a second queueing, has put a buffer back into the input queue while it was filled. It can't be
/// in two places, and its image is worth more. Needs the buffer's mutex and the input mutex held.
void TakeBackLocked(std::deque<GenTLHandle*>& input, GenTLHandle* hBuffer);

/// Writes what the consumer reads about an image of m_bytesReceived bytes, whatever the transport: size,
/// lines and payload type. Needs the buffer's mutex held.
void UpdateImageInfo(const StreamInfo& stream, Buffer& buffer);

/// Writes what the consumer reads about a finished image, and counts it. Needs the buffer's mutex held.
void UpdateBufferInfoResend(StreamInfo& stream, Buffer& buffer);

/// Receives a datagram whole, waiting up to 50 ms. What the parsers may read of packet but did not come is
/// zero. Codes as IHALGvsp::GetNextPacket.
int ReceiveWholePacket(IHALGvsp& hal,
                       std::vector<char>& packet,
                       std::uint32_t packetSize,
                       std::size_t& length);
/// Zeroes what the parsers may read behind the length bytes that were received.
void ClearUnreceived(std::vector<char>& packet, std::size_t length);

/// Logs an error with a number in it.
void LogNumber(const char* text, std::int64_t number);

/// The image work of a stream that its grab thread and its timer thread do.
///
/// Owns: nothing; a view of the stream that costs nothing to make. Threads: as told at each operation.
/// Locks: m_inFlightMutex, then a buffer's m_mutex, then the queue mutexes; a buffer's mutex is never taken
/// while another's is held. Operations in ...InFlightLocked need the first held, and not a buffer's; those in
/// ...Locked that take a buffer need its mutex, and StandsInQueueLocked both queues'.
class GrabCommon
{
public:
    /// How an image's collection ends: by itself, with its run, or as what the run before has left.
    enum class Ending { Done, Stopped, LeftOver };

    explicit GrabCommon(DataStreamGev& stream) : m_stream(stream) {}

    /// Hands off the images in collection, oldest first, up to the first that is still waited for.
    /// Grab thread and timer thread.
    void CheckAndCompleteExpiredBuffers();
    /// Hands off all images in collection, as they are: at the stop of a stream, and at its start those that
    /// the run before has left. Grab thread.
    void DeliverAllInFlight(Ending ending);

    /// Starts both timers for the image that begins in buffer. Grab thread.
    void ArmTimersLocked(Buffer& buffer, GenTLHandle* hBuffer);
    /// Cancels the timers that still run. A handler that is due already finds itself stale.
    static void CancelTimersLocked(Buffer& buffer);
    /// An image in collection ends: frees what only its collection needs. Needs m_inFlightMutex held.
    void AbandonLocked(Buffer& buffer);
    /// Cancels the timers of every image in collection. Needs m_inFlightMutex held.
    void CancelInFlightTimersLocked();

    /// The timer thread, which runs the handlers of all timers of this stream. Grab thread.
    void StartTimerThread();
    /// Joins the timer thread and runs what was due, so that no handler is left for the next run. All timers
    /// must have been cancelled.
    void StopTimerThread();

private:
    /// What a timer was armed for. A handler can't be recalled once it is due, and one that was due when the
    /// service stopped runs in the next run: it acts only if its image is still the one in the buffer.
    struct TimedImage
    {
        DataStreamGev* pStream;
        GenTLHandle* hBuffer;
        std::uint64_t generation;
    };

    static void InterPacketTimerWorkerThread(boost::asio::io_service& service);
    static void BufferExpiryTimerEventHandler(const boost::system::error_code& error,
                                              const TimedImage& image);
    static void NextPacketTimerEventHandler(const boost::system::error_code& error, const TimedImage& image);

    bool HandOffOldestInFlightLocked();
    void HandOffInFlightLocked(GenTLHandle* hBuffer, Ending ending);
    bool StandsInQueueLocked(const GenTLHandle* hBuffer) const;
    bool IsInCollectionInFlightLocked(GenTLHandle* hBuffer) const;
    void ArmNextPacketTimerLocked(Buffer& buffer, const TimedImage& image);

    DataStreamGev& m_stream;
};

}  // namespace GenTL
