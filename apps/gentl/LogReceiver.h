/// Receives the log records that producers on this host send.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Tool {

/// Owns one UDP socket per port, bound to the loopback address. One thread.
class LogReceiver
{
public:
    /// Throws Failure when a port can't be bound.
    explicit LogReceiver(const std::vector<std::uint16_t>& ports);
    ~LogReceiver();
    LogReceiver(const LogReceiver&) = delete;
    LogReceiver& operator=(const LogReceiver&) = delete;

    /// Hands each record's text to sink, in order of arrival per port, until interrupted.
    void Run(const std::function<void(const std::string&)>& sink);

private:
    std::vector<int> m_sockets;
};

/// "12:34:56.789  WARN   HAL    text", or the datagram as it came when it is no record.
std::string FormatLogRecord(const std::string& record);

}  // namespace Tool
