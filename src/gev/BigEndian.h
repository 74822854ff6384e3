/// Typed loads and stores for big-endian wire fields.
#pragma once

#include <cstdint>

namespace GenTL {

/// The callers answer for the room: 2, 4 or 8 bytes at p.
constexpr std::uint16_t Load16(const unsigned char* p)
{
    return static_cast<std::uint16_t>(p[0] << 8 | p[1]);
}

constexpr std::uint32_t Load32(const unsigned char* p)
{
    return std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 8 |
           std::uint32_t{p[3]};
}

constexpr std::uint64_t Load64(const unsigned char* p)
{
    return std::uint64_t{Load32(p)} << 32 | Load32(p + 4);
}

constexpr void Store16(unsigned char* p, std::uint16_t value)
{
    p[0] = static_cast<unsigned char>(value >> 8);
    p[1] = static_cast<unsigned char>(value);
}

constexpr void Store32(unsigned char* p, std::uint32_t value)
{
    Store16(p, static_cast<std::uint16_t>(value >> 16));
    Store16(p + 2, static_cast<std::uint16_t>(value));
}

constexpr void Store64(unsigned char* p, std::uint64_t value)
{
    Store32(p, static_cast<std::uint32_t>(value >> 32));
    Store32(p + 4, static_cast<std::uint32_t>(value));
}

}  // namespace GenTL
