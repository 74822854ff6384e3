#include "sim/GvspSender.h"

#include "sim/Bytes.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

namespace sim {
namespace {

constexpr std::size_t kIpAndUdpHeaders = 28;
constexpr std::size_t kStandardHeader = 8;
constexpr std::size_t kExtendedHeader = 20;
constexpr std::size_t kMaxDatagram = 65507;
constexpr std::size_t kMaxBatch = 64;
constexpr std::size_t kMaxLog = 4096;
constexpr std::uint32_t kMaxUnavailable = 64;
constexpr std::uint64_t kNoLimit = std::numeric_limits<std::uint64_t>::max();
// Packets that are late by less than this go out together: no clock wakes a thread more exactly.
constexpr std::chrono::nanoseconds kMaxBurst = std::chrono::microseconds(200);

constexpr std::uint8_t kLeader = 1;
constexpr std::uint8_t kTrailer = 2;
constexpr std::uint8_t kPayload = 3;

/// The shift register sequence that fills a test packet.
void FillTestData(std::uint8_t* pTo, std::size_t size)
{
    std::uint32_t state = 0xFFFF;
    for (std::size_t i = 0; i < size; ++i) {
        pTo[i] = static_cast<std::uint8_t>(state);
        state = (state >> 1) ^ ((state & 1u) != 0 ? 0x8016u : 0u);
    }
}

}  // namespace

void GvspSender::Wire::Append(const void* pData, std::size_t size)
{
    if (size > 0) {
        pieces[pieceCount++] = {const_cast<void*>(pData), size};
        bytes += size;
    }
}

void GvspSender::Wire::Truncate(std::size_t size)
{
    while (bytes > size) {
        iovec& last = pieces[pieceCount - 1];
        const std::size_t cut = std::min(last.iov_len, bytes - size);
        last.iov_len -= cut;
        bytes -= cut;
        pieceCount -= last.iov_len == 0 ? 1 : 0;
    }
}

GvspSender::GvspSender(
    const Config& config, Registers& registers, EventSender& events, Tally& tally, const Cable& cable)
    : m_config(config), m_registers(registers), m_events(events), m_tally(tally), m_cable(cable)
{
}

void GvspSender::Start(Descriptor socket)
{
    m_pWatch = std::make_unique<ReceiverWatch>(m_config.receiverNet);
    SetSocket(std::move(socket));
    UpdateChannel();
    m_stop = false;
    m_thread = std::thread(&GvspSender::Run, this);
}

void GvspSender::Stop()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_changed.notify_all();
    if (m_thread.joinable()) {
        m_thread.join();
    }
    SetSocket(Descriptor());
}

void GvspSender::SetSocket(Descriptor socket)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_socket = std::move(socket);
}

void GvspSender::UpdateChannel()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const std::uint32_t port = m_registers.Get(Bootstrap::kStreamPort) & 0xFFFFu;
        const bool isOpen = port != 0 && port != Bootstrap::kTcpPort;
        if (isOpen != m_isOpen) {
            m_isOpen = isOpen;
            ++m_opening;
            m_nextBlockId = m_config.firstBlockId;
            m_stored.clear();
            m_delayed.clear();
            m_resendQueue.clear();
        }
        // A packet that doesn't fit the cable is then lost instead of being cut in pieces.
        const bool whole = (m_registers.Get(Bootstrap::kStreamPacketSize) & Bootstrap::kDoNotFragment) != 0;
        const int discover = whole ? IP_PMTUDISC_PROBE : IP_PMTUDISC_DONT;
        setsockopt(m_socket.Get(), IPPROTO_IP, IP_MTU_DISCOVER, &discover, sizeof discover);
    }
    m_changed.notify_all();
}

void GvspSender::FireTestPacket()
{
    std::array<std::uint8_t, kMaxDatagram> packet{};
    const std::size_t packetSize = m_registers.Get(Bootstrap::kStreamPacketSize) & 0xFFFFu;
    const std::size_t header = m_registers.ExtendedId() ? kExtendedHeader : kStandardHeader;
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_isOpen || packetSize < kIpAndUdpHeaders + header) {
        return;
    }
    Block nothing;  // block 0, packet 0
    nothing.extended = header == kExtendedHeader;
    ComposeHeader(nothing, 0, kPayload, Status::kSuccess, packet.data());
    const std::size_t size = std::min(packetSize - kIpAndUdpHeaders, kMaxDatagram);
    FillTestData(&packet[header], size - header);
    if (SendOne(packet.data(), size)) {
        m_tally.Add(&Counters::testPackets);
    }
}

void GvspSender::StartAcquisition()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_isAcquiring) {
            return;
        }
        const std::uint32_t mode = m_registers.Get(Feature::kAcquisitionMode);
        const std::uint32_t several = m_registers.Get(Feature::kAcquisitionFrameCount);
        const std::uint64_t images = mode == 0 ? kNoLimit : (mode == 1 ? 1 : several);
        m_imagesLeft = std::min(images, m_config.frameLimit == 0 ? kNoLimit : m_config.frameLimit);
        m_isAcquiring = true;
        m_triggers = 0;
        m_nextImage = Clock::now();
        m_registers.Set(Feature::kAcquisitionStatus, 1);
        m_events.Fire(Event::AcquisitionStart);
    }
    m_changed.notify_all();
}

void GvspSender::StopAcquisition()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_isAcquiring) {
        EndAcquisition();
    }
}

/// With m_mutex held.
void GvspSender::EndAcquisition()
{
    m_isAcquiring = false;
    m_registers.Set(Feature::kAcquisitionStatus, 0);
    m_events.Fire(Event::AcquisitionEnd);
}

bool GvspSender::TakeImage()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const bool isTriggered = m_registers.Get(Feature::kTriggerMode) == 0 || m_triggers > 0;
    if (!m_isAcquiring || m_imagesLeft == 0 || !isTriggered) {
        return false;
    }
    m_triggers -= m_triggers > 0 ? 1 : 0;
    m_events.Fire(Event::ExposureEnd);  // a frame has no block ID
    if (--m_imagesLeft == 0) {
        EndAcquisition();
    }
    return true;
}

void GvspSender::Trigger(std::uint32_t images)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_triggers += images;
    }
    m_changed.notify_all();
}

void GvspSender::Resend(const ResendRequest& request)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_resendQueue.push_back(request);
        m_resendLog.push_back(request);
        if (m_resendLog.size() > kMaxLog) {
            m_resendLog.pop_front();
        }
    }
    CountIn(Feature::kResendRequestCount);
    m_changed.notify_all();
}

/// Each counter is one thread's.
void GvspSender::CountIn(std::uint32_t address)
{
    m_registers.Set(address, m_registers.Get(address) + 1);
}

void GvspSender::SetFaults(const StreamFaults& faults)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_faults = faults;
}

void GvspSender::SendRaw(const void* pData, std::size_t size)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    SendOne(pData, size);
}

bool GvspSender::IsStreaming() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_isOpen && m_isAcquiring;
}

std::vector<ResendRequest> GvspSender::Resends() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return {m_resendLog.begin(), m_resendLog.end()};
}

std::shared_ptr<const Picture> GvspSender::CurrentPicture() const
{
    const std::lock_guard<std::mutex> lock(m_pictureMutex);
    Geometry geometry;
    geometry.pixelFormat = static_cast<PixelFormat>(m_registers.Get(Feature::kPixelFormat));
    geometry.width = m_registers.Get(Feature::kWidth);
    geometry.height = m_registers.Get(Feature::kHeight);
    const auto pattern = static_cast<TestPattern>(m_registers.Get(Feature::kTestPattern));
    const ChunkMode chunked =
        m_registers.Get(Feature::kChunkForm) != 0 ? ChunkMode::ChunkData : ChunkMode::ImageAndChunks;
    const ChunkMode chunks = m_registers.Get(Feature::kChunkModeActive) != 0 ? chunked : ChunkMode::Off;
    if (!m_pPicture || !(m_pPicture->ImageGeometry() == geometry) || m_pPicture->Pattern() != pattern ||
        m_pPicture->Chunks() != chunks) {
        m_pPicture = std::make_shared<const Picture>(geometry, pattern, chunks);
    }
    return m_pPicture;
}

void GvspSender::Run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stop) {
        if (ServeAside(lock)) {
            continue;
        }
        const bool ready = IsReady();
        if (ready && Clock::now() >= m_nextImage) {
            SendNextBlock(lock);
            continue;
        }
        auto next = ready ? m_nextImage : Clock::time_point::max();
        for (const Delayed& delayed : m_delayed) {
            next = std::min(next, delayed.due);
        }
        if (next == Clock::time_point::max()) {
            m_changed.wait(lock);
        } else {
            m_changed.wait_until(lock, next);
        }
    }
}

bool GvspSender::IsReady() const
{
    const std::size_t packetSize = m_registers.Get(Bootstrap::kStreamPacketSize) & 0xFFFFu;
    const std::size_t header = m_registers.ExtendedId() ? kExtendedHeader : kStandardHeader;
    const bool triggered = m_registers.Get(Feature::kTriggerMode) == 0 || m_triggers > 0;
    return m_isOpen && m_isAcquiring && m_imagesLeft > 0 && triggered &&
           packetSize > kIpAndUdpHeaders + header && m_registers.Get(Bootstrap::kStreamAddress) != 0;
}

/// Serves what stands beside the run of blocks: one resend or one delayed packet.
/// \return false when nothing was due
bool GvspSender::ServeAside(std::unique_lock<std::mutex>& lock)
{
    if (!m_resendQueue.empty()) {
        const ResendRequest request = m_resendQueue.front();
        m_resendQueue.pop_front();
        lock.unlock();
        ServeResend(request);
        lock.lock();
        return true;
    }
    const auto due = std::find_if(m_delayed.begin(), m_delayed.end(),
                                  [](const Delayed& delayed) { return delayed.due <= Clock::now(); });
    if (due == m_delayed.end()) {
        return false;
    }
    const Delayed delayed = *due;
    m_delayed.erase(due);
    lock.unlock();
    Wire wire;
    Compose(*delayed.pBlock, delayed.packetId, Status::kSuccess, wire);
    Transmit({&wire}, false);
    lock.lock();
    return true;
}

void GvspSender::SendNextBlock(std::unique_lock<std::mutex>& lock)
{
    const std::uint64_t opening = m_opening;
    const std::uint64_t id = m_nextBlockId;
    const StreamFaults faults = m_faults;
    lock.unlock();
    const std::shared_ptr<Block> pBlock = MakeBlock(id);
    const std::chrono::nanoseconds period = m_registers.FramePeriod();
    lock.lock();
    if (opening != m_opening || m_stop) {
        return;
    }
    m_events.Fire(Event::ExposureEnd, id);
    m_nextBlockId = IdAfter(id);
    --m_imagesLeft;
    m_triggers -= m_triggers > 0 ? 1 : 0;
    m_stored.push_back(pBlock);
    while (m_stored.size() > std::max<std::size_t>(m_config.storedBlocks, 1)) {
        m_stored.pop_front();
    }
    LayOut(pBlock, faults);
    lock.unlock();
    for (std::size_t sent = 0; sent < m_order.size(); sent += kMaxBatch) {
        const auto first = m_order.begin() + static_cast<std::ptrdiff_t>(sent);
        const std::size_t count = std::min(kMaxBatch, m_order.size() - sent);
        Transmit({first, first + static_cast<std::ptrdiff_t>(count)}, true);
        lock.lock();
        while (!m_stop && ServeAside(lock)) {
        }
        const bool goOn = !m_stop && opening == m_opening;
        if (!goOn) {
            return;
        }
        lock.unlock();
    }
    m_tally.Add(&Counters::blocks);
    lock.lock();
    m_nextImage = std::max(m_nextImage + period, Clock::now());
    if (m_imagesLeft == 0 && m_isAcquiring) {
        EndAcquisition();
    }
}

std::shared_ptr<GvspSender::Block> GvspSender::MakeBlock(std::uint64_t id) const
{
    auto pBlock = std::make_shared<Block>();
    pBlock->id = id;
    pBlock->timestamp = m_config.zeroTimestamp ? 0 : m_registers.Ticks();
    pBlock->pPicture = CurrentPicture();
    pBlock->tail = pBlock->pPicture->Tail(id);
    pBlock->offsetX = m_registers.Get(Feature::kOffsetX);
    pBlock->offsetY = m_registers.Get(Feature::kOffsetY);
    pBlock->extended = m_registers.ExtendedId();
    const std::size_t packetSize = m_registers.Get(Bootstrap::kStreamPacketSize) & 0xFFFFu;
    const std::size_t overhead = kIpAndUdpHeaders + (pBlock->extended ? kExtendedHeader : kStandardHeader);
    pBlock->dataBytes =
        packetSize > overhead ? std::min(packetSize, kMaxDatagram + kIpAndUdpHeaders) - overhead : 1;
    const std::size_t payload = pBlock->pPicture->PayloadBytes();
    pBlock->payloadPackets =
        static_cast<std::uint32_t>((payload + pBlock->dataBytes - 1) / pBlock->dataBytes);
    return pBlock;
}

std::uint64_t GvspSender::IdAfter(std::uint64_t id) const
{
    const std::uint64_t last = m_registers.ExtendedId() ? std::numeric_limits<std::uint64_t>::max() : 0xFFFF;
    return id >= last ? 1 : id + 1;
}

std::size_t GvspSender::ComposeHeader(
    const Block& block, std::uint32_t packetId, std::uint8_t format, std::uint16_t status, std::uint8_t* pTo)
{
    const std::uint32_t formatBits = static_cast<std::uint32_t>(format) << 24;
    Put16(pTo, status);
    if (!block.extended) {
        Put16(pTo + 2, static_cast<std::uint32_t>(block.id & 0xFFFFu));
        Put32(pTo + 4, formatBits | (packetId & 0xFFFFFFu));
        return kStandardHeader;
    }
    Put16(pTo + 2, 0);
    Put32(pTo + 4, 0x80000000u | formatBits);
    Put64(pTo + 8, block.id);
    Put32(pTo + 16, packetId);
    return kExtendedHeader;
}

void GvspSender::Compose(const Block& block, std::uint32_t packetId, std::uint16_t status, Wire& wire)
{
    const Picture& picture = *block.pPicture;
    const Geometry& geometry = picture.ImageGeometry();
    const std::uint16_t type = PayloadType(picture.Chunks());
    const std::uint8_t format =
        packetId == 0 ? kLeader : (packetId == block.TrailerId() ? kTrailer : kPayload);
    const std::size_t header = ComposeHeader(block, packetId, format, status, wire.head.data());
    std::uint8_t* const pBody = &wire.head[header];
    wire.pieceCount = 0;
    wire.bytes = 0;
    if (format == kLeader) {
        const bool isImage = type != 4;
        Put16(pBody, 0);
        Put16(pBody + 2, type);
        Put64(pBody + 4, block.timestamp);
        Put32(pBody + 12, static_cast<std::uint32_t>(geometry.pixelFormat));
        Put32(pBody + 16, geometry.width);
        Put32(pBody + 20, geometry.height);
        Put32(pBody + 24, block.offsetX);
        Put32(pBody + 28, block.offsetY);
        Put32(pBody + 32, 0);  // padding x, y
        wire.Append(wire.head.data(), header + (isImage ? 36 : 12));
        return;
    }
    if (format == kTrailer) {
        const auto chunkBytes = static_cast<std::uint32_t>(picture.PayloadBytes());
        constexpr std::uint32_t kLayoutId = 1;
        std::size_t size = 0;
        Put16(pBody, 0);
        Put16(pBody + 2, type);
        size += 4;
        if (type != 4) {
            Put32(pBody + size, geometry.height);
            size += 4;
        }
        if (type != 1) {
            Put32(pBody + size, chunkBytes);
            Put32(pBody + size + 4, kLayoutId);
            size += 8;
        }
        wire.Append(wire.head.data(), header + size);
        return;
    }
    const std::size_t offset = (packetId - 1) * block.dataBytes;
    const std::size_t end = std::min(offset + block.dataBytes, picture.PayloadBytes());
    const std::size_t imageEnd = std::clamp(picture.ImageBytes(), offset, end);
    wire.Append(wire.head.data(), header);
    wire.Append(picture.Image(block.id) + offset, imageEnd - offset);
    if (end > imageEnd) {
        wire.Append(&block.tail[imageEnd - picture.ImageBytes()], end - imageEnd);
    }
}

/// Lays out the packets of a block in m_wires, and in m_order those to be sent now, as the plan wants it.
void GvspSender::LayOut(const std::shared_ptr<Block>& pBlock, const StreamFaults& faults)
{
    struct Held
    {
        Wire* pWire;
        std::size_t place;  ///< in m_order
    };
    std::vector<Held> held;
    const bool quiet = faults.IsQuiet();
    m_wires.resize(pBlock->TrailerId() + 1);
    m_order.clear();
    for (std::uint32_t id = 0; id <= pBlock->TrailerId(); ++id) {
        const PacketFault fault = quiet ? PacketFault::None : faults.Decide(pBlock->id, id);
        Wire& wire = m_wires[id];
        Compose(*pBlock, id, fault == PacketFault::Status ? faults.status : Status::kSuccess, wire);
        switch (fault) {
            case PacketFault::Lose:
                m_tally.Add(&Counters::packetsLost);
                break;
            case PacketFault::Delay:
                m_tally.Add(&Counters::packetsDelayed);
                m_delayed.push_back({Clock::now() + std::chrono::milliseconds(faults.delayMs), pBlock, id});
                break;
            case PacketFault::Reorder:
                m_tally.Add(&Counters::packetsReordered);
                held.push_back({&wire, m_order.size() + faults.reorderDistance});
                break;
            case PacketFault::Duplicate:
                m_tally.Add(&Counters::packetsDuplicated);
                m_order.insert(m_order.end(), 2, &wire);
                break;
            case PacketFault::Truncate:
                m_tally.Add(&Counters::packetsTruncated);
                wire.Truncate(faults.truncateTo);
                m_order.push_back(&wire);
                break;
            case PacketFault::Status:
                m_tally.Add(&Counters::packetsBadStatus);
                m_order.push_back(&wire);
                break;
            case PacketFault::None:
                m_order.push_back(&wire);
                break;
        }
        while (!held.empty() && held.front().place <= m_order.size() && fault != PacketFault::Reorder) {
            m_order.push_back(held.front().pWire);
            held.erase(held.begin());
        }
    }
    for (const Held& late : held) {
        m_order.push_back(late.pWire);
    }
}

std::shared_ptr<GvspSender::Block> GvspSender::FindBlock(std::uint64_t id) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& pBlock : m_stored) {
        if (pBlock->id == id) {
            return pBlock;
        }
    }
    return nullptr;
}

void GvspSender::ServeResend(const ResendRequest& request)
{
    const std::shared_ptr<Block> pBlock = FindBlock(request.blockId);
    StreamFaults faults;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        faults = m_faults;
    }
    if (!pBlock) {
        // Says so for each packet, in a packet that is a header and nothing else.
        Block gone;
        gone.id = request.blockId;
        gone.extended = request.extended;
        const std::uint32_t asked = request.lastPacket - request.firstPacket;
        for (std::uint32_t i = 0; i <= std::min(asked, kMaxUnavailable - 1); ++i) {
            Wire wire;
            wire.Append(wire.head.data(), ComposeHeader(gone, request.firstPacket + i, kPayload,
                                                        Status::kPacketUnavailable, wire.head.data()));
            Transmit({&wire}, false);
            m_tally.Add(&Counters::resendUnavailable);
        }
        return;
    }
    const std::uint32_t last = std::min(request.lastPacket, pBlock->TrailerId());
    for (std::uint32_t id = request.firstPacket; id <= last; ++id) {
        if (faults.Decide(pBlock->id, id, ++pBlock->resends[id]) == PacketFault::Lose) {
            m_tally.Add(&Counters::packetsLost);
            continue;
        }
        Wire wire;
        Compose(*pBlock, id, Status::kPacketResend, wire);
        Transmit({&wire}, false);
        m_tally.Add(&Counters::resendPackets);
        CountIn(Feature::kResentPacketCount);
    }
}

/// Sends packets in batches as large as the packet delay and the receiver allow.
/// \param spaced keep the packet delay of the register
void GvspSender::Transmit(const std::vector<Wire*>& wires, bool spaced)
{
    const double gap = spaced ? 1e9 * m_registers.Get(Bootstrap::kStreamPacketDelay) /
                                    static_cast<double>(m_registers.TickFrequency())
                              : 0;
    std::size_t sent = 0;
    while (sent < wires.size()) {
        std::size_t count = std::min(wires.size() - sent, WaitForReceiver());
        if (gap >= 1) {
            count = std::min(count, WaitForSlot(std::chrono::nanoseconds(static_cast<std::int64_t>(gap))));
            if (count == 0) {
                return;
            }
            m_nextSlot +=
                std::chrono::nanoseconds(static_cast<std::int64_t>(gap * static_cast<double>(count)));
        }
        SendBatch(&wires[sent], count);
        sent += count;
    }
}

/// Waits until the receiver has room, if it is watched.
/// \return how many packets of the register's size may go, at least 1
std::size_t GvspSender::WaitForReceiver()
{
    if (!m_pWatch->IsOn()) {
        return kMaxBatch;
    }
    const auto port = static_cast<std::uint16_t>(m_registers.Get(Bootstrap::kStreamPort));
    const std::size_t packetSize = m_registers.Get(Bootstrap::kStreamPacketSize) & 0xFFFFu;
    const std::size_t room = m_pWatch->WaitForRoom(port, packetSize);
    if (room == 0) {
        m_tally.Add(&Counters::watchTimeouts);
    }
    return std::max<std::size_t>(room, 1);
}

/// Waits for the time of the next packet. A late sender doesn't hurry to catch up, as a camera wouldn't.
/// \return how many packets may go; 0 when the sender is to stop
std::size_t GvspSender::WaitForSlot(std::chrono::nanoseconds gap)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    const std::uint64_t opening = m_opening;
    while (!m_stop && opening == m_opening && Clock::now() < m_nextSlot) {
        m_changed.wait_until(lock, m_nextSlot);
    }
    if (m_stop || opening != m_opening) {
        return 0;
    }
    const auto now = Clock::now();
    m_nextSlot = std::max(m_nextSlot, now - kMaxBurst);
    return static_cast<std::size_t>((now - m_nextSlot) / gap) + 1;
}

void GvspSender::SendBatch(Wire* const* ppWires, std::size_t count)
{
    sockaddr_in destination = Destination();
    if (m_cable.IsOut() || destination.sin_port == 0) {
        return;
    }
    std::array<mmsghdr, kMaxBatch> messages{};
    count = std::min(count, kMaxBatch);
    for (std::size_t i = 0; i < count; ++i) {
        msghdr& message = messages[i].msg_hdr;
        message.msg_name = &destination;
        message.msg_namelen = sizeof destination;
        message.msg_iov = ppWires[i]->pieces.data();
        message.msg_iovlen = ppWires[i]->pieceCount;
    }
    std::uint64_t packets = 0;
    std::uint64_t bytes = 0;
    for (std::size_t done = 0; done < count;) {
        const int sent = sendmmsg(m_socket.Get(), &messages[done], static_cast<unsigned>(count - done), 0);
        if (sent <= 0) {
            if (errno != EINTR) {
                m_tally.Add(&Counters::sendErrors);
                ++done;
            }
            continue;
        }
        for (const std::size_t end = done + static_cast<std::size_t>(sent); done < end; ++done) {
            ++packets;
            bytes += ppWires[done]->bytes;
        }
    }
    m_tally.Add(&Counters::packets, packets);
    m_tally.Add(&Counters::bytes, bytes);
}

/// Sends a datagram aside from all pacing. With m_mutex held, so that the socket stays.
bool GvspSender::SendOne(const void* pData, std::size_t size)
{
    if (!m_socket || m_cable.IsOut()) {
        return false;
    }
    const sockaddr_in destination = Destination();
    const ssize_t sent = sendto(m_socket.Get(), pData, size, 0,
                                reinterpret_cast<const sockaddr*>(&destination), sizeof destination);
    m_tally.Add(sent < 0 ? &Counters::sendErrors : &Counters::packets);
    m_tally.Add(&Counters::bytes, sent < 0 ? 0 : size);
    return sent >= 0;
}

sockaddr_in GvspSender::Destination() const
{
    sockaddr_in destination = {};
    destination.sin_family = AF_INET;
    destination.sin_addr.s_addr = htonl(m_registers.Get(Bootstrap::kStreamAddress));
    destination.sin_port = htons(static_cast<std::uint16_t>(m_registers.Get(Bootstrap::kStreamPort)));
    return destination;
}

}  // namespace sim
