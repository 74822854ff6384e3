/// Settings, measures and counters of one stream, and its timer thread.
#pragma once

#include <boost/thread/thread.hpp>

#include <atomic>
#include <cstdint>

namespace GenTL {

/// Atomics are those that the grab thread, the timer thread and the consumer use at the same time. The rest
/// is written while no grab thread runs, or by the grab thread alone.
struct StreamInfo
{
    StreamInfo() = default;
    StreamInfo(const StreamInfo&) = delete;
    StreamInfo& operator=(const StreamInfo&) = delete;
    virtual ~StreamInfo() { m_timerThread.detach(); }

    std::atomic<std::uint16_t> m_payloadType{0};  // GVSP payload type of the most recent leader
    std::uint32_t m_packetSize = 0;               // bytes, IP and UDP headers included
    std::atomic<std::uint64_t> m_currentBlockId{0};
    std::atomic<std::uint64_t> m_missedImageCount{0};
    std::atomic<std::uint64_t> m_missedPacketCount{0};
    std::atomic<std::uint64_t> m_totalMissedImageCount{0};
    std::atomic<std::uint64_t> m_totalIncompleteImageCount{0};
    bool m_extendedId = false;
    boost::thread m_timerThread;
    std::atomic<bool> m_packetResendEnable{false};
    std::uint32_t m_interPacketExpiry = 40;  // ms
    std::atomic<std::uint32_t> m_maxResendRequests{5};
    std::uint32_t m_resendRetries = 0;
    std::uint32_t m_bufferExpiry = 0;  // ms
    std::atomic<bool> m_autoPacketSize{false};
    std::atomic<std::uint32_t> m_packetsPerImage{0};
    std::atomic<std::uint64_t> m_lastBlockId{0};
    std::atomic<bool> m_multicastEnable{false};
    std::uint32_t m_resendRetryInterval = 0;  // ms
};

}  // namespace GenTL
