/// What a buffer holds.
#pragma once

#include <cstdint>

namespace Tool {

/// Borrows the memory of a buffer. Sizes in bytes, but for width and height.
struct Image
{
    const std::uint8_t* pData = nullptr;
    std::uint64_t memorySize = 0;  ///< that may be read from pData on
    std::uint64_t sizeFilled = 0;  ///< received; in an incomplete image there are gaps between
    std::uint64_t width = 0;       ///< 0, as height and format, when the producer tells no geometry
    std::uint64_t height = 0;
    std::uint64_t linePadding = 0;
    std::uint64_t pixelFormat = 0;
    std::uint64_t id = 0;  ///< the camera's count of its images; 0 when not known
    bool isIncomplete = false;
    bool isTooLarge = false;  ///< for its buffer
};

}  // namespace Tool
