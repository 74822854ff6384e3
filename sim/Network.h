#pragma once

#include "sim/TestNet.h"

#include <netinet/in.h>

#include <cstdint>
#include <string>

namespace sim {

/// The camera's place on the network: its address on an interface of a namespace, and the sockets there.
class Network
{
public:
    struct Sockets
    {
        Descriptor control;    ///< at the address and the GVCP port
        Descriptor broadcast;  ///< hears 255.255.255.255 at the GVCP port
        Descriptor stream;     ///< at the address and a free port
        Descriptor message;    ///< likewise
    };

    /// Throws std::runtime_error when the address stands on no interface, or std::system_error.
    Network(const std::string& netns, const std::string& address, std::uint16_t gvcpPort);

    std::uint32_t Address() const { return m_address; }  ///< host order, likewise below
    std::uint32_t Mask() const { return m_mask; }
    std::uint64_t MacAddress() const { return m_macAddress; }

    /// Throws std::system_error.
    Sockets Open() const;
    /// A TCP socket that listens at the address; none when the port is taken.
    Descriptor Listen(std::uint16_t port) const;
    /// Gives the interface another address. \return false when that is refused
    bool ChangeAddress(std::uint32_t address, std::uint32_t mask);

private:
    void FindInterface();
    Descriptor Bind(std::uint32_t address, std::uint16_t port) const;

    std::string m_netns;
    std::uint16_t m_gvcpPort;
    std::string m_interface;
    std::uint32_t m_address = 0;
    std::uint32_t m_mask = 0;
    std::uint64_t m_macAddress = 0;
};

sockaddr_in MakeAddress(std::uint32_t address, std::uint16_t port);
std::uint16_t LocalPort(const Descriptor& socket);
/// The address of an interface of the calling thread's namespace; with an empty name that of the first one
/// that is up and no loopback, or else 127.0.0.1. Throws std::runtime_error when the named one has none.
std::string AddressOfInterface(const std::string& interface);
/// Dotted text of an address in host order, and back; throws std::runtime_error when the text is none.
std::string AddressText(std::uint32_t address);
std::uint32_t ParseAddress(const std::string& text);

}  // namespace sim
