/// Datagrams as they are written in the tests of the control channel.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

/// Bytes from hexadecimal digits; blanks only part them.
inline Bytes Hex(std::string text)
{
    text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}
