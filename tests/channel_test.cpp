/// The message channel: its buffers and event against a scripted layer, the layer against scripted registers,
/// and the whole road of an event from a simulated camera.
#include "Bench.h"
#include "Consumer.h"
#include "LogListener.h"
#include "buffers/IEvent.h"
#include "channel/HALGvmc.h"
#include "channel/MessageChannelGev.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"
#include "gev/BigEndian.h"
#include "gev/HALGev.h"
#include "gev/Handles.h"
#include "log/HLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

using namespace GenTL;
using namespace std::chrono_literals;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using Bytes = std::vector<unsigned char>;

namespace {

constexpr std::uint64_t kTopBit = std::uint64_t{1} << 63;

std::string LastMessage()
{
    Error e;
    ErrorCache::GetErrorCache()->Peak(e);
    return e.Message();
}

void ExpectError(int code, const std::string& text, int actual)
{
    EXPECT_EQ(code, actual) << text;
    EXPECT_THAT(LastMessage(), EndsWith(": " + text));
}

Bytes Datagram(std::uint16_t command, std::size_t size)
{
    Bytes bytes(std::max<std::size_t>(size, 4));
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<unsigned char>(i * 7 + size);
    }
    Store16(&bytes[2], command);
    bytes.resize(size);
    return bytes;
}

// ---- Buffers and event

/// Hands out what the test puts in, and is silent otherwise.
class ScriptedGvmc : public IHALGvmc
{
public:
    int Start(IHALGev*, void*, bool, int) override { return startCode; }
    int Stop(IHALGev*, void*, int) override { return stopCode; }
    int GetNextPacket(char* packet, int size, int& received, unsigned long timeout) override
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        ++calls;
        m_changed.notify_all();
        if (failure != 0) {
            return failure;
        }
        if (!m_changed.wait_for(lock, std::chrono::milliseconds(timeout),
                                [&] { return !m_packets.empty(); })) {
            return GC_ERR_TIMEOUT;
        }
        const Bytes bytes = m_packets.front();
        m_packets.pop_front();
        EXPECT_GE(size, static_cast<int>(bytes.size()));
        std::copy(bytes.begin(), bytes.end(), packet);
        received = static_cast<int>(bytes.size());
        return GC_ERR_SUCCESS;
    }

    void Put(const Bytes& bytes)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_packets.push_back(bytes);
        m_changed.notify_all();
    }
    /// Returns when the receive thread has asked so often: it has a buffer in hand then.
    void AwaitCalls(int count)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        EXPECT_TRUE(m_changed.wait_for(lock, 5s, [&] { return calls >= count; }));
    }

    int startCode = 0;
    int stopCode = 0;
    std::atomic<int> failure{0};
    std::atomic<int> calls{0};

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Bytes> m_packets;
};

template <typename T, typename Getter>
T Answer(Getter get)
{
    T value{};
    int type = 0;
    std::size_t size = sizeof value;
    EXPECT_EQ(0, get(&type, &value, &size));
    return value;
}

class Channel : public testing::Test
{
protected:
    Channel()
    {
        ErrorCache::ReleaseErrorCache();
        EXPECT_EQ(0, channel->Open(hal, false));
        EXPECT_EQ(0, channel->RegisterEvent(EVENT_REMOTE_DEVICE, &hEvent));
        event = dynamic_cast<IEvent*>(CastHandle(hEvent));
    }
    ~Channel() override { channel->Close(); }

    void* Announce(std::size_t size = kEventSizeMax)
    {
        void* hBuffer = nullptr;
        EXPECT_EQ(0, channel->AllocAndAnnounceBuffer(size, &hal, &hBuffer));
        EXPECT_EQ(0, channel->QueueBuffer(hBuffer));
        return hBuffer;
    }
    void Listen(int buffers)
    {
        for (int i = 0; i < buffers; ++i) {
            Announce();
        }
        ASSERT_EQ(0, channel->StartListening());
        hal->AwaitCalls(1);
    }
    template <typename T = std::uint64_t>
    T Info(int command) const
    {
        return Answer<T>([&](auto... out) { return channel->GetInfo(command, out...); });
    }
    std::uint64_t EventInfo(int command) const
    {
        return Answer<std::uint64_t>([&](auto... out) { return event->GetInfo(command, out...); });
    }
    int GetData(std::uint64_t timeout, Bytes* pBytes = nullptr)
    {
        Bytes bytes(kEventSizeMax);
        std::size_t size = bytes.size();
        const int code = event->GetData(bytes.data(), &size, timeout);
        if (pBytes != nullptr) {
            *pBytes = Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
        }
        return code;
    }

    int device = 0;
    HALGev control;
    ScriptedGvmc* hal = new ScriptedGvmc;  // goes with the channel's close
    std::unique_ptr<MessageChannelGev> channel =
        std::make_unique<MessageChannelGev>(&control, &device, 0, DEVICE_ACCESS_CONTROL);
    void* hEvent = nullptr;
    IEvent* event = nullptr;
};

TEST_F(Channel, DeliversEventsAsTheyComeAndNothingElse)
{
    const std::tuple<std::uint16_t, std::size_t, bool> cases[] =
        {
            {0x00C0, 24,  true },
            {0x00C2, 576, true },
            {0x00C0, 4,   true },
            {0x00C0, 3,   false}, // the command of the one before must not count
            {0x00C0, 0,   false},
            {0x00C1, 24,  false},
            {0x00C4, 24,  false},
            {0x01C0, 24,  false},
            {0x00C2, 24,  true },
    };
    Listen(20);
    std::uint64_t queued = 20;
    std::uint64_t fired = 0;
    for (const auto& [command, size, isEvent] : cases) {
        const Bytes sent = Datagram(command, size);
        const int calls = hal->calls;
        hal->Put(sent);
        if (isEvent) {
            Bytes got;
            ASSERT_EQ(0, GetData(5000, &got)) << command;
            EXPECT_EQ(sent, got);
            ++fired;
        } else {
            --queued;
        }
        hal->AwaitCalls(calls + 1);
        EXPECT_EQ(queued - 1, Info(MC_INFO_NUM_QUEUED)) << command << ": one is in the thread's hand";
        EXPECT_EQ(fired, EventInfo(EVENT_NUM_FIRED));
        EXPECT_EQ(fired, Info(MC_INFO_NUM_DELIVERED));
        EXPECT_EQ(0U, EventInfo(EVENT_NUM_IN_QUEUE));
    }
    EXPECT_EQ(20U, Info(MC_INFO_NUM_ANNOUNCED));
}

TEST_F(Channel, CutsToTheBufferThatItFills)
{
    Announce(10);
    ASSERT_EQ(0, channel->StartListening());
    hal->Put(Datagram(0x00C0, 60));
    Bytes got;
    ASSERT_EQ(0, GetData(5000, &got));
    Bytes expected = Datagram(0x00C0, 60);
    expected.resize(10);
    EXPECT_EQ(expected, got);
}

TEST_F(Channel, KeepsItsQueueThroughSilenceAndErrors)
{
    Listen(3);
    hal->AwaitCalls(3);  // two silences
    EXPECT_EQ(2U, Info(MC_INFO_NUM_QUEUED));
    hal->failure = GC_ERR_IO;
    std::this_thread::sleep_for(300ms);
    const int before = hal->calls;
    std::this_thread::sleep_for(100ms);
    EXPECT_GE(20, hal->calls - before) << "a broken socket must not make the thread spin";
    hal->failure = 0;
    hal->Put(Datagram(0x00C0, 60));
    EXPECT_EQ(0, GetData(5000));
    EXPECT_EQ(0, channel->StopListening());
    EXPECT_EQ(3U, Info(MC_INFO_NUM_QUEUED));
}

TEST_F(Channel, FlushTakesTheBufferInHandToo)
{
    Listen(3);
    EXPECT_EQ(0, event->Flush());
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(1, hal->calls) << "after a silence the thread has nothing to ask for";

    void* hBuffer = nullptr;
    for (unsigned i = 0; i < 3; ++i) {
        EXPECT_EQ(0, channel->GetBufferID(i, &hBuffer));
        EXPECT_EQ(0, channel->QueueBuffer(hBuffer));
    }
    const int calls = hal->calls;
    hal->Put(Datagram(0x00C0, 60));
    hal->AwaitCalls(calls + 2);
    EXPECT_EQ(1U, EventInfo(EVENT_NUM_IN_QUEUE));
    EXPECT_EQ(0, event->Flush());
    EXPECT_EQ(0U, EventInfo(EVENT_NUM_IN_QUEUE));
    hal->Put(Datagram(0x00C0, 60));
    EXPECT_EQ(GC_ERR_TIMEOUT, GetData(500)) << "after an event";
    EXPECT_EQ(0U, Info(MC_INFO_NUM_QUEUED));
    EXPECT_EQ(0U, EventInfo(EVENT_NUM_FIRED));
    EXPECT_EQ(0, channel->StopListening()) << "while the thread waits for a buffer";
}

TEST_F(Channel, KillEndsNoWaitButTurnsItsTimeoutIntoAbort)
{
    Listen(2);
    EXPECT_EQ(0, event->Kill());
    EXPECT_EQ(0, event->Kill());
    EXPECT_EQ(GC_ERR_ABORT, GetData(0));
    EXPECT_EQ(GC_ERR_TIMEOUT, GetData(0));

    EXPECT_EQ(0, event->Kill());
    hal->Put(Datagram(0x00C0, 60));
    EXPECT_EQ(0, GetData(5000));
    EXPECT_EQ(GC_ERR_ABORT, GetData(0)) << "a delivery leaves the mark";

    for (const std::uint64_t timeout : {std::uint64_t{GENTL_INFINITE}, kTopBit - 1, kTopBit >> 20}) {
        std::atomic<bool> isBack{false};
        std::thread waiter([&] {
            EXPECT_EQ(0, GetData(timeout));
            isBack = true;
        });
        std::this_thread::sleep_for(20ms);
        event->Kill();
        std::this_thread::sleep_for(50ms);
        EXPECT_FALSE(isBack) << timeout;
        hal->Put(Datagram(0x00C0, 60));
        waiter.join();
        EXPECT_EQ(GC_ERR_ABORT, GetData(0));
    }
}

TEST_F(Channel, EventChecksItsArgumentsInOrder)
{
    std::size_t size = 0;
    char bytes[kEventSizeMax];
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, event->GetData(bytes, nullptr, 0));
    EXPECT_EQ(0, event->GetData(nullptr, &size, 0));
    EXPECT_EQ(kEventSizeMax, size);
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, GetData(kTopBit));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, GetData(GENTL_INFINITE - 1));
    Listen(2);
    hal->Put(Datagram(0x00C0, 60));
    hal->AwaitCalls(2);
    size = kEventSizeMax - 1;
    EXPECT_EQ(GC_ERR_BUFFER_TOO_SMALL, event->GetData(bytes, &size, 0));
    EXPECT_EQ(0, GetData(kTopBit)) << "nobody looks at the time when an event is there";
    EXPECT_EQ(1U, EventInfo(EVENT_NUM_FIRED));
    EXPECT_EQ(576U, EventInfo(EVENT_SIZE_MAX));
    EXPECT_EQ(256U, EventInfo(EVENT_INFO_DATA_SIZE_MAX));

    int type = 0;
    char text[64];
    const auto ask = [&](const void* data, std::size_t dataSize, int command, int* pType) {
        size = sizeof text;
        return event->GetDataInfo(data, dataSize, command, pType, text, &size);
    };
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, ask(nullptr, 0, EVENT_DATA_ID, nullptr));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, ask(bytes, 0, EVENT_DATA_ID, &type));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, ask(bytes, 60, EVENT_DATA_ID, nullptr));
    EXPECT_EQ(GC_ERR_NOT_AVAILABLE, ask(bytes, 60, EVENT_DATA_NUMID, &type));
    EXPECT_EQ(GC_ERR_INVALID_INDEX, ask(bytes, 60, 3, &type));
    EXPECT_EQ(0, ask(bytes, 60, EVENT_DATA_ID, &type));
    EXPECT_STREQ("New Buffer Event", text);
    EXPECT_EQ(0, ask(bytes, 60, EVENT_DATA_VALUE, &type));
    EXPECT_STREQ("No buffer data value", text);
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, event->GetDataInfo(bytes, 60, EVENT_DATA_ID, &type, text, nullptr));
}

TEST_F(Channel, KnowsOneKindOfEvent)
{
    void* hOther = nullptr;
    ExpectError(GC_ERR_NOT_IMPLEMENTED, "the EVENT_TYPE EVENT_NEW_BUFFER is not implemented",
                channel->RegisterEvent(EVENT_NEW_BUFFER, &hOther));
    ExpectError(GC_ERR_NOT_AVAILABLE, "the EVENT_TYPE EVENT_NEW_BUFFER is not available",
                channel->UnregisterEvent(EVENT_NEW_BUFFER));
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, channel->UnregisterEvent(EVENT_ERROR));
    EXPECT_EQ(GC_ERR_INVALID_INDEX, channel->RegisterEvent(6, &hOther));
    EXPECT_EQ(GC_ERR_INVALID_INDEX, channel->UnregisterEvent(-1));
    EXPECT_THAT(LastMessage(), HasSubstr(": EVENT_TYPE must be one of :\nGenTL::EVENT_REMOTE_DEVICE, "));
    constexpr int kType = EVENT_REMOTE_DEVICE;
    ExpectError(GC_ERR_INVALID_PARAMETER, "phEvent == nullptr", channel->RegisterEvent(kType, nullptr));
    ExpectError(GC_ERR_RESOURCE_IN_USE, "an event is already registered on the message channel",
                channel->RegisterEvent(kType, &hOther));
    EXPECT_EQ(nullptr, hOther);
    EXPECT_EQ(0, channel->UnregisterEvent(kType));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, CheckHandle(hEvent));
    ExpectError(GC_ERR_RESOURCE_IN_USE, "m_pRemoteDeviceEvent != nullptr", channel->UnregisterEvent(kType));
}

TEST_F(Channel, RevokesOnlyBuffersThatNobodyUses)
{
    void* const hFirst = Announce();
    void* const hSecond = Announce();
    void* hOther = nullptr;
    ExpectError(GC_ERR_INVALID_PARAMETER, "phBuffer==nullptr",
                channel->AllocAndAnnounceBuffer(1, nullptr, nullptr));
    ASSERT_EQ(0, channel->StartListening());
    hal->AwaitCalls(1);
    ExpectError(GC_ERR_BUSY, "acquisition engine is already started",
                channel->AllocAndAnnounceBuffer(1, nullptr, &hOther));
    EXPECT_EQ(GC_ERR_BUSY, channel->RevokeBuffer(hFirst, nullptr)) << "in the thread's hand";
    EXPECT_EQ(GC_ERR_BUSY, channel->RevokeBuffer(hSecond, nullptr)) << "in the input queue";
    const Bytes sent = Datagram(0x00C0, 60);
    hal->Put(sent);
    hal->AwaitCalls(2);
    EXPECT_EQ(GC_ERR_BUSY, channel->RevokeBuffer(hFirst, nullptr)) << "in the output queue";

    EXPECT_EQ(0, channel->GetBufferID(1, &hOther));
    EXPECT_EQ(hSecond, hOther);
    ExpectError(GC_ERR_INVALID_INDEX, "iIndex >= m_announcedBuffers.size()",
                channel->GetBufferID(2, &hOther));
    ExpectError(GC_ERR_INVALID_PARAMETER, "phBuffer==nullptr", channel->GetBufferID(0, nullptr));
    const auto info = [&](int command) {
        return Answer<std::uint64_t>(
            [&](auto... out) { return channel->GetBufferInfo(hFirst, command, out...); });
    };
    EXPECT_EQ(0, std::memcmp(sent.data(), reinterpret_cast<const void*>(info(0)), sent.size()));
    const std::uint64_t infos[] = {info(1), info(2), info(3), info(4)};
    EXPECT_THAT(infos, ElementsAre(576, reinterpret_cast<std::uint64_t>(&hal), 0, 60));
    EXPECT_EQ(0, channel->QueueBuffer(hFirst));
    EXPECT_EQ(0U, info(4));
    int type = 0;
    std::size_t size = 8;
    EXPECT_EQ(GC_ERR_INVALID_INDEX, channel->GetBufferInfo(hFirst, 5, &type, nullptr, &size));

    EXPECT_EQ(0, channel->StopListening());
    EXPECT_EQ(0, channel->Flush());
    void* pPrivate = nullptr;
    EXPECT_EQ(0, channel->RevokeBuffer(hFirst, &pPrivate));
    EXPECT_EQ(&hal, pPrivate);
    EXPECT_EQ(0, channel->RevokeBuffer(hSecond, nullptr));
    EXPECT_EQ(0U, Info(MC_INFO_NUM_ANNOUNCED));
}

TEST_F(Channel, TakesNoHandleThatIsNotABuffer)
{
    std::uint64_t noHandle[2] = {};
    int type = 0;
    std::size_t size = 8;
    for (void* h : {static_cast<void*>(nullptr), static_cast<void*>(noHandle), hEvent}) {
        EXPECT_EQ(GC_ERR_INVALID_HANDLE, channel->GetBufferInfo(h, 0, &type, nullptr, &size));
        EXPECT_EQ(GC_ERR_INVALID_HANDLE, channel->RevokeBuffer(h, nullptr));
        EXPECT_EQ(h != hEvent, LastMessage().find("hBuffer handle is of wrong type") != std::string::npos);
        EXPECT_EQ(GC_ERR_INVALID_HANDLE, channel->QueueBuffer(h));
    }
    EXPECT_THAT(LastMessage(), EndsWith(": hBuffer is not a valid buffer type"));
}

TEST_F(Channel, TellsItsState)
{
    ExpectError(GC_ERR_INVALID_BUFFER,
                "the number of announced buffers is 0which is less than 1 --the minimum allowed",
                channel->StartListening());
    EXPECT_FALSE(Info<bool>(MC_INFO_IS_GRABBING));
    Listen(3);
    hal->Put(Datagram(0x00C0, 60));
    hal->Put(Datagram(0x00C0, 60));
    hal->AwaitCalls(3);
    EXPECT_TRUE(Info<bool>(MC_INFO_IS_GRABBING));
    std::vector<std::uint64_t> numbers;
    for (const int command : {1, 2, 3, 4, 5, 6, 7, 10, 11}) {
        numbers.push_back(Info(command));
    }
    EXPECT_THAT(numbers, ElementsAre(0, 0, 3, 0, 2, 3, 576, 1, 1));
    ExpectError(GC_ERR_RESOURCE_IN_USE, "acquisition engine is already started", channel->StartListening());
    EXPECT_EQ(0, channel->StopListening());
    EXPECT_FALSE(Info<bool>(MC_INFO_IS_GRABBING));
    EXPECT_EQ(0U, Info(MC_INFO_NUM_STARTED));
    ExpectError(GC_ERR_RESOURCE_IN_USE, "acquisition engine was not started", channel->StopListening());
    EXPECT_EQ(0, GetData(0)) << "what came before the stop is still there";
    int type = 0;
    std::size_t size = 8;
    EXPECT_EQ(GC_ERR_INVALID_INDEX, channel->GetInfo(12, &type, nullptr, &size));
    EXPECT_THAT(LastMessage(), HasSubstr(": MC_INFO_CMD must be one of :\nGenTL::MC_INFO_ID , GenTL::"));
}

TEST_F(Channel, StopsWhateverTheCameraSays)
{
    hal->startCode = GC_ERR_IO;
    Announce();
    EXPECT_EQ(GC_ERR_IO, channel->StartListening());
    EXPECT_FALSE(Info<bool>(MC_INFO_IS_GRABBING));
    hal->startCode = 0;
    hal->stopCode = GC_ERR_ACCESS_DENIED;
    ASSERT_EQ(0, channel->StartListening());
    EXPECT_EQ(GC_ERR_ACCESS_DENIED, channel->StopListening());
    EXPECT_FALSE(Info<bool>(MC_INFO_IS_GRABBING));
    ASSERT_EQ(0, channel->StartListening());
    EXPECT_EQ(0, channel->Close()) << "ends the thread, which uses what is destroyed now";
}

TEST_F(Channel, RefusesAccordingToItsState)
{
    void* handle = nullptr;
    int type = 0;
    std::size_t size = 0;
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, channel->ReadPort(0, nullptr, &size));
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, channel->GetPortInfo(PORT_INFO_MODULE, &type, nullptr, &size));
    MessageChannel base;
    ExpectError(GC_ERR_NOT_IMPLEMENTED, "only GEV message channels are supported", base.StartListening());
    EXPECT_EQ(0, base.GetPortInfo(PORT_INFO_MODULE, &type, nullptr, &size));

    ExpectError(GC_ERR_RESOURCE_IN_USE, "GEV message channel is already open", channel->Open(nullptr, true));
    EXPECT_EQ(0, channel->Close());
    ExpectError(GC_ERR_RESOURCE_IN_USE, "GEV message channel is not open", channel->Close());
    const int codes[] = {
        channel->ReadPort(0, nullptr, &size),
        channel->GetPortInfo(PORT_INFO_MODULE, &type, nullptr, &size),
        channel->AllocAndAnnounceBuffer(1, nullptr, &handle),
        channel->GetBufferID(0, nullptr),
        channel->Flush(),
        channel->GetInfo(0, &type, nullptr, &size),
        channel->RegisterEvent(EVENT_ERROR, &handle),
        channel->UnregisterEvent(EVENT_ERROR),
        channel->StartListening(),
        channel->StopListening(),
    };
    EXPECT_THAT(codes, Each(GC_ERR_INVALID_HANDLE));
}

// ---- The camera's registers

constexpr unsigned kCaps = 0x0930;
constexpr unsigned kMcp = 0x0B00;
constexpr unsigned kMcda = 0x0B10;
constexpr unsigned kMcsp = 0x0B1C;
constexpr unsigned kScp = 0x0D00;
constexpr unsigned kReadable = 0x80000000;  // in kCaps: kMcsp can be read
using Write = std::pair<unsigned, unsigned>;

sockaddr_in Address(const std::string& text)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    inet_pton(AF_INET, text.c_str(), &address.sin_addr);
    return address;
}

class CameraRegisters : public HALGev
{
public:
    int ReadReg(void*, unsigned address, unsigned& value) override
    {
        reads.push_back(address);
        value = registers[address];
        return failing.first == address ? failing.second : 0;
    }
    int WriteReg(void*, unsigned address, unsigned value) override
    {
        const int code = failing.first == address ? failing.second : 0;
        if (code == 0) {
            writes.emplace_back(address, value);
        }
        return code;
    }

    std::map<unsigned, unsigned> registers;
    std::pair<unsigned, int> failing{1, 0};
    std::vector<unsigned> reads;
    std::vector<Write> writes;
};

class Layer : public testing::Test
{
protected:
    Layer()
    {
        std::ofstream("norvo_log.conf") << R"({"ports": {"hal_out": )" << log.Port()
                                        << R"(, "gentl_out": 1, "vesta_in": 1, "zt_in": 1, "gentl_in": 1},)"
                                        << R"("levels": {"gentl": 100, "hal": 600}})";
        logger = std::make_unique<HLogger>();
        device.m_pSocket = std::make_unique<CommSocket>();
        EXPECT_EQ(0,
                  device.m_pSocket->OpenAndBindSocket(Address("127.0.0.1"), "127.0.0.1", 3956, false, 100));
        EXPECT_EQ(0, firewall.OpenAndBindSocket(Address("127.0.0.1")));
        camera.registers[kMcsp] = ntohs(firewall.Address().sin_port);
    }
    ~Layer() override { device.m_pSocket->Close(); }

    int Start(bool multicast, int access) { return hal.Start(&camera, ToHandle(&device), multicast, access); }
    int Stop(int access) { return hal.Stop(&camera, ToHandle(&device), access); }
    bool IsOpen()
    {
        char packet[64];
        int length = 0;
        return hal.GetNextPacket(packet, sizeof packet, length, 1) == GC_ERR_TIMEOUT;
    }
    /// What the layer itself has logged, without the words of its sockets.
    std::string Logged() const
    {
        std::string messages;
        for (std::string message; !(message = log.NextMessage()).empty();) {
            if (message.find("HALGv") != message.npos || message.find("anonymous") != message.npos) {
                messages += message + "\n";
            }
        }
        return messages;
    }

    LogListener log;
    std::unique_ptr<HLogger> logger;
    OverlappedSocket firewall;  // what the camera sends its events from
    CameraRegisters camera;
    DeviceHandle device;
    HALGvmc hal;
};

TEST_F(Layer, StartsOrTellsWhyNot)
{
    // clang-format off
    const struct
    {
        bool multicast;
        int access;
        unsigned capabilities;
        std::pair<unsigned, int> failing;
        int code;
        std::size_t writes;
        const char* log;
    } cases[] = {
        {false, 3, kReadable,  {1, 0},              0, 2, ""},
        {false, 4, kReadable,  {1, 0},              0, 2, ""},
        {false, 3, ~kReadable, {1, 0},              0, 2, "GenTL::HALGvmc::Start TraverseFirewall: -1014\n"},
        {false, 3, kReadable,  {kMcsp, -1011},      0, 2, "anonymous::TraverseFirewall WriteReg 2844 with err: -1011\n"
                                                             "GenTL::HALGvmc::Start TraverseFirewall: -1011\n"},
        {false, 2, kReadable,  {1, 0},          -1004, 0, "GenTL::HALGvmc::Start unicast read-only failure: -1004\n"},
        {false, 3, kReadable,  {kCaps, -1010},  -1010, 0, "GenTL::HALGvmc::Start ReadReg 2352 with err: -1010\n"},
        {false, 3, kReadable,  {kMcda, -1005},  -1005, 0, "GenTL::HALGvmc::Start WriteReg MCDA: -1005\n"},
        {false, 3, kReadable,  {kMcp, -1011},   -1011, 1, "GenTL::HALGvmc::Start WriteReg MCP: -1011\n"},
        {true,  2, kReadable,  {kMcp, -1011},   -1011, 0, "GenTL::HALGvmc::Port ReadReg MCP: -1011\n"},
    };
    // clang-format on
    for (const auto& c : cases) {
        camera.registers[kCaps] = c.capabilities;
        camera.failing = c.failing;
        camera.writes.clear();
        EXPECT_EQ(c.code, Start(c.multicast, c.access));
        EXPECT_EQ(c.log, Logged());
        EXPECT_TRUE(c.code == 0 || LastMessage().rfind("Start():", 0) == 0) << LastMessage();
        EXPECT_EQ(c.code == 0, IsOpen());
        char datagram[8] = "nothing";
        int size = 0;
        const bool isSent = firewall.GetNextResult(datagram, sizeof datagram, size, 1) == 0;
        EXPECT_EQ(isSent ? std::string(4, '\0') : "", std::string(datagram, static_cast<std::size_t>(size)));
        EXPECT_EQ(c.code == 0 && *c.log == '\0', isSent);
        ASSERT_EQ(c.writes, camera.writes.size());
        if (c.writes == 2) {
            EXPECT_EQ(Write(kMcda, INADDR_LOOPBACK), camera.writes[0]);
            EXPECT_EQ(kMcp, camera.writes[1].first);
            EXPECT_LE(49152U, camera.writes[1].second);
        }
        EXPECT_TRUE(c.capabilities == kReadable || camera.reads.back() == kCaps);
        Stop(c.access);
        Logged();
    }
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, hal.Start(nullptr, ToHandle(&device), false, 3));
}

// In the words of the stream, and whatever the access.
TEST_F(Layer, StopClosesTheStreamChannel)
{
    ASSERT_EQ(0, Start(false, 3));
    camera.writes.clear();
    Logged();
    camera.failing = {kScp, -1005};
    EXPECT_EQ(-1005, Stop(2));
    EXPECT_EQ("GenTL::HALGvsp::Stop WriteReg 3328 with err: -1005\n", Logged());
    EXPECT_TRUE(IsOpen());
    camera.failing.second = -1011;
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ("GenTL::HALGvsp::Stop WriteReg 3328 with err: -1011\n", Logged());
    EXPECT_FALSE(IsOpen());
    camera.failing.second = 0;
    EXPECT_EQ(0, Stop(2));
    EXPECT_THAT(camera.writes, ElementsAre(Write(kScp, 0)));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, hal.Stop(nullptr, ToHandle(&device), 3));
}

// ---- From the camera to the consumer

class Events : public testing::Test
{
protected:
    Events()
    {
        bench.config.eventNotifications = true;
        bench.config.frameLimit = 3;
        camera = &bench.StartCamera();
        consumer.OpenInterface(bench.Net().HostAddress());
        consumer.OpenCamera(kSerial);
    }

    int TryRegister(void** phEvent) const
    {
        return GCRegisterEvent(consumer.Device(), EVENT_REMOTE_DEVICE, phEvent);
    }
    void Register() { Consumer::Check(TryRegister(&hEvent), "GCRegisterEvent"); }
    int Unregister() const { return GCUnregisterEvent(consumer.Device(), EVENT_REMOTE_DEVICE); }
    void Generate(unsigned count = 1) { camera->SetRegister(sim::Feature::kTestEventGenerate, count); }
    /// Empty after the time-out.
    Bytes Next(std::uint64_t timeoutMs = 2000) const
    {
        Bytes bytes(kEventSizeMax);
        std::size_t size = bytes.size();
        const int code = EventGetData(hEvent, bytes.data(), &size, timeoutMs);
        bytes.resize(code == GC_ERR_SUCCESS ? size : 0);
        return bytes;
    }

    Bench bench;
    sim::Camera* camera = nullptr;
    Consumer consumer;
    void* hEvent = nullptr;
};

TEST_F(Events, ArriveUnchangedAndInOrder)
{
    constexpr unsigned kEvents = 8000;  // the camera remembers twice as many
    Register();
    std::vector<Bytes> received;
    for (const unsigned dataSize : {36, 552}) {
        camera->SetRegister(sim::Feature::kEventDataSize, dataSize);
        Generate(kEvents);
        for (unsigned i = 0; i < kEvents; ++i) {
            received.push_back(Next(5000));
            ASSERT_EQ(24 + dataSize, received.back().size()) << "event " << i;
        }
    }
    EXPECT_EQ(camera->Events(), received);
    EXPECT_EQ(0U, camera->Seen().watchTimeouts);
    EXPECT_EQ(1U, camera->Seen().messageFirewallDatagrams);
    EXPECT_EQ(0, Unregister());
}

TEST_F(Events, TellAnAcquisitionAndEndItsStream)
{
    consumer.OpenStream();
    consumer.Announce(4, bench.config.geometry.ImageBytes());
    consumer.QueueAll();
    Register();
    consumer.Start();
    StartCameraAcquisition(consumer);
    // Reserved, identifier, stream channel, block ID, behind the header.
    const auto told = [&] {
        const Bytes event = Next();
        return event.size() == 24 ? Bytes(event.begin() + 8, event.begin() + 16) : Bytes();
    };
    EXPECT_THAT(told(), ElementsAre(0, 0, 0x90, 0x00, 0xFF, 0xFF, 0, 0));
    for (unsigned char block = 1; block <= 3; ++block) {
        EXPECT_THAT(told(), ElementsAre(0, 0, 0x90, 0x02, 0, 0, 0, block));
    }
    EXPECT_THAT(told(), ElementsAre(0, 0, 0x90, 0x01, 0xFF, 0xFF, 0, 0));

    EXPECT_NE(0U, camera->Register(0x0D00));
    EXPECT_EQ(0, Unregister());
    EXPECT_EQ(0U, camera->Register(0x0D00));
    EXPECT_NE(0U, camera->Register(0x0B00));
    consumer.Stop();
}

TEST_F(Events, EndWhenOtherTrafficHasUsedUpTheBuffers)
{
    Register();
    const Bytes stray = Datagram(0x00C4, 24);
    for (int i = 0; i < 99; ++i) {
        camera->SendMessageDatagram(stray.data(), stray.size());
    }
    for (int i = 0; i < 3; ++i) {
        Generate();
        EXPECT_EQ(24U, Next().size());
    }
    camera->SendMessageDatagram(stray.data(), stray.size());
    Generate();
    EXPECT_THAT(Next(500), IsEmpty());
    EXPECT_EQ(0, Unregister());
    Register();
    Generate();
    EXPECT_EQ(24U, Next().size());
}

TEST_F(Events, AreRegisteredOnceByWhoHasControl)
{
    consumer.CloseCamera();
    consumer.OpenCamera(kSerial, DEVICE_ACCESS_READONLY);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, TryRegister(&hEvent));
        EXPECT_THAT(Consumer::TakeError(), testing::Not(HasSubstr("already open")));
        EXPECT_EQ(nullptr, hEvent);
    }
    EXPECT_EQ(0U, camera->Register(0x0B10));
    EXPECT_EQ(GC_ERR_NOT_INITIALIZED, Unregister());
    EXPECT_THAT(Consumer::TakeError(), HasSubstr(": the message channel 0 is not open"));
    consumer.CloseCamera();

    consumer.OpenCamera(kSerial);
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, TryRegister(nullptr));
    EXPECT_THAT(Consumer::TakeError(), HasSubstr(": phEvent == nullptr"));
    Register();
    void* hSecond = nullptr;
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, TryRegister(&hSecond));
    EXPECT_THAT(Consumer::TakeError(), HasSubstr(": message channel 0 is already open"));
    Generate();
    EXPECT_EQ(24U, Next().size());
    EXPECT_EQ(0, Unregister());
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, EventKill(hEvent));
}

// A camera that refuses the last write of the stop, or answers no more, must not keep the channel open.
TEST_F(Events, EndWhateverTheCameraSays)
{
    Register();
    camera->GoSilent(true);
    EXPECT_EQ(0, Unregister()) << "nobody waits for a camera that is gone";
    camera->GoSilent(false);
    Register();
    camera->SetRegister(0x0A00, 0);
    EXPECT_EQ(GC_ERR_ACCESS_DENIED, Unregister());
    EXPECT_EQ(GC_ERR_NOT_INITIALIZED, Unregister());
}

TEST_F(Events, ReachEveryListenerOfTheGroup)
{
    bench.Net().RunOnHost(std::string("ip route add 224.0.0.0/4 dev ") + sim::TestNet::kHostInterface);
    consumer.OpenStream();
    Consumer::WriteMap(consumer.Stream(), 0x2400, 1);  // multicast
    Register();
    EXPECT_EQ(0xEF0B0B0BU, camera->Register(0x0B10));
    const unsigned port = camera->Register(0x0B00);

    // A process opens a camera once: the layer alone is what another one would listen with.
    HALGev control;
    DeviceHandle device;
    device.m_pSocket = std::make_unique<CommSocket>();
    ASSERT_EQ(0, device.m_pSocket->OpenAndBindSocket(Address(bench.Net().HostAddress()),
                                                     bench.Net().CameraAddress(), 3956, false, 1000));
    HALGvmc listener;
    ASSERT_EQ(0, listener.Start(&control, ToHandle(&device), true, DEVICE_ACCESS_READONLY));
    for (const unsigned dataSize : {0U, 552U}) {
        camera->SetRegister(sim::Feature::kEventDataSize, dataSize);
        Generate();
        const Bytes event = Next();
        EXPECT_EQ(24 + dataSize, event.size());
        char heard[kEventSizeMax];
        int size = 0;
        EXPECT_EQ(0, listener.GetNextPacket(heard, sizeof heard, size, 2000));
        EXPECT_EQ(event, Bytes(heard, heard + size));
    }
    EXPECT_EQ(GC_ERR_ACCESS_DENIED, listener.Stop(&control, ToHandle(&device), DEVICE_ACCESS_READONLY));
    EXPECT_EQ(port, camera->Register(0x0B00)) << "a listener writes nothing";
    EXPECT_EQ(0, Unregister());
}

// Datagrams that keep coming save each cycle the receive thread's last time-out.
TEST_F(Events, LeaveNothingBehind)
{
    constexpr std::ptrdiff_t kSmallestBlock = 32;  // that a leak of each cycle would leave
    consumer.CloseCamera();
    std::atomic<bool> isDone{false};
    std::thread sender([&] {
        const Bytes event = Datagram(0x00C0, 24);
        while (!isDone) {
            camera->SendMessageDatagram(event.data(), event.size());
            std::this_thread::sleep_for(1ms);
        }
    });
    const std::size_t threads = Entries("/proc/self/task");
    const std::size_t descriptors = Entries("/proc/self/fd");
    const auto bytesInUse = [] { return static_cast<std::ptrdiff_t>(mallinfo2().uordblks); };
    std::ptrdiff_t bytes = 0;
    consumer.OpenCamera(kSerial);
    for (int cycle = 0; cycle < 500; ++cycle) {
        bytes = cycle == 50 ? bytesInUse() : bytes;
        Register();
        EXPECT_EQ(24U, Next().size());
        ASSERT_EQ(0, Unregister()) << Consumer::TakeError();
    }
    EXPECT_GT(450 * kSmallestBlock, bytesInUse() - bytes);
    Register();
    consumer.CloseCamera();
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, CheckHandle(hEvent)) << "events end with their device";
    EXPECT_EQ(threads, Entries("/proc/self/task"));
    EXPECT_EQ(descriptors, Entries("/proc/self/fd"));
    isDone = true;
    sender.join();
}

}  // namespace
