#include "gev/CommSocket.h"

#include "frame/Error.h"
#include "gev/RandomMutex.h"
#include "gev/ReadUninterrupted.h"
#include "gev/UniqueFd.h"
#include "log/HLogger.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <utility>

namespace GenTL {
namespace {

constexpr int kFirstPort = 49152;
constexpr int kLastPort = 65535;
constexpr int kBindAttempts = 16384;

/// The same in every call of a process: the sockets of a discovery meet at one port.
int FirstPort()
{
    const std::lock_guard<std::mutex> lock(g_randomMutex);
    srand(static_cast<unsigned>(getpid()));
    return kFirstPort + rand() % kBindAttempts;
}

timeval ToTimeval(int ms)
{
    timeval time{};
    time.tv_sec = ms / 1000;
    time.tv_usec = ms % 1000 * 1000L;
    return time;
}

int ToMilliseconds(const timeval& time)
{
    // The kernel rounds up, which takes the largest time-outs beyond an int.
    const std::int64_t ms = std::int64_t{time.tv_sec} * 1000 + time.tv_usec / 1000;
    return static_cast<int>(std::min<std::int64_t>(ms, std::numeric_limits<int>::max()));
}

struct Option
{
    int name;
    const void* value;
    socklen_t size;
    const char* log;
    const char* text;
};

}  // namespace

CommSocket::CommSocket() = default;
CommSocket::~CommSocket() = default;

int CommSocket::OpenAndBindSocket(
    sockaddr_in local, const std::string& remoteIp, unsigned short remotePort, bool broadcast, int timeoutMs)
{
    m_local = local;
    m_local.sin_family = AF_INET;
    m_local.sin_port = htons(static_cast<std::uint16_t>(FirstPort()));

    UniqueFd descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP));
    if (descriptor.Get() < 0) {
        return Raise(GC_ERR_RESOURCE_EXHAUSTED, "Couldn't open gvcp socket");
    }

    const timeval timeout = ToTimeval(timeoutMs);
    const int isBroadcast = broadcast ? 1 : 0;
    const Option options[] = {
        {SO_RCVTIMEO,  &timeout,     sizeof timeout,     "GenTL::CommSocket Setting SO_RCVTIMEO",
         "GenTL::CommSocket Setting SO_RCVTIMEO Failed : " },
        {SO_BROADCAST, &isBroadcast, sizeof isBroadcast, "GenTL::CommSocket Setting SO_BROADCAST",
         "GenTL::CommSocket Setting SO_BROADCAST Failed : "},
        {SO_REUSEADDR, &isBroadcast, sizeof isBroadcast, "GenTL::CommSocket Setting SO_REUSEADDR",
         "GenTL::CommSocket Setting SO_REUSEADDR Failed : "},
    };
    for (const Option& option : options) {
        if (option.name == SO_REUSEADDR && !broadcast) {
            continue;
        }
        if (setsockopt(descriptor.Get(), SOL_SOCKET, option.name, option.value, option.size) != 0) {
            const int error = errno;
            HLogger::Error(option.log, error);
            return Raise(GC_ERR_ABORT, option.text + std::to_string(error));
        }
    }

    if (!BindToFreePort(descriptor.Get())) {
        return Raise(GC_ERR_RESOURCE_EXHAUSTED, "Unable to bind to gvcp socket");
    }

    m_remote = {};
    m_remote.sin_family = AF_INET;
    inet_pton(AF_INET, remoteIp.c_str(), &m_remote.sin_addr);
    m_remote.sin_port = htons(remotePort);
    std::atomic_store(&m_pDescriptor, std::make_shared<const UniqueFd>(std::move(descriptor)));
    return GC_ERR_SUCCESS;
}

/// True when the port in hand at the end isn't below the first one. So a search that wrapped counts as failed
/// even if it found a port, and one that went once round without success, as on an address that the host has
/// lost, counts as done: the first send binds that socket, and goes where the routes lead.
bool CommSocket::BindToFreePort(int descriptor)
{
    const int firstPort = ntohs(m_local.sin_port);
    int port = firstPort;
    for (int attempt = 0; attempt < kBindAttempts; ++attempt) {
        if (bind(descriptor, reinterpret_cast<const sockaddr*>(&m_local), sizeof m_local) == 0) {
            break;
        }
        ++port;
        if (port >= kLastPort) {
            port = kFirstPort;
        }
        m_local.sin_port = htons(static_cast<std::uint16_t>(port));
    }
    return port >= firstPort;
}

int CommSocket::SetTimeout(int timeoutMs, int& previousMs)
{
    const std::shared_ptr<const UniqueFd> descriptor = std::atomic_load(&m_pDescriptor);
    const int fd = descriptor ? descriptor->Get() : -1;
    timeval previous{};
    socklen_t size = sizeof previous;
    if (getsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &previous, &size) != 0) {
        const int error = errno;
        HLogger::Error("GenTL::CommSocket::GetTimeout", error);
        return Raise(GC_ERR_ABORT, "GenTL::CommSocket::GetTimeout Failed : " + std::to_string(error));
    }
    const timeval timeout = ToTimeval(timeoutMs);
    if (setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0) {
        const int error = errno;
        HLogger::Error("GenTL::CommSocket::SetTimeout", error);
        return Raise(GC_ERR_ABORT, "GenTL::CommSocket::GetTimeout Failed : " + std::to_string(error));
    }
    previousMs = ToMilliseconds(previous);
    return GC_ERR_SUCCESS;
}

int CommSocket::Send(const char* data, int length)
{
    const std::shared_ptr<const UniqueFd> descriptor = std::atomic_load(&m_pDescriptor);
    const ssize_t sent = sendto(descriptor ? descriptor->Get() : -1, data, static_cast<std::size_t>(length),
                                0, reinterpret_cast<const sockaddr*>(&m_remote), sizeof m_remote);
    if (sent != length) {
        const int error = errno;
        HLogger::Error("GenTL::CommSocket::Send sendto", error);
        return Raise(GC_ERR_IO, "GenTL::CommSocket::Send sendto Failed : " + std::to_string(error));
    }
    return GC_ERR_SUCCESS;
}

int CommSocket::Receive(char* buffer, int length, bool quiet)
{
    const std::shared_ptr<const UniqueFd> descriptor = std::atomic_load(&m_pDescriptor);
    const int fd = descriptor ? descriptor->Get() : -1;
    const ssize_t received = ReadUninterrupted(
        fd, [&] { return recvfrom(fd, buffer, static_cast<std::size_t>(length), 0, nullptr, nullptr); });
    int error = received < 0 ? errno : 0;
    if (received == 0 && std::atomic_load(&m_pDescriptor) != descriptor) {
        // Woken by Close; an empty datagram looks the same.
        error = EBADF;
    }
    if (error == 0) {
        return GC_ERR_SUCCESS;
    }
    HLogger::Error("GenTL::CommSocket::Receive recvfrom", error);
    if (error == EAGAIN || error == ETIMEDOUT) {
        return quiet ? static_cast<int>(GC_ERR_TIMEOUT)
                     : Raise(GC_ERR_TIMEOUT, "the call to recvfrom() returned with timeout error ETIMEDOUT");
    }
    return Raise(GC_ERR_BUSY, "the call to recvfrom() returned with error " + std::to_string(error));
}

int CommSocket::Close()
{
    const std::shared_ptr<const UniqueFd> descriptor =
        std::atomic_exchange(&m_pDescriptor, std::shared_ptr<const UniqueFd>());
    if (descriptor) {
        // Wakes a blocked reader. It answers ENOTCONN, as the socket has no peer, and works all the same.
        shutdown(descriptor->Get(), SHUT_RDWR);
    }
    return GC_ERR_SUCCESS;
}

}  // namespace GenTL
