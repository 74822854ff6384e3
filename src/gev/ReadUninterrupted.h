/// Blocking reads on threads whose signals are the program's business.
#pragma once

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/types.h>

#include <cerrno>
#include <chrono>
#include <optional>

namespace GenTL {

/// Calls read, which answers as recv does on the socket fd, again when a signal handler has interrupted it:
/// the kernel doesn't where a receive time-out is set. That time-out counts anew from the first interruption;
/// when it is over the answer is EAGAIN, however often signals come.
template <typename Read>
ssize_t ReadUninterrupted(int fd, Read read)
{
    using Clock = std::chrono::steady_clock;
    std::optional<Clock::time_point> deadline;
    for (;;) {
        const ssize_t received = read();
        if (received >= 0 || errno != EINTR) {
            return received;
        }
        timeval timeout{};
        socklen_t size = sizeof timeout;
        getsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, &size);
        const bool waitsForEver = timeout.tv_sec == 0 && timeout.tv_usec == 0;
        const Clock::time_point now = Clock::now();
        if (!deadline) {
            deadline =
                now + std::chrono::seconds(timeout.tv_sec) + std::chrono::microseconds(timeout.tv_usec);
        }
        if (!waitsForEver && now >= *deadline) {
            errno = EAGAIN;
            return -1;
        }
    }
}

}  // namespace GenTL
