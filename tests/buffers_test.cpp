/// What a consumer learns of a buffer and of the new-buffer event, without a camera: the test plays the
/// grab thread.
#include "StreamTest.h"
#include "buffers/Buffer.h"
#include "buffers/BufferUtility.h"
#include "buffers/NewBufferEvent.h"
#include "frame/GenTLHandle.h"
#include "stream/DataStream.h"

#include <boost/thread/lock_guard.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
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

// Each number and each flag is told apart from all others.
TEST_F(Buffers, AnswersEveryInfoCommand)
{
    void* hBuffer = Announce(&m_handles);
    Buffer& b = *CastHandleToBufferPtr(hBuffer);
    b.m_payloadType = 0x4001;
    b.m_imageOffset = 19;
    const std::pair<int, Relaxed<std::uint64_t> Buffer::*> numbers[] = {
        {BUFFER_INFO_TIMESTAMP,                  &Buffer::m_timestamp                },
        {BUFFER_INFO_SIZE_FILLED,                &Buffer::m_sizeFilled               },
        {BUFFER_INFO_WIDTH,                      &Buffer::m_width                    },
        {BUFFER_INFO_HEIGHT,                     &Buffer::m_height                   },
        {BUFFER_INFO_XOFFSET,                    &Buffer::m_xOffset                  },
        {BUFFER_INFO_YOFFSET,                    &Buffer::m_yOffset                  },
        {BUFFER_INFO_XPADDING,                   &Buffer::m_xPadding                 },
        {BUFFER_INFO_YPADDING,                   &Buffer::m_yPadding                 },
        {BUFFER_INFO_FRAMEID,                    &Buffer::m_frameId                  },
        {BUFFER_INFO_PIXELFORMAT,                &Buffer::m_pixelFormat              },
        {BUFFER_INFO_DELIVERED_IMAGEHEIGHT,      &Buffer::m_deliveredImageHeight     },
        {BUFFER_INFO_DELIVERED_CHUNKPAYLOADSIZE, &Buffer::m_deliveredChunkPayloadSize},
        {BUFFER_INFO_CHUNKLAYOUTID,              &Buffer::m_chunkLayoutId            },
        {BUFFER_INFO_DATA_SIZE,                  &Buffer::m_dataSize                 },
    };
    const std::pair<int, Relaxed<bool> Buffer::*> flags[] = {
        {BUFFER_INFO_NEW_DATA,                &Buffer::m_newData             },
        {BUFFER_INFO_IS_QUEUED,               &Buffer::m_isQueued            },
        {BUFFER_INFO_IS_ACQUIRING,            &Buffer::m_isAcquiring         },
        {BUFFER_INFO_IS_INCOMPLETE,           &Buffer::m_isIncomplete        },
        {BUFFER_INFO_IMAGEPRESENT,            &Buffer::m_imagePresent        },
        {BUFFER_INFO_DATA_LARGER_THAN_BUFFER, &Buffer::m_dataLargerThanBuffer},
        {BUFFER_INFO_CONTAINS_CHUNKDATA,      &Buffer::m_containsChunkData   },
    };
    const auto expect = [&](int command, int type, const std::string& bytes) {
        const Answer answer = Ask(m_stream, hBuffer, command);
        EXPECT_EQ(0, answer.code) << command;
        EXPECT_EQ(type, answer.type) << command;
        EXPECT_EQ(bytes, answer.bytes) << command;
    };
    const auto valueFor = [](int command) { return 0x8000000000000000 + static_cast<unsigned>(command); };
    for (const auto& [command, field] : numbers) {
        b.*field = valueFor(command);
    }
    for (const auto& [command, field] : numbers) {
        expect(command, INFO_DATATYPE_UINT64, Bytes(valueFor(command)));
    }
    for (const auto& set : flags) {
        for (const auto& [command, field] : flags) {
            b.*field = command == set.first;
        }
        for (const auto& [command, field] : flags) {
            expect(command, INFO_DATATYPE_BOOL8, Bytes(command == set.first));
        }
    }
    expect(BUFFER_INFO_TIMESTAMP_NS, INFO_DATATYPE_UINT64, Bytes(valueFor(BUFFER_INFO_TIMESTAMP)));
    expect(BUFFER_INFO_IMAGEOFFSET, INFO_DATATYPE_UINT64, Bytes<std::uint64_t>(19));
    expect(BUFFER_INFO_SIZE, INFO_DATATYPE_UINT64, Bytes<std::uint64_t>(kSize));
    expect(BUFFER_INFO_PAYLOADTYPE, INFO_DATATYPE_UINT64, Bytes<std::uint64_t>(0x4001));
    expect(BUFFER_INFO_PIXELFORMAT_NAMESPACE, INFO_DATATYPE_UINT64, Bytes<std::uint64_t>(4));
    expect(BUFFER_INFO_BASE, INFO_DATATYPE_PTR, Bytes(b.m_pData));
    expect(BUFFER_INFO_USER_PTR, INFO_DATATYPE_PTR, Bytes(&m_handles));
    expect(BUFFER_INFO_TLTYPE, INFO_DATATYPE_STRING, std::string("GEV", 4));
    expect(BUFFER_INFO_PIXEL_ENDIANNESS, INFO_DATATYPE_INT32, Bytes<std::int32_t>(1));
    EXPECT_EQ(GC_ERR_INVALID_INDEX, Ask(m_stream, hBuffer, -1).code);
    EXPECT_EQ(GC_ERR_INVALID_INDEX, Ask(m_stream, hBuffer, 31).code);
}

TEST_F(Buffers, AnswersByPayloadType)
{
    const struct
    {
        std::uint64_t payloadType;
        std::set<int> commands;  // beyond those that every buffer answers
    } rows[] = {
        {0,      {}                                                                 },
        {1,      {BUFFER_INFO_WIDTH, BUFFER_INFO_PIXEL_ENDIANNESS}                  },
        {3,      {BUFFER_INFO_FILENAME}                                             },
        {4,      {BUFFER_INFO_DELIVERED_CHUNKPAYLOADSIZE, BUFFER_INFO_CHUNKLAYOUTID}},
        {0x4004, {}                                                                 },
    };
    void* hBuffer = Announce();
    for (const auto& row : rows) {
        CastHandleToBufferPtr(hBuffer)->m_payloadType = row.payloadType;
        std::set<int> answered;
        for (const int command : {10, 23, 24, 25, 26}) {
            if (Ask(m_stream, hBuffer, command).code == 0) {
                answered.insert(command);
            } else {
                EXPECT_THAT(LastMessage(), EndsWith("URL_INFO_CMD URL_INFO_FILE_VER_MAJOR is not available"));
            }
        }
        EXPECT_EQ(row.commands, answered) << row.payloadType;
    }
    EXPECT_EQ(GC_ERR_NOT_AVAILABLE, Ask(m_stream, hBuffer, BUFFER_INFO_WIDTH).code);
    EXPECT_EQ(GC_ERR_NOT_AVAILABLE, Ask(m_stream, hBuffer, BUFFER_INFO_FRAMEID).code);
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
        char bytes[4] = {};
        EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, module.ReadPort(0, bytes, &size));
        EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, module.GetPortInfo(PORT_INFO_ID, &type, bytes, &size));
        EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, module.WritePortStacked(nullptr, &size));
    }
    unsigned count = 7;
    IBaseModule& buffer = *CastHandle(m_handles.front());
    EXPECT_EQ(0, buffer.GetNumPortURLs(&count));
    EXPECT_EQ(0U, count);
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, buffer.GetNumPortURLs(nullptr));
}

TEST(BufferCompare, NamesTheStates)
{
    EXPECT_EQ("IN_USER", BufferUtility::getStateAsStr(IN_USER));
    EXPECT_EQ("STATUS IS IN ENUM", BufferUtility::getStateAsStr(-1));
    EXPECT_EQ("STATUS IS IN ENUM", BufferUtility::getStateAsStr(UNKNOWN + 1));
}

TEST(BufferCompare, SeesTheContentsAndNotWhereTheyLie)
{
    using Change = void (*)(Buffer&);
    const Change seen[] = {
        [](Buffer& b) { b.m_size = 1; },          [](Buffer& b) { b.m_yPadding = 1; },
        [](Buffer& b) { b.m_chunkLayoutId = 1; }, [](Buffer& b) { b.m_fileName = "x"; },
        [](Buffer& b) { b.m_state = IN_USER; },   [](Buffer& b) { b.m_packetsRemaining = -1; },
    };
    for (const Change& change : seen) {
        Buffer b;
        change(b);
        EXPECT_FALSE(BufferUtility::areEqual(Buffer(), b)) << &change - seen;
    }
    Buffer b;
    b.m_pData = &b;
    b.m_packetsReceived = 1;
    EXPECT_TRUE(BufferUtility::areEqual(Buffer(), b));
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

TEST_F(Buffers, AreComparedByTheirHandles)
{
    const auto* a = static_cast<const GenTLHandle*>(Announce());
    const auto* b = static_cast<const GenTLHandle*>(Announce());
    const auto* event = static_cast<const GenTLHandle*>(m_hEvent);
    const GenTLHandle* none = nullptr;
    EXPECT_TRUE(BufferUtility::areEqualDataArray(a, b));
    EXPECT_FALSE(BufferUtility::areEqual(a, b)) << "each has a timer of its own";
    EXPECT_TRUE(BufferUtility::areEqual(none, event)) << "what is no buffer counts as none";
    EXPECT_FALSE(BufferUtility::areEqual(none, b));
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

TEST_F(Buffers, EventAnswersItsInfoAndIsFlushed)
{
    for (int i = 0; i < 3; ++i) {
        m_stream.Deliver(Announce());
    }
    S_EVENT_NEW_BUFFER data{};
    ASSERT_EQ(0, GetData(data, 0));
    EXPECT_EQ(2U, EventNumber(EVENT_NUM_IN_QUEUE));
    EXPECT_EQ(1U, EventNumber(EVENT_NUM_FIRED));
    EXPECT_EQ(16U, EventNumber(EVENT_SIZE_MAX));
    EXPECT_EQ(256U, EventNumber(EVENT_INFO_DATA_SIZE_MAX));
    int type = 0;
    std::int32_t event = 0;
    std::size_t size = sizeof event;
    EXPECT_EQ(0, m_pEvent->GetInfo(EVENT_EVENT_TYPE, &type, &event, &size));
    EXPECT_EQ(INFO_DATATYPE_INT32, type);
    EXPECT_EQ(EVENT_NEW_BUFFER, event);
    EXPECT_EQ(GC_ERR_INVALID_INDEX, m_pEvent->GetInfo(5, &type, nullptr, &size));

    EXPECT_EQ(0, m_pEvent->Flush());
    EXPECT_EQ(0U, EventNumber(EVENT_NUM_IN_QUEUE));
    EXPECT_EQ(GC_ERR_TIMEOUT, GetData(data, 0));
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

TEST_F(Buffers, AKillEndsNoWaitThatRuns)
{
    constexpr std::uint64_t kWaitHasNotBegun = 9;
    const auto waitAndKill = [&](std::uint64_t timeout, void* hDelivered) {
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
        if (hDelivered != nullptr) {
            m_stream.Deliver(hDelivered);
        }
        waiter.join();
        return code;
    };
    const auto start = Clock::now();
    EXPECT_EQ(GC_ERR_TIMEOUT, waitAndKill(100, nullptr));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(99));
    S_EVENT_NEW_BUFFER data{};
    EXPECT_EQ(GC_ERR_ABORT, GetData(data, 0));
    EXPECT_EQ(0, waitAndKill(GENTL_INFINITE, Announce()));
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
    int type = 0;
    char text[32] = {};
    std::size_t size = sizeof text;
    const auto ask = [&](std::size_t inSize, int command) {
        size = sizeof text;
        return m_pEvent->GetDataInfo("x", inSize, command, &type, text, &size);
    };
    EXPECT_EQ(0, ask(1, EVENT_DATA_VALUE));
    EXPECT_STREQ("No buffer data value", text);
    EXPECT_EQ(GC_ERR_NOT_AVAILABLE, ask(1, EVENT_DATA_NUMID));
    EXPECT_EQ(GC_ERR_INVALID_INDEX, ask(1, 3));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, ask(0, EVENT_DATA_ID));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_pEvent->GetDataInfo(nullptr, 0, 0, nullptr, text, nullptr));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, m_pEvent->GetDataInfo("x", 1, 0, nullptr, text, nullptr));
}

}  // namespace
