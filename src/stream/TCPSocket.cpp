#include "stream/TCPSocket.h"

#include "frame/Error.h"
#include "gev/UniqueFd.h"
#include "log/HLogger.h"
#include "log/localization.h"

#include <boost/chrono/duration.hpp>
#include <boost/thread/thread.hpp>

#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>
#include <utility>

namespace GenTL {
namespace {

constexpr int kInitialTimeoutMs = 200;
constexpr auto kClosedPeerPause = boost::chrono::milliseconds(5);

int DescriptorOf(const std::shared_ptr<const UniqueFd>& socket)
{
    return socket != nullptr ? socket->Get() : -1;
}

/// Logs a failed read and answers its code.
int ReadFailed(int error, int dataSize, int got)
{
    HLogger::Error("GenTL::TCPSocket::GetNextResult recv Failed", error);
    HLogger::Error(loc::al("GenTL::TCPSocket::GetNextResult recv Buffer size {0} {1}",
                           {std::to_string(dataSize).c_str(), std::to_string(got).c_str()})
                       .c_str());
    if (error == ETIMEDOUT || error == EAGAIN) {
        return Raise(GC_ERR_TIMEOUT, "GenTL::TCPSocket::GetNextResult recv Failed: TIMEOUT");
    }
    return Raise(GC_ERR_IO, "GenTL::TCPSocket::GetNextResult recv Failed: " + std::to_string(error));
}

}  // namespace

TCPSocket::~TCPSocket()
{
    TCPSocket::Close();
}

int TCPSocket::OpenAndConnectSocket(sockaddr_in address)
{
    constexpr const char* kFailed = "GenTL::TCPSocket::OpenAndConnectSocket Failed";
    TCPSocket::Close();
    UniqueFd descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (descriptor.Get() < 0 ||
        connect(descriptor.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        HLogger::Error(kFailed, errno);
        return Raise(GC_ERR_IO, kFailed);
    }
    std::atomic_store(&m_socket, std::make_shared<const UniqueFd>(std::move(descriptor)));
    return SetTimeout(kInitialTimeoutMs);
}

int TCPSocket::GetNextResult(
    char* data, int dataSize, int& received, char* header, unsigned long headerSize, int timeoutMs)
{
    if (timeoutMs != m_timeoutMs) {
        if (const int code = SetTimeout(timeoutMs); code != GC_ERR_SUCCESS) {
            return AppendName(code);
        }
    }
    const std::shared_ptr<const UniqueFd> socket = std::atomic_load(&m_socket);
    const std::size_t size = static_cast<std::size_t>(std::max(dataSize, 0));
    std::size_t got = 0;
    for (bool isFirst = true; isFirst || got < size; isFirst = false) {
        const ssize_t count = recv(DescriptorOf(socket), data + got, size - got, 0);
        int error = count < 0 ? errno : 0;
        if (std::atomic_load(&m_socket) != socket) {
            error = EBADF;  // Close woke the read, which looks like a peer that closed
        }
        if (error != 0) {
            return ReadFailed(error, dataSize, static_cast<int>(got));
        }
        got += static_cast<std::size_t>(count);
        if (isFirst) {
            m_onFirstBytes();
        }
        if (count == 0) {
            // The peer has closed, and the next read would return at once. The sleep can be interrupted.
            boost::this_thread::sleep_for(kClosedPeerPause);
        } else {
            boost::this_thread::interruption_point();
        }
    }
    received = static_cast<int>(got);
    const std::size_t copied = std::min<std::size_t>(headerSize, got);
    std::memcpy(header, data, copied);
    std::memset(header + copied, 0, headerSize - copied);
    return GC_ERR_SUCCESS;
}

int TCPSocket::Close()
{
    const std::shared_ptr<const UniqueFd> socket =
        std::atomic_exchange(&m_socket, std::shared_ptr<const UniqueFd>());
    if (socket != nullptr) {
        shutdown(socket->Get(), SHUT_RDWR);  // wakes a blocked read
    }
    return GC_ERR_SUCCESS;
}

int TCPSocket::SetTimeout(int ms)
{
    const timeval timeout{ms / 1000, ms % 1000 * 1000L};
    const std::shared_ptr<const UniqueFd> socket = std::atomic_load(&m_socket);
    if (setsockopt(DescriptorOf(socket), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0) {
        HLogger::Error("GenTL::CommSocket::SetTimeout", errno);
        return StoreName(GC_ERR_ABORT);
    }
    m_timeoutMs = ms;
    return GC_ERR_SUCCESS;
}

}  // namespace GenTL
