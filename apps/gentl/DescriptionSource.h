/// Fetches a camera's description from where its URL says.
#pragma once

#include "gentl/IRegisterPort.h"
#include "gentl/Producer.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Tool {

/// A URL of the form local:<file name>;<address>;<length>, the numbers hexadecimal, perhaps with
/// ?SchemaVersion=...
struct LocalUrl
{
    std::string fileName;
    std::uint64_t address;
    std::uint64_t length;
};

/// Throws Failure for other forms, which name places that this program doesn't read, and for absurd lengths.
LocalUrl ParseLocalUrl(const std::string& url);

/// The URLs that the port offers, those of its list first. Throws Failure when there is none.
std::vector<std::string> DescriptionUrls(const Producer& producer, GenTL::PORT_HANDLE hPort);
/// The description as the camera has it, which may be zipped: from the first URL that can be read, one that
/// names a plain file before one that names a zipped one. Throws Failure.
std::string ReadDescription(const Producer& producer, GenTL::PORT_HANDLE hPort, IRegisterPort& registers);

}  // namespace Tool
