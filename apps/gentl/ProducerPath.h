/// Where to find a GenTL Producer.
#pragma once

#include <filesystem>
#include <string>

namespace Tool {

/// The library to load. A given name is a path, or that of a file in the folders of GENICAM_GENTL64_PATH.
/// Without one it is the library that was built or installed together with this program, or else the first
/// *.cti in these folders. Throws Failure when there is none.
std::filesystem::path FindProducer(const std::string& given);

}  // namespace Tool
