#include "gentl/LogReceiver.h"

#include "gentl/Failure.h"
#include "gentl/Interrupt.h"

#include <nlohmann/json.hpp>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace Tool {
namespace {

constexpr std::size_t kLargestDatagram = 65536;
constexpr int kPollMilliseconds = 200;

struct LevelName
{
    int level;
    const char* name;
};

constexpr LevelName kLevels[] = {
    {100, "FATAL"  },
    {200, "ERROR"  },
    {300, "WARN"   },
    {400, "INFO"   },
    {500, "DEBUG"  },
    {600, "VERBOSE"},
};

std::string NameOf(int level)
{
    const auto row = std::find_if(std::begin(kLevels), std::end(kLevels),
                                  [level](const LevelName& l) { return l.level == level; });
    return row != std::end(kLevels) ? row->name : std::to_string(level);
}

/// Local time of day from milliseconds since the epoch as text; the text itself when it is no such number.
std::string TimeOfDay(const std::string& timestamp)
{
    char* end = nullptr;
    const long long milliseconds = std::strtoll(timestamp.c_str(), &end, 10);
    const std::time_t seconds = static_cast<std::time_t>(milliseconds / 1000);
    std::tm local{};
    if (timestamp.empty() || *end != '\0' || milliseconds < 0 || ::localtime_r(&seconds, &local) == nullptr) {
        return timestamp;
    }
    char text[32];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<int>(milliseconds % 1000));
    return text;
}

int Bind(std::uint16_t port)
{
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    if (socket < 0 || ::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const std::string reason = std::strerror(errno);
        if (socket >= 0) {
            ::close(socket);
        }
        throw Failure("can't listen at UDP port " + std::to_string(port) + ": " + reason,
                      "Perhaps another `gentl log` runs; end it, or name other ports in norvo_log.conf.");
    }
    return socket;
}

}  // namespace

LogReceiver::LogReceiver(const std::vector<std::uint16_t>& ports)
{
    m_sockets.reserve(ports.size());
    try {
        for (const std::uint16_t port : ports) {
            m_sockets.push_back(Bind(port));
        }
    } catch (...) {
        std::for_each(m_sockets.begin(), m_sockets.end(), ::close);
        throw;
    }
}

LogReceiver::~LogReceiver()
{
    std::for_each(m_sockets.begin(), m_sockets.end(), ::close);
}

void LogReceiver::Run(const std::function<void(const std::string&)>& sink)
{
    std::vector<pollfd> waits;
    for (const int socket : m_sockets) {
        waits.push_back({socket, POLLIN, 0});
    }
    std::string buffer(kLargestDatagram, '\0');
    while (!Interrupt::Requested()) {
        if (::poll(waits.data(), waits.size(), kPollMilliseconds) <= 0) {
            continue;
        }
        for (const pollfd& wait : waits) {
            const ssize_t length = (wait.revents & POLLIN) != 0
                                       ? ::recv(wait.fd, buffer.data(), buffer.size(), MSG_DONTWAIT)
                                       : -1;
            if (length >= 0) {
                sink(buffer.substr(0, static_cast<std::size_t>(length)));
            }
        }
    }
}

std::string FormatLogRecord(const std::string& record)
{
    const nlohmann::json json = nlohmann::json::parse(record, nullptr, false);
    if (!json.is_object()) {
        return record;
    }
    const auto text = [&json](const char* key) {
        const auto found = json.find(key);
        return found != json.end() && found->is_string() ? found->get<std::string>() : std::string();
    };
    const auto level = json.find("level");
    char head[96];
    std::snprintf(head, sizeof head, "%-12.32s  %-7s  %-5.16s  ", TimeOfDay(text("timestamp")).c_str(),
                  NameOf(level != json.end() && level->is_number_integer() ? level->get<int>() : 0).c_str(),
                  text("module").c_str());
    const std::string user = text("userid");
    return head + (user.empty() ? std::string() : "[" + user + "] ") + text("message");
}

}  // namespace Tool
