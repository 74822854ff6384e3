#include "sim/FaultPlan.h"

#include <array>

namespace sim {
namespace {

std::uint64_t Mix(std::uint64_t value)
{
    value += 0x9E3779B97F4A7C15u;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9u;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBu;
    return value ^ (value >> 31);
}

constexpr std::uint64_t kLossDie = 1;

/// A number from 0 to below 1.
double FromBits(std::uint64_t bits)
{
    return static_cast<double>(Mix(bits) >> 11) * 0x1.0p-53;
}

}  // namespace

PacketFault StreamFaults::Decide(std::uint64_t block, std::uint32_t packet, std::uint32_t attempt) const
{
    for (const PacketRule& rule : rules) {
        if ((rule.block == 0 || rule.block == block) && packet >= rule.firstPacket &&
            packet <= rule.lastPacket && attempt < rule.attempts) {
            return rule.fault;
        }
    }
    if (attempt > 0 && !resendsToo) {
        return PacketFault::None;
    }
    struct Die
    {
        double rate;
        PacketFault fault;
    };
    if (IsInBurst(block, packet, attempt)) {
        return PacketFault::Lose;
    }
    const std::array<Die, 5> dice{
        {
         {duplicate, PacketFault::Duplicate},
         {delay, PacketFault::Delay},
         {reorder, PacketFault::Reorder},
         {truncate, PacketFault::Truncate},
         {badStatus, PacketFault::Status},
         }
    };
    std::uint64_t die = kLossDie;
    for (const Die& entry : dice) {
        ++die;
        if (entry.rate > 0 && Throw(block, packet, attempt, die) < entry.rate) {
            return entry.fault;
        }
    }
    return PacketFault::None;
}

/// The packet, or one of those right before it, begins a burst of losses.
bool StreamFaults::IsInBurst(std::uint64_t block, std::uint32_t packet, std::uint32_t attempt) const
{
    for (std::uint32_t back = 0; lose > 0 && back < burst && back <= packet; ++back) {
        if (Throw(block, packet - back, attempt, kLossDie) < lose / burst) {
            return true;
        }
    }
    return false;
}

double StreamFaults::Throw(std::uint64_t block,
                           std::uint32_t packet,
                           std::uint32_t attempt,
                           std::uint64_t die) const
{
    const std::uint64_t place = Mix(seed ^ Mix(block)) ^ (static_cast<std::uint64_t>(attempt) << 32) ^ packet;
    return FromBits(place ^ (die << 56));
}

bool StreamFaults::IsQuiet() const
{
    return rules.empty() && lose <= 0 && duplicate <= 0 && delay <= 0 && reorder <= 0 && truncate <= 0 &&
           badStatus <= 0;
}

void ControlFaults::Add(const ControlFault& fault)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_faults.push_back(fault);
}

void ControlFaults::SetLossRate(double rate, std::uint64_t seed)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lossRate = rate;
    m_seed = seed;
    m_throws = 0;
}

void ControlFaults::Clear()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_faults.clear();
    m_lossRate = 0;
}

ControlFault ControlFaults::Take(std::uint16_t command, std::uint32_t address)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    ControlFault none;
    none.fault = AnswerFault::None;
    for (auto it = m_faults.begin(); it != m_faults.end(); ++it) {
        if ((it->command != 0 && it->command != command) || (!it->anyAddress && it->address != address)) {
            continue;
        }
        if (it->skip > 0) {
            --it->skip;
            continue;
        }
        const ControlFault fault = *it;
        if (it->times <= 1) {
            m_faults.erase(it);
        } else {
            --it->times;
        }
        return fault;
    }
    if (m_lossRate > 0 && FromBits(m_seed ^ (++m_throws << 20)) < m_lossRate) {
        ControlFault lost;
        lost.fault = AnswerFault::Lose;
        return lost;
    }
    return none;
}

}  // namespace sim
