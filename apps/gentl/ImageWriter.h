/// Writes images to files.
#pragma once

#include "gentl/Image.h"

#include <filesystem>

namespace Tool {

/// Grey or RGB, with 8 bits a sample or, for formats with more, with 16, the value in the high bits. The
/// values are those of the camera: nothing is interpolated or corrected. Throws Failure, also for formats
/// that a PNG can't show.
void WritePng(const std::filesystem::path& path, const Image& image);
/// The bytes as they came; of an incomplete image the whole buffer, since gaps lie between. Throws Failure.
void WriteRaw(const std::filesystem::path& path, const Image& image);

}  // namespace Tool
