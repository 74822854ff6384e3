#include "sim/Network.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace sim {
namespace {

[[noreturn]] void ThrowErrno(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

/// The IPv4 addresses of the calling thread's namespace.
class AddressList
{
public:
    AddressList()
    {
        if (getifaddrs(&m_pList) != 0) {
            ThrowErrno("getifaddrs");
        }
        for (const ifaddrs* pEntry = m_pList; pEntry != nullptr; pEntry = pEntry->ifa_next) {
            if (pEntry->ifa_addr != nullptr && pEntry->ifa_addr->sa_family == AF_INET) {
                m_entries.push_back(*pEntry);
            }
        }
    }
    ~AddressList() { freeifaddrs(m_pList); }
    AddressList(const AddressList&) = delete;
    AddressList& operator=(const AddressList&) = delete;

    const std::vector<ifaddrs>& Entries() const { return m_entries; }

private:
    ifaddrs* m_pList = nullptr;
    std::vector<ifaddrs> m_entries;
};

bool IsLoopback(const ifaddrs& entry)
{
    return (entry.ifa_flags & IFF_LOOPBACK) != 0;
}

std::uint32_t HostOrder(const sockaddr* pAddress)
{
    sockaddr_in address = {};
    std::memcpy(&address, pAddress, sizeof address);
    return ntohl(address.sin_addr.s_addr);
}

ifreq Request(const std::string& interface)
{
    ifreq request = {};
    interface.copy(request.ifr_name, IFNAMSIZ - 1);
    return request;
}

bool SetInterfaceAddress(const Descriptor& socket,
                         const std::string& interface,
                         unsigned long what,
                         std::uint32_t to)
{
    ifreq request = Request(interface);
    const sockaddr_in address = MakeAddress(to, 0);
    std::memcpy(&request.ifr_addr, &address, sizeof address);
    return ioctl(socket.Get(), what, &request) == 0;
}

void SetOption(const Descriptor& socket, int level, int option, int value)
{
    if (setsockopt(socket.Get(), level, option, &value, sizeof value) != 0) {
        ThrowErrno("setsockopt");
    }
}

Descriptor MakeSocket()
{
    Descriptor made(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!made) {
        ThrowErrno("socket");
    }
    return made;
}

}  // namespace

Network::Network(const std::string& netns, const std::string& address, std::uint16_t gvcpPort)
    : m_netns(netns), m_gvcpPort(gvcpPort), m_address(ParseAddress(address))
{
    RunInNamespace(m_netns, [this] { FindInterface(); });
}

void Network::FindInterface()
{
    const AddressList list;
    for (const ifaddrs& entry : list.Entries()) {
        const std::uint32_t mask = HostOrder(entry.ifa_netmask);
        const std::uint32_t address = HostOrder(entry.ifa_addr);
        // The loopback interface answers for its whole network.
        if (address == m_address || (IsLoopback(entry) && (address & mask) == (m_address & mask))) {
            m_interface = entry.ifa_name;
            m_mask = mask;
        }
    }
    if (m_interface.empty()) {
        throw std::runtime_error(AddressText(m_address) + " stands on no interface");
    }
    ifreq request = Request(m_interface);
    if (ioctl(MakeSocket().Get(), SIOCGIFHWADDR, &request) != 0) {
        ThrowErrno("SIOCGIFHWADDR");
    }
    for (int i = 0; i < 6; ++i) {
        m_macAddress = (m_macAddress << 8) | static_cast<std::uint8_t>(request.ifr_hwaddr.sa_data[i]);
    }
    if (m_macAddress == 0) {
        m_macAddress = 0x020000000000u | m_address;  // loopback has none: a locally administered one
    }
}

Descriptor Network::Bind(std::uint32_t address, std::uint16_t port) const
{
    Descriptor made = MakeSocket();
    if (port != 0) {
        SetOption(made, SOL_SOCKET, SO_REUSEADDR, 1);
    }
    SetOption(made, SOL_SOCKET, SO_BROADCAST, 1);
    const sockaddr_in place = MakeAddress(address, port);
    if (bind(made.Get(), reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0) {
        ThrowErrno("bind " + AddressText(address) + " port " + std::to_string(port));
    }
    return made;
}

Network::Sockets Network::Open() const
{
    Sockets sockets;
    RunInNamespace(m_netns, [&] {
        sockets.control = Bind(m_address, m_gvcpPort);
        sockets.broadcast = Bind(INADDR_BROADCAST, LocalPort(sockets.control));
        sockets.stream = Bind(m_address, 0);
        sockets.message = Bind(m_address, 0);
        const in_addr own{htonl(m_address)};
        for (const Descriptor* pSender : {&sockets.stream, &sockets.message}) {
            if (setsockopt(pSender->Get(), IPPROTO_IP, IP_MULTICAST_IF, &own, sizeof own) != 0) {
                ThrowErrno("IP_MULTICAST_IF");
            }
        }
    });
    return sockets;
}

Descriptor Network::Listen(std::uint16_t port) const
{
    Descriptor made;
    RunInNamespace(m_netns, [&] {
        made.Reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        SetOption(made, SOL_SOCKET, SO_REUSEADDR, 1);
        const sockaddr_in place = MakeAddress(m_address, port);
        if (bind(made.Get(), reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0 ||
            listen(made.Get(), 1) != 0) {
            made.Reset();
        }
    });
    return made;
}

bool Network::ChangeAddress(std::uint32_t address, std::uint32_t mask)
{
    bool done = false;
    RunInNamespace(m_netns, [&] {
        const Descriptor socket = MakeSocket();
        done = SetInterfaceAddress(socket, m_interface, SIOCSIFADDR, address) &&
               SetInterfaceAddress(socket, m_interface, SIOCSIFNETMASK, mask);
    });
    if (done) {
        m_address = address;
        m_mask = mask;
    }
    return done;
}

sockaddr_in MakeAddress(std::uint32_t address, std::uint16_t port)
{
    sockaddr_in made = {};
    made.sin_family = AF_INET;
    made.sin_addr.s_addr = htonl(address);
    made.sin_port = htons(port);
    return made;
}

std::uint16_t LocalPort(const Descriptor& socket)
{
    sockaddr_in place = {};
    socklen_t size = sizeof place;
    if (getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&place), &size) != 0) {
        ThrowErrno("getsockname");
    }
    return ntohs(place.sin_port);
}

std::string AddressOfInterface(const std::string& interface)
{
    const AddressList list;
    for (const ifaddrs& entry : list.Entries()) {
        const bool isUp = (entry.ifa_flags & IFF_UP) != 0;
        if (interface.empty() ? isUp && !IsLoopback(entry) : interface == entry.ifa_name) {
            return AddressText(HostOrder(entry.ifa_addr));
        }
    }
    if (!interface.empty()) {
        throw std::runtime_error(interface + " has no IPv4 address");
    }
    return "127.0.0.1";
}

std::string AddressText(std::uint32_t address)
{
    const in_addr network{htonl(address)};
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &network, text.data(), text.size());
    return text.data();
}

std::uint32_t ParseAddress(const std::string& text)
{
    in_addr network = {};
    if (inet_pton(AF_INET, text.c_str(), &network) != 1) {
        throw std::runtime_error("no IPv4 address: " + text);
    }
    return ntohl(network.s_addr);
}

}  // namespace sim
