#include "sim/ReceiverWatch.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <sstream>
#include <system_error>
#include <thread>

namespace sim {
namespace {

// Part of the default receive buffer, 212992 bytes, that the stream may fill.
constexpr std::size_t kRoomBytes = std::size_t{128} * 1024;
constexpr std::chrono::seconds kPatience{2};
constexpr std::chrono::microseconds kLookAgain{20};
constexpr int kBacklogColumn = 11;

/// What the kernel books for a datagram at most: its buffers are powers of two.
std::size_t BookedBytes(std::size_t datagramBytes)
{
    return 2 * datagramBytes + 1024;
}

Descriptor OpenTable(const std::string& path)
{
    return Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC));
}

}  // namespace

ReceiverWatch::ReceiverWatch(const std::string& receiverNet)
{
    if (receiverNet.empty()) {
        return;
    }
    struct stat status = {};
    const bool isDirectory = stat(receiverNet.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    const std::string directory = isDirectory ? receiverNet : "/proc/thread-self/net";
    // A table belongs to the namespace in which it was opened.
    RunInNamespace(isDirectory ? "" : receiverNet, [&] {
        m_udp = OpenTable(directory + "/udp");
        if (!m_udp) {
            throw std::system_error(errno, std::generic_category(), directory + "/udp");
        }
        m_backlog = OpenTable(directory + "/softnet_stat");
    });
}

std::size_t ReceiverWatch::WaitForRoom(std::uint16_t port, std::size_t datagramBytes)
{
    const auto end = std::chrono::steady_clock::now() + kPatience;
    do {
        const std::size_t queued = IsUnderWay() ? kRoomBytes : Queued(port);
        const std::size_t fitting = (kRoomBytes - std::min(queued, kRoomBytes)) / BookedBytes(datagramBytes);
        if (fitting > 0 || queued == 0) {
            return std::max<std::size_t>(fitting, 1);
        }
        std::this_thread::sleep_for(kLookAgain);
    } while (std::chrono::steady_clock::now() < end);
    return 0;
}

std::size_t ReceiverWatch::Queued(std::uint16_t port)
{
    std::istringstream table(ReadTable(m_udp));
    std::string line;
    std::getline(table, line);  // head
    std::size_t most = 0;
    while (std::getline(table, line)) {
        unsigned localPort = 0;
        unsigned long queued = 0;
        if (std::sscanf(line.c_str(), "%*d: %*x:%x %*x:%*x %*x %*x:%lx", &localPort, &queued) == 2 &&
            localPort == port) {
            most = std::max<std::size_t>(most, queued);
        }
    }
    return most;
}

bool ReceiverWatch::IsUnderWay()
{
    if (!m_backlog) {
        return false;
    }
    std::istringstream table(ReadTable(m_backlog));
    std::string line;
    while (std::getline(table, line)) {  // one line a processor
        std::istringstream columns(line);
        std::string column;
        for (int i = 0; i <= kBacklogColumn; ++i) {
            columns >> column;
        }
        if (columns && column.find_first_not_of('0') != std::string::npos) {
            return true;
        }
    }
    return false;
}

const std::string& ReceiverWatch::ReadTable(const Descriptor& table)
{
    m_text.clear();
    std::array<char, 8192> piece{};
    ssize_t got = 0;
    while ((got = pread(table.Get(), piece.data(), piece.size(), static_cast<off_t>(m_text.size()))) > 0) {
        m_text.append(piece.data(), static_cast<std::size_t>(got));
    }
    return m_text;
}

}  // namespace sim
