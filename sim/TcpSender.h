#pragma once

#include "sim/Camera.h"
#include "sim/GvspSender.h"
#include "sim/Registers.h"
#include "sim/Tally.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace sim {

/// Stream channel 0 over TCP: listens while the channel's port register says so, and sends frames to the one
/// host that has connected, as fast as the frame rate allows and the host takes them. Acquisition and
/// pictures are those of the GVSP sender.
///
/// Owns the listening socket, the connection and one thread, from Start to Stop. Threads: any for the public
/// operations. Lock order: m_mutex, then what the listening function takes, then those of GvspSender,
/// Registers and Tally.
class TcpSender
{
public:
    /// Makes a listening socket at the camera's address, or none.
    using Listen = std::function<Descriptor(std::uint16_t port)>;

    TcpSender(const Config& config, Registers& registers, GvspSender& gvsp, Tally& tally, const Cable& cable);
    ~TcpSender() { Stop(); }

    void Start(Listen listen);
    void Stop();
    /// To be called when registers or the acquisition have changed. The camera listens when it returns.
    void UpdateChannel();
    void SetFaults(const TcpFaults& faults);
    bool IsOpen() const;

private:
    using Clock = std::chrono::steady_clock;
    enum class Woken { Ready, Late, Changed };

    /// What the thread serves; a new number for each opening and closing.
    struct Channel
    {
        std::shared_ptr<const Descriptor> pListener;
        std::uint64_t opening = 0;
    };

    void Run();
    Channel CurrentChannel() const;
    bool IsCurrent(std::uint64_t opening) const;
    bool MustStop() const;
    TcpFaults Faults() const;
    void Wake() const;
    Woken Wait(const Descriptor& socket, short events, Clock::time_point until) const;

    void Serve(const Descriptor& connection, std::uint64_t opening);
    bool AwaitImage(const Descriptor& connection, std::uint64_t opening, Clock::time_point due);
    bool Pause(const Descriptor& connection, std::uint64_t opening, std::chrono::microseconds time) const;
    void Compose(std::uint64_t blockId, const TcpFaults& faults);
    bool SendFrame(const Descriptor& connection,
                   std::uint64_t opening,
                   std::uint64_t number,
                   const TcpFaults& faults);
    bool SendBytes(const Descriptor& connection, std::uint64_t opening, std::size_t from, std::size_t to);

    const Config m_config;
    Registers& m_registers;
    GvspSender& m_gvsp;
    Tally& m_tally;
    const Cable& m_cable;
    Descriptor m_wake;
    std::thread m_thread;
    std::vector<std::uint8_t> m_frame;  ///< the thread's own

    mutable std::mutex m_mutex;
    Listen m_listen;
    bool m_stop = false;
    Channel m_channel;
    TcpFaults m_faults;
};

}  // namespace sim
