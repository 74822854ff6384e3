/// The GVSP packets: header, leader and trailer, and the order of block ids.
#pragma once

#include <cstddef>
#include <cstdint>

namespace GenTL {

class Buffer;
struct StreamInfo;

/// Bytes of the packet header in its two forms, and of the IP and UDP headers that a packet size counts.
inline constexpr std::size_t kGvspHeaderSize = 8;
inline constexpr std::size_t kGvspExtendedHeaderSize = 20;
inline constexpr std::size_t kIpUdpHeaderSize = 28;
/// The longest leader or trailer behind its header, up to the last field that is read.
inline constexpr std::size_t kGvspLongestInfo = 36;
/// Bytes that the parsers may read from the start of a packet. Packet buffers are never smaller.
inline constexpr std::size_t kGvspParsedSpan = kGvspExtendedHeaderSize + kGvspLongestInfo;

enum GvspPacketFormat : std::uint8_t {
    kGvspLeader = 1,
    kGvspTrailer = 2,
    kGvspPayload = 3,
};

enum GvspPayloadType : std::uint16_t {
    kGvspImage = 1,
    kGvspChunkData = 4,
    kGvspImageWithChunks = 0x4001,
};

#pragma pack(push, 1)
/// A packet header in host order, whichever form it had on the wire.
struct ParsedGvspHeader
{
    std::uint16_t m_status;
    std::uint16_t m_word2;  // the 16-bit block id in the standard form, flags in the extended one
    std::uint8_t m_eiFlag;  // 1 in the extended form
    std::uint8_t m_format;
    std::uint32_t m_packetId;
    std::uint64_t m_blockId;
};
#pragma pack(pop)

enum class BlockOrder {
    Equal = 0,
    Newer = 1,
    Older = 2,
};

/// Bytes of the header in the given form.
constexpr std::size_t GvspHeaderSize(bool extended)
{
    return extended ? kGvspExtendedHeaderSize : kGvspHeaderSize;
}

/// True for the payload types that carry an image, with or without chunks.
constexpr bool IsGvspImage(unsigned type)
{
    return (type & ~0x4000U) == kGvspImage;
}

/// Image bytes that each payload packet carries. 0 when the packet size leaves no room for any.
constexpr std::uint32_t GvspPayloadPerPacket(std::uint32_t packetSize, std::size_t headerSize)
{
    const std::size_t overhead = kIpUdpHeaderSize + headerSize;
    return packetSize > overhead ? static_cast<std::uint32_t>(packetSize - overhead) : 0;
}

/// Fills header from the start of packet, of which kGvspExtendedHeaderSize bytes must be readable.
/// GC_ERR_INVALID_BUFFER, with header untouched, when packet is null or one of the sizes is 0; the sizes
/// are not looked at otherwise.
int GetPktHeaderInfo(const char* packet, int packetSize, int received, ParsedGvspHeader& header);

/// The place of a packet's block relative to the current one. Blocks a little behind, and those that a
/// wrap takes for it, are older; a jump far back is newer.
BlockOrder CompareBlockIds(std::uint64_t packetBlock, std::uint64_t currentBlock, bool extended);

/// The distance from block b up to block a, across the wrap. 16-bit ids wrap at 65535, since 0 is not used.
std::uint64_t DiffBlockId(std::uint64_t a, std::uint64_t b, bool extended);

/// The block id that follows; never 0.
std::uint64_t NextBlockId(std::uint64_t id, bool extended);

/// Stores the fields of an image leader, and the data size that its geometry promises. specific is the
/// timestamp's place in the packet.
void ParseImageLeaderData(const char* specific, Buffer& buffer);

/// Stores a leader's contents in buffer, and its payload type in stream. kGvspParsedSpan bytes of packet must
/// be readable. GC_ERR_NOT_IMPLEMENTED, with nothing stored, on a payload type that isn't supported.
int ParseGVSPLeader(StreamInfo& stream, const char* packet, Buffer& buffer, const ParsedGvspHeader& header);

/// Stores a trailer's contents in buffer. The layout follows the payload type of the stream's last leader.
/// Without packet resend the trailer completes the image. Bytes and failure as ParseGVSPLeader.
int ParseGVSPTrailer(
    StreamInfo& stream, const char* packet, Buffer& buffer, bool& complete, const ParsedGvspHeader& header);

/// Sets the payload type that the consumer reads, and the flags that follow from it. False when the GVSP type
/// isn't known.
bool SwitchPayloadType(unsigned gvspType, Buffer& buffer);

}  // namespace GenTL
