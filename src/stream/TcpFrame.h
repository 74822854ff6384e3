/// The layout of a frame on the TCP stream: this head, then the image, then the next frame.
#pragma once

#include <cstddef>

namespace GenTL {

/// Offsets of what is read, in bytes; all big-endian. The status, flags, ids and options of the header that
/// UDP packets have stand in between.
namespace TcpFrame {
inline constexpr std::size_t kPayloadSize = 0;  // 32 bits
inline constexpr std::size_t kBlockId = 12;     // 64 bits
inline constexpr std::size_t kPayloadType = 26;
inline constexpr std::size_t kTimestamp = 28;  // 64 bits
inline constexpr std::size_t kPixelFormat = 36;
inline constexpr std::size_t kSizeX = 40;
inline constexpr std::size_t kSizeY = 44;
inline constexpr std::size_t kOffsetX = 48;
inline constexpr std::size_t kOffsetY = 52;
inline constexpr std::size_t kPaddingX = 56;  // 16 bits
inline constexpr std::size_t kPaddingY = 58;  // 16 bits
inline constexpr std::size_t kHeaderSize = 60;
}  // namespace TcpFrame

}  // namespace GenTL
