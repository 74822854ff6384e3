#pragma once

#include <cstdint>

namespace sim {

/// What the camera does to a TCP stream. Frames are counted from 1 in each connection; 0 is none of them.
struct TcpFaults
{
    bool refuse = false;           ///< nobody listens
    std::uint64_t stallFrame = 0;  ///< stands still for `stallMs` in the middle of this frame
    std::uint32_t stallMs = 1000;
    std::uint64_t closeFrame = 0;  ///< closes the connection in the middle of this frame
    std::uint32_t width = 0;  ///< told in the header instead of the image's own; 0: its own, likewise below
    std::uint32_t height = 0;
    std::uint32_t pieceBytes = 0;  ///< sends pieces of so many bytes, `pieceGapUs` apart; 0: all at once
    std::uint32_t pieceGapUs = 0;
};

}  // namespace sim
