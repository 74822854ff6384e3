#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

namespace sim {

/// What happens to one packet of the stream.
enum class PacketFault {
    None,
    Lose,
    Duplicate,  ///< sent twice in a row
    Delay,      ///< sent `StreamFaults::delayMs` later, after the image's end if need be
    Reorder,    ///< sent after `StreamFaults::reorderDistance` packets that should follow it
    Truncate,   ///< cut to `StreamFaults::truncateTo` bytes of GVSP (header included)
    Status,     ///< sent with `StreamFaults::status` in its header
};

/// A fault for packets named one by one. Packet ids: 0 leader, 1..N payload, N + 1 trailer.
struct PacketRule
{
    PacketFault fault = PacketFault::Lose;
    std::uint64_t block = 0;  ///< 0: every block
    std::uint32_t firstPacket = 0;
    std::uint32_t lastPacket = 0xFFFFFFFF;
    std::uint32_t attempts = 1;  ///< 1: the first sending only; n: also the first n - 1 resends
};

/// The plan for the stream. Rules go first, then the dice: each rate is a probability from 0 to 1, thrown in
/// the order of the members. A throw depends on seed, block, packet and attempt alone, never on time, so the
/// same plan meets the same packets in every run.
struct StreamFaults
{
    std::uint64_t seed = 1;
    double lose = 0;
    std::uint32_t burst =
        1;  ///< packets that are lost in a row, within a block; the rate stays that of packets
    double duplicate = 0;
    double delay = 0;
    double reorder = 0;
    double truncate = 0;
    double badStatus = 0;
    bool resendsToo = false;  ///< throw the dice for resent packets as well

    std::uint32_t delayMs = 20;
    std::uint32_t reorderDistance = 3;
    std::uint32_t truncateTo = 30;
    std::uint16_t status = 0x800C;

    std::vector<PacketRule> rules;

    /// \param attempt 0 for the first sending, n for the n-th resend of this packet
    PacketFault Decide(std::uint64_t block, std::uint32_t packet, std::uint32_t attempt = 0) const;
    /// True when no packet can meet a fault.
    bool IsQuiet() const;

private:
    bool IsInBurst(std::uint64_t block, std::uint32_t packet, std::uint32_t attempt) const;
    double Throw(std::uint64_t block, std::uint32_t packet, std::uint32_t attempt, std::uint64_t die) const;
};

/// What happens to the answer of a GVCP command.
enum class AnswerFault {
    None,
    Lose,       ///< the command is carried out, its answer is not sent
    Ignore,     ///< the command is neither carried out nor answered
    Late,       ///< sent `ms` later
    Stale,      ///< preceded by a copy with the request id of the command before
    Pending,    ///< `count` PENDING_ACKs that announce `ms`, one each `spacingMs`, then the answer
    Status,     ///< not carried out, answered with `status`
    WrongAck,   ///< answered with acknowledge code `ackCode`
    Truncate,   ///< cut to `bytes`
    Duplicate,  ///< sent twice
};

struct ControlFault
{
    AnswerFault fault = AnswerFault::Lose;
    std::uint16_t command = 0;  ///< GVCP command code, 0: every command
    bool anyAddress = true;
    std::uint32_t address = 0;  ///< first address in the command, with anyAddress false
    std::uint32_t skip = 0;     ///< matching commands let through first
    std::uint32_t times = 1;    ///< matching commands hit after that; a used up fault is dropped

    std::uint32_t ms = 0;
    std::uint32_t count = 1;
    std::uint32_t spacingMs = 0;
    std::uint16_t status = 0x8FFF;
    std::uint16_t ackCode = 0x0001;
    std::uint32_t bytes = 4;
};

/// The faults that wait for GVCP commands: scripted ones, first come first served, then a seeded loss rate.
/// Own lock, a leaf; any thread may add while the control thread takes.
class ControlFaults
{
public:
    void Add(const ControlFault& fault);
    /// \param rate probability that an answer is lost, from 0 to 1
    void SetLossRate(double rate, std::uint64_t seed);
    void Clear();
    ControlFault Take(std::uint16_t command, std::uint32_t address);

private:
    std::mutex m_mutex;
    std::vector<ControlFault> m_faults;
    double m_lossRate = 0;
    std::uint64_t m_seed = 1;
    std::uint64_t m_throws = 0;
};

}  // namespace sim
