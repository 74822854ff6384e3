#include "stream/PacketTracking.h"

#include "buffers/Buffer.h"

#include <algorithm>
#include <cstddef>
#include <limits>

namespace GenTL {
namespace {

constexpr std::uint32_t kLastId = std::numeric_limits<std::uint32_t>::max();

std::uint64_t ByteOf(std::uint32_t id)
{
    return id >> 3;
}

unsigned BitOf(std::uint32_t id)
{
    return 0x80U >> (id & 7U);
}

}  // namespace

bool IsPacketReceived(const std::uint8_t* bitmap, std::uint64_t size, std::uint32_t id)
{
    return bitmap != nullptr && ByteOf(id) <= size && (bitmap[ByteOf(id)] & BitOf(id)) != 0;
}

void SetPacketReceived(std::uint8_t* bitmap, std::uint64_t size, std::uint32_t id)
{
    if (bitmap != nullptr && ByteOf(id) <= size) {
        bitmap[ByteOf(id)] = static_cast<std::uint8_t>(bitmap[ByteOf(id)] | BitOf(id));
    }
}

void AllocatePacketBitmap(Buffer& buffer, std::uint64_t packets)
{
    FreePacketBitmap(buffer);
    const std::uint64_t size = packets / 8 + (packets % 8 != 0 ? 1 : 0);
    buffer.m_pPacketBitmap = new std::uint8_t[size + 1]();
    buffer.m_packetBitmapSize = size;
}

void FreePacketBitmap(Buffer& buffer)
{
    delete[] buffer.m_pPacketBitmap;
    buffer.m_pPacketBitmap = nullptr;
    buffer.m_packetBitmapSize = 0;
}

std::uint64_t PayloadPacketsPerImage(std::uint64_t imageSize, std::uint32_t payloadPerPacket)
{
    if (payloadPerPacket == 0) {
        return 0;
    }
    const std::uint64_t packets = imageSize / payloadPerPacket + (imageSize % payloadPerPacket != 0 ? 1 : 0);
    constexpr std::uint64_t kMost = kLastId - 2;  // the trailer's id follows, and the count of all
    return std::min(packets, kMost);
}

PacketPlace PlaceOfPacket(const Buffer& buffer, std::uint32_t payloadPerPacket, std::uint64_t packetId)
{
    if (packetId == 0 || payloadPerPacket == 0) {
        return {buffer.m_size, 0};
    }
    const std::uint64_t offset = (packetId - 1) * payloadPerPacket;  // 32 bits by 32 bits
    return offset < buffer.m_size ? PacketPlace{offset, buffer.m_size - offset}
                                  : PacketPlace{buffer.m_size, 0};
}

void AdvanceExpectedPacketId(Buffer& buffer, std::uint32_t packetId)
{
    const std::uint32_t next = packetId == kLastId ? packetId : packetId + 1;
    buffer.m_nextExpectedPacketId = std::max<std::uint32_t>(buffer.m_nextExpectedPacketId, next);
}

}  // namespace GenTL
