#pragma once

#include "sim/Camera.h"
#include "sim/ReceiverWatch.h"
#include "sim/Registers.h"
#include "sim/Tally.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace sim {

/// What the camera can tell, numbered as by its feature EventSelector. The event's identifier on the wire is
/// 0x9000 plus the number.
enum class Event : std::uint32_t {
    AcquisitionStart = 0,
    AcquisitionEnd = 1,
    ExposureEnd = 2,
    Test = 3,
};

/// The message channel: sends events whose notification is on to where the registers say, as EVENT or, with
/// the feature EventDataSize, as EVENTDATA. With a time-out in register MCTT it asks for an acknowledge and
/// sends the datagram again until that comes, MCRC times at most.
///
/// Owns the message socket and one thread from Start to Stop. Threads: any for the public operations. Lock
/// order: m_mutex, then those of Registers and Tally.
class EventSender
{
public:
    using Bytes = std::vector<std::uint8_t>;

    EventSender(const Config& config, Registers& registers, Tally& tally, const Cable& cable);
    ~EventSender() { Stop(); }

    /// Starts anew if need be. \param socket bound to the camera's address
    void Start(Descriptor socket);
    void Stop();

    /// Sends as many events in a row, unless the notification is off or the channel closed.
    void Fire(Event event, std::uint64_t blockId = 0, std::uint32_t count = 1);
    /// Sends bytes as they are to the channel's destination.
    void SendRaw(const void* pData, std::size_t size);
    /// The datagrams of the last events, without repetitions.
    std::vector<Bytes> Sent() const;

private:
    struct Order
    {
        Event event = Event::Test;
        std::uint64_t blockId = 0;
        std::uint64_t timestamp = 0;
        std::uint32_t count = 0;
    };

    void Run();
    Order TakeNext();
    Bytes Compose(const Order& order, bool wantsAck);
    void Send(const Order& order);
    void WaitForReceiver(std::size_t size);
    bool IsStopping() const;
    bool WaitForAck(std::uint16_t requestId, std::uint32_t ms);
    std::uint16_t HearAck();
    bool Transmit(const void* pData, std::size_t size);

    const Config m_config;
    Registers& m_registers;
    Tally& m_tally;
    const Cable& m_cable;
    Descriptor m_socket;
    Descriptor m_wake;
    std::thread m_thread;

    // The thread's own.
    std::unique_ptr<ReceiverWatch> m_pWatch;
    std::size_t m_room = 0;  ///< datagrams that the receiver is known to have room for
    std::uint16_t m_requestId = 0;

    mutable std::mutex m_mutex;
    bool m_stop = false;
    std::deque<Order> m_orders;
    std::deque<Bytes> m_sent;
};

}  // namespace sim
