#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace sim {

/// Pixel formats of the camera, with their PFNC values.
enum class PixelFormat : std::uint32_t {
    Mono8 = 0x01080001,
    BayerRG8 = 0x01080009,
    Mono16 = 0x01100007,
    RGB8 = 0x02180014,
};

/// What the camera draws. The values are those of its TestPattern register.
enum class TestPattern : std::uint32_t {
    Black = 0,
    MovingRings = 1,  ///< for the eye: rings that scroll by one line an image
    MovingNoise = 2,  ///< for tests: no part of it looks like another, so a misplaced byte shows
};

/// How the payload is packed, and with it the GVSP payload type.
enum class ChunkMode : std::uint32_t {
    Off = 0,             ///< image, type 1
    ImageAndChunks = 1,  ///< image with chunk data, type 0x4001
    ChunkData = 2,       ///< chunk data, type 4
};

struct Geometry
{
    PixelFormat pixelFormat = PixelFormat::Mono8;
    std::uint32_t width = 512;
    std::uint32_t height = 384;

    std::size_t LineBytes() const;
    std::size_t ImageBytes() const { return LineBytes() * height; }
    bool operator==(const Geometry& other) const;
};

bool IsPixelFormat(std::uint32_t value);
std::uint32_t BytesPerPixel(PixelFormat format);

/// Byte `offset` of the image (not of the chunks behind it) that the camera sends as block `blockId`.
/// Computed from its arguments alone, so a receiver checks with it what it got.
std::uint8_t PatternByte(const Geometry& geometry,
                         TestPattern pattern,
                         std::uint64_t blockId,
                         std::size_t offset);

/// The payloads of a run: a moving picture with, in chunk mode, an image chunk and a FrameID chunk around it.
///
/// All images are windows into one block of memory computed once, each a line further down than the one
/// before, so that sending an image copies and computes nothing. Immutable, any thread may read it.
class Picture
{
public:
    static constexpr std::uint32_t kImageChunkId = 0x00000001;
    static constexpr std::uint32_t kFrameIdChunkId = 0x00000002;
    static constexpr std::size_t kChunkTailBytes = 8 + 8 + 8;  ///< image tag, frame id, frame id tag
    static constexpr std::size_t kNoMismatch = SIZE_MAX;

    using ChunkTail = std::array<std::uint8_t, kChunkTailBytes>;

    Picture(const Geometry& geometry, TestPattern pattern, ChunkMode chunkMode);

    const Geometry& ImageGeometry() const { return m_geometry; }
    TestPattern Pattern() const { return m_pattern; }
    ChunkMode Chunks() const { return m_chunkMode; }

    /// Bytes of the image.
    std::size_t ImageBytes() const { return m_geometry.ImageBytes(); }
    /// Bytes of a block, chunks included.
    std::size_t PayloadBytes() const;
    /// The image of a block, ImageBytes() long.
    const std::uint8_t* Image(std::uint64_t blockId) const;
    /// What follows the image in chunk mode: chunk id and length behind each chunk's data, big-endian.
    ChunkTail Tail(std::uint64_t blockId) const;

    /// Compares the first `size` bytes of a received payload with those of a block; a payload that is too
    /// long differs at PayloadBytes(). \return offset of the first byte that differs, or kNoMismatch
    std::size_t FindMismatch(std::uint64_t blockId, const void* pData, std::size_t size) const;

private:
    Geometry m_geometry;
    TestPattern m_pattern;
    ChunkMode m_chunkMode;
    std::vector<std::uint8_t> m_bytes;
};

/// The payload type of blocks and frames.
std::uint16_t PayloadType(ChunkMode mode);

}  // namespace sim
