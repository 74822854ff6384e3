/// Pixel formats as cameras name them, and the samples behind them.
#pragma once

#include "gentl/Image.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Tool {

/// How the samples of a pixel format lie in memory.
enum class Packing {
    Bytes,         ///< one byte each
    LittleEndian,  ///< two bytes each, the value in the low bits
    Lsb,           ///< without gaps, from the low bits on: the formats 10p and 12p
    Pairs,         ///< two in three bytes, the low bits of both in the second: 10Packed and 12Packed
};

struct PixelFormat
{
    std::uint32_t code;  ///< of the Pixel Format Naming Convention
    const char* name;
    unsigned bits;      ///< of a sample
    unsigned channels;  ///< samples of a pixel
    Packing packing;
    bool isBgr;
};

/// Null for formats that can't be shown as they are.
const PixelFormat* FindPixelFormat(std::uint64_t code);
/// The name, or the number of an unknown format.
std::string PixelFormatName(std::uint64_t code);

/// Bytes from the first to the last sample of an image in this format. Throws Failure when the image is
/// larger than its memory or has no pixels.
std::uint64_t CheckedSize(const PixelFormat& format, const Image& image);
/// All samples, line by line without padding, moved up to the high bits of 16. Throws Failure as CheckedSize
/// does.
std::vector<std::uint16_t> Unpack(const PixelFormat& format, const Image& image);

}  // namespace Tool
