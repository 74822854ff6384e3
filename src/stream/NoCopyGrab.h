/// The grab path without packet resend: payload goes from the socket straight into the image.
#pragma once

#include "stream/GrabCommon.h"
#include "stream/GvspPacket.h"
#include "stream/PacketTracking.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

namespace GenTL {

/// One run of the grab thread. It takes a buffer before the first packet of its image comes, and receives
/// each packet with the place of the expected one as the target; what turns out to be another packet is put
/// right afterwards. A trailer or a newer block ends the image.
///
/// Owns: the spare buffer with its handle, memory and timers, the packet and header buffers. Borrows: the
/// stream. Threads: everything but the constructor is the grab thread's, which starts and joins the timer
/// thread. It ends by interruption. Locks: m_inFlightMutex, then the mutex of the buffer in hand, then the
/// queue mutexes. None is held while receiving. Operations in ...Locked need the buffer's mutex held.
class NoCopyGrab
{
public:
    /// Makes the spare. Throws std::bad_alloc.
    explicit NoCopyGrab(DataStreamGev& stream);
    NoCopyGrab(const NoCopyGrab&) = delete;
    NoCopyGrab& operator=(const NoCopyGrab&) = delete;
    ~NoCopyGrab();

    /// Grabs images until the thread is interrupted.
    void Run();

private:
    struct FreeMemory
    {
        void operator()(char* memory) const { std::free(memory); }
    };

    // The run.
    void SetUp();
    void MakeSpare();
    void GrabImages();
    void TearDown();
    void FreeSpare();

    // One image.
    bool BeginImage();
    void CollectPackets();
    void EndImage();
    /// Saves the image that the spare caught, if an input buffer has come meanwhile. False when it is lost.
    bool MoveSpareToInputBuffer();
    /// The buffer in hand was handed off at its expiry and its owner wants it back: goes on in the spare.
    void GiveUpRecalledBuffer();

    // One packet.
    bool ReceivePacket();
    bool ReceiveWhole();
    bool ReceiveIntoImage();
    bool ParseHeader();
    const char* GatherHeader();
    void JoinHeaderAndData();
    void HoldForNextImage();
    void StorePacket();
    void StoreFirstLocked();
    bool StoreWholeLocked();
    void StoreInPlaceLocked();
    bool ParseInfoLocked();
    void CopyPayloadLocked();
    void CountPayloadLocked(std::uint64_t bytes);

    PacketPlace PlaceOf(std::uint64_t packetId) const;
    char* Image() const;
    bool IsPayload() const { return m_header.m_format == kGvspPayload; }

    DataStreamGev& m_stream;
    GrabCommon m_common;

    // The run.
    std::unique_ptr<char, FreeMemory> m_spareMemory;
    std::unique_ptr<Buffer> m_spare;
    GenTLHandle* m_hSpare = nullptr;
    std::size_t m_headerSize = 0;          // H
    std::uint32_t m_packetSize = 0;        // bytes, IP and UDP headers included
    std::uint32_t m_payloadPerPacket = 0;  // P; 0 when the packet size is too small for any
    std::uint64_t m_payloadPackets = 0;    // N
    std::vector<char> m_packet;            // a whole packet; never shorter than what the parsers read
    std::array<char, kGvspExtendedHeaderSize> m_headerBytes{};

    // The image in collection.
    GenTLHandle* m_hBuffer = nullptr;
    Buffer* m_pBuffer = nullptr;
    bool m_usesSpare = false;
    bool m_isGivenUp = false;  // handed off and revoked; only the block's packets are still swallowed
    bool m_isComplete = false;
    bool m_isArmed = false;

    // The packet.
    bool m_isHeld = false;           // m_packet has the first packet of the next image
    bool m_isWhole = false;          // it stands in m_packet; else header and data are apart
    std::uint64_t m_expected = 0;    // E, the id that was expected when it was received
    std::size_t m_length = 0;        // bytes of the datagram; when whole those that stand in m_packet
    char* m_pData = nullptr;         // where the data was received
    std::size_t m_dataReceived = 0;  // data bytes that stand there
    std::uint64_t m_dataLength = 0;  // data bytes that count
    ParsedGvspHeader m_header{};
};

}  // namespace GenTL
