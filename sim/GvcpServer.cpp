#include "sim/GvcpServer.h"

#include "sim/Bytes.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace sim {
namespace {

constexpr std::uint8_t kKey = 0x42;
constexpr std::uint8_t kAckWanted = 0x01;
constexpr std::uint8_t kBroadcastAckAllowed = 0x10;
constexpr std::uint8_t kExtendedIds = 0x10;
constexpr std::uint8_t kScheduled = 0x80;
constexpr std::size_t kMaxBody = 540;
constexpr std::uint32_t kMaxMemory = 536;
constexpr std::chrono::seconds kRepeatTime{3};

constexpr std::uint16_t kDiscovery = 0x0002;
constexpr std::uint16_t kForceIp = 0x0004;
constexpr std::uint16_t kPacketResend = 0x0040;
constexpr std::uint16_t kReadReg = 0x0080;
constexpr std::uint16_t kWriteReg = 0x0082;
constexpr std::uint16_t kReadMem = 0x0084;
constexpr std::uint16_t kWriteMem = 0x0086;
constexpr std::uint16_t kPendingAck = 0x0089;
constexpr std::uint16_t kAction = 0x0100;

bool IsSame(const sockaddr_in& left, const sockaddr_in& right)
{
    return left.sin_addr.s_addr == right.sin_addr.s_addr && left.sin_port == right.sin_port;
}

/// Whether the length field may stay 0 in front of a body.
bool IsLengthOptional(std::uint16_t command)
{
    return command == kForceIp || command == kAction;
}

std::vector<std::uint8_t> Index(std::size_t index)
{
    std::vector<std::uint8_t> body(4);
    Put16(&body[2], static_cast<std::uint32_t>(index));
    return body;
}

}  // namespace

GvcpServer::GvcpServer(
    const Config& config, Registers& registers, GvspSender& sender, Tally& tally, const Cable& cable)
    : m_config(config), m_registers(registers), m_sender(sender), m_tally(tally), m_cable(cable)
{
}

void GvcpServer::Start(Descriptor control, Descriptor broadcast, ChangeAddress changeAddress)
{
    m_wake = Descriptor(eventfd(0, EFD_CLOEXEC));
    if (!m_wake) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    m_control = std::move(control);
    m_broadcast = std::move(broadcast);
    m_changeAddress = std::move(changeAddress);
    m_stop = false;
    m_thread = std::thread(&GvcpServer::Run, this);
}

void GvcpServer::Stop()
{
    if (!m_thread.joinable()) {
        return;
    }
    m_stop = true;
    eventfd_write(m_wake.Get(), 1);
    m_thread.join();
    m_timers.clear();
    m_broadcast.Reset();
    const std::lock_guard<std::mutex> lock(m_sendMutex);
    m_control.Reset();
}

bool GvcpServer::IsControlled() const
{
    return (m_registers.Get(Bootstrap::kControlPrivilege) &
            (Bootstrap::kControlAccess | Bootstrap::kExclusiveAccess)) != 0;
}

void GvcpServer::SendRaw(const void* pData, std::size_t size)
{
    const auto* pBytes = static_cast<const std::uint8_t*>(pData);
    Send({pBytes, pBytes + size},
         MakeAddress(m_registers.Get(Bootstrap::kPrimaryAddress),
                     static_cast<std::uint16_t>(m_registers.Get(Bootstrap::kPrimaryPort))));
}

void GvcpServer::Run()
{
    while (!m_stop) {
        std::array<pollfd, 3> waits{
            {
             {m_control.Get(), POLLIN, 0},
             {m_broadcast.Get(), POLLIN, 0},
             {m_wake.Get(), POLLIN, 0},
             }
        };
        poll(waits.data(), waits.size(), NextWait());
        RunTimers();
        CheckHeartbeat();
        if ((waits[0].revents & (POLLIN | POLLERR)) != 0) {
            ReceiveFrom(m_control);
        }
        if ((waits[1].revents & POLLIN) != 0) {
            ReceiveFrom(m_broadcast);
        }
    }
}

/// Milliseconds until the next timer; the heartbeat is looked at every 20 ms.
int GvcpServer::NextWait() const
{
    constexpr std::int64_t kHeartbeatLook = 20;
    constexpr std::int64_t kIdle = 1000;
    const std::int64_t wait = IsControlled() ? kHeartbeatLook : kIdle;
    if (m_timers.empty()) {
        return static_cast<int>(wait);
    }
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(m_timers.begin()->first - Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count() + 1, 0, wait));
}

void GvcpServer::RunTimers()
{
    while (!m_timers.empty() && m_timers.begin()->first <= Clock::now()) {
        const auto work = std::move(m_timers.begin()->second);
        m_timers.erase(m_timers.begin());
        work();
    }
}

void GvcpServer::After(std::chrono::milliseconds time, std::function<void()> work)
{
    m_timers.emplace(Clock::now() + time, std::move(work));
}

void GvcpServer::CheckHeartbeat()
{
    const bool off = Can(GvcpCap::kHeartbeatDisable) &&
                     (m_registers.Get(Bootstrap::kGvcpConfiguration) & Bootstrap::kHeartbeatOff) != 0;
    if (off || !IsControlled()) {
        return;
    }
    const std::chrono::milliseconds timeout(
        std::max(m_registers.Get(Bootstrap::kHeartbeatTimeout), m_config.minHeartbeatTimeout));
    if (Clock::now() - Clock::time_point(Clock::duration(m_lastHeard)) > timeout) {
        m_tally.Add(&Counters::heartbeatsLost);
        m_registers.Force(Bootstrap::kControlPrivilege, 0);
    }
}

void GvcpServer::ReceiveFrom(const Descriptor& socket)
{
    Request request;
    request.datagram.resize(2048);
    socklen_t fromSize = sizeof request.from;
    const ssize_t got = recvfrom(socket.Get(), request.datagram.data(), request.datagram.size(), MSG_DONTWAIT,
                                 reinterpret_cast<sockaddr*>(&request.from), &fromSize);
    if (got < 0 || m_cable.IsOut()) {
        return;
    }
    request.datagram.resize(static_cast<std::size_t>(got));
    if (Parse(request)) {
        Handle(request);
    } else {
        m_tally.Add(&Counters::badCommands);
    }
}

bool GvcpServer::Parse(Request& request)
{
    Bytes& datagram = request.datagram;
    if (datagram.size() < 8 || datagram[0] != kKey) {
        return false;
    }
    request.flags = datagram[1];
    request.command = Get16(&datagram[2]);
    request.id = Get16(&datagram[6]);
    const std::size_t length = Get16(&datagram[4]);
    return request.id != 0 &&
           (length == request.BodySize() || (length == 0 && IsLengthOptional(request.command)));
}

void GvcpServer::Handle(const Request& request)
{
    if (IsControlled() && IsHolder(request.from)) {
        TouchHeartbeat();
    }
    const bool hasAddress =
        request.command >= kReadReg && request.command <= kWriteMem && request.BodySize() >= 4;
    const ControlFault fault = m_faults.Take(request.command, hasAddress ? Get32(request.Body()) : 0);
    if (fault.fault == AnswerFault::Ignore) {
        return;
    }
    // A command that comes again because its answer was lost isn't carried out again.
    if (request.datagram == m_lastRequest.datagram && IsSame(request.from, m_lastRequest.from) &&
        Clock::now() - m_lastTime < kRepeatTime) {
        m_tally.Add(&Counters::repeated);
        Deliver(request, m_lastAnswer, fault);
        return;
    }
    Answer answer;
    if (fault.fault == AnswerFault::Status) {
        answer.status = fault.status;
    } else {
        answer = Execute(request);
    }
    if (answer.status != Status::kSuccess) {
        m_tally.Add(&Counters::refused);
    }
    if ((request.flags & kAckWanted) == 0 || answer.silent) {
        return;
    }
    m_lastRequest = request;
    m_lastAnswer = Encode(request, answer);
    m_lastTime = Clock::now();
    Deliver(request, m_lastAnswer, fault);
}

GvcpServer::Answer GvcpServer::Execute(const Request& request)
{
    const auto refuse = [](std::uint16_t status) {
        Answer answer;
        answer.status = status;
        return answer;
    };
    const auto count = [this](std::uint64_t Counters::*pWhich) { m_tally.Add(pWhich); };
    if (request.BodySize() > kMaxBody) {
        return refuse(Status::kInvalidHeader);
    }
    switch (request.command) {
        case kDiscovery:
            count(&Counters::discoveries);
            return Discover();
        case kForceIp:
            return ForceIp(request);
        case kPacketResend:
            return Resend(request);
        case kReadReg:
            count(&Counters::readRegs);
            return MayRead(request) ? ReadRegisters(request) : refuse(Status::kAccessDenied);
        case kWriteReg:
            count(&Counters::writeRegs);
            return WriteRegisters(request);
        case kReadMem:
            count(&Counters::readMems);
            return MayRead(request) ? ReadMemory(request) : refuse(Status::kAccessDenied);
        case kWriteMem:
            count(&Counters::writeMems);
            return Can(GvcpCap::kWriteMem) ? WriteMemory(request) : refuse(Status::kNotImplemented);
        case kAction:
            return Can(GvcpCap::kAction) ? Act(request) : refuse(Status::kNotImplemented);
        default:
            count(&Counters::badCommands);
            return refuse(Status::kNotImplemented);
    }
}

GvcpServer::Answer GvcpServer::Discover() const
{
    Answer answer;
    answer.body.resize(Bootstrap::kDiscoveryBytes);
    for (std::uint32_t address = 0; address < Bootstrap::kDiscoveryBytes; address += 4) {
        Put32(&answer.body[address], m_registers.Get(address));
    }
    return answer;
}

GvcpServer::Answer GvcpServer::ForceIp(const Request& request)
{
    Answer answer;
    const std::uint8_t* pBody = request.Body();
    if (request.BodySize() != 56) {
        answer.status = Status::kInvalidHeader;
        return answer;
    }
    if (Get16(pBody + 2) != m_registers.Get(Bootstrap::kMacHigh) ||
        Get32(pBody + 4) != m_registers.Get(Bootstrap::kMacLow)) {
        answer.silent = true;  // meant for another camera
        return answer;
    }
    m_tally.Add(&Counters::forceIps);
    if (IsControlled()) {
        answer.status = Status::kAccessDenied;
        return answer;
    }
    const std::uint32_t address = Get32(pBody + 20);
    if (address == 0 || !m_config.applyForceIp) {
        return answer;
    }
    Network::Sockets sockets = m_changeAddress(address, Get32(pBody + 36));
    if (!sockets.control) {
        answer.status = Status::kAccessDenied;
        return answer;
    }
    m_registers.Set(Bootstrap::kGateway, Get32(pBody + 52));
    m_broadcast = std::move(sockets.broadcast);
    const std::lock_guard<std::mutex> lock(m_sendMutex);
    m_control = std::move(sockets.control);
    return answer;
}

GvcpServer::Answer GvcpServer::ReadRegisters(const Request& request) const
{
    Answer answer;
    const std::size_t size = request.BodySize();
    if (size == 0 || size % 4 != 0) {
        answer.status = Status::kInvalidHeader;
        return answer;
    }
    if (size > 4 && !Can(GvcpCap::kConcatenation)) {
        answer.status = Status::kNotImplemented;
        return answer;
    }
    for (std::size_t at = 0; at < size; at += 4) {
        std::uint32_t value = 0;
        answer.status = m_registers.ReadRegister(Get32(request.Body() + at), value);
        if (answer.status != Status::kSuccess) {
            break;  // the registers before it are answered
        }
        answer.body.resize(at + 4);
        Put32(&answer.body[at], value);
    }
    return answer;
}

GvcpServer::Answer GvcpServer::WriteRegisters(const Request& request)
{
    Answer answer;
    const std::size_t size = request.BodySize();
    std::size_t at = 0;
    if (size == 0 || size % 8 != 0) {
        answer.status = Status::kInvalidHeader;
    } else if (size > 8 && !Can(GvcpCap::kConcatenation)) {
        answer.status = Status::kNotImplemented;
    }
    while (answer.status == Status::kSuccess && at < size) {
        answer.status = WriteWord(request, Get32(request.Body() + at), request.Body() + at + 4, false);
        at += answer.status == Status::kSuccess ? 8 : 0;
    }
    answer.body = Index(at / 8);
    return answer;
}

GvcpServer::Answer GvcpServer::ReadMemory(const Request& request) const
{
    Answer answer;
    if (request.BodySize() != 8) {
        answer.status = Status::kInvalidHeader;
        return answer;
    }
    const std::uint32_t address = Get32(request.Body());
    const std::uint32_t count = Get16(request.Body() + 6);
    if (count == 0 || count > kMaxMemory) {
        answer.status = Status::kInvalidParameter;
        return answer;
    }
    Bytes body(4 + count);
    Put32(body.data(), address);
    answer.status = m_registers.ReadMemory(address, body.data() + 4, count);
    if (answer.status == Status::kSuccess) {
        answer.body = std::move(body);
    }
    return answer;
}

GvcpServer::Answer GvcpServer::WriteMemory(const Request& request)
{
    Answer answer;
    const std::size_t size = request.BodySize();
    std::size_t at = 4;
    if (size <= 4) {
        answer.status = Status::kInvalidHeader;
    } else if (size % 4 != 0) {
        answer.status = Status::kBadAlignment;
    }
    while (answer.status == Status::kSuccess && at < size) {
        const auto offset = static_cast<std::uint32_t>(at - 4);
        answer.status = WriteWord(request, Get32(request.Body()) + offset, request.Body() + at, true);
        at += answer.status == Status::kSuccess ? 4 : 0;
    }
    answer.body = Index(at - 4);
    return answer;
}

/// \param memory the word has the camera's byte order instead of the network's
std::uint16_t GvcpServer::WriteWord(const Request& request,
                                    std::uint32_t address,
                                    const std::uint8_t* pWord,
                                    bool memory)
{
    const bool isPrivilege = address == Bootstrap::kControlPrivilege;
    const bool wasControlled = IsControlled();
    if (wasControlled ? !IsHolder(request.from) : !isPrivilege) {
        return Status::kAccessDenied;
    }
    if (isPrivilege) {
        m_registers.Set(Bootstrap::kPrimaryAddress, ntohl(request.from.sin_addr.s_addr));
        m_registers.Set(Bootstrap::kPrimaryPort, ntohs(request.from.sin_port));
    }
    const std::uint16_t status =
        memory ? m_registers.WriteWord(address, pWord) : m_registers.WriteRegister(address, Get32(pWord));
    if (isPrivilege && !wasControlled && IsControlled()) {
        m_tally.Add(&Counters::controlTaken);
    }
    return status;
}

GvcpServer::Answer GvcpServer::Resend(const Request& request)
{
    Answer answer;
    answer.silent = true;  // the packets are the answer
    const bool extended = (request.flags & kExtendedIds) != 0;
    const std::uint8_t* pBody = request.Body();
    m_tally.Add(&Counters::resendCommands);
    if (request.BodySize() != (extended ? 20u : 12u) || !Can(GvcpCap::kPacketResend) ||
        !IsHolder(request.from)) {
        answer.status = Status::kInvalidHeader;
        return answer;
    }
    ResendRequest wanted;
    wanted.extended = extended;
    wanted.blockId = extended ? Get64(pBody + 12) : Get16(pBody + 2);
    wanted.firstPacket = Get32(pBody + 4);
    wanted.lastPacket = Get32(pBody + 8);
    m_sender.Resend(wanted);
    return answer;
}

GvcpServer::Answer GvcpServer::Act(const Request& request)
{
    Answer answer;
    const bool scheduled = (request.flags & kScheduled) != 0;
    const std::uint8_t* pBody = request.Body();
    if (request.BodySize() != (scheduled ? 20u : 12u)) {
        answer.status = Status::kInvalidHeader;
        return answer;
    }
    const bool isUnconditional =
        (m_registers.Get(Bootstrap::kGvcpConfiguration) & Bootstrap::kUnconditionalAction) != 0;
    if (Get32(pBody) != m_registers.Get(Bootstrap::kActionDeviceKey) ||
        Get32(pBody + 4) != m_registers.Get(Bootstrap::kActionGroupKey) ||
        (Get32(pBody + 8) & m_registers.Get(Bootstrap::kActionGroupMask)) == 0 ||
        !(isUnconditional || IsControlled())) {
        answer.silent = true;  // meant for others
        return answer;
    }
    const auto act = [this] {
        m_tally.Add(&Counters::actions);
        m_sender.Trigger(1);
    };
    const std::uint64_t now = m_registers.Ticks();
    const std::uint64_t time = scheduled ? Get64(pBody + 12) : now;
    if (time <= now) {
        answer.status = time < now ? Status::kActionLate : Status::kSuccess;
        act();
    } else {
        const double milliseconds =
            1000.0 * static_cast<double>(time - now) / static_cast<double>(m_registers.TickFrequency());
        After(std::chrono::milliseconds(static_cast<std::int64_t>(std::min(milliseconds, 1e9))), act);
    }
    return answer;
}

bool GvcpServer::Can(std::uint32_t capability) const
{
    return (m_registers.Get(Bootstrap::kGvcpCapability) & capability) != 0;
}

bool GvcpServer::IsHolder(const sockaddr_in& who) const
{
    return ntohl(who.sin_addr.s_addr) == m_registers.Get(Bootstrap::kPrimaryAddress) &&
           ntohs(who.sin_port) == m_registers.Get(Bootstrap::kPrimaryPort);
}

bool GvcpServer::MayRead(const Request& request) const
{
    const bool exclusive = (m_registers.Get(Bootstrap::kControlPrivilege) & Bootstrap::kExclusiveAccess) != 0;
    return !exclusive || IsHolder(request.from);
}

GvcpServer::Bytes GvcpServer::Encode(const Request& request, const Answer& answer) const
{
    Bytes datagram(8 + answer.body.size());
    Put16(&datagram[0], answer.status);
    Put16(&datagram[2], request.command + 1u);
    Put16(&datagram[4], static_cast<std::uint32_t>(answer.body.size()));
    Put16(&datagram[6], request.id);
    std::copy(answer.body.begin(), answer.body.end(), datagram.begin() + 8);
    return datagram;
}

sockaddr_in GvcpServer::AnswerAddress(const Request& request) const
{
    const bool canBroadcast = request.command == kDiscovery || request.command == kForceIp;
    if (canBroadcast && (request.flags & kBroadcastAckAllowed) != 0 &&
        m_config.answerByBroadcast == AnswerByBroadcast::WhenAllowed) {
        return MakeAddress(INADDR_BROADCAST, ntohs(request.from.sin_port));
    }
    return request.from;
}

void GvcpServer::Deliver(const Request& request, const Bytes& answer, const ControlFault& fault)
{
    const sockaddr_in to = AnswerAddress(request);
    Bytes changed = answer;
    switch (fault.fault) {
        case AnswerFault::Lose:
            m_tally.Add(&Counters::answersLost);
            return;
        case AnswerFault::Late:
            After(std::chrono::milliseconds(fault.ms), [this, answer, to] { Send(answer, to); });
            return;
        case AnswerFault::Pending:
            DeliverPending(request, answer, fault);
            return;
        case AnswerFault::Stale:
            Put16(&changed[6], request.id - 1u);
            Send(changed, to);
            break;
        case AnswerFault::Duplicate:
            Send(answer, to);
            break;
        case AnswerFault::WrongAck:
            Put16(&changed[2], fault.ackCode);
            Send(changed, to);
            return;
        case AnswerFault::Truncate:
            changed.resize(std::min<std::size_t>(changed.size(), fault.bytes));
            Send(changed, to);
            return;
        default:
            break;
    }
    Send(answer, to);
}

void GvcpServer::DeliverPending(const Request& request, const Bytes& answer, const ControlFault& fault)
{
    Bytes pending(12);
    Put16(&pending[2], kPendingAck);
    Put16(&pending[4], 4);
    Put16(&pending[6], request.id);
    Put16(&pending[10], fault.ms);
    const sockaddr_in to = AnswerAddress(request);
    for (std::uint32_t i = 0; i < fault.count; ++i) {
        After(std::chrono::milliseconds(i * fault.spacingMs), [this, pending, to] {
            m_tally.Add(&Counters::pendingAcks);
            Send(pending, to);
        });
    }
    After(std::chrono::milliseconds(fault.count * fault.spacingMs), [this, answer, to] { Send(answer, to); });
}

void GvcpServer::Send(const Bytes& datagram, const sockaddr_in& to)
{
    const std::lock_guard<std::mutex> lock(m_sendMutex);
    if (m_cable.IsOut() || !m_control) {
        return;
    }
    if (sendto(m_control.Get(), datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to),
               sizeof to) >= 0) {
        m_tally.Add(&Counters::answers);
    }
}

}  // namespace sim
