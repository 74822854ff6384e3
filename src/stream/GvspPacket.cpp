#include "stream/GvspPacket.h"

#include "buffers/Buffer.h"
#include "frame/Error.h"
#include "frame/GenTL.h"
#include "gev/BigEndian.h"
#include "log/GLogger.h"
#include "log/localization.h"
#include "stream/StreamInfo.h"

#include <chrono>
#include <optional>
#include <string>

namespace GenTL {
namespace {

// Offsets in the packet header.
constexpr std::size_t kStatus = 0;
constexpr std::size_t kWord2 = 2;
constexpr std::size_t kFormatWord = 4;
constexpr std::size_t kExtendedBlockId = 8;
constexpr std::size_t kExtendedPacketId = 16;

constexpr std::uint32_t kEiBit = 0x80000000;
constexpr std::uint32_t kPacketIdMask = 0x00FFFFFF;

/// Offsets in a leader, from the end of the header.
namespace Leader {
constexpr std::size_t kPayloadType = 2;
constexpr std::size_t kTimestamp = 4;
}  // namespace Leader

/// Offsets in an image leader, from its timestamp.
namespace ImageLeader {
constexpr std::size_t kTimestamp = 0;
constexpr std::size_t kPixelFormat = 8;
constexpr std::size_t kSizeX = 12;
constexpr std::size_t kSizeY = 16;
constexpr std::size_t kOffsetX = 20;
constexpr std::size_t kOffsetY = 24;
constexpr std::size_t kPaddingX = 28;
constexpr std::size_t kPaddingY = 30;
static_assert(Leader::kTimestamp + kPaddingY + sizeof(std::uint16_t) == kGvspLongestInfo);
}  // namespace ImageLeader

/// Offsets in a trailer, from the end of the header. Which of them exist depends on the payload type.
namespace Trailer {
constexpr std::size_t kSizeY = 4;
constexpr std::size_t kChunkLengthAfterImage = 8;
constexpr std::size_t kChunkLayoutId = 12;
constexpr std::size_t kChunkLength = 4;
}  // namespace Trailer

/// What the consumer reads for a GVSP payload type. A flag without a value keeps what it was.
struct PayloadRow
{
    unsigned gvspType;
    std::uint64_t type;
    std::optional<bool> imagePresent;
    std::optional<bool> containsChunkData;
};

constexpr std::nullopt_t kKept = std::nullopt;

constexpr PayloadRow kPayloadTypes[] = {
    {1,      PAYLOAD_TYPE_IMAGE,      true,  kKept},
    {2,      PAYLOAD_TYPE_RAW_DATA,   true,  kKept},
    {3,      PAYLOAD_TYPE_FILE,       kKept, kKept},
    {4,      PAYLOAD_TYPE_CHUNK_DATA, true,  true },
    {6,      PAYLOAD_TYPE_JPEG,       true,  kKept},
    {7,      PAYLOAD_TYPE_JPEG2000,   true,  kKept},
    {8,      PAYLOAD_TYPE_H264,       kKept, kKept},
    {9,      PAYLOAD_TYPE_MULTI_PART, true,  kKept},
    {0x4001, kGvspImageWithChunks,    true,  true },
};

constexpr unsigned kFirstDeviceSpecificType = 0x8000;

using Bytes = const unsigned char*;

/// Packets come from the socket as char.
Bytes ToBytes(const char* packet)
{
    return reinterpret_cast<Bytes>(packet);
}

void CompareHeights(Bytes trailer, const Buffer& buffer)
{
    const std::uint32_t sizeY = Load32(trailer + Trailer::kSizeY);
    if (sizeY != buffer.m_height) {
        GLogger::Error(loc::al("ParseGVSPTrailer():  Packet size_y [{0}] != Buffer height [{1}]",
                               {std::to_string(sizeY).c_str(), std::to_string(buffer.m_height).c_str()})
                           .c_str());
    }
}

/// The chunks' length also stands for the size of the whole: completeness is told by it.
void StoreChunkLength(std::uint32_t length, Buffer& buffer)
{
    buffer.m_containsChunkData = true;
    buffer.m_deliveredChunkPayloadSize = length;
    buffer.m_dataSize = length;
}

}  // namespace

int GetPktHeaderInfo(const char* packet, int packetSize, int received, ParsedGvspHeader& header)
{
    if (packet == nullptr || packetSize == 0 || received == 0) {
        GLogger::Error("anonymous::GetPktHeaderInfo pPacket == nullptr");
        return Raise(GC_ERR_INVALID_BUFFER, "anonymous::GetPktHeaderInfo pPacket == nullptr !");
    }
    const Bytes bytes = ToBytes(packet);
    const std::uint32_t formatWord = Load32(bytes + kFormatWord);
    const bool extended = (formatWord & kEiBit) != 0;
    header.m_status = Load16(bytes + kStatus);
    header.m_word2 = Load16(bytes + kWord2);
    header.m_eiFlag = extended ? 1 : 0;
    header.m_format = static_cast<std::uint8_t>(formatWord >> 24 & 0x0F);
    header.m_packetId = extended ? Load32(bytes + kExtendedPacketId) : formatWord & kPacketIdMask;
    header.m_blockId = extended ? Load64(bytes + kExtendedBlockId) : header.m_word2;
    return GC_ERR_SUCCESS;
}

BlockOrder CompareBlockIds(std::uint64_t packetBlock, std::uint64_t currentBlock, bool extended)
{
    constexpr std::uint64_t kHalfExtended = 0x7FFFFFFFFFFFFFFF;
    constexpr std::uint64_t kHalfStandard = 32767;
    constexpr std::uint64_t kStandardWrap = 65535;
    if (packetBlock == currentBlock) {
        return BlockOrder::Equal;
    }
    const std::uint64_t wrap = !extended && packetBlock > currentBlock ? kStandardWrap : 0;
    const std::uint64_t behind = currentBlock + wrap - packetBlock;
    return behind < (extended ? kHalfExtended : kHalfStandard) ? BlockOrder::Older : BlockOrder::Newer;
}

std::uint64_t DiffBlockId(std::uint64_t a, std::uint64_t b, bool extended)
{
    if (a >= b) {
        return a - b;
    }
    return extended ? ~b + a : a - b + 65535;
}

std::uint64_t NextBlockId(std::uint64_t id, bool extended)
{
    constexpr std::uint64_t kStandardIds = 0x10000;
    const std::uint64_t next = id + 1;
    if (next == 0 || (!extended && next >= kStandardIds)) {
        return 1;
    }
    return next;
}

void ParseImageLeaderData(const char* specific, Buffer& buffer)
{
    const Bytes fields = ToBytes(specific);
    buffer.m_timestamp = Load64(fields + ImageLeader::kTimestamp);
    buffer.m_pixelFormat = Load32(fields + ImageLeader::kPixelFormat);
    buffer.m_width = Load32(fields + ImageLeader::kSizeX);
    buffer.m_height = Load32(fields + ImageLeader::kSizeY);
    buffer.m_xOffset = Load32(fields + ImageLeader::kOffsetX);
    buffer.m_yOffset = Load32(fields + ImageLeader::kOffsetY);
    buffer.m_xPadding = Load16(fields + ImageLeader::kPaddingX);
    buffer.m_yPadding = Load16(fields + ImageLeader::kPaddingY);
    const std::uint64_t bitsPerPixel = buffer.m_pixelFormat >> 16 & 0xFF;
    buffer.m_dataSize = bitsPerPixel * buffer.m_width * buffer.m_height >> 3;
}

int ParseGVSPLeader(StreamInfo& stream, const char* packet, Buffer& buffer, const ParsedGvspHeader& header)
{
    const std::size_t headerSize = GvspHeaderSize(header.m_eiFlag != 0);
    const Bytes leader = ToBytes(packet) + headerSize;
    const std::uint16_t type = Load16(leader + Leader::kPayloadType);
    if (IsGvspImage(type)) {
        ParseImageLeaderData(packet + headerSize + Leader::kTimestamp, buffer);
    } else if (type == kGvspChunkData) {
        buffer.m_timestamp = Load64(leader + Leader::kTimestamp);
    } else {
        const char* text = header.m_eiFlag != 0
                               ? "anonymous::ParseGVSPLeaderResend payload type not supported: {0}"
                               : "anonymous::ParseLeader payload type not supported: {0}";
        GLogger::Error(loc::al(text, {std::to_string(type).c_str()}).c_str());
        return GC_ERR_NOT_IMPLEMENTED;
    }
    if (buffer.m_timestamp == 0) {
        const auto now = std::chrono::system_clock::now().time_since_epoch().count();
        buffer.m_timestamp = static_cast<std::uint64_t>(now);
    }
    stream.m_payloadType = type;
    buffer.m_leaderReceived = true;
    buffer.m_packetsRemaining -= 1;
    return GC_ERR_SUCCESS;
}

int ParseGVSPTrailer(
    StreamInfo& stream, const char* packet, Buffer& buffer, bool& complete, const ParsedGvspHeader& header)
{
    const Bytes trailer = ToBytes(packet) + GvspHeaderSize(header.m_eiFlag != 0);
    const std::uint16_t type = stream.m_payloadType;
    switch (type) {
        case kGvspImage:
            CompareHeights(trailer, buffer);
            break;
        case kGvspImageWithChunks:
            StoreChunkLength(Load32(trailer + Trailer::kChunkLengthAfterImage), buffer);
            buffer.m_chunkLayoutId = Load32(trailer + Trailer::kChunkLayoutId);
            CompareHeights(trailer, buffer);
            break;
        case kGvspChunkData:
            StoreChunkLength(Load32(trailer + Trailer::kChunkLength), buffer);
            break;
        default:
            GLogger::Error(loc::al("ParseGVSPTrailer():  Payload type [{0}] not supported",
                                   {std::to_string(type).c_str()})
                               .c_str());
            return GC_ERR_NOT_IMPLEMENTED;
    }
    if (!stream.m_packetResendEnable) {
        complete = true;
    }
    buffer.m_trailerReceived = true;
    buffer.m_packetsRemaining -= 1;
    return GC_ERR_SUCCESS;
}

bool SwitchPayloadType(unsigned gvspType, Buffer& buffer)
{
    for (const PayloadRow& row : kPayloadTypes) {
        if (row.gvspType == gvspType) {
            buffer.m_payloadType = row.type;
            buffer.m_imagePresent = row.imagePresent.value_or(buffer.m_imagePresent);
            buffer.m_containsChunkData = row.containsChunkData.value_or(buffer.m_containsChunkData);
            return true;
        }
    }
    buffer.m_payloadType =
        gvspType < kFirstDeviceSpecificType ? PAYLOAD_TYPE_UNKNOWN : PAYLOAD_TYPE_DEVICE_SPECIFIC;
    buffer.m_imagePresent = false;
    return false;
}

}  // namespace GenTL
