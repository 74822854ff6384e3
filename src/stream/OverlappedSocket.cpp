#include "stream/OverlappedSocket.h"

#include "frame/Error.h"
#include "gev/RandomMutex.h"
#include "gev/ReadUninterrupted.h"
#include "log/HLogger.h"
#include "log/localization.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string>

namespace GenTL {
namespace {

constexpr std::uint16_t kFirstPort = 49152;
constexpr std::uint16_t kLastPort = 65535;
constexpr int kInitialTimeoutMs = 200;

std::mutex g_bindPortMutex;  // guards the two ports that the next socket tries first

std::uint16_t PortAfter(std::uint16_t port)
{
    return port == kLastPort ? kFirstPort : static_cast<std::uint16_t>(port + 1);
}

std::uint16_t DrawPort()
{
    return static_cast<std::uint16_t>(rand() % 16383 -
                                      16384);  // NOLINT(concurrency-mt-unsafe): under the mutex
}

void LogReceiveBufferSize(int socket, const char* text)
{
    int bytes = 0;
    socklen_t length = sizeof bytes;
    if (getsockopt(socket, SOL_SOCKET, SO_RCVBUF, &bytes, &length) != 0) {
        HLogger::Error("Error getting socket opts", errno);
    }
    HLogger::Debug(loc::al(text, {std::to_string(bytes).c_str()}).c_str());
}

/// Logs a failed read and answers its code.
int ReadFailed(const char* readText,
               const char* sizeText,
               int size,
               const char* function = __builtin_FUNCTION())
{
    const int error = errno;
    HLogger::Error(readText, error);
    HLogger::Error(loc::al(sizeText, {std::to_string(size).c_str()}).c_str());
    if (error == EAGAIN || error == ETIMEDOUT) {
        return Raise(GC_ERR_TIMEOUT, "GenTL::OverlappedSocket::Receive recvfrom Failed: TIMEOUT", function);
    }
    return Raise(GC_ERR_IO, "GenTL::OverlappedSocket::Receive recvfrom Failed: " + std::to_string(error),
                 function);
}

std::size_t Size(int bytes)
{
    return static_cast<std::size_t>(std::max(bytes, 0));
}

}  // namespace

OverlappedSocket::~OverlappedSocket()
{
    OverlappedSocket::Close();
}

int OverlappedSocket::OpenAndBindSocket(sockaddr_in address)
{
    if (const int code = OpenUdp(address); code != GC_ERR_SUCCESS) {
        return code;
    }
    {
        static std::uint16_t currBindPort = kFirstPort;
        const std::lock_guard<std::mutex> lock(g_bindPortMutex);
        std::uint16_t port = currBindPort;
        m_address.sin_port = htons(port);
        while (Bind(m_address) != 0) {
            port = PortAfter(port);
            if (port == currBindPort) {
                OverlappedSocket::Close();
                return Raise(GC_ERR_RESOURCE_EXHAUSTED, "Unable to bind to gvsp socket");
            }
            m_address.sin_port = htons(port);
        }
        // By one from where the search began, not from the port it found.
        currBindPort = PortAfter(currBindPort);
    }
    return SetUpReading("GVSP receive buffer size = {0} bytes");
}

int OverlappedSocket::OpenAndBindSocketForMulticast(sockaddr_in address, int group)
{
    if (const int code = OpenUdp(address); code != GC_ERR_SUCCESS) {
        return code;
    }
    if (const int code = ShareAddress(); code != GC_ERR_SUCCESS) {
        return code;
    }
    {
        const std::lock_guard<std::mutex> lock(g_bindPortMutex);
        const std::lock_guard<std::mutex> random(g_randomMutex);
        static std::uint16_t currBindPort = [] {
            srand(static_cast<unsigned>(time(nullptr)));
            return DrawPort();
        }();
        sockaddr_in any{};
        any.sin_family = AF_INET;
        any.sin_port = htons(currBindPort);
        while (Bind(any) != 0) {
            const std::uint16_t port = DrawPort();
            if (port == currBindPort) {
                OverlappedSocket::Close();
                return Raise(GC_ERR_RESOURCE_EXHAUSTED, "Unable to bind to gvsp socket");
            }
            any.sin_port = htons(port);
        }
        m_address.sin_port = any.sin_port;
        currBindPort = DrawPort();
    }
    if (const int error = JoinGroup(group); error != 0) {
        OverlappedSocket::Close();
        return Raise(GC_ERR_RESOURCE_EXHAUSTED,
                     "Unable to add multicast group (err " + std::to_string(error) + ")");
    }
    return SetUpReading("GVSP receive buffer size {0} bytes");
}

int OverlappedSocket::OpenAndBindSocketForMulticastListening(sockaddr_in address,
                                                             int group,
                                                             unsigned short port)
{
    if (const int code = OpenUdp(address); code != GC_ERR_SUCCESS) {
        return code;
    }
    if (const int code = ShareAddress(); code != GC_ERR_SUCCESS) {
        return code;
    }
    m_address.sin_port = htons(port);
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_port = m_address.sin_port;
    if (Bind(any) != 0) {
        OverlappedSocket::Close();
        return Raise(GC_ERR_RESOURCE_EXHAUSTED, "Unable to bind to gvsp socket");
    }
    if (JoinGroup(group) != 0) {
        OverlappedSocket::Close();
        return Raise(GC_ERR_RESOURCE_EXHAUSTED, "Unable to add multicast group");
    }
    return SetUpReading("GVSP receive buffer size {0} bytes");
}

int OverlappedSocket::Send(const char* data, int length, sockaddr_in destination)
{
    const ssize_t sent = sendto(m_socket, data, Size(length), 0,
                                reinterpret_cast<const sockaddr*>(&destination), sizeof destination);
    if (sent != length) {
        const int error = errno;
        HLogger::Error("GenTL::CommSocket::Send sendto", error);
        return Raise(GC_ERR_IO, "GenTL::CommSocket::Send sendto Failed : " + std::to_string(error));
    }
    return GC_ERR_SUCCESS;
}

int OverlappedSocket::GetNextResult(char* buffer, int size, int& length, int timeoutMs)
{
    if (timeoutMs != m_timeoutMs) {
        if (const int code = SetTimeout(timeoutMs); code != GC_ERR_SUCCESS) {
            return AppendName(code);
        }
    }
    const ssize_t received =
        ReadUninterrupted(m_socket, [&] { return recv(m_socket, buffer, Size(size), 0); });
    if (received < 0) {
        return ReadFailed("GenTL::OverlappedSocket::GetNextResult recv",
                          "GenTL::OverlappedSocket::GetNextResult recv Buffer size: {0}", size);
    }
    length = static_cast<int>(received);
    return GC_ERR_SUCCESS;
}

int OverlappedSocket::GetNextResultNoCopy(char* header,
                                          int headerSize,
                                          int& headerLength,
                                          char* data,
                                          int dataSize,
                                          int& dataLength,
                                          unsigned long timeoutMs)
{
    const int timeout = static_cast<int>(std::min<unsigned long>(timeoutMs, INT_MAX));
    if (timeout != m_timeoutMs) {
        if (const int code = SetTimeout(timeout); code != GC_ERR_SUCCESS) {
            return AppendName(code);
        }
    }
    const iovec places[] = {
        {header, Size(headerSize)},
        {data,   Size(dataSize)  },
    };
    const ssize_t received = ReadUninterrupted(m_socket, [&] { return readv(m_socket, places, 2); });
    if (received < 0) {
        return ReadFailed("GenTL::OverlappedSocket::Receive recvfrom",
                          "GenTL::OverlappedSocket::Receive recvfrom Buffer size: {0}", dataSize);
    }
    dataLength = static_cast<int>(received);
    headerLength = std::min(dataLength, headerSize);
    return GC_ERR_SUCCESS;
}

int OverlappedSocket::Close()
{
    if (m_socket < 0) {
        return GC_ERR_SUCCESS;
    }
    if (m_isMulticastMember) {
        setsockopt(m_socket, IPPROTO_IP, IP_DROP_MEMBERSHIP, &m_multicastRequest, sizeof m_multicastRequest);
    }
    close(m_socket);
    m_socket = -1;
    return GC_ERR_SUCCESS;
}

int OverlappedSocket::SetTimeout(int ms)
{
    const timeval timeout{ms / 1000, ms % 1000 * 1000L};
    if (setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0) {
        HLogger::Error("GenTL::CommSocket::SetTimeout", errno);
        return StoreName(GC_ERR_ABORT);
    }
    m_timeoutMs = ms;
    return GC_ERR_SUCCESS;
}

int OverlappedSocket::OpenUdp(const sockaddr_in& address, const char* function)
{
    OverlappedSocket::Close();
    m_address = address;
    m_address.sin_family = AF_INET;
    m_socket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
    if (m_socket == -1) {
        return Raise(GC_ERR_RESOURCE_EXHAUSTED, "Couldn't open gvsp socket", function);
    }
    return GC_ERR_SUCCESS;
}

int OverlappedSocket::Bind(const sockaddr_in& address) const
{
    return bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

int OverlappedSocket::ShareAddress(const char* function)
{
    const int on = 1;
    if (setsockopt(m_socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) {
        OverlappedSocket::Close();
        return Raise(GC_ERR_RESOURCE_EXHAUSTED, "Unable to reuse port", function);
    }
    return GC_ERR_SUCCESS;
}

int OverlappedSocket::JoinGroup(int group)
{
    m_isMulticastMember = true;
    m_multicastRequest = {};
    m_multicastRequest.imr_multiaddr.s_addr = static_cast<in_addr_t>(group);
    return setsockopt(m_socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, &m_multicastRequest,
                      sizeof m_multicastRequest) == 0
               ? 0
               : errno;
}

int OverlappedSocket::SetUpReading(const char* sizeText, const char* function)
{
    if (const int code = SetTimeout(kInitialTimeoutMs); code != GC_ERR_SUCCESS) {
        OverlappedSocket::Close();
        return AppendName(code, function);
    }
    LogReceiveBufferSize(m_socket, sizeText);
    return GC_ERR_SUCCESS;
}

}  // namespace GenTL
