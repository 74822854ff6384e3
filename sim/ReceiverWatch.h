#pragma once

#include "sim/TestNet.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace sim {

/// Watches how much of a stream its receiver has not read yet, in the kernel's tables of the receiver's
/// network namespace, so that a sender can wait instead of overrunning the receive buffer.
///
/// Owns the open tables. One thread at a time.
class ReceiverWatch
{
public:
    /// \param receiverNet file of the network namespace, or a directory with its table `udp`; empty: no
    /// watch. Throws std::system_error.
    explicit ReceiverWatch(const std::string& receiverNet);

    bool IsOn() const { return static_cast<bool>(m_udp); }

    /// Waits until datagrams of a size fit in the receive buffer of the sockets at a port.
    /// \return how many fit, at least 1; 0 when there was no room for longer than any pause of a busy machine
    std::size_t WaitForRoom(std::uint16_t port, std::size_t datagramBytes);

private:
    /// Bytes in the fullest receive buffer at the port, by the kernel's own count.
    std::size_t Queued(std::uint16_t port);
    /// True while datagrams are still on their way between the two namespaces.
    bool IsUnderWay();
    const std::string& ReadTable(const Descriptor& table);

    Descriptor m_udp;
    Descriptor m_backlog;
    std::string m_text;
};

}  // namespace sim
