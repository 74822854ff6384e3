#pragma once

#include "sim/Camera.h"
#include "sim/GvspSender.h"
#include "sim/Network.h"
#include "sim/Registers.h"
#include "sim/Tally.h"

#include <netinet/in.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

namespace sim {

/// The control channel: hears GVCP commands, guards the registers by control privilege and heartbeat, and
/// answers, in the ways the fault plan wants.
///
/// Owns the control sockets and one thread from Start to Stop. Threads: any for the public operations.
class GvcpServer
{
public:
    /// Moves the camera to another address. \return the new control and broadcast sockets, none when refused
    using ChangeAddress = std::function<Network::Sockets(std::uint32_t address, std::uint32_t mask)>;

    GvcpServer(
        const Config& config, Registers& registers, GvspSender& sender, Tally& tally, const Cable& cable);
    ~GvcpServer() { Stop(); }

    void Start(Descriptor control, Descriptor broadcast, ChangeAddress changeAddress);
    void Stop();

    ControlFaults& Faults() { return m_faults; }
    bool IsControlled() const;
    /// Starts the heartbeat's time anew.
    void TouchHeartbeat() { m_lastHeard = Clock::now().time_since_epoch().count(); }
    /// Sends bytes as they are to the holder of control.
    void SendRaw(const void* pData, std::size_t size);

private:
    using Clock = std::chrono::steady_clock;
    using Bytes = std::vector<std::uint8_t>;

    struct Request
    {
        Bytes datagram;
        sockaddr_in from = {};
        std::uint8_t flags = 0;
        std::uint16_t command = 0;
        std::uint16_t id = 0;

        const std::uint8_t* Body() const { return datagram.data() + 8; }
        std::size_t BodySize() const { return datagram.size() - 8; }
    };
    struct Answer
    {
        std::uint16_t status = Status::kSuccess;
        Bytes body;
        bool silent = false;
    };

    void Run();
    int NextWait() const;
    void RunTimers();
    void CheckHeartbeat();
    void ReceiveFrom(const Descriptor& socket);
    bool Parse(Request& request);
    void Handle(const Request& request);
    Answer Execute(const Request& request);

    Answer Discover() const;
    Answer ForceIp(const Request& request);
    Answer ReadRegisters(const Request& request) const;
    Answer WriteRegisters(const Request& request);
    Answer ReadMemory(const Request& request) const;
    Answer WriteMemory(const Request& request);
    Answer Resend(const Request& request);
    Answer Act(const Request& request);
    std::uint16_t WriteWord(const Request& request,
                            std::uint32_t address,
                            const std::uint8_t* pWord,
                            bool memory);

    bool Can(std::uint32_t capability) const;
    bool IsHolder(const sockaddr_in& who) const;
    bool MayRead(const Request& request) const;
    sockaddr_in AnswerAddress(const Request& request) const;
    Bytes Encode(const Request& request, const Answer& answer) const;
    void Deliver(const Request& request, const Bytes& answer, const ControlFault& fault);
    void DeliverPending(const Request& request, const Bytes& answer, const ControlFault& fault);
    void Send(const Bytes& datagram, const sockaddr_in& to);
    void After(std::chrono::milliseconds time, std::function<void()> work);

    const Config m_config;
    Registers& m_registers;
    GvspSender& m_sender;
    Tally& m_tally;
    const Cable& m_cable;
    ControlFaults m_faults;
    ChangeAddress m_changeAddress;
    Descriptor m_broadcast;
    Descriptor m_wake;
    std::thread m_thread;
    std::atomic<bool> m_stop{false};
    std::atomic<Clock::rep> m_lastHeard{0};

    std::mutex m_sendMutex;  ///< a leaf; keeps the control socket while another thread sends
    Descriptor m_control;

    // The thread's own.
    std::multimap<Clock::time_point, std::function<void()>> m_timers;
    Request m_lastRequest;
    Bytes m_lastAnswer;
    Clock::time_point m_lastTime;
};

}  // namespace sim
