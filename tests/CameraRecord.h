/// The discovery record of the camera that the tests of the control layer and of the device look at.
#pragma once

#include "gev/Handles.h"

#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace GenTL {

/// Without an address the camera is at 192.168.1.100. The offsets are written out: they are the wire's.
inline DiscoveryRecord CameraRecord(const std::string& serial, const in_addr* address = nullptr)
{
    DiscoveryRecord record{};
    const auto put = [&](std::size_t offset, const std::string& bytes) {
        std::copy(bytes.begin(), bytes.end(), record.begin() + static_cast<long>(offset));
    };
    put(10, "\xFC\x01\x82\x03\x04\x05");
    put(20,
        std::string("\x06\0\0\x01", 4));  // an open device looks at the first byte, an adapter at the last
    put(36, "\xC0\xA8\x01\x64");
    put(52, std::string("\xFF\xFF\xFF\0", 4));
    put(68, "\xC0\xA8\x01\x01");
    put(72, "Vendor");
    put(104, "Model");
    put(136, "2.1");
    put(216, serial);
    put(232, "Left");
    if (address != nullptr) {
        std::memcpy(&record[36], address, sizeof *address);
    }
    return record;
}

}  // namespace GenTL
