/// What a stream and its HAL tell each other when acquisition starts.
#pragma once

#include <cstdint>
#include <string>

namespace GenTL {

struct StreamStartParams
{
    std::uint32_t m_packetSize = 0;  // out: bytes, IP and UDP headers included
    bool m_autoPacketSize = false;
    bool m_extendedId = false;
    std::uint64_t m_bufferSize = 0;  // bytes of the first announced buffer
    bool m_packetResendEnable = false;
    std::uint32_t m_interPacketExpiry = 0;  // in and out: ms
    std::uint32_t m_bufferExpiry = 0;       // out: ms
    std::uint32_t m_maxResendRequests = 0;
    std::uint32_t m_resendRetries = 0;  // out
    bool m_multicastEnable = false;
    std::int32_t m_accessMode = 0;  // 3 control, 4 exclusive, else read-only
    // The arguments of SetupResendRetryParams. The texts are carried along and read by no HAL.
    std::uint64_t m_retryParam = 0;
    double m_frameRate = 0.0;  // frames per second
    std::string m_firstRetryString;
    std::string m_secondRetryString;
};

}  // namespace GenTL
