#pragma once

#include "sim/Camera.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>

namespace sim {

/// The counters, under a lock of their own, a leaf.
class Tally
{
public:
    void Add(std::uint64_t Counters::*pWhich, std::uint64_t count = 1)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_counters.*pWhich += count;
    }
    Counters Get() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_counters;
    }

private:
    mutable std::mutex m_mutex;
    Counters m_counters;
};

/// The cable between camera and network. While it is out, datagrams are lost on both ways.
class Cable
{
public:
    using Clock = std::chrono::steady_clock;

    void Pull(bool out)
    {
        m_backAt = 0;
        m_isOut = out;
    }
    void PullFor(std::chrono::milliseconds time)
    {
        m_backAt = (Clock::now() + time).time_since_epoch().count();
        m_isOut = true;
    }
    bool IsOut() const
    {
        const Clock::rep backAt = m_backAt;
        return m_isOut && (backAt == 0 || Clock::now().time_since_epoch().count() < backAt);
    }

private:
    std::atomic<bool> m_isOut{false};
    std::atomic<Clock::rep> m_backAt{0};
};

}  // namespace sim
