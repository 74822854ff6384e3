/// Which packets of an image have come, and where their data belongs.
#pragma once

#include <cstdint>

namespace GenTL {

class Buffer;

/// One bit per packet id. The bound is inclusive: the byte with the index size is the bitmap's too. False
/// with a null bitmap and for ids beyond it.
bool IsPacketReceived(const std::uint8_t* bitmap, std::uint64_t size, std::uint32_t id);
/// Nothing happens where IsPacketReceived would be false by the bound.
void SetPacketReceived(std::uint8_t* bitmap, std::uint64_t size, std::uint32_t id);

/// A cleared bitmap for ids below packets, and the one byte more that the bound admits. Throws
/// std::bad_alloc.
void AllocatePacketBitmap(Buffer& buffer, std::uint64_t packets);
void FreePacketBitmap(Buffer& buffer);

/// Payload packets of an image. 0 when a packet has no room for data; else such that all ids have 32 bits.
std::uint64_t PayloadPacketsPerImage(std::uint64_t imageSize, std::uint32_t payloadPerPacket);

/// Where a packet id's data belongs: bytes from the start of the image, and bytes up to its end.
struct PacketPlace
{
    std::uint64_t offset;
    std::uint64_t room;
};

/// Of buffer, which may be smaller than the one that a run was laid out for. Nothing has room where it would
/// leave the memory.
PacketPlace PlaceOfPacket(const Buffer& buffer, std::uint32_t payloadPerPacket, std::uint64_t packetId);

/// Expects what follows packetId, unless more is expected already. The last id has no successor.
void AdvanceExpectedPacketId(Buffer& buffer, std::uint32_t packetId);

}  // namespace GenTL
