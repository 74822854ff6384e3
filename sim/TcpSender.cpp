#include "sim/TcpSender.h"

#include "sim/Bytes.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace sim {
namespace {

constexpr std::size_t kHeader = 60;
constexpr std::uint32_t kExtendedLeader = 0x81000000;
constexpr auto kCablePoll = std::chrono::milliseconds(10);

}  // namespace

TcpSender::TcpSender(
    const Config& config, Registers& registers, GvspSender& gvsp, Tally& tally, const Cable& cable)
    : m_config(config), m_registers(registers), m_gvsp(gvsp), m_tally(tally), m_cable(cable)
{
}

void TcpSender::Start(Listen listen)
{
    m_wake.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!m_wake) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_listen = std::move(listen);
        m_stop = false;
    }
    UpdateChannel();
    m_thread = std::thread(&TcpSender::Run, this);
}

void TcpSender::Stop()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
        m_listen = nullptr;
    }
    UpdateChannel();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void TcpSender::UpdateChannel()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const bool isWanted =
            m_listen && !m_faults.refuse && m_registers.Get(Bootstrap::kStreamPort) == Bootstrap::kTcpPort;
        if (isWanted != (m_channel.pListener != nullptr)) {
            ++m_channel.opening;
            if (m_channel.pListener) {
                // The thread may have it for a moment yet, and must not take a connection any more.
                shutdown(m_channel.pListener->Get(), SHUT_RDWR);
                m_channel.pListener = nullptr;
            } else if (Descriptor listener = m_listen(Bootstrap::kTcpPort)) {
                m_channel.pListener = std::make_shared<const Descriptor>(std::move(listener));
            }
        }
    }
    Wake();
}

void TcpSender::SetFaults(const TcpFaults& faults)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_faults = faults;
    }
    UpdateChannel();
}

bool TcpSender::IsOpen() const
{
    return CurrentChannel().pListener != nullptr;
}

TcpSender::Channel TcpSender::CurrentChannel() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_channel;
}

bool TcpSender::IsCurrent(std::uint64_t opening) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_channel.opening == opening;
}

bool TcpSender::MustStop() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_stop;
}

TcpFaults TcpSender::Faults() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_faults;
}

void TcpSender::Wake() const
{
    eventfd_write(m_wake.Get(), 1);
}

TcpSender::Woken TcpSender::Wait(const Descriptor& socket, short events, Clock::time_point until) const
{
    int ms = -1;
    if (until != Clock::time_point::max()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
        ms = static_cast<int>(std::clamp<std::int64_t>(left, 0, 1000));
    }
    std::array<pollfd, 2> waits{
        {{m_wake.Get(), POLLIN, 0}, {socket.Get(), events, 0}}
    };
    poll(waits.data(), waits.size(), ms);
    if (waits[0].revents != 0) {
        eventfd_t count = 0;
        eventfd_read(m_wake.Get(), &count);
        return Woken::Changed;
    }
    return waits[1].revents != 0 ? Woken::Ready : Woken::Late;
}

void TcpSender::Run()
{
    while (!MustStop()) {
        const Channel channel = CurrentChannel();
        const Descriptor nobody;
        const Descriptor& listener = channel.pListener ? *channel.pListener : nobody;
        if (Wait(listener, POLLIN, Clock::time_point::max()) != Woken::Ready) {
            continue;
        }
        const Descriptor connection(accept4(listener.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (connection) {
            m_tally.Add(&Counters::connections);
            Serve(connection, channel.opening);
        }
    }
}

/// Sends frames until the channel, or the host, closes.
void TcpSender::Serve(const Descriptor& connection, std::uint64_t opening)
{
    Clock::time_point due = Clock::now();
    for (std::uint64_t number = 1; AwaitImage(connection, opening, due); ++number) {
        const TcpFaults faults = Faults();
        Compose(m_config.firstBlockId + number - 1, faults);
        if (!SendFrame(connection, opening, number, faults)) {
            return;
        }
        m_tally.Add(&Counters::blocks);
        due = std::max(due + m_registers.FramePeriod(), Clock::now());
    }
}

/// Waits for an image of the acquisition that may go, and takes it.
bool TcpSender::AwaitImage(const Descriptor& connection, std::uint64_t opening, Clock::time_point due)
{
    while (IsCurrent(opening)) {
        const bool isDue = Clock::now() >= due;
        if (isDue && m_gvsp.TakeImage()) {
            return true;
        }
        if (Wait(connection, POLLRDHUP, isDue ? Clock::time_point::max() : due) == Woken::Ready) {
            return false;
        }
    }
    return false;
}

/// \return false when the channel, or the host, closed meanwhile
bool TcpSender::Pause(const Descriptor& connection,
                      std::uint64_t opening,
                      std::chrono::microseconds time) const
{
    const Clock::time_point end = Clock::now() + time;
    while (IsCurrent(opening) && Clock::now() < end) {
        if (Wait(connection, POLLRDHUP, end) == Woken::Ready) {
            return false;
        }
    }
    return IsCurrent(opening);
}

void TcpSender::Compose(std::uint64_t blockId, const TcpFaults& faults)
{
    const std::shared_ptr<const Picture> pPicture = m_gvsp.CurrentPicture();
    const Geometry& geometry = pPicture->ImageGeometry();
    m_frame.assign(kHeader + pPicture->PayloadBytes(), 0);
    std::uint8_t* const pHeader = m_frame.data();
    Put32(pHeader, static_cast<std::uint32_t>(pPicture->PayloadBytes()));
    Put32(pHeader + 8, kExtendedLeader);
    Put64(pHeader + 12, blockId);
    Put16(pHeader + 26, PayloadType(pPicture->Chunks()));
    Put64(pHeader + 28, m_config.zeroTimestamp ? 0 : m_registers.Ticks());
    Put32(pHeader + 36, static_cast<std::uint32_t>(geometry.pixelFormat));
    Put32(pHeader + 40, faults.width != 0 ? faults.width : geometry.width);
    Put32(pHeader + 44, faults.height != 0 ? faults.height : geometry.height);
    Put32(pHeader + 48, m_registers.Get(Feature::kOffsetX));
    Put32(pHeader + 52, m_registers.Get(Feature::kOffsetY));
    std::copy_n(pPicture->Image(blockId), pPicture->ImageBytes(), pHeader + kHeader);
    if (pPicture->Chunks() != ChunkMode::Off) {
        const Picture::ChunkTail tail = pPicture->Tail(blockId);
        std::copy(tail.begin(), tail.end(), pHeader + kHeader + pPicture->ImageBytes());
    }
}

bool TcpSender::SendFrame(const Descriptor& connection,
                          std::uint64_t opening,
                          std::uint64_t number,
                          const TcpFaults& faults)
{
    const std::size_t piece = faults.pieceBytes != 0 ? faults.pieceBytes : m_frame.size();
    const std::size_t middle = m_frame.size() / 2;
    std::size_t sent = 0;
    const auto sendUpTo = [&](std::size_t end) {
        while (sent < end) {
            const std::size_t next = std::min(end, sent + piece);
            if (!SendBytes(connection, opening, sent, next) ||
                !Pause(connection, opening, std::chrono::microseconds(faults.pieceGapUs))) {
                return false;
            }
            sent = next;
        }
        return true;
    };
    if (number == faults.closeFrame || number == faults.stallFrame) {
        const auto stall = std::chrono::milliseconds(faults.stallMs);
        if (!sendUpTo(middle) || number == faults.closeFrame || !Pause(connection, opening, stall)) {
            return false;
        }
    }
    return sendUpTo(m_frame.size());
}

bool TcpSender::SendBytes(const Descriptor& connection,
                          std::uint64_t opening,
                          std::size_t from,
                          std::size_t to)
{
    while (from < to) {
        if (!IsCurrent(opening)) {
            return false;
        }
        if (m_cable.IsOut()) {
            Wait(connection, POLLRDHUP, Clock::now() + kCablePoll);
            continue;
        }
        const ssize_t sent = send(connection.Get(), &m_frame[from], to - from, MSG_NOSIGNAL);
        if (sent > 0) {
            from += static_cast<std::size_t>(sent);
            m_tally.Add(&Counters::bytes, static_cast<std::uint64_t>(sent));
        } else if (errno == EAGAIN) {
            Wait(connection, POLLOUT, Clock::time_point::max());
        } else if (errno != EINTR) {
            m_tally.Add(&Counters::sendErrors);
            return false;
        }
    }
    return true;
}

}  // namespace sim
