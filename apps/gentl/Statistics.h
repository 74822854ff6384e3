/// Counts what came of a run and what didn't.
#pragma once

#include "gentl/Image.h"

#include <chrono>
#include <cstdint>
#include <optional>

namespace Tool {

class Statistics
{
public:
    using Clock = std::chrono::steady_clock;

    /// Counts an image that arrived now, complete or not. Images missing before it, by the camera's count
    /// that begins at 1, are lost; a late one is found again.
    void Count(const Image& image, Clock::time_point now);

    std::uint64_t Images() const { return m_images; }
    std::uint64_t Incomplete() const { return m_incomplete; }
    std::uint64_t Lost() const { return m_lost; }
    /// Per second, over the time from the first image to the last; nothing with fewer than two.
    std::optional<double> FrameRate() const;
    std::optional<double> BytesPerSecond() const;

private:
    std::optional<double> PerSecond(double amount) const;

    std::uint64_t m_images = 0;
    std::uint64_t m_incomplete = 0;
    std::uint64_t m_lost = 0;
    std::uint64_t m_bytesAfterFirst = 0;
    std::uint64_t m_lastId = 0;
    Clock::time_point m_first;
    Clock::time_point m_last;
};

}  // namespace Tool
