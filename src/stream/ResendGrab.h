/// The grab path with packet resend: several images are collected at once, and what is lost is asked for.
#pragma once

#include "stream/GrabCommon.h"
#include "stream/GvspPacket.h"
#include "stream/ResendRequests.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace GenTL {

/// One run of the grab thread. The first packet of a block takes a buffer and opens an image; each packet is
/// copied to its place in the image of its block; what is missing is asked for. An image ends whole, here, or
/// expired, on the timer thread.
///
/// Owns: the packet buffer. Borrows: the stream. Threads: everything is the grab thread, which starts and
/// joins the timer thread. It ends by interruption, between two packets. Locks: a packet is worked on under
/// m_inFlightMutex, then the mutex of its image's buffer, then those of ResendRequests or of the queues. None
/// is held while receiving. Operations in ...InFlightLocked need the first, those in ...Locked both.
class ResendGrab
{
public:
    explicit ResendGrab(DataStreamGev& stream);

    /// Grabs images until the thread is interrupted. Doesn't throw.
    void Run();

private:
    // The run.
    void SetUp();
    void GrabImages();
    void TearDown();
    void RecycleOldest();

    // One packet.
    bool ReceivePacket();
    bool ParseHeader();
    void TakePacket();

    // The image that it belongs to.
    Buffer* FindImageInFlightLocked();
    Buffer* OpenImageInFlightLocked();
    void BeginImageLocked(Buffer& buffer, GenTLHandle* hBuffer);
    void AskForTailInFlightLocked(Buffer& buffer);

    // Its place in the image.
    void AddToImageLocked(Buffer& buffer);
    bool IsLateLocked(const Buffer& buffer) const;
    bool StoreLocked(Buffer& buffer);
    void StoreLeaderLocked(Buffer& buffer);
    void StoreTrailerLocked(Buffer& buffer);
    bool StorePayloadLocked(Buffer& buffer);
    void CopyPayloadLocked(Buffer& buffer);
    void CountLocked(Buffer& buffer);
    void FinishLocked(Buffer& buffer);

    bool IsExtended() const { return m_header.m_eiFlag != 0; }
    std::uint32_t LastPacketId() const;

    DataStreamGev& m_stream;
    GrabCommon m_common;
    ResendRequests m_requests;

    // The run.
    std::uint32_t m_packetSize = 0;  // bytes, IP and UDP headers included
    std::vector<char> m_packet;      // never shorter than what the parsers read
    bool m_isStarved = false;        // the last block that began found no buffer

    bool m_isImageDone = false;  // some image has become whole

    // The packet.
    std::size_t m_length = 0;  // bytes
    ParsedGvspHeader m_header{};
};

}  // namespace GenTL
