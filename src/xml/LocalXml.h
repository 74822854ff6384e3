/// The GenApi descriptions of the modules, embedded by the build from the .xml files of this folder.
#pragma once

#include <string_view>

namespace GenTL {

/// The whole text of each file; size() is the byte count that the port's URL states.
extern const std::string_view kSystemXml;
extern const std::string_view kInterfaceXml;
extern const std::string_view kDeviceXml;
extern const std::string_view kStreamXml;

}  // namespace GenTL
