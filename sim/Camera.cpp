#include "sim/Camera.h"

#include "sim/EventSender.h"
#include "sim/GvcpServer.h"
#include "sim/GvspSender.h"
#include "sim/Network.h"
#include "sim/Registers.h"
#include "sim/Tally.h"
#include "sim/TcpSender.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <system_error>
#include <thread>

namespace sim {
namespace {

/// Counts the datagrams that hosts send to the stream's source port to open their firewalls.
///
/// Owns one thread, and a second descriptor of the stream's socket.
class FirewallListener
{
public:
    explicit FirewallListener(Tally& tally) : m_tally(tally) {}
    ~FirewallListener() { Stop(); }

    void Start(const Descriptor& stream)
    {
        Stop();
        m_stream.Reset(fcntl(stream.Get(), F_DUPFD_CLOEXEC, 0));
        m_wake.Reset(eventfd(0, EFD_CLOEXEC));
        if (!m_stream || !m_wake) {
            throw std::system_error(errno, std::generic_category(), "firewall listener");
        }
        m_thread = std::thread(&FirewallListener::Run, this);
    }

    void Stop()
    {
        if (m_thread.joinable()) {
            eventfd_write(m_wake.Get(), 1);
            m_thread.join();
        }
        m_stream.Reset();
    }

private:
    void Run()
    {
        for (;;) {
            std::array<pollfd, 2> waits{
                {{m_wake.Get(), POLLIN, 0}, {m_stream.Get(), POLLIN, 0}}
            };
            poll(waits.data(), waits.size(), -1);
            if (waits[0].revents != 0) {
                return;
            }
            std::array<char, 64> bytes{};
            if (recv(m_stream.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT) >= 0) {
                m_tally.Add(&Counters::firewallDatagrams);
            }
        }
    }

    Tally& m_tally;
    Descriptor m_stream;
    Descriptor m_wake;
    std::thread m_thread;
};

}  // namespace

struct Camera::Impl
{
    explicit Impl(const Config& given)
        : config(given),
          registers(config),
          events(config, registers, tally, cable),
          sender(config, registers, events, tally, cable),
          tcp(config, registers, sender, tally, cable),
          server(config, registers, sender, tally, cable),
          listener(tally)
    {
        registers.SetEffect([this](std::uint32_t at, std::uint32_t value) { Effect(at, value); });
    }

    /// What a write does beside changing the register. On the writer's thread.
    void Effect(std::uint32_t at, std::uint32_t value)
    {
        switch (at) {
            case Bootstrap::kControlPrivilege:
                ChangePrivilege(value);
                break;
            case Bootstrap::kStreamPacketSize:
                sender.UpdateChannel();
                if ((value & Bootstrap::kFireTestPacket) != 0) {
                    sender.FireTestPacket();
                }
                break;
            case Feature::kAcquisitionStart:
                if (value != 0) {
                    sender.StartAcquisition();
                }
                break;
            case Feature::kAcquisitionStop:
                if (value != 0) {
                    sender.StopAcquisition();
                }
                break;
            case Feature::kTestEventGenerate:
                events.Fire(Event::Test, 0, value);
                break;
            case Feature::kTriggerSoftware:
                sender.Trigger(value);
                break;
            default:
                sender.UpdateChannel();
        }
        tcp.UpdateChannel();
    }

    /// Whoever gave up control, or lost it, receives nothing any more.
    void ChangePrivilege(std::uint32_t value)
    {
        if ((value & (Bootstrap::kControlAccess | Bootstrap::kExclusiveAccess)) != 0) {
            server.TouchHeartbeat();
            return;
        }
        registers.Set(Bootstrap::kPrimaryAddress, 0);
        registers.Set(Bootstrap::kPrimaryPort, 0);
        registers.Set(Bootstrap::kStreamPort, 0);
        registers.Set(Bootstrap::kMessagePort, 0);
        sender.StopAcquisition();
        sender.UpdateChannel();
    }

    void ShowAddress() const
    {
        registers.Set(Bootstrap::kIpAddress, pNetwork->Address());
        registers.Set(Bootstrap::kSubnetMask, pNetwork->Mask());
    }

    void Start()
    {
        pNetwork = std::make_unique<Network>(config.netns, config.address, config.gvcpPort);
        const std::uint64_t mac = config.macAddress != 0 ? config.macAddress : pNetwork->MacAddress();
        registers.Set(Bootstrap::kMacHigh, static_cast<std::uint32_t>(mac >> 32));
        registers.Set(Bootstrap::kMacLow, static_cast<std::uint32_t>(mac));
        ShowAddress();
        Network::Sockets sockets = pNetwork->Open();
        registers.Set(Bootstrap::kStreamSourcePort, LocalPort(sockets.stream));
        registers.Set(Bootstrap::kMessageSourcePort, LocalPort(sockets.message));
        events.Start(std::move(sockets.message));
        listener.Start(sockets.stream);
        sender.Start(std::move(sockets.stream));
        tcp.Start([this](std::uint16_t port) {
            const std::lock_guard<std::mutex> lock(mutex);
            return pNetwork->Listen(port);
        });
        server.Start(std::move(sockets.control), std::move(sockets.broadcast),
                     [this](std::uint32_t address, std::uint32_t mask) { return Move(address, mask); });
    }

    void Stop()
    {
        server.Stop();
        tcp.Stop();
        sender.Stop();
        listener.Stop();
        events.Stop();
    }

    Network::Sockets Move(std::uint32_t address, std::uint32_t mask)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (!pNetwork->ChangeAddress(address, mask)) {
            return {};
        }
        ShowAddress();
        Network::Sockets sockets = pNetwork->Open();
        registers.Set(Bootstrap::kStreamSourcePort, LocalPort(sockets.stream));
        registers.Set(Bootstrap::kMessageSourcePort, LocalPort(sockets.message));
        events.Start(std::move(sockets.message));
        listener.Start(sockets.stream);
        sender.SetSocket(std::move(sockets.stream));
        return sockets;
    }

    std::string Address() const
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return pNetwork ? AddressText(pNetwork->Address()) : config.address;
    }

    const Config config;
    Tally tally;
    Cable cable;
    mutable Registers registers;
    EventSender events;
    GvspSender sender;
    TcpSender tcp;
    GvcpServer server;
    FirewallListener listener;
    mutable std::mutex mutex;  ///< guards the address in pNetwork
    std::unique_ptr<Network> pNetwork;
    bool isRunning = false;
};

Camera::Camera(const Config& config) : m_pImpl(std::make_unique<Impl>(config)) {}

Camera::~Camera()
{
    Stop();
}

void Camera::Start()
{
    if (m_pImpl->isRunning) {
        return;
    }
    try {
        m_pImpl->Start();
    } catch (...) {
        m_pImpl->Stop();
        throw;
    }
    m_pImpl->isRunning = true;
}

void Camera::Stop()
{
    if (m_pImpl->isRunning) {
        m_pImpl->isRunning = false;
        m_pImpl->Stop();
    }
}

Counters Camera::Seen() const
{
    return m_pImpl->tally.Get();
}
std::vector<ResendRequest> Camera::Resends() const
{
    return m_pImpl->sender.Resends();
}
bool Camera::IsControlled() const
{
    return m_pImpl->server.IsControlled();
}
bool Camera::IsStreaming() const
{
    const bool isAcquiring = m_pImpl->registers.Get(Feature::kAcquisitionStatus) != 0;
    return m_pImpl->sender.IsStreaming() || (m_pImpl->tcp.IsOpen() && isAcquiring);
}
std::string Camera::Address() const
{
    return m_pImpl->Address();
}
std::uint32_t Camera::Register(std::uint32_t address) const
{
    return m_pImpl->registers.Get(address);
}

std::uint16_t Camera::SetRegister(std::uint32_t address, std::uint32_t value)
{
    return m_pImpl->registers.Force(address, value);
}

std::string Camera::Description() const
{
    return m_pImpl->registers.Description();
}
std::shared_ptr<const Picture> Camera::CurrentPicture() const
{
    return m_pImpl->sender.CurrentPicture();
}
void Camera::SetStreamFaults(const StreamFaults& faults)
{
    m_pImpl->sender.SetFaults(faults);
}
void Camera::SetTcpFaults(const TcpFaults& faults)
{
    m_pImpl->tcp.SetFaults(faults);
}
void Camera::AddControlFault(const ControlFault& fault)
{
    m_pImpl->server.Faults().Add(fault);
}

void Camera::SetControlLossRate(double rate, std::uint64_t seed)
{
    m_pImpl->server.Faults().SetLossRate(rate, seed);
}

void Camera::ClearFaults()
{
    m_pImpl->server.Faults().Clear();
    m_pImpl->sender.SetFaults({});
    m_pImpl->tcp.SetFaults({});
}

void Camera::GoSilent(bool silent)
{
    m_pImpl->cable.Pull(silent);
}
void Camera::SilentFor(std::uint32_t ms)
{
    m_pImpl->cable.PullFor(std::chrono::milliseconds(ms));
}
void Camera::Trigger(std::uint32_t images)
{
    m_pImpl->sender.Trigger(images);
    m_pImpl->tcp.UpdateChannel();
}
void Camera::SendStreamDatagram(const void* pData, std::size_t size)
{
    m_pImpl->sender.SendRaw(pData, size);
}
void Camera::SendMessageDatagram(const void* pData, std::size_t size)
{
    m_pImpl->events.SendRaw(pData, size);
}
std::vector<std::vector<std::uint8_t>> Camera::Events() const
{
    return m_pImpl->events.Sent();
}
void Camera::SendControlDatagram(const void* pData, std::size_t size)
{
    m_pImpl->server.SendRaw(pData, size);
}

}  // namespace sim
