/// The command `gentl events`.
#pragma once

#include "gentl/Producer.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Tool {

struct EventsOptions
{
    std::string camera;                 ///< see ChooseCamera
    std::uint64_t count = 0;            ///< events; 0: until interrupted
    std::vector<std::string> settings;  ///< NAME=VALUE of features, written once the camera's events can come
    std::uint64_t eventMilliseconds = 0;  ///< without an event until it fails; 0: wait for ever
    std::uint64_t discoveryMilliseconds = 1000;
};

/// Prints the camera's events as they come. Gives the program's exit code; throws Failure.
int Events(const Producer& producer, const EventsOptions& options);

/// What a datagram of a camera's message channel says, in lines for a person: command, identifier, stream
/// channel, block ID and timestamp of each event in it, and data as hexadecimal bytes.
std::string EventText(const std::vector<std::uint8_t>& datagram);

}  // namespace Tool
