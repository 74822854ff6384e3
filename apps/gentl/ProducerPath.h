/// Where to find a GenTL Producer.
#pragma once

#include <filesystem>
#include <string>

namespace Tool {

/// The library to load: the given one if any, else the first *.cti in the folders of GENICAM_GENTL64_PATH,
/// else the one that was built or installed together with this program. Throws Failure when there is none.
std::filesystem::path FindProducer(const std::string& given);

}  // namespace Tool
