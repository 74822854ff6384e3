/// What a consumer learns of a buffer and of the new-buffer event, without a camera: the test plays the
/// grab thread.
#include "buffers/Buffer.h"
#include "buffers/BufferUtility.h"
#include "buffers/NewBufferEvent.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"
#include "stream/DataStream.h"

#include <boost/thread/lock_guard.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <deque>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace GenTL;
using testing::EndsWith;
using Clock = std::chrono::steady_clock;

namespace {

int g_token = 0;

class TestStream : public DataStream
{
public:
    TestStream() : DataStream(&g_token, &g_token) {}

    /// As a grab thread hands off an image.
    void Deliver(void* hBuffer)
    {
        const boost::lock_guard<boost::mutex> lock(m_outputMutex);
        m_outputBuffers.push_back(static_cast<GenTLHandle*>(hBuffer));
        m_outputCondition.notify_one();
    }

    using DataStream::m_killCount;
};

class Buffers : public testing::Test
{
protected:
    void SetUp() override
    {
        ErrorCache::ReleaseErrorCache();
        ASSERT_EQ(0, m_stream.RegisterEvent(EVENT_NEW_BUFFER, &m_hEvent));
        m_pEvent = dynamic_cast<IEvent*>(CastHandle(m_hEvent));
        ASSERT_NE(nullptr, m_pEvent);
    }

    void TearDown() override
    {
        EXPECT_EQ(0, m_stream.FlushQueue(ACQ_QUEUE_ALL_DISCARD));
        for (void* hBuffer : m_handles) {
            CastHandleToBufferPtr(hBuffer)->m_isQueued = false;
            EXPECT_EQ(0, m_stream.RevokeBuffer(hBuffer, nullptr, nullptr));
        }
        EXPECT_EQ(0, m_stream.UnregisterEvent(EVENT_NEW_BUFFER));
    }

    void* Announce(void* pPrivate = nullptr)
    {
        void* hBuffer = nullptr;
        EXPECT_EQ(0, m_stream.AllocAndAnnounceBuffer(kSize, pPrivate, &hBuffer));
        m_handles.push_back(hBuffer);
        return hBuffer;
    }

    static std::string LastMessage()
    {
        Error e;
        ErrorCache::GetErrorCache()->Peak(e);
        return e.Message();
    }

    int GetData(S_EVENT_NEW_BUFFER& data, std::uint64_t timeout)
    {
        std::size_t size = sizeof data;
        return m_pEvent->GetData(&data, &size, timeout);
    }

    std::uint64_t EventNumber(int command)
    {
        int type = 0;
        std::uint64_t value = 0;
        std::size_t size = sizeof value;
        EXPECT_EQ(0, m_pEvent->GetInfo(command, &type, &value, &size));
        return value;
    }

    static constexpr std::size_t kSize = 64;

    TestStream m_stream;
    void* m_hEvent = nullptr;
    IEvent* m_pEvent = nullptr;
    std::vector<void*> m_handles;
};

/// One answer of DSGetBufferInfo, as its bytes.
struct Answer
{
    int code = 0;
    int type = 0;
    std::string bytes;
};

Answer Ask(const IDataStream& stream, void* hBuffer, int command)
{
    Answer answer;
    std::size_t size = 0;
    answer.code = stream.GetBufferInfo(hBuffer, command, &answer.type, nullptr, &size);
    if (answer.code != 0) {
        return answer;
    }
    answer.bytes.resize(size);
    EXPECT_EQ(0, stream.GetBufferInfo(hBuffer, command, &answer.type, answer.bytes.data(), &size)) << command;
    EXPECT_EQ(answer.bytes.size(), size) << command;
    return answer;
}

template <typename T>
std::string Bytes(T value)
{
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

// Every field has a value of its own, so that no two commands can be mixed up.
TEST_F(Buffers, AnswersEveryInfoCommand)
{
    void* hBuffer = Announce(&m_handles);
    Buffer& b = *CastHandleToBufferPtr(hBuffer);
    b.m_newData = true;
    b.m_isQueued = true;
    b.m_isAcquiring = false;
    b.m_sizeFilled = 103;
    b.m_width = 104;
    b.m_height = 105;
    b.m_xOffset = 106;
    b.m_yOffset = 107;
    b.m_xPadding = 108;
    b.m_yPadding = 109;
    b.m_frameId = 0x1000000000000001;
    b.m_imagePresent = true;
    b.m_imageOffset = 112;
    b.m_payloadType = 0x4001;
    b.m_pixelFormat = 0x01080001;
    b.m_deliveredImageHeight = 113;
    b.m_deliveredChunkPayloadSize = 114;
    b.m_chunkLayoutId = 115;
    b.m_fileName = "picture";
    b.m_dataSize = 116;
    b.m_timestamp = 0xFFFFFFFFFFFFFFFF;
    b.m_containsChunkData = true;

    const auto u64 = [](std::uint64_t value) { return Answer{0, INFO_DATATYPE_UINT64, Bytes(value)}; };
    const auto boolean = [](bool value) { return Answer{0, INFO_DATATYPE_BOOL8, Bytes(value)}; };
    const auto pointer = [](const void* value) { return Answer{0, INFO_DATATYPE_PTR, Bytes(value)}; };
    const Answer notAvailable{GC_ERR_NOT_AVAILABLE, 0, ""};
    const Answer expected[] = {
        pointer(b.m_pData),
        u64(kSize),
        pointer(&m_handles),
        u64(0xFFFFFFFFFFFFFFFF),
        boolean(true),
        boolean(true),
        boolean(false),
        boolean(true),
        {0, INFO_DATATYPE_STRING, std::string("GEV", 4)},
        u64(103),
        u64(104),
        u64(105),
        u64(106),
        u64(107),
        u64(108),
        u64(109),
        u64(0x1000000000000001),
        boolean(true),
        u64(112),
        u64(0x4001),
        u64(0x01080001),
        u64(4),
        u64(113),
        u64(114),
        u64(115),
        notAvailable,
        {0, INFO_DATATYPE_INT32,                     Bytes<std::int32_t>(1)                  },
        u64(116),
        u64(0xFFFFFFFFFFFFFFFF),
        boolean(false),
        boolean(true),
    };
    for (int command = 0; command <= BUFFER_INFO_CONTAINS_CHUNKDATA; ++command) {
        const Answer answer = Ask(m_stream, hBuffer, command);
        EXPECT_EQ(expected[command].code, answer.code) << command;
        if (answer.code == 0) {
            EXPECT_EQ(expected[command].type, answer.type) << command;
        }
        EXPECT_EQ(expected[command].bytes, answer.bytes) << command;
    }
    for (const int command : {-1, 31, 1000}) {
        EXPECT_EQ(GC_ERR_INVALID_INDEX, Ask(m_stream, hBuffer, command).code) << command;
    }
}

TEST_F(Buffers, AnswersByPayloadType)
{
    const std::set<int> image{10, 11, 12, 13, 14, 15, 17, 18, 20, 21, 22, 26};
    const std::set<int> imageAndChunks{10, 11, 12, 13, 14, 15, 17, 18, 20, 21, 22, 23, 24, 26};
    const struct
    {
        std::uint64_t payloadType;
        std::set<int> commands;  // beyond those that every buffer answers
    } rows[] = {
        {0,      {}            },
        {1,      image         },
        {0x4001, imageAndChunks},
        {3,      {25}          },
        {4,      {23, 24}      },
        {0x4004, {}            },
        {8,      {}            },
    };
    void* hBuffer = Announce();
    for (const auto& row : rows) {
        CastHandleToBufferPtr(hBuffer)->m_payloadType = row.payloadType;
        std::set<int> answered;
        for (const int command : {10, 11, 12, 13, 14, 15, 17, 18, 20, 21, 22, 23, 24, 25, 26}) {
            const int code = Ask(m_stream, hBuffer, command).code;
            if (code == 0) {
                answered.insert(command);
                continue;
            }
            EXPECT_EQ(GC_ERR_NOT_AVAILABLE, code) << command;
            EXPECT_THAT(LastMessage(), EndsWith("URL_INFO_CMD URL_INFO_FILE_VER_MAJOR is not available"));
        }
        EXPECT_EQ(row.commands, answered) << row.payloadType;
        EXPECT_EQ(GC_ERR_NOT_AVAILABLE, Ask(m_stream, hBuffer, BUFFER_INFO_FRAMEID).code);
    }
}

// A consumer that asks for the size first must still see that the image is new.
TEST_F(Buffers, NewDataIsClearedByARealReadOnly)
{
    void* hBuffer = Announce();
    CastHandleToBufferPtr(hBuffer)->m_newData = true;
    int type = 0;
    bool8_t value = 0;
    std::size_t size = 0;
    const auto read = [&](void* to) {
        return m_stream.GetBufferInfo(hBuffer, BUFFER_INFO_NEW_DATA, &type, to, &size);
    };
    EXPECT_EQ(GC_ERR_BUFFER_TOO_SMALL, read(&value));
    EXPECT_EQ(0, read(nullptr));
    EXPECT_EQ(sizeof value, size);
    EXPECT_EQ(0, read(&value));
    EXPECT_TRUE(value);
    EXPECT_EQ(0, read(&value));
    EXPECT_FALSE(value);
}

// Whatever a port operation is given, the module behind the handle must refuse it and stay as it is.
TEST_F(Buffers, BufferAndEventHaveNoPort)
{
    for (void* handle : {Announce(), m_hEvent}) {
        IBaseModule& module = *CastHandle(handle);
        unsigned long size = 4;
        int type = 0;
        void* hEvent = nullptr;
        char bytes[4] = {};
        const int answers[] = {
            module.ReadPort(0, bytes, &size),
            module.WritePort(0, bytes, &size),
            module.GetPortURL(bytes, &size),
            module.GetPortInfo(PORT_INFO_ID, &type, bytes, &size),
            module.RegisterEvent(EVENT_NEW_BUFFER, &hEvent),
            module.UnregisterEvent(EVENT_NEW_BUFFER),
            module.GetPortURLInfo(0, URL_INFO_URL, &type, bytes, &size),
            module.ReadPortStacked(nullptr, &size),
            module.WritePortStacked(nullptr, &size),
        };
        EXPECT_THAT(answers, testing::Each(static_cast<int>(GC_ERR_NOT_IMPLEMENTED)));
    }
    unsigned count = 7;
    IBaseModule& buffer = *CastHandle(m_handles.front());
    EXPECT_EQ(0, buffer.GetNumPortURLs(&count));
    EXPECT_EQ(0U, count);
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, buffer.GetNumPortURLs(nullptr));
    EXPECT_THAT(LastMessage(), EndsWith("piNumURLs==nullptr"));
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, CastHandle(m_hEvent)->GetNumPortURLs(&count));
}

TEST(BufferCompare, NamesTheStates)
{
    EXPECT_EQ("IN_DISCARDED", BufferUtility::getStateAsStr(IN_DISCARDED));
    EXPECT_EQ("IN_USER", BufferUtility::getStateAsStr(IN_USER));
    EXPECT_EQ("UNKNOWN", BufferUtility::getStateAsStr(UNKNOWN));
    for (const int state : {-1, 7}) {
        EXPECT_EQ("STATUS IS IN ENUM", BufferUtility::getStateAsStr(state));
    }
}

TEST(BufferCompare, SeesEachComparedFieldAndNoOther)
{
    using Change = void (*)(Buffer&);
    const Change seen[] = {
        [](Buffer& b) { b.m_size = 1; },
        [](Buffer& b) { b.m_pUserPointer = &b; },
        [](Buffer& b) { b.m_isAcquiring = true; },
        [](Buffer& b) { b.m_tlType = "GEV"; },
        [](Buffer& b) { b.m_sizeFilled = 1; },
        [](Buffer& b) { b.m_yPadding = 1; },
        [](Buffer& b) { b.m_frameId = 1; },
        [](Buffer& b) { b.m_imagePresent = true; },
        [](Buffer& b) { b.m_imageOffset = 1; },
        [](Buffer& b) { b.m_chunkLayoutId = 1; },
        [](Buffer& b) { b.m_fileName = "x"; },
        [](Buffer& b) { b.m_pixelEndianness = 1; },
        [](Buffer& b) { b.m_timestamp = 1; },
        [](Buffer& b) { b.m_dataLargerThanBuffer = true; },
        [](Buffer& b) { b.m_userAllocated = true; },
        [](Buffer& b) { b.m_driverIndex = 1; },
        [](Buffer& b) { b.m_state = IN_USER; },
        [](Buffer& b) { b.m_imageExpired = false; },
        [](Buffer& b) { b.m_nextExpectedPacketId = 1; },
        [](Buffer& b) { b.m_leaderReceived = true; },
        [](Buffer& b) { b.m_packetsRemaining = -1; },
    };
    for (std::size_t i = 0; i < std::size(seen); ++i) {
        const Buffer a;
        Buffer b;
        seen[i](b);
        EXPECT_FALSE(BufferUtility::areEqual(a, b)) << i;
    }
    const Buffer a;
    Buffer b;
    b.m_pData = &b;
    b.m_packetSeen = true;
    b.m_packetsReceived = 1;
    b.m_bufferExpiryDone = true;
    EXPECT_TRUE(BufferUtility::areEqual(a, b));
}

TEST(BufferCompare, DataAreHeldAgainstTheFilledSize)
{
    char first[] = "abcd";
    char second[] = "abcd";
    Buffer a;
    Buffer b;
    a.m_pData = first;
    b.m_pData = second;
    a.m_size = b.m_size = 4;
    a.m_sizeFilled = b.m_sizeFilled = 2;
    EXPECT_FALSE(BufferUtility::areEqualDataArray(a, a));
    a.m_dataSize = 2;
    EXPECT_TRUE(BufferUtility::areEqualDataArray(a, b));
    EXPECT_FALSE(BufferUtility::areEqualDataArray(b, a));  // b's own data size is 0
    second[3] = 'x';                                       // behind what is filled, but inside the buffer
    EXPECT_FALSE(BufferUtility::areEqualDataArray(a, b));
}

TEST(BufferCompare, ResolvesPointersAndHandles)
{
    Buffer a;
    Buffer b;
    void* hA = nullptr;
    void* hB = nullptr;
    ASSERT_EQ(0, AllocateHandle(&hA, static_cast<IBuffer*>(&a)));
    ASSERT_EQ(0, AllocateHandle(&hB, static_cast<IBuffer*>(&b)));
    const auto* handleA = static_cast<const GenTLHandle*>(hA);
    const auto* handleB = static_cast<const GenTLHandle*>(hB);
    const GenTLHandle* noHandle = nullptr;
    const Buffer* noBuffer = nullptr;
    EXPECT_TRUE(BufferUtility::areEqual(static_cast<const IBuffer*>(&a), static_cast<const IBuffer*>(&b)));
    EXPECT_TRUE(BufferUtility::areEqual(handleA, handleB));
    EXPECT_TRUE(BufferUtility::areEqual(noBuffer, noBuffer));
    EXPECT_TRUE(BufferUtility::areEqual(noHandle, noHandle));
    EXPECT_FALSE(BufferUtility::areEqual(&a, noBuffer));
    EXPECT_FALSE(BufferUtility::areEqual(noHandle, handleB));
    b.m_width = 1;
    EXPECT_FALSE(BufferUtility::areEqual(handleA, handleB));
    EXPECT_EQ(0, DeleteHandle(hA));
    EXPECT_EQ(0, DeleteHandle(hB));
}

// The buffers are revoked afterwards: a shared timer would be freed twice.
TEST_F(Buffers, AssignmentCopiesTheLibrarysMemoryAndKeepsTheTimers)
{
    Buffer& source = *CastHandleToBufferPtr(Announce());
    Buffer& target = *CastHandleToBufferPtr(Announce());
    std::memset(source.m_pData, 'a', kSize);
    source.m_dataSize = source.m_sizeFilled = kSize;
    source.m_packetsReceived = 9;
    const std::unique_ptr<char[]> former(static_cast<char*>(target.m_pData));
    const auto* timer = target.m_pNextPacketTimer;
    target = source;
    EXPECT_EQ(timer, target.m_pNextPacketTimer);
    EXPECT_NE(source.m_pData, target.m_pData);
    EXPECT_TRUE(BufferUtility::areEqualDataArray(source, target));
    EXPECT_EQ(0U, target.m_packetsReceived);

    source.m_userAllocated = true;
    Buffer sharing;
    sharing = source;
    EXPECT_TRUE(BufferUtility::areEqual(source, sharing));
    source.m_userAllocated = false;
    EXPECT_EQ(source.m_pData, sharing.m_pData);
}

TEST_F(Buffers, EventAnswersItsInfo)
{
    m_stream.Deliver(Announce());
    m_stream.Deliver(Announce());
    S_EVENT_NEW_BUFFER data{};
    ASSERT_EQ(0, GetData(data, 0));

    std::int32_t event = 0;
    int kind = 0;
    std::size_t bytes = sizeof event;
    EXPECT_EQ(0, m_pEvent->GetInfo(EVENT_EVENT_TYPE, &kind, &event, &bytes));
    EXPECT_EQ(INFO_DATATYPE_INT32, kind);
    EXPECT_EQ(EVENT_NEW_BUFFER, event);
    EXPECT_EQ(1U, EventNumber(EVENT_NUM_IN_QUEUE));
    EXPECT_EQ(1U, EventNumber(EVENT_NUM_FIRED));
    EXPECT_EQ(16U, EventNumber(EVENT_SIZE_MAX));
    EXPECT_EQ(256U, EventNumber(EVENT_INFO_DATA_SIZE_MAX));
    int type = 0;
    std::size_t size = 0;
    EXPECT_EQ(GC_ERR_INVALID_INDEX, m_pEvent->GetInfo(5, &type, nullptr, &size));
    EXPECT_THAT(LastMessage(), EndsWith("GenTL::EVENT_SIZE_MAX, GenTL::EVENT_INFO_DATA_SIZE_MAX"));
}

// A wrong call must not cost an image, nor eat the kill.
TEST_F(Buffers, GetDataTestsItsArgumentsBeforeTheKillAndTheQueue)
{
    void* hBuffer = Announce(&g_token);
    m_stream.Deliver(hBuffer);
    EXPECT_EQ(0, m_pEvent->Kill());

    S_EVENT_NEW_BUFFER data{};
    std::size_t size = 0;
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, m_pEvent->GetData(&data, nullptr, 0));
    EXPECT_EQ(0, m_pEvent->GetData(nullptr, &size, 0));
    EXPECT_EQ(16U, size);
    size = 15;
    EXPECT_EQ(GC_ERR_BUFFER_TOO_SMALL, m_pEvent->GetData(&data, &size, 0));
    EXPECT_EQ(15U, size);

    size = 100;
    EXPECT_EQ(GC_ERR_ABORT, m_pEvent->GetData(&data, &size, 0));
    EXPECT_EQ(0U, EventNumber(EVENT_NUM_FIRED));
    EXPECT_EQ(0, m_pEvent->GetData(&data, &size, 0));
    EXPECT_EQ(16U, size);
    EXPECT_EQ(hBuffer, data.BufferHandle);
    EXPECT_EQ(&g_token, data.pUserPointer);
    EXPECT_EQ(1U, EventNumber(EVENT_NUM_FIRED));
}

TEST_F(Buffers, TwoKillsAbortNothing)
{
    S_EVENT_NEW_BUFFER data{};
    m_pEvent->Kill();
    m_pEvent->Kill();
    EXPECT_EQ(GC_ERR_TIMEOUT, GetData(data, 0));
    // The wait has cleared the count, so the next single kill works again.
    m_pEvent->Kill();
    EXPECT_EQ(GC_ERR_ABORT, GetData(data, 0));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, GetData(data, GENTL_INFINITE - 1));
}

// Polling for hours must not fill the thread's error stack.
TEST_F(Buffers, TimeoutsDontPileUpErrors)
{
    S_EVENT_NEW_BUFFER data{};
    const auto poll = [&] {
        EXPECT_EQ(GC_ERR_TIMEOUT, GetData(data, 0));
        Error e;
        ErrorCache::GetErrorCache()->Peak(e);
        return e.NumErrors();
    };
    const std::size_t first = poll();
    EXPECT_EQ(first, poll());
}

class KilledWait : public Buffers
{
protected:
    /// Waits in a thread of its own, and kills once the wait is known to run.
    template <typename WhileWaiting>
    int WaitAndKill(std::uint64_t timeout, WhileWaiting whileWaiting)
    {
        constexpr std::uint64_t kWaitHasNotBegun = 9;
        m_stream.m_killCount = kWaitHasNotBegun;
        int code = 1;
        std::thread waiter([&] {
            S_EVENT_NEW_BUFFER data{};
            code = GetData(data, timeout);
        });
        while (m_stream.m_killCount == kWaitHasNotBegun) {
            std::this_thread::yield();
        }
        EXPECT_EQ(0, m_pEvent->Kill());
        whileWaiting();
        waiter.join();
        return code;
    }
};

TEST_F(KilledWait, GoesOnToItsDeadline)
{
    const auto start = Clock::now();
    EXPECT_EQ(GC_ERR_TIMEOUT, WaitAndKill(100, [] {}));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(99));
    S_EVENT_NEW_BUFFER data{};
    EXPECT_EQ(GC_ERR_ABORT, GetData(data, 0));
}

TEST_F(KilledWait, GoesOnUntilABufferComes)
{
    void* hBuffer = Announce();
    EXPECT_EQ(0, WaitAndKill(GENTL_INFINITE, [&] { m_stream.Deliver(hBuffer); }));
    EXPECT_EQ(1U, EventNumber(EVENT_NUM_FIRED));
}

// Each image goes to exactly one of several waiting threads.
TEST_F(Buffers, SeveralWaitersShareTheImages)
{
    constexpr std::size_t kImages = 400;
    constexpr std::size_t kWaiters = 3;
    std::vector<void*> delivered[kWaiters];
    for (std::size_t i = 0; i < kImages; ++i) {
        Announce();
    }
    std::vector<std::thread> waiters;
    for (auto& mine : delivered) {
        waiters.emplace_back([&] {
            S_EVENT_NEW_BUFFER data{};
            while (GetData(data, 500) == 0) {
                mine.push_back(data.BufferHandle);
            }
        });
    }
    for (void* hBuffer : m_handles) {
        m_stream.Deliver(hBuffer);
        EventNumber(EVENT_NUM_IN_QUEUE);
    }
    for (std::thread& waiter : waiters) {
        waiter.join();
    }
    std::vector<void*> all;
    for (const auto& mine : delivered) {
        all.insert(all.end(), mine.begin(), mine.end());
    }
    EXPECT_THAT(all, testing::UnorderedElementsAreArray(m_handles));
    EXPECT_EQ(kImages, EventNumber(EVENT_NUM_FIRED));
}

TEST_F(Buffers, EventDataInfoIsFixed)
{
    const char noData[] = "x";
    int type = 0;
    char text[32] = {};
    std::size_t size = sizeof text;
    const auto ask = [&](int command) {
        size = sizeof text;
        return m_pEvent->GetDataInfo(noData, 1, command, &type, text, &size);
    };
    EXPECT_EQ(0, ask(EVENT_DATA_ID));
    EXPECT_STREQ("New Buffer Event", text);
    EXPECT_EQ(0, ask(EVENT_DATA_VALUE));
    EXPECT_STREQ("No buffer data value", text);
    EXPECT_EQ(GC_ERR_NOT_AVAILABLE, ask(EVENT_DATA_NUMID));
    EXPECT_EQ(GC_ERR_INVALID_INDEX, ask(3));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_pEvent->GetDataInfo(nullptr, 0, 0, nullptr, text, nullptr));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, m_pEvent->GetDataInfo(noData, 0, 0, &type, text, &size));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, m_pEvent->GetDataInfo(noData, 1, 0, nullptr, text, &size));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, m_pEvent->GetDataInfo(noData, 1, 0, &type, text, nullptr));
}

TEST_F(Buffers, EventFlushDiscardsWhatWaits)
{
    S_EVENT_NEW_BUFFER data{};
    for (int i = 0; i < 4; ++i) {
        m_stream.Deliver(Announce());
    }
    ASSERT_EQ(0, GetData(data, 0));
    EXPECT_EQ(0, m_pEvent->Flush());
    EXPECT_EQ(0U, EventNumber(EVENT_NUM_IN_QUEUE));
    EXPECT_EQ(1U, EventNumber(EVENT_NUM_FIRED));
    EXPECT_EQ(GC_ERR_TIMEOUT, GetData(data, 0));
    for (void* hBuffer : m_handles) {
        EXPECT_EQ(0, m_stream.QueueBuffer(hBuffer));
    }
}

}  // namespace
