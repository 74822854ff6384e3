#include "gentl/PixelFormat.h"

#include "gentl/Failure.h"
#include "gentl/Numbers.h"

#include <algorithm>

namespace Tool {
namespace {

constexpr std::uint64_t kLongestSide = 1u << 20;

// A Bayer pattern is shown as it lies on the sensor, without interpolation.
constexpr PixelFormat kFormats[] = {
    {0x01080001, "Mono8",           8,  1, Packing::Bytes,        false},
    {0x01100003, "Mono10",          10, 1, Packing::LittleEndian, false},
    {0x01100005, "Mono12",          12, 1, Packing::LittleEndian, false},
    {0x01100025, "Mono14",          14, 1, Packing::LittleEndian, false},
    {0x01100007, "Mono16",          16, 1, Packing::LittleEndian, false},
    {0x010A0046, "Mono10p",         10, 1, Packing::Lsb,          false},
    {0x010C0047, "Mono12p",         12, 1, Packing::Lsb,          false},
    {0x010C0004, "Mono10Packed",    10, 1, Packing::Pairs,        false},
    {0x010C0006, "Mono12Packed",    12, 1, Packing::Pairs,        false},
    {0x01080008, "BayerGR8",        8,  1, Packing::Bytes,        false},
    {0x01080009, "BayerRG8",        8,  1, Packing::Bytes,        false},
    {0x0108000A, "BayerGB8",        8,  1, Packing::Bytes,        false},
    {0x0108000B, "BayerBG8",        8,  1, Packing::Bytes,        false},
    {0x0110000C, "BayerGR10",       10, 1, Packing::LittleEndian, false},
    {0x0110000D, "BayerRG10",       10, 1, Packing::LittleEndian, false},
    {0x0110000E, "BayerGB10",       10, 1, Packing::LittleEndian, false},
    {0x0110000F, "BayerBG10",       10, 1, Packing::LittleEndian, false},
    {0x01100010, "BayerGR12",       12, 1, Packing::LittleEndian, false},
    {0x01100011, "BayerRG12",       12, 1, Packing::LittleEndian, false},
    {0x01100012, "BayerGB12",       12, 1, Packing::LittleEndian, false},
    {0x01100013, "BayerBG12",       12, 1, Packing::LittleEndian, false},
    {0x0110002E, "BayerGR16",       16, 1, Packing::LittleEndian, false},
    {0x0110002F, "BayerRG16",       16, 1, Packing::LittleEndian, false},
    {0x01100030, "BayerGB16",       16, 1, Packing::LittleEndian, false},
    {0x01100031, "BayerBG16",       16, 1, Packing::LittleEndian, false},
    {0x010A0056, "BayerGR10p",      10, 1, Packing::Lsb,          false},
    {0x010A0058, "BayerRG10p",      10, 1, Packing::Lsb,          false},
    {0x010A0054, "BayerGB10p",      10, 1, Packing::Lsb,          false},
    {0x010A0052, "BayerBG10p",      10, 1, Packing::Lsb,          false},
    {0x010C0057, "BayerGR12p",      12, 1, Packing::Lsb,          false},
    {0x010C0059, "BayerRG12p",      12, 1, Packing::Lsb,          false},
    {0x010C0055, "BayerGB12p",      12, 1, Packing::Lsb,          false},
    {0x010C0053, "BayerBG12p",      12, 1, Packing::Lsb,          false},
    {0x010C0026, "BayerGR10Packed", 10, 1, Packing::Pairs,        false},
    {0x010C0027, "BayerRG10Packed", 10, 1, Packing::Pairs,        false},
    {0x010C0028, "BayerGB10Packed", 10, 1, Packing::Pairs,        false},
    {0x010C0029, "BayerBG10Packed", 10, 1, Packing::Pairs,        false},
    {0x010C002A, "BayerGR12Packed", 12, 1, Packing::Pairs,        false},
    {0x010C002B, "BayerRG12Packed", 12, 1, Packing::Pairs,        false},
    {0x010C002C, "BayerGB12Packed", 12, 1, Packing::Pairs,        false},
    {0x010C002D, "BayerBG12Packed", 12, 1, Packing::Pairs,        false},
    {0x02180014, "RGB8",            8,  3, Packing::Bytes,        false},
    {0x02180015, "BGR8",            8,  3, Packing::Bytes,        true },
    {0x02300018, "RGB10",           10, 3, Packing::LittleEndian, false},
    {0x02300019, "BGR10",           10, 3, Packing::LittleEndian, true },
    {0x0230001A, "RGB12",           12, 3, Packing::LittleEndian, false},
    {0x0230001B, "BGR12",           12, 3, Packing::LittleEndian, true },
    {0x02300033, "RGB16",           16, 3, Packing::LittleEndian, false},
    {0x0230004B, "BGR16",           16, 3, Packing::LittleEndian, true },
};

unsigned BitsInMemory(const PixelFormat& format)
{
    switch (format.packing) {
        case Packing::Bytes:
            return 8;
        case Packing::LittleEndian:
            return 16;
        case Packing::Pairs:
            return 12;
        default:
            return format.bits;
    }
}

/// Without padding the lines of a packed image follow each other within a byte; with it each begins with a
/// byte.
std::uint64_t LineBytes(const PixelFormat& format, const Image& image)
{
    return (image.width * format.channels * BitsInMemory(format) + 7) / 8 + image.linePadding;
}

unsigned Sample(const PixelFormat& format, const std::uint8_t* pLine, std::uint64_t index)
{
    switch (format.packing) {
        case Packing::Bytes:
            return pLine[index];
        case Packing::LittleEndian:
            return pLine[2 * index] | static_cast<unsigned>(pLine[2 * index + 1]) << 8;
        case Packing::Lsb: {
            // Ten or twelve bits at an even place within a byte always lie in two bytes.
            const std::uint8_t* pBytes = pLine + index * format.bits / 8;
            const unsigned word = pBytes[0] | static_cast<unsigned>(pBytes[1]) << 8;
            return word >> (index * format.bits % 8);
        }
        default: {
            const std::uint8_t* pPair = pLine + index / 2 * 3;
            const unsigned low = index % 2 == 0 ? pPair[1] : pPair[1] >> 4;
            const unsigned lowBits = format.bits - 8;
            return static_cast<unsigned>(pPair[index % 2 == 0 ? 0 : 2]) << lowBits |
                   (low & ((1u << lowBits) - 1));
        }
    }
}

}  // namespace

const PixelFormat* FindPixelFormat(std::uint64_t code)
{
    const auto found = std::find_if(std::begin(kFormats), std::end(kFormats),
                                    [code](const PixelFormat& f) { return f.code == code; });
    return found != std::end(kFormats) ? &*found : nullptr;
}

std::string PixelFormatName(std::uint64_t code)
{
    if (const PixelFormat* pFormat = FindPixelFormat(code)) {
        return pFormat->name;
    }
    return Format("pixel format 0x%08llX", code);
}

std::uint64_t CheckedSize(const PixelFormat& format, const Image& image)
{
    const bool isSane = image.width >= 1 && image.width <= kLongestSide && image.height >= 1 &&
                        image.height <= kLongestSide && image.linePadding <= kLongestSide;
    const std::uint64_t bits = isSane ? image.width * format.channels * BitsInMemory(format) : 0;
    const std::uint64_t size = image.linePadding == 0
                                   ? (bits * image.height + 7) / 8
                                   : LineBytes(format, image) * (image.height - 1) + (bits + 7) / 8;
    if (!isSane || image.pData == nullptr || size > image.memorySize) {
        throw Failure("an image of " + std::to_string(image.width) + " x " + std::to_string(image.height) +
                      " pixels " + format.name + " doesn't lie within its buffer of " +
                      std::to_string(image.memorySize) + " bytes");
    }
    return size;
}

std::vector<std::uint16_t> Unpack(const PixelFormat& format, const Image& image)
{
    CheckedSize(format, image);
    const std::uint64_t samples = image.width * format.channels;
    std::vector<std::uint16_t> result(samples * image.height);
    auto out = result.begin();
    for (std::uint64_t y = 0; y < image.height; ++y) {
        const bool isPadded = image.linePadding != 0;
        const std::uint8_t* pLine = isPadded ? image.pData + y * LineBytes(format, image) : image.pData;
        const std::uint64_t first = isPadded ? 0 : y * samples;
        for (std::uint64_t x = 0; x < samples; ++x) {
            *out++ = static_cast<std::uint16_t>(Sample(format, pLine, first + x) << (16 - format.bits));
        }
    }
    return result;
}

}  // namespace Tool
