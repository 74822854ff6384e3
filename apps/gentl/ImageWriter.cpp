#include "gentl/ImageWriter.h"

#include "gentl/Failure.h"
#include "gentl/Files.h"
#include "gentl/PixelFormat.h"

#include <png.h>

#include <algorithm>
#include <string>
#include <vector>

namespace Tool {
namespace {

png_uint_32 PngFormat(const PixelFormat& format)
{
    png_uint_32 flags = format.channels == 3 ? static_cast<png_uint_32>(PNG_FORMAT_FLAG_COLOR) : 0;
    if (format.isBgr) {
        flags |= PNG_FORMAT_FLAG_BGR;
    }
    return format.bits > 8 ? flags | PNG_FORMAT_FLAG_LINEAR : flags;
}

}  // namespace

void WritePng(const std::filesystem::path& path, const Image& image)
{
    const PixelFormat* pFormat = FindPixelFormat(image.pixelFormat);
    if (image.width == 0 || pFormat == nullptr) {
        throw Failure(image.width == 0 ? "what the camera sends is no image of known size"
                                       : "a PNG can't show the " + PixelFormatName(image.pixelFormat),
                      "Write the bytes as they come with --raw.");
    }
    CheckedSize(*pFormat, image);
    const std::uint64_t lineSamples = image.width * pFormat->channels;
    std::vector<std::uint16_t> wide;
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    png.width = static_cast<png_uint_32>(image.width);
    png.height = static_cast<png_uint_32>(image.height);
    png.format = PngFormat(*pFormat);
    png.flags = PNG_IMAGE_FLAG_FAST;
    const void* pSamples = image.pData;
    std::uint64_t stride = lineSamples + image.linePadding;
    if (pFormat->bits > 8) {
        wide = Unpack(*pFormat, image);
        pSamples = wide.data();
        stride = lineSamples;
    }
    if (png_image_write_to_file(&png, path.c_str(), 0, pSamples, static_cast<png_int_32>(stride), nullptr) ==
        0) {
        throw Failure("can't write " + path.string() + ": " + png.message);
    }
}

void WriteRaw(const std::filesystem::path& path, const Image& image)
{
    const std::uint64_t size =
        image.isIncomplete ? image.memorySize : std::min(image.sizeFilled, image.memorySize);
    WriteFile(path, image.pData, image.pData != nullptr ? size : 0);
}

}  // namespace Tool
