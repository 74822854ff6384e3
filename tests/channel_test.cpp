/// The message channel: its buffers and event against a scripted layer, the layer against scripted registers,
/// and the whole road of an event from a simulated camera.
#include "Bench.h"
#include "Consumer.h"
#include "buffers/IEvent.h"
#include "channel/HALGvmc.h"
#include "channel/MCBuffer.h"
#include "channel/MessageChannelGev.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"
#include "gev/HALGev.h"
#include "gev/Handles.h"
#include "log/HLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <arpa/inet.h>
#include <malloc.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace GenTL;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using Clock = std::chrono::steady_clock;
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

Bytes Datagram(unsigned command, std::size_t size)
{
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<unsigned char>(i * 7 + size);
    }
    const unsigned char field[] = {static_cast<unsigned char>(command >> 8),
                                   static_cast<unsigned char>(command)};
    for (std::size_t i = 2; i < std::min<std::size_t>(size, 4); ++i) {
        bytes[i] = field[i - 2];
    }
    return bytes;
}

// ---- Buffers and event

/// Hands out what the test puts in, and is silent otherwise.
class ScriptedGvmc : public IHALGvmc
{
public:
    explicit ScriptedGvmc(bool* pDestroyed) : m_pDestroyed(pDestroyed) {}
    ~ScriptedGvmc() override { *m_pDestroyed = true; }

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
    bool* m_pDestroyed;
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
    ~Channel() override
    {
        channel.reset();
        if (!isHalDestroyed) {
            delete hal;
        }
    }

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
    bool isHalDestroyed = false;
    ScriptedGvmc* hal = new ScriptedGvmc(&isHalDestroyed);
    std::unique_ptr<MessageChannelGev> channel =
        std::make_unique<MessageChannelGev>(&control, &device, 0, DEVICE_ACCESS_CONTROL);
    void* hEvent = nullptr;
    IEvent* event = nullptr;
};

TEST_F(Channel, DeliversEventsAsTheyComeAndNothingElse)
{
    const struct
    {
        unsigned command;
        std::size_t size;
        bool isEvent;
    } cases[] = {
        {0x00C0, 24,  true },
        {0x00C2, 576, true },
        {0x00C0, 4,   true },
        {0x00C0, 3,   false}, // the command of the one before must not count
        {0x00C2, 1,   false},
        {0x00C0, 0,   false},
        {0x00C1, 24,  false},
        {0x00C4, 24,  false},
        {0x01C0, 24,  false},
        {0x0081, 24,  false},
        {0x00C2, 24,  true },
    };
    Listen(20);
    std::uint64_t queued = 20;
    std::uint64_t fired = 0;
    for (const auto& c : cases) {
        const Bytes sent = Datagram(c.command, c.size);
        const int calls = hal->calls;
        hal->Put(sent);
        if (c.isEvent) {
            Bytes got;
            ASSERT_EQ(0, GetData(5000, &got)) << c.command;
            EXPECT_EQ(sent, got);
            ++fired;
        } else {
            --queued;
        }
        hal->AwaitCalls(calls + 1);
        EXPECT_EQ(queued - 1, Info(MC_INFO_NUM_QUEUED)) << c.command << ": one is in the thread's hand";
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
    const auto timed = [&](std::uint64_t timeout) {
        const auto begin = Clock::now();
        const int code = GetData(timeout);
        EXPECT_LE(std::chrono::milliseconds(timeout), Clock::now() - begin);
        return code;
    };
    EXPECT_EQ(0, event->Kill());
    EXPECT_EQ(GC_ERR_ABORT, timed(10));
    EXPECT_EQ(GC_ERR_TIMEOUT, timed(10));
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
    const int commands[] = {EVENT_NUM_FIRED, EVENT_SIZE_MAX, EVENT_INFO_DATA_SIZE_MAX};
    EXPECT_THAT(
        std::vector<std::uint64_t>({EventInfo(commands[0]), EventInfo(commands[1]), EventInfo(commands[2])}),
        ElementsAre(1, 576, 256));

    int type = 0;
    char text[64];
    const struct
    {
        const void* data;
        std::size_t dataSize;
        int command;
        int* type;
        int code;
        const char* text;
    } questions[] = {
        {nullptr, 0,  EVENT_DATA_ID,    nullptr, GC_ERR_INVALID_HANDLE,    nullptr               },
        {bytes,   0,  EVENT_DATA_ID,    &type,   GC_ERR_INVALID_PARAMETER, nullptr               },
        {bytes,   60, EVENT_DATA_ID,    nullptr, GC_ERR_INVALID_PARAMETER, nullptr               },
        {bytes,   60, EVENT_DATA_ID,    &type,   GC_ERR_SUCCESS,           "New Buffer Event"    },
        {bytes,   60, EVENT_DATA_VALUE, &type,   GC_ERR_SUCCESS,           "No buffer data value"},
        {bytes,   60, EVENT_DATA_NUMID, &type,   GC_ERR_NOT_AVAILABLE,     nullptr               },
        {bytes,   60, 3,                &type,   GC_ERR_INVALID_INDEX,     nullptr               },
    };
    for (const auto& q : questions) {
        size = sizeof text;
        EXPECT_EQ(q.code, event->GetDataInfo(q.data, q.dataSize, q.command, q.type, text, &size))
            << q.command;
        EXPECT_TRUE(q.text == nullptr || std::strcmp(q.text, text) == 0) << q.command;
    }
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, event->GetDataInfo(bytes, 60, EVENT_DATA_ID, &type, text, nullptr));
}

TEST_F(Channel, KnowsOneKindOfEvent)
{
    constexpr const char* kUnknown =
        "EVENT_TYPE must be one of :\nGenTL::EVENT_REMOTE_DEVICE, GenTL::EVENT_ERROR, GenTL::EVENT_MODULE, \n"
        "GenTL::EVENT_FEATURE_INVALIDATE, GenTL::EVENT_FEATURE_CHANGE, GenTL::EVENT_NEW_BUFFER";
    const struct
    {
        int type;
        const char* name;
        int unregisterCode;
        const char* end;
    } refused[] = {
        {EVENT_ERROR,              "EVENT_ERROR",              GC_ERR_NOT_IMPLEMENTED, " is not implemented"},
        {EVENT_NEW_BUFFER,         "EVENT_NEW_BUFFER",         GC_ERR_NOT_AVAILABLE,   " is not available"  },
        {EVENT_FEATURE_INVALIDATE, "EVENT_FEATURE_INVALIDATE", GC_ERR_NOT_AVAILABLE,   " is not available"  },
        {EVENT_FEATURE_CHANGE,     "EVENT_FEATURE_CHANGE",     GC_ERR_NOT_AVAILABLE,   " is not available"  },
        {EVENT_MODULE,             "EVENT_MODULE",             GC_ERR_NOT_IMPLEMENTED, " is not implemented"},
    };
    void* hOther = nullptr;
    for (const auto& r : refused) {
        const std::string words = std::string("the EVENT_TYPE ") + r.name;
        ExpectError(GC_ERR_NOT_IMPLEMENTED, words + " is not implemented",
                    channel->RegisterEvent(r.type, &hOther));
        ExpectError(r.unregisterCode, words + r.end, channel->UnregisterEvent(r.type));
    }
    for (const int type : {-1, 6}) {
        ExpectError(GC_ERR_INVALID_INDEX, kUnknown, channel->RegisterEvent(type, &hOther));
        ExpectError(GC_ERR_INVALID_INDEX, kUnknown, channel->UnregisterEvent(type));
    }
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
    const auto infoAs = [&](auto value, int command) {
        return Answer<decltype(value)>(
            [&](auto... out) { return channel->GetBufferInfo(hFirst, command, out...); });
    };
    const auto info = [&](int command) { return infoAs(std::uint64_t{}, command); };
    EXPECT_EQ(0, std::memcmp(sent.data(), infoAs(static_cast<void*>(nullptr), 0), sent.size()));
    EXPECT_EQ(&hal, infoAs(static_cast<void*>(nullptr), 2));
    EXPECT_THAT(std::vector<std::uint64_t>({info(1), info(3), info(4)}), ElementsAre(576, 0, 60));
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
    for (int i = 0; i < 2; ++i) {
        hal->Put(Datagram(0x00C0, 60));
    }
    hal->AwaitCalls(3);
    EXPECT_TRUE(Info<bool>(MC_INFO_IS_GRABBING));
    std::vector<std::uint64_t> numbers;
    for (const int command : {1, 2, 3, 4, 5, 6, 7, 10, 11}) {
        numbers.push_back(Info(command));
    }
    EXPECT_THAT(numbers, ElementsAre(0, 0, 3, 0, 2, 3, 576, 1, 1));
    for (const auto& [command, expected] : std::map<int, std::string>{
             {0, "0"  },
             {9, "GEV"}
    }) {
        char text[8] = {};
        int type = 0;
        std::size_t size = sizeof text;
        EXPECT_EQ(0, channel->GetInfo(command, &type, text, &size));
        EXPECT_EQ(expected, text);
    }
    ExpectError(GC_ERR_RESOURCE_IN_USE, "acquisition engine is already started", channel->StartListening());
    EXPECT_EQ(0, channel->StopListening());
    EXPECT_FALSE(Info<bool>(MC_INFO_IS_GRABBING));
    EXPECT_EQ(0U, Info(MC_INFO_NUM_STARTED));
    ExpectError(GC_ERR_RESOURCE_IN_USE, "acquisition engine was not started", channel->StopListening());
    EXPECT_EQ(0, GetData(0)) << "what came before the stop is still there";
    int type = 0;
    std::size_t size = 8;
    ExpectError(GC_ERR_INVALID_INDEX,
                "MC_INFO_CMD must be one of :\n"
                "GenTL::MC_INFO_ID , GenTL::MC_INFO_NUM_DELIVERED, GenTL::MC_INFO_NUM_UNDERRUN, \n"
                "GenTL::MC_INFO_NUM_ANNOUNCED, GenTL::MC_INFO_NUM_QUEUED, \n"
                "GenTL::MC_INFO_NUM_AWAIT_DELIVERY, GenTL::MC_INFO_NUM_STARTED, \n"
                "GenTL::MC_INFO_PAYLOAD_SIZE, GenTL::MC_INFO_IS_GRABBING, GenTL::MC_INFO_TLTYPE, \n"
                "GenTL::MC_INFO_BUF_ANNOUNCE_MIN, GenTL::MC_INFO_BUF_ALIGNMENT",
                channel->GetInfo(12, &type, nullptr, &size));
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
    EXPECT_TRUE(isHalDestroyed);
}

TEST_F(Channel, LeavesAGivenHalToItsGiverWhenItDiesOpen)
{
    Listen(1);
    channel.reset();
    EXPECT_FALSE(isHalDestroyed);
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, CheckHandle(hEvent));
}

TEST_F(Channel, RefusesAccordingToItsState)
{
    void* handle = nullptr;
    int type = 0;
    unsigned count = 0;
    std::size_t size = 0;
    using Calls = std::vector<std::function<int(IMessageChannel&)>>;
    const Calls portCalls = {
        [&](auto& c) { return c.ReadPort(0, nullptr, &size); },
        [&](auto& c) { return c.WritePort(0, nullptr, &size); },
        [&](auto& c) { return c.GetPortURL(nullptr, &size); },
        [&](auto& c) { return c.GetNumPortURLs(&count); },
        [&](auto& c) { return c.GetPortURLInfo(0, 0, &type, nullptr, &size); },
        [&](auto& c) { return c.ReadPortStacked(nullptr, &size); },
        [&](auto& c) { return c.WritePortStacked(nullptr, &size); },
    };
    const Calls closedCalls = {
        [&](auto& c) { return c.GetPortInfo(PORT_INFO_MODULE, &type, nullptr, &size); },
        [&](auto& c) { return c.AllocAndAnnounceBuffer(1, nullptr, &handle); },
        [&](auto& c) { return c.QueueBuffer(nullptr); },
        [&](auto& c) { return c.RevokeBuffer(nullptr, nullptr); },
        [&](auto& c) { return c.GetBufferID(0, nullptr); },
        [&](auto& c) { return c.GetBufferInfo(nullptr, 0, &type, nullptr, &size); },
        [&](auto& c) { return c.Flush(); },
        [&](auto& c) { return c.GetInfo(0, &type, nullptr, &size); },
        [&](auto& c) { return c.RegisterEvent(EVENT_ERROR, &handle); },
        [&](auto& c) { return c.UnregisterEvent(EVENT_ERROR); },
        [&](auto& c) { return c.StartListening(); },
        [&](auto& c) { return c.StopListening(); },
    };
    MessageChannel base;
    for (const auto& call : portCalls) {
        EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, call(*channel));
        ExpectError(GC_ERR_NOT_IMPLEMENTED, "only GEV message channels are supported", call(base));
    }
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, channel->GetPortInfo(PORT_INFO_MODULE, &type, nullptr, &size));
    EXPECT_EQ(0, base.GetPortInfo(PORT_INFO_MODULE, &type, nullptr, &size));
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, base.StartListening());
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, base.StopListening());

    bool isRefusedDestroyed = false;
    ScriptedGvmc refused(&isRefusedDestroyed);
    ExpectError(GC_ERR_RESOURCE_IN_USE, "GEV message channel is already open", channel->Open(&refused, true));
    EXPECT_EQ(0, channel->Close());
    EXPECT_FALSE(isRefusedDestroyed);
    ExpectError(GC_ERR_RESOURCE_IN_USE, "GEV message channel is not open", channel->Close());
    for (const Calls& calls : {portCalls, closedCalls}) {
        for (const auto& call : calls) {
            EXPECT_EQ(GC_ERR_INVALID_HANDLE, call(*channel));
        }
    }
}

TEST(ChannelBuffer, CopiesItsContents)
{
    char bytes[] = "datagram";
    MCBuffer from;
    from.m_pData = bytes;
    from.m_size = sizeof bytes;
    from.m_sizeFilled = 3;
    MCBuffer to;
    to = from;
    EXPECT_NE(bytes, to.m_pData);
    to = *&to;
    EXPECT_STREQ(bytes, to.m_pData);
    EXPECT_EQ(3U, to.m_sizeFilled);
    delete[] to.m_pData;
    unsigned count = 1;
    EXPECT_EQ(0, to.GetNumPortURLs(&count));
    EXPECT_EQ(0U, count);
    ExpectError(GC_ERR_INVALID_PARAMETER, "piNumURLs==nullptr", to.GetNumPortURLs(nullptr));
}

// ---- The camera's registers

constexpr unsigned kCaps = 0x0930;
constexpr unsigned kMcp = 0x0B00;
constexpr unsigned kMcda = 0x0B10;
constexpr unsigned kMcsp = 0x0B1C;
constexpr unsigned kScp = 0x0D00;
constexpr unsigned kReadable = 0x80000000;  // in kCaps: kMcsp can be read
using Write = std::pair<unsigned, unsigned>;

sockaddr_in Loopback()
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

/// A UDP socket at a free port of the loopback interface.
class Receiver
{
public:
    Receiver()
    {
        sockaddr_in address = Loopback();
        socklen_t length = sizeof address;
        EXPECT_EQ(0, bind(m_socket, reinterpret_cast<sockaddr*>(&address), length));
        EXPECT_EQ(0, getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &length));
        port = ntohs(address.sin_port);
    }
    ~Receiver() { close(m_socket); }

    /// What has come.
    std::vector<std::string> Datagrams() const
    {
        std::vector<std::string> datagrams;
        char bytes[2048];
        for (ssize_t got; (got = recv(m_socket, bytes, sizeof bytes, MSG_DONTWAIT)) >= 0;) {
            datagrams.emplace_back(bytes, bytes + got);
        }
        return datagrams;
    }

    unsigned port = 0;

private:
    int m_socket = socket(AF_INET, SOCK_DGRAM, 0);
};

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
        if (failing.first == address) {
            return failing.second;
        }
        writes.emplace_back(address, value);
        return 0;
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
        std::ofstream("norvo_log.conf") << R"({"ports": {"hal_out": )" << log.port
                                        << R"(, "gentl_out": 1, "vesta_in": 1, "zt_in": 1, "gentl_in": 1},)"
                                        << R"("levels": {"gentl": 100, "hal": 600}})";
        logger = std::make_unique<HLogger>();
        device.m_pSocket = std::make_unique<CommSocket>();
        EXPECT_EQ(0, device.m_pSocket->OpenAndBindSocket(Loopback(), "127.0.0.1", 3956, false, 100));
        camera.registers[kMcsp] = firewall.port;
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
        for (const std::string& record : log.Datagrams()) {
            const std::string message = nlohmann::json::parse(record).at("message");
            if (message.find("HALGv") != message.npos || message.find("anonymous") != message.npos) {
                messages += message + "\n";
            }
        }
        return messages;
    }

    Receiver log;
    std::unique_ptr<HLogger> logger;
    Receiver firewall;
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
        std::size_t writes, firewallDatagrams;
        const char* log;
    } cases[] = {
        {false, 3, kReadable,  {1, 0},              0, 2, 1, ""},
        {false, 4, kReadable,  {1, 0},              0, 2, 1, ""},
        {false, 3, ~kReadable, {1, 0},              0, 2, 0, "GenTL::HALGvmc::Start TraverseFirewall: -1014\n"},
        {false, 3, kReadable,  {kMcsp, -1011},      0, 2, 0, "anonymous::TraverseFirewall WriteReg 2844 with err: -1011\n"
                                                             "GenTL::HALGvmc::Start TraverseFirewall: -1011\n"},
        {false, 2, kReadable,  {1, 0},          -1004, 0, 0, "GenTL::HALGvmc::Start unicast read-only failure: -1004\n"},
        {false, 3, kReadable,  {kCaps, -1010},  -1010, 0, 0, "GenTL::HALGvmc::Start ReadReg 2352 with err: -1010\n"},
        {false, 3, kReadable,  {kMcda, -1005},  -1005, 0, 0, "GenTL::HALGvmc::Start WriteReg MCDA: -1005\n"},
        {false, 3, kReadable,  {kMcp, -1011},   -1011, 1, 0, "GenTL::HALGvmc::Start WriteReg MCP: -1011\n"},
        {true,  2, kReadable,  {kMcp, -1011},   -1011, 0, 0, "GenTL::HALGvmc::Port ReadReg MCP: -1011\n"},
    };
    // clang-format on
    for (const auto& c : cases) {
        camera.registers[kCaps] = c.capabilities;
        camera.failing = c.failing;
        camera.writes.clear();
        EXPECT_EQ(c.code, Start(c.multicast, c.access));
        EXPECT_EQ(c.log, Logged());
        EXPECT_EQ(c.code == 0, IsOpen());
        ASSERT_EQ(c.writes, camera.writes.size());
        if (c.writes == 2) {
            EXPECT_EQ(Write(kMcda, INADDR_LOOPBACK), camera.writes[0]);
            EXPECT_EQ(kMcp, camera.writes[1].first);
            EXPECT_LE(49152U, camera.writes[1].second);
        }
        EXPECT_EQ(std::vector<std::string>(c.firewallDatagrams, std::string(4, '\0')), firewall.Datagrams());
        EXPECT_TRUE(c.capabilities == kReadable || camera.reads.back() == kCaps);
        Stop(c.access);
        Logged();
    }
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, hal.Start(nullptr, ToHandle(&device), false, 3));
}

TEST_F(Layer, StopClosesTheStreamChannel)
{
    // clang-format off
    const struct
    {
        int answer, code;
        bool isOpenAfter;
        const char* log;
    } cases[] = {
        {0,     0,     false, ""},
        {-1011, 0,     false, "GenTL::HALGvsp::Stop WriteReg 3328 with err: -1011\n"},
        {-1005, -1005, true,  "GenTL::HALGvsp::Stop WriteReg 3328 with err: -1005\n"},
    };
    // clang-format on
    for (const auto& c : cases) {
        ASSERT_EQ(0, Start(false, 3));
        Logged();
        camera.writes.clear();
        camera.failing = {c.answer != 0 ? kScp : 1, c.answer};
        EXPECT_EQ(c.code, Stop(2)) << "whatever the access";
        EXPECT_EQ(c.log, Logged());
        EXPECT_EQ(c.isOpenAfter, IsOpen());
        EXPECT_EQ(std::vector<Write>(c.answer == 0 ? 1 : 0, Write(kScp, 0)), camera.writes);
    }
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, hal.Stop(nullptr, ToHandle(&device), 3));
}

// ---- From the camera to the consumer

void* RegisterEvents(const Consumer& consumer)
{
    void* hEvent = nullptr;
    Consumer::Check(GCRegisterEvent(consumer.Device(), EVENT_REMOTE_DEVICE, &hEvent), "GCRegisterEvent");
    return hEvent;
}

int UnregisterEvents(const Consumer& consumer)
{
    return GCUnregisterEvent(consumer.Device(), EVENT_REMOTE_DEVICE);
}

/// Empty after the time-out.
Bytes NextEvent(void* hEvent, std::uint64_t timeoutMs)
{
    Bytes bytes(kEventSizeMax);
    std::size_t size = bytes.size();
    const int code = EventGetData(hEvent, bytes.data(), &size, timeoutMs);
    bytes.resize(code == GC_ERR_SUCCESS ? size : 0);
    return bytes;
}

void Open(Consumer& consumer, const Bench& bench, int flags = DEVICE_ACCESS_CONTROL)
{
    consumer.OpenInterface(bench.Net().HostAddress());
    consumer.OpenCamera(kSerial, flags);
}

class EventBench : public Bench
{
public:
    explicit EventBench(unsigned dataSize = 0)
    {
        config.eventNotifications = true;
        config.eventDataSize = dataSize;
    }
};

class EveryEvent : public testing::TestWithParam<unsigned>
{
};

TEST_P(EveryEvent, ArrivesUnchangedAndInOrder)
{
    constexpr unsigned kEvents = 10000;
    EventBench bench(GetParam() - 24);
    sim::Camera& camera = bench.StartCamera();
    Consumer consumer;
    Open(consumer, bench);
    void* const hEvent = RegisterEvents(consumer);
    camera.SetRegister(sim::Feature::kTestEventGenerate, kEvents);
    std::vector<Bytes> received;
    const auto begin = Clock::now();
    while (received.size() < kEvents) {
        received.push_back(NextEvent(hEvent, 5000));
        ASSERT_EQ(GetParam(), received.back().size()) << "event " << received.size();
    }
    const std::chrono::duration<double> elapsed = Clock::now() - begin;
    RecordProperty("events_per_second", static_cast<int>(kEvents / elapsed.count()));
    EXPECT_EQ(camera.Events(), received);
    EXPECT_EQ(0U, camera.Seen().watchTimeouts);
    EXPECT_EQ(1U, camera.Seen().messageFirewallDatagrams);
    EXPECT_EQ(0, UnregisterEvents(consumer));
}

INSTANTIATE_TEST_SUITE_P(Sizes, EveryEvent, testing::Values(60, 576));

TEST(Events, TellAnAcquisitionAsTheFeaturesWant)
{
    EventBench bench;
    bench.config.frameLimit = 3;
    bench.StartCamera();
    Consumer consumer;
    OpenUpToStream(consumer, bench, 4, bench.config.geometry.ImageBytes());
    void* const hEvent = RegisterEvents(consumer);
    consumer.Start();
    StartCameraAcquisition(consumer);
    // Reserved, identifier, stream channel, block ID, behind the header.
    const auto told = [&] {
        const Bytes event = NextEvent(hEvent, 2000);
        return event.size() == 24 ? Bytes(event.begin() + 8, event.begin() + 16) : Bytes();
    };
    EXPECT_THAT(told(), ElementsAre(0, 0, 0x90, 0x00, 0xFF, 0xFF, 0, 0));
    for (unsigned char block = 1; block <= 3; ++block) {
        EXPECT_THAT(told(), ElementsAre(0, 0, 0x90, 0x02, 0, 0, 0, block));
    }
    EXPECT_THAT(told(), ElementsAre(0, 0, 0x90, 0x01, 0xFF, 0xFF, 0, 0));

    consumer.WriteRegister(sim::Feature::kEventNotification, 0);
    consumer.WriteRegister(sim::Feature::kEventNotification + 8, 0);
    StartCameraAcquisition(consumer);
    EXPECT_THAT(told(), ElementsAre(0, 0, 0x90, 0x01, 0xFF, 0xFF, 0, 0));
    EXPECT_THAT(NextEvent(hEvent, 300), IsEmpty());
    consumer.Stop();
    EXPECT_EQ(0, UnregisterEvents(consumer));
}

TEST(Events, ComeAgainWhenTheCameraRepeatsThem)
{
    EventBench bench;
    sim::Camera& camera = bench.StartCamera();
    Consumer consumer;
    Open(consumer, bench);
    void* const hEvent = RegisterEvents(consumer);
    consumer.WriteRegister(0x0B14, 50);
    consumer.WriteRegister(0x0B18, 2);
    camera.SetRegister(sim::Feature::kTestEventGenerate, 1);
    const Bytes first = NextEvent(hEvent, 2000);
    ASSERT_EQ(24U, first.size());
    EXPECT_EQ(1, first[1] & 1) << "the camera asks for an acknowledge";
    EXPECT_EQ(first, NextEvent(hEvent, 2000));
    EXPECT_EQ(first, NextEvent(hEvent, 2000));
    EXPECT_THAT(NextEvent(hEvent, 300), IsEmpty());
    EXPECT_EQ(0U, camera.Seen().eventAcks);
}

TEST(Events, EndWhenOtherTrafficHasUsedUpTheBuffers)
{
    EventBench bench;
    sim::Camera& camera = bench.StartCamera();
    Consumer consumer;
    Open(consumer, bench);
    void* hEvent = RegisterEvents(consumer);
    const Bytes stray = Datagram(0x00C4, 24);
    for (int i = 0; i < 99; ++i) {
        camera.SendMessageDatagram(stray.data(), stray.size());
    }
    for (int i = 0; i < 3; ++i) {
        camera.SetRegister(sim::Feature::kTestEventGenerate, 1);
        EXPECT_EQ(24U, NextEvent(hEvent, 2000).size());
    }
    camera.SendMessageDatagram(stray.data(), stray.size());
    camera.SetRegister(sim::Feature::kTestEventGenerate, 1);
    EXPECT_THAT(NextEvent(hEvent, 500), IsEmpty());
    EXPECT_EQ(0, UnregisterEvents(consumer));
    hEvent = RegisterEvents(consumer);
    camera.SetRegister(sim::Feature::kTestEventGenerate, 1);
    EXPECT_EQ(24U, NextEvent(hEvent, 2000).size());
    EXPECT_EQ(0, EventFlush(hEvent));
    camera.SetRegister(sim::Feature::kTestEventGenerate, 1);
    EXPECT_THAT(NextEvent(hEvent, 500), IsEmpty());
    EXPECT_EQ(0, UnregisterEvents(consumer));
}

TEST(Events, TakeTheImageStreamWithThemWhenTheyEnd)
{
    EventBench bench;
    sim::Camera& camera = bench.StartCamera();
    Consumer consumer;
    OpenUpToStream(consumer, bench, 4, bench.config.geometry.ImageBytes());
    RegisterEvents(consumer);
    consumer.Start();
    EXPECT_NE(0U, camera.Register(0x0D00));
    EXPECT_EQ(0, UnregisterEvents(consumer));
    EXPECT_EQ(0U, camera.Register(0x0D00));
    EXPECT_NE(0U, camera.Register(0x0B00));
    consumer.Stop();
}

TEST(Events, AreRegisteredOnceByWhoHasControl)
{
    EventBench bench;
    sim::Camera& camera = bench.StartCamera();
    Consumer consumer;
    Open(consumer, bench, DEVICE_ACCESS_READONLY);
    void* hEvent = nullptr;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, GCRegisterEvent(consumer.Device(), EVENT_REMOTE_DEVICE, &hEvent));
        EXPECT_THAT(Consumer::TakeError(), testing::Not(HasSubstr("already open")));
        EXPECT_EQ(nullptr, hEvent);
    }
    EXPECT_EQ(0U, camera.Register(0x0B10));
    EXPECT_EQ(GC_ERR_NOT_INITIALIZED, UnregisterEvents(consumer));
    EXPECT_THAT(Consumer::TakeError(), HasSubstr(": the message channel 0 is not open"));
    consumer.CloseCamera();

    consumer.OpenCamera(kSerial);
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, GCRegisterEvent(consumer.Device(), EVENT_REMOTE_DEVICE, nullptr));
    EXPECT_THAT(Consumer::TakeError(), HasSubstr(": phEvent == nullptr"));
    hEvent = RegisterEvents(consumer);
    void* hSecond = nullptr;
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, GCRegisterEvent(consumer.Device(), EVENT_REMOTE_DEVICE, &hSecond));
    EXPECT_THAT(Consumer::TakeError(), HasSubstr(": message channel 0 is already open"));
    camera.SetRegister(sim::Feature::kTestEventGenerate, 1);
    EXPECT_EQ(24U, NextEvent(hEvent, 2000).size());
    EXPECT_EQ(0, UnregisterEvents(consumer));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, EventKill(hEvent));
}

// A camera that refuses the last write of the stop, or answers no more, must not keep the channel open.
TEST(Events, EndWhateverTheCameraSays)
{
    EventBench bench;
    sim::Camera& camera = bench.StartCamera();
    Consumer consumer;
    Open(consumer, bench);
    RegisterEvents(consumer);
    camera.GoSilent(true);
    EXPECT_EQ(0, UnregisterEvents(consumer)) << "nobody waits for a camera that is gone";
    camera.GoSilent(false);
    RegisterEvents(consumer);
    camera.SetRegister(0x0A00, 0);
    EXPECT_EQ(GC_ERR_ACCESS_DENIED, UnregisterEvents(consumer));
    EXPECT_EQ(GC_ERR_NOT_INITIALIZED, UnregisterEvents(consumer));
}

constexpr std::uint64_t kMulticastMap = 0x2400;
constexpr const char* kListenerAddress = "CHANNEL_TEST_LISTENER_ADDRESS";

void* RegisterMulticastEvents(Consumer& consumer, const std::string& hostAddress, int flags)
{
    consumer.OpenInterface(hostAddress);
    consumer.OpenCamera(kSerial, flags);
    consumer.OpenStream();
    Consumer::WriteMap(consumer.Stream(), kMulticastMap, 1);
    return RegisterEvents(consumer);
}

std::string Hex(const Bytes& bytes)
{
    std::string text;
    for (const unsigned char byte : bytes) {
        char digits[3];
        snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

/// Run by the test below in a process of its own: prints a line when it listens, and one for each event.
TEST(EventListener, DISABLED_PrintsWhatItHears)
{
    const char* address = std::getenv(kListenerAddress);
    ASSERT_NE(nullptr, address);
    Consumer consumer;
    void* const hEvent = RegisterMulticastEvents(consumer, address, DEVICE_ACCESS_READONLY);
    printf("\nheard nothing yet\n");
    fflush(stdout);
    for (Bytes event; !(event = NextEvent(hEvent, 5000)).empty();) {
        printf("heard %s\n", Hex(event).c_str());
        fflush(stdout);
        if (event.size() > 24) {
            break;
        }
    }
    EXPECT_EQ(GC_ERR_ACCESS_DENIED, UnregisterEvents(consumer)) << "another application has control";
}

TEST(Events, ReachEveryListenerOfTheGroup)
{
    EventBench bench;
    sim::Camera& camera = bench.StartCamera();
    bench.Net().RunOnHost(std::string("ip route add 224.0.0.0/4 dev ") + sim::TestNet::kHostInterface);
    Consumer consumer;
    void* const hEvent = RegisterMulticastEvents(consumer, bench.Net().HostAddress(), DEVICE_ACCESS_CONTROL);
    EXPECT_EQ(0xEF0B0B0BU, camera.Register(0x0B10));
    const unsigned port = camera.Register(0x0B00);

    const std::string command = std::string(kListenerAddress) + "=" + bench.Net().HostAddress() + " " +
                                std::filesystem::read_symlink("/proc/self/exe").string() +
                                " --gtest_also_run_disabled_tests --gtest_filter=EventListener.*";
    FILE* listener = popen(command.c_str(), "r");
    ASSERT_NE(nullptr, listener);
    std::string all;
    const auto heard = [&] {
        for (char line[2048]; fgets(line, sizeof line, listener) != nullptr; all += line) {
            if (std::strncmp(line, "heard ", 6) == 0) {
                return std::string(line + 6, strcspn(line + 6, "\n"));
            }
        }
        return "the end after\n" + all;
    };
    EXPECT_EQ("nothing yet", heard());
    for (const unsigned dataSize : {0U, 0U, 0U, 552U}) {
        camera.SetRegister(sim::Feature::kEventDataSize, dataSize);
        camera.SetRegister(sim::Feature::kTestEventGenerate, 1);
        const Bytes event = NextEvent(hEvent, 5000);
        EXPECT_EQ(24 + dataSize, event.size());
        EXPECT_EQ(Hex(event), heard());
    }
    while (fgetc(listener) != EOF) {
    }
    EXPECT_EQ(0, pclose(listener));
    EXPECT_EQ(port, camera.Register(0x0B00)) << "a listener writes nothing";
    camera.SetRegister(sim::Feature::kTestEventGenerate, 1);
    EXPECT_EQ(576U, NextEvent(hEvent, 5000).size());
    EXPECT_EQ(0, UnregisterEvents(consumer));
}

TEST(Events, EndWithTheirDevice)
{
    EventBench bench;
    bench.StartCamera();
    Consumer consumer;
    consumer.OpenInterface(bench.Net().HostAddress());
    const std::size_t threads = Entries("/proc/self/task");
    const std::size_t descriptors = Entries("/proc/self/fd");
    for (int i = 0; i < 3; ++i) {
        consumer.OpenCamera(kSerial);
        void* const hEvent = RegisterEvents(consumer);
        consumer.CloseCamera();
        EXPECT_EQ(GC_ERR_INVALID_HANDLE, EventKill(hEvent));
    }
    EXPECT_EQ(threads, Entries("/proc/self/task"));
    EXPECT_EQ(descriptors, Entries("/proc/self/fd"));
}

// Datagrams that keep coming save each cycle the receive thread's last time-out.
TEST(Events, AreRegisteredAndUnregisteredWithoutAnythingLeftBehind)
{
    constexpr std::ptrdiff_t kSmallestBlock = 32;  // that a leak of each cycle would leave
    EventBench bench;
    sim::Camera& camera = bench.StartCamera();
    Consumer consumer;
    Open(consumer, bench);
    std::atomic<bool> isDone{false};
    std::thread sender([&] {
        const Bytes event = Datagram(0x00C0, 24);
        while (!isDone) {
            camera.SendMessageDatagram(event.data(), event.size());
            std::this_thread::sleep_for(1ms);
        }
    });
    std::size_t threads = 0;
    std::size_t descriptors = 0;
    std::ptrdiff_t bytes = 0;
    const auto bytesInUse = [] { return static_cast<std::ptrdiff_t>(mallinfo2().uordblks); };
    for (int cycle = 0; cycle < 500; ++cycle) {
        if (cycle == 50) {
            threads = Entries("/proc/self/task");
            descriptors = Entries("/proc/self/fd");
            bytes = bytesInUse();
        }
        void* const hEvent = RegisterEvents(consumer);
        EXPECT_EQ(24U, NextEvent(hEvent, 2000).size());
        ASSERT_EQ(0, UnregisterEvents(consumer)) << Consumer::TakeError();
    }
    EXPECT_EQ(threads, Entries("/proc/self/task"));
    EXPECT_EQ(descriptors, Entries("/proc/self/fd"));
    EXPECT_GT(450 * kSmallestBlock, bytesInUse() - bytes);
    isDone = true;
    sender.join();
}

}  // namespace
