#include "sim/EventSender.h"

#include "sim/Bytes.h"
#include "sim/Network.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <system_error>

namespace sim {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint8_t kKey = 0x42;
constexpr std::uint8_t kAckWanted = 0x01;
constexpr std::uint8_t kExtendedIds = 0x10;
constexpr std::uint16_t kEvent = 0x00C0;
constexpr std::uint16_t kEventData = 0x00C2;
constexpr std::uint16_t kFirstIdentifier = 0x9000;
constexpr std::size_t kHeader = 8;
constexpr std::size_t kStandardItem = 16;
constexpr std::size_t kExtendedItem = 24;
constexpr std::size_t kMaxDatagram = 576;
constexpr std::size_t kMaxLog = 16384;

}  // namespace

EventSender::EventSender(const Config& config, Registers& registers, Tally& tally, const Cable& cable)
    : m_config(config), m_registers(registers), m_tally(tally), m_cable(cable)
{
}

void EventSender::Start(Descriptor socket)
{
    Stop();
    m_pWatch = std::make_unique<ReceiverWatch>(m_config.receiverNet);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_wake.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        if (!m_wake) {
            throw std::system_error(errno, std::generic_category(), "eventfd");
        }
        m_socket = std::move(socket);
        m_stop = false;
    }
    m_thread = std::thread(&EventSender::Run, this);
}

void EventSender::Stop()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    if (m_thread.joinable()) {
        eventfd_write(m_wake.Get(), 1);
        m_thread.join();
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_socket.Reset();
}

void EventSender::Fire(Event event, std::uint64_t blockId, std::uint32_t count)
{
    const auto number = static_cast<std::uint32_t>(event);
    if (m_registers.Get(Feature::kEventNotification + 4 * number) == 0 || count == 0) {
        return;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_orders.push_back({event, blockId, m_registers.Ticks(), count});
    eventfd_write(m_wake.Get(), 1);
}

void EventSender::SendRaw(const void* pData, std::size_t size)
{
    Transmit(pData, size);
}

std::vector<EventSender::Bytes> EventSender::Sent() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return {m_sent.begin(), m_sent.end()};
}

void EventSender::Run()
{
    while (!IsStopping()) {
        const Order next = TakeNext();
        if (next.count != 0) {
            Send(next);
            continue;
        }
        std::array<pollfd, 2> waits{
            {{m_wake.Get(), POLLIN, 0}, {m_socket.Get(), POLLIN, 0}}
        };
        poll(waits.data(), waits.size(), -1);
        eventfd_t wakes = 0;
        eventfd_read(m_wake.Get(), &wakes);
        HearAck();
    }
}

bool EventSender::IsStopping() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_stop;
}

/// Takes one event of the oldest order; its count is 0 when there is none.
EventSender::Order EventSender::TakeNext()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_orders.empty()) {
        return {};
    }
    const Order next = m_orders.front();
    if (--m_orders.front().count == 0) {
        m_orders.pop_front();
    }
    return next;
}

void EventSender::Send(const Order& order)
{
    if ((m_registers.Get(Bootstrap::kMessagePort) & 0xFFFFu) == 0) {
        return;
    }
    const std::uint32_t timeout = m_registers.Get(Bootstrap::kMessageTimeout);
    const std::uint32_t repetitions = timeout != 0 ? m_registers.Get(Bootstrap::kMessageRetries) : 0;
    const Bytes datagram = Compose(order, timeout != 0);
    WaitForReceiver(datagram.size());
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_sent.push_back(datagram);
        if (m_sent.size() > kMaxLog) {
            m_sent.pop_front();
        }
    }
    if (Transmit(datagram.data(), datagram.size())) {
        m_tally.Add(&Counters::events);
    }
    for (std::uint32_t i = 0; i < repetitions && !WaitForAck(m_requestId, timeout); ++i) {
        if (Transmit(datagram.data(), datagram.size())) {
            m_tally.Add(&Counters::eventsRepeated);
        }
    }
}

EventSender::Bytes EventSender::Compose(const Order& order, bool wantsAck)
{
    const bool extended = m_registers.ExtendedId();
    const std::size_t head = kHeader + (extended ? kExtendedItem : kStandardItem);
    const std::size_t wanted = m_registers.Get(Feature::kEventDataSize);
    Bytes datagram(std::min(head + wanted, kMaxDatagram));
    m_requestId = static_cast<std::uint16_t>(m_requestId == 0xFFFF ? 1 : m_requestId + 1);
    datagram[0] = kKey;
    datagram[1] = static_cast<std::uint8_t>((wantsAck ? kAckWanted : 0) | (extended ? kExtendedIds : 0));
    Put16(&datagram[2], wanted == 0 ? kEvent : kEventData);
    Put16(&datagram[4], static_cast<std::uint32_t>(datagram.size() - kHeader));
    Put16(&datagram[6], m_requestId);
    Put16(&datagram[10], kFirstIdentifier + static_cast<std::uint32_t>(order.event));
    Put16(&datagram[12], order.event == Event::ExposureEnd ? 0 : 0xFFFFu);  // the stream channel, if any
    if (extended) {
        Put64(&datagram[16], order.blockId);
    } else {
        Put16(&datagram[14], static_cast<std::uint32_t>(order.blockId & 0xFFFFu));
    }
    Put64(&datagram[head - 8], order.timestamp);
    for (std::size_t i = head; i < datagram.size(); ++i) {
        datagram[i] = static_cast<std::uint8_t>(m_requestId + i);
    }
    return datagram;
}

void EventSender::WaitForReceiver(std::size_t size)
{
    if (!m_pWatch->IsOn()) {
        return;
    }
    if (m_room == 0) {
        const auto port = static_cast<std::uint16_t>(m_registers.Get(Bootstrap::kMessagePort));
        const std::size_t room = m_pWatch->WaitForRoom(port, size);
        if (room == 0) {
            m_tally.Add(&Counters::watchTimeouts);
        }
        m_room = std::max<std::size_t>(room, 1);
    }
    --m_room;
}

/// \return true when the datagram need not be sent again
bool EventSender::WaitForAck(std::uint16_t requestId, std::uint32_t ms)
{
    const auto end = Clock::now() + std::chrono::milliseconds(ms);
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        if (left <= 0 || IsStopping()) {
            return left > 0;
        }
        constexpr int kLookAtStop = 20;  // ms
        pollfd wait{m_socket.Get(), POLLIN, 0};
        poll(&wait, 1, static_cast<int>(std::min<std::int64_t>(left, kLookAtStop)));
        if (HearAck() == requestId) {
            m_tally.Add(&Counters::eventAcks);
            return true;
        }
    }
}

/// Reads one datagram if there is one. Those that are no acknowledge come to open a firewall.
/// \return the request id of an acknowledge, else 0
std::uint16_t EventSender::HearAck()
{
    std::array<std::uint8_t, 64> bytes{};
    const ssize_t got = recv(m_socket.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (got < 0) {
        return 0;
    }
    const std::uint16_t code = Get16(&bytes[2]);
    if (got >= 8 && (code == kEvent + 1 || code == kEventData + 1)) {
        return Get16(&bytes[6]);
    }
    m_tally.Add(&Counters::messageFirewallDatagrams);
    return 0;
}

bool EventSender::Transmit(const void* pData, std::size_t size)
{
    const auto port = static_cast<std::uint16_t>(m_registers.Get(Bootstrap::kMessagePort));
    const sockaddr_in to = MakeAddress(m_registers.Get(Bootstrap::kMessageAddress), port);
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_socket || port == 0 || m_cable.IsOut()) {
        return false;
    }
    const ssize_t sent =
        sendto(m_socket.Get(), pData, size, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    return sent == static_cast<ssize_t>(size);
}

}  // namespace sim
