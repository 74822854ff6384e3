#include "log/LogChannel.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

namespace GenTL::LogChannel {
namespace {

/// Sends records to a collector on this host. Owns: its socket. Serialised by the sink's mutex.
class DatagramChannel final : public INorvoLog
{
public:
    DatagramChannel() : m_socket(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {}
    DatagramChannel(const DatagramChannel&) = delete;
    DatagramChannel& operator=(const DatagramChannel&) = delete;
    ~DatagramChannel()
    {
        if (m_socket >= 0) {
            ::close(m_socket);
        }
    }

    void SetOutPort(std::uint16_t port) override { m_outPort = port; }
    void ClearOutPort(std::uint16_t /*port*/) override { m_outPort = 0; }
    void AddInPort(std::uint16_t /*port*/) override {}
    void SetFilter(IFilterOutFn* filter) override { m_filter = filter; }

    void Send(const char* text) override
    {
        if (m_outPort == 0 || m_socket < 0 || (m_filter != nullptr && !m_filter->OnFilterOut(text))) {
            return;
        }
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        to.sin_port = htons(m_outPort);
        // Nobody listening, a full queue or a record beyond a datagram are no concern of the caller.
        (void)::sendto(m_socket, text, std::strlen(text), MSG_NOSIGNAL,
                       reinterpret_cast<const sockaddr*>(&to),  // the sockets interface
                       sizeof to);
    }

private:
    int m_socket;
    std::uint16_t m_outPort = 0;
    IFilterOutFn* m_filter = nullptr;
};

template <typename Function>
Function InProcess(const char* symbol)
{
    return reinterpret_cast<Function>(::dlsym(RTLD_DEFAULT, symbol));
}

}  // namespace

Channel Init()
{
    const auto init = InProcess<INorvoLog* (*)()>("_ZN8NorvoLog4InitEv");
    const auto deinit = InProcess<void (*)(INorvoLog*)>("_ZN8NorvoLog6DeinitEP9INorvoLog");
    if (init != nullptr && deinit != nullptr) {
        return {init(), deinit};
    }
    return {new DatagramChannel(), [](INorvoLog* channel) { delete static_cast<DatagramChannel*>(channel); }};
}

}  // namespace GenTL::LogChannel
