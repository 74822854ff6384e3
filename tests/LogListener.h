/// The receiving end of the built-in log channel.
#pragma once

#include <nlohmann/json.hpp>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

/// Hears the log records that come to a port of its own on the loopback.
class LogListener
{
public:
    LogListener()
    {
        m_address.sin_family = AF_INET;
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof m_address;
        auto* address = reinterpret_cast<sockaddr*>(&m_address);
        if (bind(m_socket, address, length) != 0 || getsockname(m_socket, address, &length) != 0) {
            throw std::runtime_error("no port to listen at");
        }
    }
    LogListener(const LogListener&) = delete;
    LogListener& operator=(const LogListener&) = delete;
    ~LogListener() { close(m_socket); }

    unsigned Port() const { return ntohs(m_address.sin_port); }
    /// The next record that has come; null when there is none.
    nlohmann::json Next() const
    {
        char text[2048];
        const ssize_t got = recv(m_socket, text, sizeof text, MSG_DONTWAIT);
        return got < 0 ? nlohmann::json() : nlohmann::json::parse(text, text + got);
    }
    /// Its message; empty when there is none.
    std::string NextMessage() const
    {
        const nlohmann::json record = Next();
        return record.is_null() ? "" : record.at("message").get<std::string>();
    }

private:
    sockaddr_in m_address{};
    const int m_socket = socket(AF_INET, SOCK_DGRAM, 0);
};
