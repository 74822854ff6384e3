#pragma once

#include <string>

namespace Tool {

/// The first file of a zip archive held in memory; text that is no archive comes back as it is. Throws
/// Failure when the archive is damaged or holds more than a description can.
std::string Unzipped(const std::string& bytes);

}  // namespace Tool
