/// The image stream of an open camera.
#pragma once

#include "gentl/Discovery.h"
#include "gentl/Image.h"
#include "gentl/Producer.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace Tool {

/// Owns the stream's handle, its buffers and its event. The destructor stops the stream and gives everything
/// back. Borrows the producer and the camera. Queue may be called from any thread, the rest from one.
class Stream
{
public:
    /// Opens one of the camera's streams. Throws Failure, as all operations do.
    Stream(const Producer& producer, GenTL::DEV_HANDLE hDevice, std::uint32_t index);
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    /// Bytes that a buffer needs, where the stream knows better than the camera's description.
    std::optional<std::uint64_t> OwnPayloadSize() const;
    std::uint64_t FewestBuffers() const;
    /// Lets the producer allocate so many buffers of so many bytes, and queues them.
    void Announce(std::uint64_t count, std::uint64_t size);

    /// Has lost packets sent again from the next start on, where the camera can.
    void EnableResend();
    void Start();
    void Stop();
    /// The next buffer that the stream is done with, or null when none came in time.
    GenTL::BUFFER_HANDLE Wait(std::uint64_t milliseconds);
    void Queue(GenTL::BUFFER_HANDLE hBuffer);

    Image Look(GenTL::BUFFER_HANDLE hBuffer) const;
    /// Images since the start that found no buffer to go into.
    std::uint64_t Underruns() const;
    /// Whether lost packets are asked for; known once the stream has started.
    bool Resends() const;
    /// What the stream counts as missing since the start.
    std::uint64_t MissedPackets() const;
    std::uint64_t MissedImages() const;
    /// Images with missing bytes since the stream was opened.
    std::uint64_t IncompleteImages() const;

private:
    std::uint64_t Number(GenTL::STREAM_INFO_CMD command) const;
    std::optional<std::uint64_t> Number(GenTL::BUFFER_HANDLE hBuffer, GenTL::BUFFER_INFO_CMD command) const;

    const Producer& m_producer;
    Handle m_hStream;
    bool m_isTcp;
    GenTL::EVENT_HANDLE m_hEvent = nullptr;
    std::vector<GenTL::BUFFER_HANDLE> m_buffers;
    bool m_isRunning = false;
};

}  // namespace Tool
