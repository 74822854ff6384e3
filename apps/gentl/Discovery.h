/// The interfaces of this host and the cameras behind them.
#pragma once

#include "gentl/Producer.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Tool {

/// A module's handle with the function that closes it.
using Handle = std::unique_ptr<void, GenTL::PTLClose>;

struct CameraInfo
{
    GenTL::IF_HANDLE hInterface = nullptr;
    std::string id;
    std::string vendor;
    std::string model;
    std::string serialNumber;
    std::string userName;
    std::string ip;
    std::string mac;
};

/// Owns the interface, which stays open to open a camera on it.
struct InterfaceInfo
{
    Handle handle{nullptr, nullptr};
    std::string id;
    std::string name;
    std::string ip;
    std::string mac;
    std::string failure;  ///< why it couldn't be searched; empty when it could
    std::vector<CameraInfo> cameras;
};

/// Throws Failure.
Handle OpenSystem(const Producer& producer);

/// Looks for cameras behind each interface for so long. An interface that can't be searched is listed with
/// the reason. Throws Failure.
std::vector<InterfaceInfo> Discover(const Producer& producer,
                                    GenTL::TL_HANDLE hSystem,
                                    std::uint64_t milliseconds);

/// The one camera whose ID, serial number, user name, IP, MAC or model is the wanted text; for an empty one,
/// the only camera there is. Throws Failure when there is none, or more than one.
const CameraInfo& ChooseCamera(const std::vector<InterfaceInfo>& interfaces, const std::string& wanted);

}  // namespace Tool
