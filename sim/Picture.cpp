#include "sim/Picture.h"

#include "sim/Bytes.h"

#include <algorithm>
#include <cstring>

namespace sim {
namespace {

// A prime, so that neither the number of buffers nor any power of two hides an image taken for another.
constexpr std::uint64_t kScrollLines = 251;

std::uint64_t ScrollLine(std::uint64_t blockId)
{
    return blockId % kScrollLines;
}

std::uint64_t Mix(std::uint64_t value)
{
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9u;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBu;
    return value ^ (value >> 31);
}

/// The endless strip of which each image shows a window: the byte in column `column` of line `line`.
std::uint8_t StripByte(const Geometry& geometry,
                       TestPattern pattern,
                       std::uint64_t line,
                       std::uint64_t column)
{
    if (pattern == TestPattern::Black) {
        return 0;
    }
    if (pattern == TestPattern::MovingNoise) {
        const std::uint64_t position = line * geometry.LineBytes() + column;
        return static_cast<std::uint8_t>(Mix(position / 8 + 1) >> (8 * (position % 8)));
    }
    const std::uint32_t pixelBytes = BytesPerPixel(geometry.pixelFormat);
    const std::int64_t part = static_cast<std::int64_t>(column % pixelBytes);
    const std::int64_t x = static_cast<std::int64_t>(column / pixelBytes) - geometry.width / 2;
    const std::int64_t y = static_cast<std::int64_t>(line) - geometry.height / 2;
    const std::int64_t squared = x * x + y * y;
    if (geometry.pixelFormat == PixelFormat::Mono16) {
        return static_cast<std::uint8_t>((squared * 4) >> (8 * part));  // low byte first, as PFNC packs it
    }
    return static_cast<std::uint8_t>((squared >> 6) + 85 * part);  // the colours are a third of a ring apart
}

}  // namespace

std::size_t Geometry::LineBytes() const
{
    return static_cast<std::size_t>(width) * BytesPerPixel(pixelFormat);
}

bool Geometry::operator==(const Geometry& other) const
{
    return pixelFormat == other.pixelFormat && width == other.width && height == other.height;
}

bool IsPixelFormat(std::uint32_t value)
{
    switch (static_cast<PixelFormat>(value)) {
        case PixelFormat::Mono8:
        case PixelFormat::BayerRG8:
        case PixelFormat::Mono16:
        case PixelFormat::RGB8:
            return true;
    }
    return false;
}

std::uint32_t BytesPerPixel(PixelFormat format)
{
    return ((static_cast<std::uint32_t>(format) >> 16) & 0xFFu) / 8;
}

std::uint8_t PatternByte(const Geometry& geometry,
                         TestPattern pattern,
                         std::uint64_t blockId,
                         std::size_t offset)
{
    const std::size_t lineBytes = geometry.LineBytes();
    return StripByte(geometry, pattern, ScrollLine(blockId) + offset / lineBytes, offset % lineBytes);
}

Picture::Picture(const Geometry& geometry, TestPattern pattern, ChunkMode chunkMode)
    : m_geometry(geometry), m_pattern(pattern), m_chunkMode(chunkMode)
{
    const std::uint64_t lines = geometry.height + kScrollLines - 1;
    const std::size_t lineBytes = geometry.LineBytes();
    m_bytes.resize(lines * lineBytes);
    auto out = m_bytes.begin();
    for (std::uint64_t line = 0; line < lines; ++line) {
        for (std::size_t column = 0; column < lineBytes; ++column) {
            *out++ = StripByte(geometry, pattern, line, column);
        }
    }
}

std::size_t Picture::PayloadBytes() const
{
    return ImageBytes() + (m_chunkMode == ChunkMode::Off ? 0 : kChunkTailBytes);
}

const std::uint8_t* Picture::Image(std::uint64_t blockId) const
{
    return m_bytes.data() + ScrollLine(blockId) * m_geometry.LineBytes();
}

Picture::ChunkTail Picture::Tail(std::uint64_t blockId) const
{
    ChunkTail tail;
    Put32(&tail[0], kImageChunkId);
    Put32(&tail[4], static_cast<std::uint32_t>(ImageBytes()));
    Put64(&tail[8], blockId);
    Put32(&tail[16], kFrameIdChunkId);
    Put32(&tail[20], 8);
    return tail;
}

std::size_t Picture::FindMismatch(std::uint64_t blockId, const void* pData, std::size_t size) const
{
    const auto* pBytes = static_cast<const std::uint8_t*>(pData);
    const std::uint8_t* pImage = Image(blockId);
    const std::size_t imagePart = std::min(size, ImageBytes());
    if (std::memcmp(pBytes, pImage, imagePart) != 0) {
        return static_cast<std::size_t>(std::mismatch(pBytes, pBytes + imagePart, pImage).first - pBytes);
    }
    const std::size_t known = std::min(size, PayloadBytes());
    const ChunkTail tail = Tail(blockId);
    for (std::size_t offset = imagePart; offset < known; ++offset) {
        if (pBytes[offset] != tail[offset - imagePart]) {
            return offset;
        }
    }
    return size > known ? known : kNoMismatch;
}

std::uint16_t PayloadType(ChunkMode mode)
{
    switch (mode) {
        case ChunkMode::ImageAndChunks:
            return 0x4001;
        case ChunkMode::ChunkData:
            return 4;
        default:
            return 1;
    }
}

}  // namespace sim
