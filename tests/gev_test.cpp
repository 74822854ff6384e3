/// The control channel against a scripted camera: bytes on the wire, retries, hostile answers, handles.
#include "CameraRecord.h"
#include "Hex.h"
#include "frame/Error.h"
#include "gev/HALGev.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <deque>
#include <future>
#include <limits>
#include <mutex>
#include <thread>

using namespace GenTL;
using testing::ElementsAre;
using testing::EndsWith;
using testing::SizeIs;

namespace {

using Clock = std::chrono::steady_clock;

/// An address of this process's own on the loopback, so that tests can run side by side.
sockaddr_in LoopbackAddress(unsigned host, unsigned short port)
{
    const auto pid = static_cast<unsigned>(getpid());
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(0x7F000000U | (pid & 0x3FFFU) << 8 | host);
    return address;
}

std::string Text(const sockaddr_in& address)
{
    return inet_ntoa(address.sin_addr);
}

/// A GVCP peer that answers each command with the next entry of its script, and silence after its end.
class Peer
{
public:
    /// The datagrams that answer one command. An id of 00 00, at bytes 6 and 7, becomes the command's.
    using Answer = std::vector<Bytes>;

    Peer() : m_address(LoopbackAddress(2, 3956)), m_socket(socket(AF_INET, SOCK_DGRAM, 0))
    {
        EXPECT_EQ(0, bind(m_socket, reinterpret_cast<const sockaddr*>(&m_address), sizeof m_address));
        m_thread = std::thread([this] { Run(); });
    }
    ~Peer()
    {
        shutdown(m_socket, SHUT_RDWR);
        m_thread.join();
        close(m_socket);
    }

    void Script(std::vector<Answer> answers)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_script.assign(answers.begin(), answers.end());
        m_received.clear();
    }
    std::vector<Bytes> Received()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_received;
    }
    /// Waits for what an unacknowledged command sent.
    Bytes WaitForOne()
    {
        for (int i = 0; i < 5000 && Received().empty(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        const auto received = Received();
        return received.empty() ? Bytes{} : received.front();
    }
    const sockaddr_in& Address() const { return m_address; }

private:
    void Run()
    {
        for (;;) {
            unsigned char buffer[2048];
            sockaddr_in sender{};
            socklen_t size = sizeof sender;
            const ssize_t got =
                recvfrom(m_socket, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&sender), &size);
            if (got <= 0) {
                return;
            }
            const Bytes command(buffer, buffer + got);
            for (Bytes answer : Next(command)) {
                if (answer.size() >= 8 && answer[6] == 0 && answer[7] == 0) {
                    answer[6] = command[6];
                    answer[7] = command[7];
                }
                sendto(m_socket, answer.data(), answer.size(), 0, reinterpret_cast<sockaddr*>(&sender), size);
            }
        }
    }
    Answer Next(const Bytes& command)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_received.push_back(command);
        Answer answer;
        if (!m_script.empty()) {
            answer = m_script.front();
            m_script.pop_front();
        }
        return answer;
    }

    sockaddr_in m_address;
    int m_socket;
    std::mutex m_mutex;
    std::deque<Answer> m_script;
    std::vector<Bytes> m_received;
    std::thread m_thread;
};

/// An adapter on the loopback whose list holds the peer, opened as a device.
class ControlChannel : public testing::Test
{
protected:
    ControlChannel()
    {
        ErrorCache::ReleaseErrorCache();
        m_pHal->SetGvcpRetries(3);
        auto adapter = std::make_unique<AdapterHandle>();
        adapter->m_localAddress = LoopbackAddress(1, 0);
        adapter->m_pSocket = std::make_unique<CommSocket>();
        EXPECT_EQ(0, adapter->m_pSocket->OpenAndBindSocket(adapter->m_localAddress, Text(m_peer.Address()),
                                                           3956, true, 200));
        adapter->m_devices.push_back({adapter->m_localAddress, "SN1", Record("SN1")});
        adapter->m_requestId = 0x1233;
        m_adapter = ToHandle(adapter.release());
        EXPECT_EQ(0, m_pHal->OpenDevice(m_adapter, "SN1", &m_device));
        m_pHal->SetConnected(m_device, true);
    }
    ~ControlChannel() override
    {
        if (m_device != nullptr) {
            EXPECT_EQ(0, m_pHal->CloseDevice(m_device));
        }
        if (m_adapter != nullptr) {
            EXPECT_EQ(0, m_pHal->CloseInterface(m_adapter));
        }
        HALGev::Dispose(m_pHal);
    }

    /// A camera at the peer's address.
    DiscoveryRecord Record(const std::string& serial) const
    {
        return CameraRecord(serial, &m_peer.Address().sin_addr);
    }
    bool IsConnected()
    {
        bool isConnected = false;
        EXPECT_EQ(0, m_pHal->IsConnected(m_device, isConnected));
        return isConnected;
    }
    int TimeoutNow()
    {
        int previous = 0;
        EXPECT_EQ(0, ToDevice(m_device)->m_pSocket->SetTimeout(200, previous));
        return previous;
    }
    static std::string LastMessage()
    {
        Error e;
        ErrorCache::GetErrorCache()->Peak(e);
        return e.Message();
    }

    Peer m_peer;
    IHALGev* m_pHal = new HALGev();
    void* m_adapter = nullptr;
    void* m_device = nullptr;
};

// ---- what goes out and what becomes of the answer

constexpr unsigned kUntouched = 0xAAAAAAAA;

/// The operations as the cases run them. The words that one hands back are in m_output.
class Operation : public ControlChannel
{
public:
    int ReadReg() { return m_pHal->ReadReg(m_device, 0x0A00, m_output[0]); }
    int ReadBlock() { return m_pHal->ReadRegBlock(m_device, 0x9000, m_output.data(), 2); }
    int ReadMem() { return m_pHal->ReadMem(m_device, 0x0200, reinterpret_cast<char*>(m_output.data()), 10); }
    int WriteReg() { return m_pHal->WriteReg(m_device, 0x0A00, 0x80000002); }
    // The values go out as they lie in memory: on this host low byte first.
    int WriteBlock() { return m_pHal->WriteRegBlock(m_device, 0x0D00, kWords, 2); }
    int WriteMem() { return m_pHal->WriteMem(m_device, 0x00E8, "abcde", 5); }
    int Resend() { return m_pHal->SendPacketResend(m_device, 0x12345, 7, 9, false); }
    int LongResend() { return m_pHal->SendPacketResend(m_device, 0x102030405060708, 7, 0x1000009, true); }
    int Action() { return m_pHal->SendActionCommand(m_device, 1, 2, 0xFFFFFFFF, 0); }
    int TimedAction() { return m_pHal->SendActionCommand(m_device, 1, 2, 3, 0x1122334455); }
    int ForceIp()
    {
        return m_pHal->ForceIP(m_adapter, 0x8011, 0x22334455, 0xC0A80105, 0xFFFFFF00, 0xC0A80101);
    }

protected:
    std::vector<unsigned> m_output = std::vector<unsigned>(3, kUntouched);

private:
    static constexpr unsigned kWords[] = {0x04030201, 0x08070605};
};

struct Case
{
    const char* name;
    int (Operation::*run)();
    std::vector<const char*> answers;
    int code;
    const char* command = nullptr;      // null: not looked at
    std::vector<unsigned> output = {};  // words that aren't named stay untouched
    std::size_t sent = 1;
};

class Transaction : public Operation, public testing::WithParamInterface<Case>
{
};

TEST_P(Transaction, SendsTheseBytesAndJudgesTheAnswer)
{
    Peer::Answer answer;
    for (const char* text : GetParam().answers) {
        answer.push_back(Hex(text));
    }
    m_pHal->SetDeviceTimeout(m_device, 100);
    m_peer.Script({answer});
    EXPECT_EQ(GetParam().code, (this->*GetParam().run)());
    std::vector<unsigned> output = GetParam().output;
    output.resize(m_output.size(), kUntouched);
    EXPECT_EQ(output, m_output);
    const Bytes first = m_peer.WaitForOne();
    EXPECT_THAT(m_peer.Received(), SizeIs(GetParam().sent));
    if (GetParam().command != nullptr) {
        EXPECT_EQ(Hex(GetParam().command), first);
    }
}

using Op = Operation;

constexpr const char* kGoodWrite = "00 00 00 83 00 04 00 00 00 00 00 01";

// clang-format off
const Case kCases[] = {
    {"ReadReg", &Op::ReadReg, {"00 00 00 81 00 04 00 00 80 00 00 02"}, 0,
     "42 01 00 80 00 04 12 34 00 00 0a 00", {0x80000002}},
    {"WriteReg", &Op::WriteReg, {kGoodWrite}, 0, "42 01 00 82 00 08 12 34 00 00 0a 00 80 00 00 02"},
    {"ReadBlock", &Op::ReadBlock, {"00 00 00 81 00 08 00 00 00 00 00 01 01 02 03 04"}, 0,
     "42 01 00 80 00 08 12 34 00 00 90 00 00 00 90 04", {1, 0x01020304}},
    {"WriteBlock", &Op::WriteBlock, {"00 00 00 83 00 04 00 00 00 00 00 02"}, 0,
     "42 01 00 82 00 10 12 34 00 00 0d 00 01 02 03 04 00 00 0d 04 05 06 07 08"},
    {"ReadMemOfTenBytes", &Op::ReadMem,
     {"00 00 00 85 00 10 00 00 00 00 02 00 01 02 03 04 05 06 07 08 09 0a 0b 0c"}, 0,
     "42 01 00 84 00 08 12 34 00 00 02 00 00 00 00 0c", {0x04030201, 0x08070605, 0xAAAA0A09}},
    {"WriteMemOfFiveBytes", &Op::WriteMem, {"00 00 00 87 00 04 00 00 00 00 00 05"}, 0,
     "42 01 00 86 00 0c 12 34 00 00 00 e8 61 62 63 64 65 00 00 00"},
    {"Resend", &Op::Resend, {}, 0, "42 00 00 40 00 0c 12 34 00 00 23 45 00 00 00 07 00 00 00 09"},
    {"LongResend", &Op::LongResend, {}, 0,
     "42 10 00 40 00 14 12 34 00 00 00 00 00 00 00 07 01 00 00 09 01 02 03 04 05 06 07 08"},
    {"Action", &Op::Action, {"00 00 01 01 00 00 00 00"}, 0,
     "42 01 01 00 00 00 12 34 00 00 00 01 00 00 00 02 ff ff ff ff"},
    {"TimedAction", &Op::TimedAction, {"00 00 01 01 00 00 00 00"}, 0,
     "42 81 01 00 00 00 12 34 00 00 00 01 00 00 00 02 00 00 00 03 00 00 00 11 22 33 44 55"},
    {"ForceIp", &Op::ForceIp, {"00 00 00 05 00 00 00 00"}, 0,
     "42 11 00 04 00 00 12 34 00 00 80 11 22 33 44 55 00 00 00 00 00 00 00 00 00 00 00 00 "
     "c0 a8 01 05 00 00 00 00 00 00 00 00 00 00 00 00 ff ff ff 00 00 00 00 00 00 00 00 00 00 00 00 00 "
     "c0 a8 01 01"},
    // ReadReg has the sense of the length reversed.
    {"ReadRegStatusWithValue", &Op::ReadReg, {"80 03 00 81 00 04 00 00 00 00 00 00"}, GC_ERR_INVALID_BUFFER},
    {"ReadRegStatusAlone", &Op::ReadReg, {"80 03 00 81 00 00 00 00"}, GC_ERR_INVALID_ADDRESS},
    {"ReadRegSuccessOfWrongLength", &Op::ReadReg, {"00 00 00 81 00 08 00 00 00 00 00 01"}, 0},
    {"WriteRegStatusAlone", &Op::WriteReg, {"80 06 00 83 00 00 00 00"}, GC_ERR_INVALID_BUFFER},
    {"ReadBlockLongerThanAsked", &Op::ReadBlock, {"00 00 00 81 ff fc 00 00"}, GC_ERR_INVALID_BUFFER},
    {"ReadMemShorterThanAsked", &Op::ReadMem, {"00 00 00 85 00 08 00 00 00 00 02 00 01 02 03 04"},
     GC_ERR_INVALID_BUFFER},
    {"BusyIsNotTriedAgain", &Op::WriteReg, {"80 07 00 83 00 04 00 00 00 00 00 00"}, GC_ERR_BUSY},
    {"UnknownStatus", &Op::WriteReg, {"81 23 00 83 00 04 00 00 00 00 00 00"}, GC_ERR_ERROR},
    {"OtherAcknowledge", &Op::WriteReg, {"00 00 00 81 00 04 00 00 00 00 00 00"}, -9998},
    // Late answers are dropped while the wait goes on; a block write doesn't look.
    {"LateAnswerFirst", &Op::WriteReg, {"00 00 00 83 00 04 12 33 00 00 00 01", kGoodWrite}, 0},
    {"LateAnswerToABlock", &Op::WriteBlock, {"00 00 00 83 00 04 12 33 00 00 00 01"}, 0},
    {"CutAnswersFirst", &Op::WriteReg,
     {"", "00", "00 00 00 83", "00 00 00 83 00 04", "00 00 00 83 00 04 12", kGoodWrite}, 0},
    // A status that means a time-out is tried again as one; the script has an answer for one attempt only.
    {"ActionLateIsTriedAgain", &Op::WriteReg,
     {"80 16 00 83 00 04 00 00 00 00 00 00"}, GC_ERR_TIMEOUT, nullptr, {}, 4},
    {"ActionTakesTheFirstAnswer", &Op::Action,
     {"00 00 01 01 00 00 12 33", "00 00 01 01 00 00 00 00"}, GC_ERR_INVALID_VALUE},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Wire, Transaction, testing::ValuesIn(kCases), [](const auto& row) {
    return row.param.name;
});

TEST_F(ControlChannel, TellsTheAnswerInTheErrorText)
{
    m_peer.Script({{Hex("80 07 00 83 00 04 00 00 00 00 00 00")}, {Hex("80 06 01 01 00 00 00 00")}});
    m_pHal->WriteReg(m_device, 0xA00, 1);
    EXPECT_THAT(LastMessage(), testing::StartsWith("WriteReg():"));
    EXPECT_THAT(LastMessage(),
                EndsWith(": GenTL::HALGev::WriteReg Ack is invalid: -1019 : address: 0xa00, ACK = 0x83, "
                         "status = 0x8007, ack_id = 0x1234, length = 0x4"));
    m_pHal->SendActionCommand(m_device, 1, 2, 3, 0);
    EXPECT_THAT(LastMessage(),
                EndsWith(": GenTL::HALGev::SendActionCommand Ack is invalid: -1019 : , ACK = 257, "
                         "status = 32774, ack_id = 4661, length = 0"));
}

// ---- time-outs

TEST_F(ControlChannel, RepeatsTheSameCommandAndThenCallsTheCameraLost)
{
    m_pHal->SetDeviceTimeout(m_device, 20);
    unsigned value = 7;
    EXPECT_EQ(GC_ERR_TIMEOUT, m_pHal->ReadReg(m_device, 0xA00, value));
    const Bytes command = Hex("42 01 00 80 00 04 12 34 00 00 0a 00");
    EXPECT_THAT(m_peer.Received(), ElementsAre(command, command, command, command));
    EXPECT_THAT(LastMessage(), EndsWith(": GenTL::HALGev::ReadReg Ack is invalid: -1019 : "));
    EXPECT_FALSE(IsConnected());
    EXPECT_EQ(7U, value);

    m_peer.Script({{Hex("00 00 00 81 00 04 00 00 00 00 00 01")}});
    EXPECT_EQ(0, m_pHal->ReadReg(m_device, 0xA00, value));
    EXPECT_FALSE(IsConnected()) << "an answer alone doesn't make a lost camera a connected one";
}

TEST_F(ControlChannel, CountsTimeoutsInARowOverTransactions)
{
    m_pHal->SetGvcpRetries(0);
    m_pHal->SetDeviceTimeout(m_device, 20);
    unsigned value = 0;
    // One answer in between, even a refusal, starts the count anew.
    m_peer.Script({{}, {}, {Hex("80 07 00 81 00 00 00 00")}, {}, {}, {}});
    const int codes[] = {GC_ERR_TIMEOUT, GC_ERR_TIMEOUT, GC_ERR_BUSY, GC_ERR_TIMEOUT, GC_ERR_TIMEOUT};
    for (const int code : codes) {
        EXPECT_EQ(code, m_pHal->ReadReg(m_device, 0xA00, value));
        EXPECT_TRUE(IsConnected());
    }
    EXPECT_EQ(GC_ERR_TIMEOUT, m_pHal->ReadReg(m_device, 0xA00, value));
    EXPECT_FALSE(IsConnected());
}

TEST_F(ControlChannel, RestoresTheTimeoutThatPendingReplaced)
{
    const Bytes pending500 = Hex("00 00 00 89 00 04 00 00 00 00 01 f4");
    const Bytes pending40 = Hex("00 00 00 89 00 04 00 00 00 00 00 28");
    const Bytes pending0 = Hex("00 00 00 89 00 04 00 00 00 00 00 00");
    const struct
    {
        Peer::Answer datagrams;
        int code, ms;
    } cases[] = {
        {{pending500, pending40, Hex("00 00 00 81 00 04 00 00 00 00 00 01")}, GC_ERR_SUCCESS, 0  },
        {{pending40, pending500},                                             GC_ERR_TIMEOUT, 490},
        {{pending0},                                                          GC_ERR_TIMEOUT, 190}, // not endless
    };
    m_pHal->SetGvcpRetries(0);
    for (const auto& c : cases) {
        m_peer.Script({c.datagrams});
        const auto start = Clock::now();
        unsigned value = 0;
        EXPECT_EQ(c.code, m_pHal->ReadReg(m_device, 0xA00, value));
        EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(c.ms));
        EXPECT_EQ(200, TimeoutNow());
    }
    // An action keeps its own.
    m_peer.Script({
        {pending500, Hex("00 00 01 01 00 00 00 00")}
    });
    EXPECT_EQ(0, m_pHal->SendActionCommand(m_device, 1, 2, 3, 0));
    EXPECT_EQ(2000, TimeoutNow());
}

// ---- limits

TEST_F(ControlChannel, RefusesWhatDoesNotFitADatagramWithNothingSent)
{
    std::vector<unsigned> values(200, 0xAAAAAAAA);
    std::vector<char> data(600);
    for (const unsigned long count : {137UL, 0x40000001UL, ~0UL}) {
        EXPECT_EQ(GC_ERR_INVALID_PARAMETER, m_pHal->ReadRegBlock(m_device, 0, values.data(), count));
    }
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, m_pHal->WriteRegBlock(m_device, 0, values.data(), 69));
    for (const unsigned long size : {537UL, ~0UL}) {
        EXPECT_EQ(GC_ERR_INVALID_PARAMETER, m_pHal->ReadMem(m_device, 0, data.data(), size));
        EXPECT_EQ(GC_ERR_INVALID_PARAMETER, m_pHal->WriteMem(m_device, 0, data.data(), size));
    }
    EXPECT_THAT(m_peer.Received(), SizeIs(0));

    Bytes regs = Hex("00 00 00 81 02 20 00 00");
    regs.resize(552, 0x11);
    Bytes memory = Hex("00 00 00 85 02 1c 00 00");
    // Longer than said and than asked for.
    memory.resize(1400, 0x22);
    m_peer.Script({{regs}, {Hex(kGoodWrite)}, {memory}, {Hex("00 00 00 87 00 04 00 00 00 00 02 18")}});
    EXPECT_EQ(0, m_pHal->ReadRegBlock(m_device, 0, values.data(), 136));
    EXPECT_EQ(0x11111111U, values[135]);
    EXPECT_EQ(0xAAAAAAAAU, values[136]);
    EXPECT_EQ(0, m_pHal->WriteRegBlock(m_device, 0, values.data(), 68));
    EXPECT_EQ(0, m_pHal->ReadMem(m_device, 0, data.data(), 536));
    EXPECT_EQ(0x22, data[535]);
    EXPECT_EQ(0, data[536]);
    EXPECT_EQ(0, m_pHal->WriteMem(m_device, 0, data.data(), 536));
    EXPECT_THAT(m_peer.Received(), ElementsAre(SizeIs(552), SizeIs(552), SizeIs(16), SizeIs(548)));
}

// ---- ends

TEST_F(ControlChannel, FailsOnceItsSocketIsClosed)
{
    EXPECT_EQ(0, m_pHal->CloseSocket(m_device));
    EXPECT_EQ(GC_ERR_IO, m_pHal->WriteReg(m_device, 0xA00, 1));
    EXPECT_FALSE(IsConnected());
    EXPECT_EQ(GC_ERR_IO, m_pHal->SendPacketResend(m_device, 1, 1, 2, false));
    EXPECT_THAT(LastMessage(), EndsWith(": GenTL::HALGev::SendPacketResend failed: -1010"));
    EXPECT_EQ(GC_ERR_ABORT, m_pHal->SetDeviceTimeout(m_device, 100));
}

// A consumer may close its devices after the system.
TEST_F(ControlChannel, OutlivesItsSystemWhileADeviceIsOpen)
{
    IHALGev* const hal = m_pHal;
    EXPECT_EQ(0, hal->CloseInterface(m_adapter));
    m_adapter = nullptr;
    HALGev::Dispose(m_pHal);
    EXPECT_EQ(nullptr, m_pHal);
    m_peer.Script({{Hex(kGoodWrite)}});
    EXPECT_EQ(0, hal->WriteReg(m_device, 0xA00, 1));
    EXPECT_EQ(0, hal->CloseDevice(m_device));
    m_device = nullptr;
}

TEST_F(ControlChannel, RefusesNullHandlesAndUnknownNames)
{
    unsigned value = 0;
    long number = 0;
    bool flag = false;
    void* handle = nullptr;
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_pHal->ReadReg(nullptr, 0, value));
    EXPECT_EQ("Invalid Handle", LastMessage());
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_pHal->WriteReg(nullptr, 0, value));
    EXPECT_THAT(LastMessage(), EndsWith(": failed to cast hDevice to DeviceHandle*"));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_pHal->CloseDevice(nullptr));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_pHal->CloseInterface(nullptr));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_pHal->GetDevMACAddress(nullptr, "SN1", number));
    EXPECT_EQ(GC_ERR_INVALID_ID, m_pHal->GetDevMACAddress(m_adapter, "SN", number));
    EXPECT_EQ(GC_ERR_INVALID_ID, m_pHal->OpenDevice(m_adapter, "SN", &handle));
    EXPECT_EQ(GC_ERR_INVALID_ID, m_pHal->OpenInterface("0000ffffffff", &handle));
    EXPECT_EQ(GC_ERR_NOT_AVAILABLE, m_pHal->IsConnected(m_adapter, "SN1", flag));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_pHal->IsConnected(nullptr, "SN1", flag));
}

// ---- identity

// By way of the adapter; the tests of the device ask an open camera, and those on a cable for the other
// fields.
TEST_F(ControlChannel, DescribesTheCameraFromItsRecord)
{
    long number = 0;
    EXPECT_EQ(0, m_pHal->GetDevSubnetMask(m_adapter, "SN1", number));
    EXPECT_EQ(0xFFFFFF00, number);
    EXPECT_EQ(0, m_pHal->GetDevDefaultGateway(m_adapter, "SN1", number));
    EXPECT_EQ(0xC0A80101, number);
    bool isDhcp = true, isPersistent = false;
    EXPECT_EQ(0, m_pHal->GetDevIpConfigDHCP(m_adapter, "SN1", isDhcp));
    EXPECT_EQ(0, m_pHal->GetDevIpConfigPersistentIp(m_adapter, "SN1", isPersistent));
    EXPECT_FALSE(isDhcp);
    EXPECT_TRUE(isPersistent);
}

// ---- discovery

class DiscoveryTest : public ControlChannel
{
protected:
    using List = std::vector<std::tuple<std::string, unsigned>>;

    static Bytes Answer(const DiscoveryRecord& record)
    {
        Bytes answer = Hex("00 00 00 03 00 f8 00 00");
        answer.insert(answer.end(), record.begin(), record.end());
        return answer;
    }
};

TEST_F(DiscoveryTest, ListsEveryAnswerAndForgetsTheOldOnes)
{
    m_peer.Script({
        {Answer(Record("SN2")), Answer(Record("SN2"))}
    });
    List devices;
    const auto start = Clock::now();
    EXPECT_EQ(0, m_pHal->GetDevices(m_adapter, devices, 100));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(95));
    EXPECT_EQ(Hex("42 11 00 02 00 00 12 34"), m_peer.WaitForOne());
    const std::tuple<std::string, unsigned> camera("SN2", m_peer.Address().sin_addr.s_addr);
    EXPECT_THAT(devices, ElementsAre(camera, camera));

    void* handle = nullptr;
    EXPECT_EQ(GC_ERR_INVALID_ID, m_pHal->OpenDevice(m_adapter, "SN1", &handle));
    EXPECT_EQ(0, m_pHal->OpenDevice(m_adapter, "SN2", &handle));
    EXPECT_EQ(0x1234, ToDevice(handle)->m_requestId);
    ToDevice(handle)->m_requestId = 0xFFFE;
    EXPECT_EQ(0xFFFF, GetReqID(ToDevice(handle)));
    EXPECT_EQ(0x0001, GetReqID(ToDevice(handle))) << "no id is 0";
    EXPECT_EQ(0, m_pHal->CloseDevice(handle));
    std::string model;
    EXPECT_EQ(0, m_pHal->GetModelName(m_device, model)) << "an open camera keeps its record";

    EXPECT_EQ(0, m_pHal->GetDevices(m_adapter, devices, 20));
    EXPECT_THAT(devices, SizeIs(2)) << "the caller's list is appended to";
    EXPECT_EQ(GC_ERR_INVALID_ID, m_pHal->OpenDevice(m_adapter, "SN2", &handle));
}

TEST_F(DiscoveryTest, BoundsHostileTextsByTheRecord)
{
    DiscoveryRecord full = Record("0123456789ABCDEF");
    std::fill(full.begin() + 232, full.end(), static_cast<unsigned char>('u'));
    // Then a datagram far too long, and one too short, which leaves the bytes before it in place.
    m_peer.Script({
        {Answer(full), Bytes(1400, 0xFF), Hex("00"), Bytes(8 + 218, 'x')}
    });
    List devices;
    EXPECT_EQ(0, m_pHal->GetDevices(m_adapter, devices, 100));
    ASSERT_THAT(devices, SizeIs(4));
    const std::string serial = "0123456789ABCDEF" + std::string(16, 'u');
    const std::string ones(32, '\xFF');
    EXPECT_EQ(serial, std::get<0>(devices[0]));
    EXPECT_EQ(ones, std::get<0>(devices[1]));
    EXPECT_EQ(ones, std::get<0>(devices[2]));
    EXPECT_EQ("xx" + ones.substr(2), std::get<0>(devices[3]));
    for (const std::string& id : {serial, ones}) {
        std::string again;
        EXPECT_EQ(0, m_pHal->GetSerialNumber(m_adapter, id, again));
        EXPECT_EQ(id, again);
    }
}

// Both readers, the one on the broadcast socket too, must let go before the handle is freed.
TEST_F(DiscoveryTest, EndsWhenTheInterfaceIsClosed)
{
    List devices;
    auto running =
        std::async(std::launch::async, [&] { return m_pHal->GetDevices(m_adapter, devices, 60000); });
    m_peer.WaitForOne();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const auto start = Clock::now();
    EXPECT_EQ(0, m_pHal->CloseInterface(m_adapter));
    m_adapter = nullptr;
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(0, running.get());
    EXPECT_THAT(devices, SizeIs(0)) << "a woken read is no answer";
}

TEST_F(DiscoveryTest, GivesInterfaceIdsThatCanBeOpened)
{
    std::vector<std::string> ids;
    ASSERT_EQ(0, m_pHal->GetInterfaces(ids));
    for (const std::string& id : ids) {
        EXPECT_NE("00007f000001", id);
        void* adapter = nullptr;
        ASSERT_EQ(0, m_pHal->OpenInterface(id, &adapter));
        long ip = 0, mask = 0, mac = 0;
        EXPECT_EQ(0, m_pHal->GetIPAddress(adapter, ip));
        EXPECT_EQ(std::stol(id.substr(4, 8), nullptr, 16), ip);
        EXPECT_EQ(0, m_pHal->GetSubnetMask(adapter, mask));
        EXPECT_EQ(0, m_pHal->GetMACAddress(adapter, mac));
        EXPECT_EQ(0, mac >> 48);
        EXPECT_EQ(0, m_pHal->CloseInterface(adapter));
    }
    long mask = 0;
    ToAdapter(m_adapter)->m_localAddress.sin_addr.s_addr = htonl(0xCB007101);
    EXPECT_EQ(GC_ERR_ERROR, m_pHal->GetSubnetMask(m_adapter, mask)) << "an address that the host has lost";
}

// ---- the socket

TEST(ControlSocket, SharesItsPortForBroadcastAlone)
{
    const std::string remote = Text(LoopbackAddress(9, 0));
    CommSocket adapter, broadcast, first, second;
    sockaddr_in any{};
    ASSERT_EQ(0, adapter.OpenAndBindSocket(LoopbackAddress(8, 0), remote, 3956, true, 200));
    ASSERT_EQ(0, broadcast.OpenAndBindSocket(any, remote, 3956, true, 200));
    EXPECT_EQ(adapter.LocalAddress().sin_port, broadcast.LocalAddress().sin_port);
    ASSERT_EQ(0, first.OpenAndBindSocket(LoopbackAddress(9, 0), remote, 3956, false, 200));
    ASSERT_EQ(0, second.OpenAndBindSocket(LoopbackAddress(9, 0), remote, 3956, false, 200));
    EXPECT_LT(ntohs(first.LocalAddress().sin_port), ntohs(second.LocalAddress().sin_port));
}

TEST(ControlSocket, HandsBackTheTimeoutBeforeAndCachesOneUnlessQuiet)
{
    ErrorCache::ReleaseErrorCache();
    CommSocket socket;
    ASSERT_EQ(0, socket.OpenAndBindSocket(LoopbackAddress(8, 0), "127.0.0.1", 3956, false, 1500));
    int previous = 0;
    EXPECT_EQ(0, socket.SetTimeout(std::numeric_limits<int>::max(), previous));
    EXPECT_EQ(1500, previous);
    EXPECT_EQ(0, socket.SetTimeout(8, previous));
    EXPECT_GE(previous, std::numeric_limits<int>::max() - 1000) << "what the kernel rounds up must not wrap";
    char buffer[8];
    EXPECT_EQ(GC_ERR_TIMEOUT, socket.Receive(buffer, sizeof buffer, true));
    EXPECT_EQ(0, ErrorCache::GetErrorCache()->Count());
    EXPECT_EQ(GC_ERR_TIMEOUT, socket.Receive(buffer, sizeof buffer, false));
    EXPECT_EQ(1, ErrorCache::GetErrorCache()->Count());
}

// A program's timers and profilers send signals all the time, also in the middle of an answer's way.
TEST(ControlSocket, WaitsThroughSignalsForOneTimeout)
{
    struct sigaction ignored
    {
    };
    ignored.sa_handler = [](int) {};
    struct sigaction before
    {
    };
    sigaction(SIGALRM, &ignored, &before);
    CommSocket socket;
    ASSERT_EQ(0, socket.OpenAndBindSocket(LoopbackAddress(8, 0), "127.0.0.1", 3956, false, 100));
    const itimerval often{
        {0, 5000},
        {0, 5000}
    };
    const itimerval never{};
    setitimer(ITIMER_REAL, &often, nullptr);
    const auto begin = Clock::now();
    char buffer[8];
    EXPECT_EQ(GC_ERR_TIMEOUT, socket.Receive(buffer, sizeof buffer, true));
    EXPECT_LE(std::chrono::milliseconds(95), Clock::now() - begin);
    EXPECT_GT(std::chrono::seconds(5), Clock::now() - begin);
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
}

TEST(ControlSocket, CloseWakesAReaderAndTouchesNoOtherDescriptor)
{
    CommSocket socket;
    EXPECT_EQ(0, socket.Close());
    EXPECT_NE(-1, fcntl(0, F_GETFD)) << "closing an unopened socket must not close the host's stdin";
    ASSERT_EQ(0, socket.OpenAndBindSocket(LoopbackAddress(8, 0), "127.0.0.1", 3956, false, 60000));
    auto reader = std::async(std::launch::async, [&] {
        char buffer[8];
        return socket.Receive(buffer, sizeof buffer, true);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(0, socket.Close());
    EXPECT_EQ(GC_ERR_BUSY, reader.get());
    const int stranger = open("/dev/null", O_RDONLY);
    EXPECT_EQ(0, socket.Close());
    EXPECT_NE(-1, fcntl(stranger, F_GETFD));
    close(stranger);
}

}  // namespace
