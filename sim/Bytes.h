#pragma once

#include <cstdint>

/// Big-endian loads and stores of the simulated camera. They are its own on purpose: a mistake in the wire
/// code of the library under test can't repeat itself here.
namespace sim {

inline void Put16(std::uint8_t* pTo, std::uint32_t value)
{
    pTo[0] = static_cast<std::uint8_t>(value >> 8);
    pTo[1] = static_cast<std::uint8_t>(value);
}

inline void Put32(std::uint8_t* pTo, std::uint32_t value)
{
    Put16(pTo, value >> 16);
    Put16(pTo + 2, value & 0xFFFFu);
}

inline void Put64(std::uint8_t* pTo, std::uint64_t value)
{
    Put32(pTo, static_cast<std::uint32_t>(value >> 32));
    Put32(pTo + 4, static_cast<std::uint32_t>(value));
}

inline std::uint16_t Get16(const std::uint8_t* pFrom)
{
    return static_cast<std::uint16_t>((static_cast<unsigned>(pFrom[0]) << 8) | pFrom[1]);
}

inline std::uint32_t Get32(const std::uint8_t* pFrom)
{
    return (static_cast<std::uint32_t>(Get16(pFrom)) << 16) | Get16(pFrom + 2);
}

inline std::uint64_t Get64(const std::uint8_t* pFrom)
{
    return (static_cast<std::uint64_t>(Get32(pFrom)) << 32) | Get32(pFrom + 4);
}

}  // namespace sim
