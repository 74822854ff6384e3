/// What the user wants of a grab.
#pragma once

#include "gentl/RegisterAccess.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Tool {

struct GrabOptions
{
    std::string camera;        ///< see ChooseCamera
    std::uint32_t stream = 0;  ///< index of the camera's stream
    std::uint64_t count = 1;   ///< images; 0: until interrupted
    std::string folder;        ///< for the images; empty: they are only counted
    bool isRaw = false;
    std::vector<RegisterWrite> startRegisters;  ///< written in order instead of AcquisitionStart
    std::vector<RegisterWrite> stopRegisters;
    std::uint64_t payloadSize = 0;           ///< bytes; 0: as the camera's description says
    std::uint32_t packetSize = 0;            ///< bytes of an IP packet; 0: as the camera has it
    std::string descriptionFile;             ///< read instead of the camera's own
    std::string saveDescription;             ///< file for the camera's own, as it is
    bool resend = false;                     ///< have lost packets sent again
    std::uint64_t buffers = 0;               ///< 0: as many as seem fit
    std::uint64_t imageMilliseconds = 5000;  ///< without an image until the run fails; 0: wait for ever
    std::uint64_t discoveryMilliseconds = 1000;
};

}  // namespace Tool
