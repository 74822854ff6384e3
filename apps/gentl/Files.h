/// Whole files at a time.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace Tool {

/// Both throw Failure.
std::string ReadFile(const std::filesystem::path& path);
void WriteFile(const std::filesystem::path& path, const void* pData, std::size_t size);

}  // namespace Tool
