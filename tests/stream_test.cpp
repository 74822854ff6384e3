/// The data stream up to its grab thread: buffers and queues, the stream channel of the camera, the socket.
#include "StreamTest.h"
#include "buffers/Buffer.h"
#include "frame/GenTLHandle.h"
#include "gev/Handles.h"
#include "stream/DataStreamGev.h"
#include "stream/DataStreamGevTCP.h"
#include "stream/HALGvsp.h"
#include "stream/OverlappedSocket.h"
#include "stream/StreamStartParams.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace GenTL;
using testing::_;
using testing::DoAll;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::InSequence;
using testing::IsEmpty;
using testing::NiceMock;
using testing::Return;
using testing::SetArgReferee;
using Clock = std::chrono::steady_clock;

namespace {

int g_token = 0;

sockaddr_in Loopback(std::uint16_t port = 0)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

std::uint16_t PortOf(const OverlappedSocket& socket)
{
    return ntohs(socket.Address().sin_port);
}

// ---- Buffers and queues

class TestStream : public DataStream
{
public:
    TestStream() : DataStream(&g_token, &g_token) {}

    using DataStream::m_inputBuffers;
    using DataStream::m_isGrabbing;
    using DataStream::m_outputBuffers;
};

/// Four buffers, named by their place in the list of announced ones.
class Queues : public testing::Test
{
protected:
    Queues()
    {
        ErrorCache::ReleaseErrorCache();
        for (void*& hBuffer : buffers) {
            EXPECT_EQ(0, stream.AllocAndAnnounceBuffer(16, nullptr, &hBuffer));
        }
    }
    ~Queues() override
    {
        stream.FlushQueue(ACQ_QUEUE_ALL_DISCARD);
        for (std::size_t i = 0; i < buffers.size(); ++i) {
            At(i).m_isQueued = false;
            EXPECT_EQ(0, stream.RevokeBuffer(buffers[i], nullptr, nullptr)) << LastMessage();
        }
    }

    Buffer& At(std::size_t index) { return *CastHandleToBufferPtr(buffers[index]); }
    /// Puts the buffers with these digits into the queues, in order.
    void Lay(const std::string& input, const std::string& output)
    {
        stream.FlushQueue(ACQ_QUEUE_ALL_DISCARD);
        for (std::size_t i = 0; i < buffers.size(); ++i) {
            At(i).m_isQueued = false;
            At(i).m_newData = true;
            At(i).m_isAcquiring = true;
            At(i).m_sizeFilled = 7;
        }
        for (const char digit : input) {
            EXPECT_EQ(0, stream.QueueBuffer(buffers[static_cast<std::size_t>(digit - '0')]));
        }
        for (const char digit : output) {
            stream.m_outputBuffers.push_back(
                static_cast<GenTLHandle*>(buffers[static_cast<std::size_t>(digit - '0')]));
        }
    }
    std::string Digits(const std::deque<GenTLHandle*>& queue) const
    {
        std::string digits;
        for (const GenTLHandle* hBuffer : queue) {
            const auto found = std::find(buffers.begin(), buffers.end(), hBuffer);
            digits += static_cast<char>('0' + (found - buffers.begin()));
        }
        return digits;
    }
    /// The buffers for which the flag is set.
    std::string Flagged(Relaxed<bool> Buffer::*flag)
    {
        std::string digits;
        for (std::size_t i = 0; i < buffers.size(); ++i) {
            digits += At(i).*flag ? std::to_string(i) : "";
        }
        return digits;
    }

    TestStream stream;
    std::vector<void*> buffers = std::vector<void*>(4);
};

TEST_F(Queues, AreFlushedByTheirRules)
{
    const struct
    {
        int operation;
        const char *input, *output;
        int code;
        const char *inputAfter, *outputAfter, *queued, *newData, *acquiring;
    } cases[] = {
  // clang-format off
        {ACQ_QUEUE_INPUT_TO_OUTPUT,   "20",    "1", 0,                    "",         "120", "",     "13", "13"},
        {ACQ_QUEUE_OUTPUT_DISCARD,    "20",    "1", 0,                    "20",       "",    "02",   "13", "13"},
        {ACQ_QUEUE_ALL_TO_INPUT,      "20",    "1", 0,                    "2013",     "",    "0123", "",   ""  },
        // Queued twice, so that the sizes agree too early, or never.
        {ACQ_QUEUE_ALL_TO_INPUT,      "00",    "",  0,                    "0012",     "",    "012",  "3",  "3" },
        {ACQ_QUEUE_ALL_TO_INPUT,      "00000", "",  GC_ERR_ERROR,         "00000123", "",    "0123", "",   ""  },
        {ACQ_QUEUE_UNQUEUED_TO_INPUT, "20",    "1", 0,                    "203",      "1",   "023",  "1",  "1" },
        {ACQ_QUEUE_UNQUEUED_TO_INPUT, "00000", "1", 0,                    "0000023",  "1",   "023",  "1",  "1" },
        {ACQ_QUEUE_ALL_DISCARD,       "20",    "1", 0,                    "",         "",    "",     "3",  "13"},
        {5,                           "20",    "1", GC_ERR_INVALID_INDEX, "20",       "1",   "02",   "13", "13"},
  // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.input) + " | " + c.output + " by " + std::to_string(c.operation));
        Lay(c.input, c.output);
        EXPECT_EQ(c.code, stream.FlushQueue(c.operation));
        EXPECT_EQ(c.inputAfter, Digits(stream.m_inputBuffers));
        EXPECT_EQ(c.outputAfter, Digits(stream.m_outputBuffers));
        EXPECT_EQ(c.queued, Flagged(&Buffer::m_isQueued));
        EXPECT_EQ(c.newData, Flagged(&Buffer::m_newData));
        EXPECT_EQ(c.acquiring, Flagged(&Buffer::m_isAcquiring));
    }
}

TEST_F(Queues, KeepABufferThatIsNotFreeFromRevocation)
{
    void* memory = nullptr;
    const struct
    {
        const char *input, *output;
        bool isQueued;
        void** ppBuffer;
        int code;
        const char* text;
    } cases[] = {
        {"0", "",  true,  nullptr, GC_ERR_BUSY,           "Buffer still in input buffers" },
        {"",  "0", false, nullptr, GC_ERR_BUSY,           "Buffer still in output buffers"},
        {"",  "",  true,  nullptr, GC_ERR_BUSY,
         "buffer must be queued via GenTL::DSQueueBuffer() before revoking it"            },
        {"",  "",  false, &memory, GC_ERR_INVALID_BUFFER,
         "GenTL Consumer cannot request a revoked system allocated buffer"                },
    };
    for (const auto& c : cases) {
        Lay(c.input, c.output);
        At(0).m_isQueued = c.isQueued;
        EXPECT_EQ(c.code, stream.RevokeBuffer(buffers[0], c.ppBuffer, nullptr)) << c.text;
        EXPECT_THAT(LastMessage(), EndsWith(c.text));
        EXPECT_THAT(LastMessage(), testing::StartsWith("RevokeBuffer():"));
        EXPECT_EQ(4U, InfoOf(stream, STREAM_INFO_NUM_ANNOUNCED)) << c.text;
    }
    EXPECT_EQ(nullptr, memory);
}

TEST_F(Queues, TakeNoHandleThatIsNotTheirs)
{
    TestStream other;
    void* hForeign = nullptr;
    ASSERT_EQ(0, other.AllocAndAnnounceBuffer(16, nullptr, &hForeign));
    void* hEvent = nullptr;
    ASSERT_EQ(0, stream.RegisterEvent(EVENT_NEW_BUFFER, &hEvent));
    std::uint64_t garbage = 0x1234;
    for (void* handle : {static_cast<void*>(nullptr), static_cast<void*>(&garbage), hEvent, hForeign}) {
        EXPECT_EQ(GC_ERR_INVALID_HANDLE, stream.QueueBuffer(handle));
        EXPECT_EQ(GC_ERR_INVALID_HANDLE, stream.RevokeBuffer(handle, nullptr, nullptr));
    }
    EXPECT_EQ(0U, InfoOf(stream, STREAM_INFO_NUM_QUEUED));
    void* hListed = nullptr;
    EXPECT_EQ(0, stream.GetBufferID(3, &hListed));
    EXPECT_EQ(buffers[3], hListed);
    EXPECT_EQ(GC_ERR_INVALID_INDEX, stream.GetBufferID(4, &hListed));
    EXPECT_EQ(0, other.RevokeBuffer(hForeign, nullptr, nullptr));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, other.RevokeBuffer(hForeign, nullptr, nullptr)) << "a second time";
    EXPECT_EQ(0, stream.UnregisterEvent(EVENT_NEW_BUFFER));
}

TEST_F(Queues, AnnounceOneMemoryOnceInTheProcess)
{
    TestStream other;
    char memory[8];
    char tag = 0;
    void* hBuffer = nullptr;
    void* hOther = nullptr;
    ASSERT_EQ(0, stream.AnnounceBuffer(memory, sizeof memory, &tag, &hBuffer));
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, stream.AnnounceBuffer(memory, 4, nullptr, &hOther));
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, other.AnnounceBuffer(memory, 4, nullptr, &hOther));
    void* pMemory = nullptr;
    void* pPrivate = nullptr;
    EXPECT_EQ(0, stream.RevokeBuffer(hBuffer, &pMemory, &pPrivate));
    EXPECT_EQ(memory, pMemory);
    EXPECT_EQ(&tag, pPrivate);
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, stream.AnnounceBuffer(memory, 8, nullptr, nullptr));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, stream.AnnounceBuffer(nullptr, 8, nullptr, &hOther));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, stream.AllocAndAnnounceBuffer(8, nullptr, nullptr));
    stream.m_isGrabbing = true;
    EXPECT_EQ(GC_ERR_BUSY, stream.AnnounceBuffer(memory, 8, nullptr, &hOther));
    EXPECT_EQ(GC_ERR_BUSY, stream.AllocAndAnnounceBuffer(8, nullptr, &hOther));
    EXPECT_THAT(LastMessage(), EndsWith("acquisition engine is already grabbing"));
    stream.m_isGrabbing = false;
    EXPECT_EQ(0, other.AnnounceBuffer(memory, 0, nullptr, &hOther))
        << "neither revoked nor refused memory is kept";
    EXPECT_EQ(0, other.RevokeBuffer(hOther, nullptr, nullptr));
}

TEST_F(Queues, AreWaitedOnWithinLimits)
{
    constexpr unsigned long kTopBit = 1UL << 63;
    void* hBuffer = &g_token;
    const auto begin = Clock::now();
    EXPECT_EQ(GC_ERR_TIMEOUT, stream.WaitOnNewBuffer(&hBuffer, 0));
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
    EXPECT_EQ(nullptr, hBuffer);
    EXPECT_EQ(GC_ERR_TIMEOUT, stream.WaitOnNewBuffer(&hBuffer, 30));
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(25));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, stream.WaitOnNewBuffer(&hBuffer, kTopBit));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, stream.WaitOnNewBuffer(&hBuffer, GENTL_INFINITE - 1));

    // With an image at hand no time-out is looked at.
    Lay("", "201");
    for (const unsigned long timeout : {kTopBit, kTopBit - 1, 0UL}) {
        EXPECT_EQ(0, stream.WaitOnNewBuffer(&hBuffer, timeout));
    }
    EXPECT_EQ(buffers[1], hBuffer);
    EXPECT_EQ(3U, InfoOf(stream, STREAM_INFO_NUM_DELIVERED));
}

TEST(StreamModule, HasOneEventAndADevice)
{
    TestStream stream;
    void* hEvent = nullptr;
    EXPECT_EQ(GC_ERR_NOT_AVAILABLE, stream.RegisterEvent(EVENT_FEATURE_CHANGE, &hEvent));
    EXPECT_EQ(GC_ERR_NOT_AVAILABLE, stream.UnregisterEvent(EVENT_FEATURE_CHANGE));
    EXPECT_THAT(LastMessage(), EndsWith("the EVENT_TYPE EVENT_FEATURE_CHANGE is not implemented"));
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, stream.RegisterEvent(EVENT_MODULE, &hEvent));
    EXPECT_EQ(GC_ERR_INVALID_INDEX, stream.RegisterEvent(6, &hEvent));
    EXPECT_EQ(0, stream.RegisterEvent(EVENT_NEW_BUFFER, &hEvent));
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, stream.RegisterEvent(EVENT_NEW_BUFFER, &hEvent));
    EXPECT_EQ(0, stream.UnregisterEvent(EVENT_NEW_BUFFER));
    EXPECT_EQ(GC_ERR_NOT_INITIALIZED, stream.UnregisterEvent(EVENT_NEW_BUFFER));
    EXPECT_THROW(DataStreamGev(nullptr, nullptr, &g_token, 0, 3), std::logic_error);
    EXPECT_THROW(DataStreamGev(nullptr, &g_token, nullptr, 0, 3), std::logic_error);
    EXPECT_THAT(LastMessage(), EndsWith("DataStream parent device is null"));
}

// ---- Start and stop

class MockGvsp : public HALGvsp
{
public:
    MockGvsp()
    {
        ON_CALL(*this, GetDriverType).WillByDefault(Return(kDriverUdpSocket));
        ON_CALL(*this, GetNextPacket)
            .WillByDefault([](char*, int, int&, char*, int, int&, unsigned long timeout) {
                std::this_thread::sleep_for(std::chrono::milliseconds(timeout));
                return static_cast<int>(GC_ERR_TIMEOUT);
            });
        ON_CALL(*this, Start).WillByDefault([](IHALGev*, void*, StreamStartParams& params) {
            params.m_packetSize = 1500;
            return static_cast<int>(GC_ERR_SUCCESS);
        });
    }

    MOCK_METHOD(int, Start, (IHALGev*, void*, StreamStartParams&), (override));
    MOCK_METHOD(int, Stop, (IHALGev*, void*, unsigned, int), (override));
    using HALGvsp::GetNextPacket;
    MOCK_METHOD(int, GetNextPacket, (char*, int, int&, char*, int, int&, unsigned long), (override));
    MOCK_METHOD(DriverType, GetDriverType, (), (const, override));
    MOCK_METHOD(int, SetDriverType, (DriverType), (override));
    MOCK_METHOD(int, ConfigureExtendedId, (IHALGev*, void*, bool, bool&), (override));
    MOCK_METHOD(int, GetCameraPacketResendSupport, (IHALGev*, void*, bool&), (override));
    MOCK_METHOD(int, QueueImageBufferInLwfDriver, (GenTLHandle*), (override));
};

class Acquisition : public testing::Test
{
protected:
    Acquisition()
    {
        ErrorCache::ReleaseErrorCache();
        EXPECT_EQ(0, stream.Open(hal));
    }
    ~Acquisition() override { End(stream, buffers); }

    void Announce(std::size_t size = 100)
    {
        void* hBuffer = nullptr;
        ASSERT_EQ(0, stream.AllocAndAnnounceBuffer(size, nullptr, &hBuffer));
        ASSERT_EQ(0, stream.QueueBuffer(hBuffer));
        buffers.push_back(hBuffer);
    }
    template <typename T>
    int Set(int command, int type, T value)
    {
        return stream.SetInfo(command, type, &value, sizeof value);
    }

    HALGev control;
    NiceMock<MockGvsp>* hal = new NiceMock<MockGvsp>;  // the stream's
    DataStreamGev stream{&control, &g_token, &control, 0, 3};
    std::vector<void*> buffers;
};

constexpr int kHandlingMode = 1001;
constexpr int kResendEnable = 1006;
constexpr int kAutoPacketSize = 1008;
constexpr int kMaxResendRequests = 1010;
constexpr int kMulticastEnable = 1011;

TEST_F(Acquisition, IsRefusedByTheFirstConditionThatFails)
{
    const auto refuses = [this](int flags, unsigned long count, int code, const char* text) {
        EXPECT_CALL(*hal, Start).Times(0);
        EXPECT_EQ(code, stream.StartAcquisition(flags, count)) << text;
        EXPECT_THAT(LastMessage(), EndsWith(text));
        EXPECT_THAT(LastMessage(), testing::StartsWith("StartAcquisition():"));
    };
    refuses(7, 0, GC_ERR_INVALID_BUFFER,
            "the announced buffers is less then the min allowed. min allowed is 1");
    Announce();
    refuses(7, 0, GC_ERR_INVALID_PARAMETER, "iNumToAcquire must be > 0");
    refuses(1, 1, GC_ERR_INVALID_INDEX,
            "iStartFlags must be one of: ACQ_START_FLAGS_DEFAULT, ACQ_START_FLAGS_GVSP_LEGACY_ID");
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, stream.StopAcquisition(1)) << "before the flags are looked at";

    testing::Mock::VerifyAndClearExpectations(hal);
    ASSERT_EQ(0, stream.StartAcquisition(0, 1));
    refuses(7, 0, GC_ERR_RESOURCE_IN_USE, "the acquisition engine is already grabbing");
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, stream.StopAcquisition(ACQ_STOP_FLAGS_KILL));
    EXPECT_EQ(GC_ERR_INVALID_INDEX, stream.StopAcquisition(2));
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, stream.Close());
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, stream.Open(nullptr));
    EXPECT_TRUE(InfoOf<bool>(stream, STREAM_INFO_IS_GRABBING));
}

TEST_F(Acquisition, TellsTheHalWhatTheConsumerSet)
{
    Announce(1000);
    Announce(2000);
    ASSERT_EQ(0, Set(kResendEnable, INFO_DATATYPE_BOOL8, true));
    ASSERT_EQ(0, Set(kAutoPacketSize, INFO_DATATYPE_BOOL8, true));
    ASSERT_EQ(0, Set(kMulticastEnable, INFO_DATATYPE_BOOL8, true));
    ASSERT_EQ(0, Set(kMaxResendRequests, INFO_DATATYPE_UINT32, 9U));
    ASSERT_EQ(0, stream.SetupResendRetryParams(6, 12.5, "a", nullptr));
    control.SetGvcpRetries(1);
    {
        InSequence order;
        EXPECT_CALL(*hal, ConfigureExtendedId(&control, &g_token, true, _))
            .WillOnce(DoAll(SetArgReferee<3>(true), Return(0)));
        EXPECT_CALL(*hal, GetCameraPacketResendSupport(&control, &g_token, _)).WillOnce(Return(0));
        EXPECT_CALL(*hal, SetDriverType(kDriverUdpSocket));
        EXPECT_CALL(*hal, Start(&control, &g_token, _))
            .WillOnce([](IHALGev*, void*, StreamStartParams& params) {
                EXPECT_TRUE(params.m_autoPacketSize && params.m_extendedId && params.m_packetResendEnable &&
                            params.m_multicastEnable);
                EXPECT_EQ(1000U, params.m_bufferSize) << "of the first announced buffer";
                EXPECT_EQ(40U, params.m_interPacketExpiry);
                EXPECT_EQ(9U, params.m_maxResendRequests);
                EXPECT_EQ(3, params.m_accessMode);
                EXPECT_EQ(6U, params.m_retryParam);
                EXPECT_EQ(12.5, params.m_frameRate);
                EXPECT_EQ("a", params.m_firstRetryString);
                EXPECT_EQ("", params.m_secondRetryString);
                params.m_packetSize = 1500;
                return static_cast<int>(GC_ERR_SUCCESS);
            });
        EXPECT_CALL(*hal, Stop(&control, &g_token, 1500, 3)).WillOnce(Return(0));
        EXPECT_CALL(*hal, SetDriverType(kDriverUdpSocket));
    }
    EXPECT_EQ(0, stream.StartAcquisition(ACQ_START_FLAGS_GVSP_LEGACY_ID, 1)) << TakeMessages();
    unsigned long retries = 0;
    control.GetGvcpRetries(retries);
    EXPECT_EQ(3U, retries);
    EXPECT_EQ(2U, InfoOf(stream, STREAM_INFO_NUM_STARTED));
    EXPECT_EQ(0, stream.StopAcquisition(0));
    EXPECT_EQ(0U, InfoOf(stream, STREAM_INFO_NUM_STARTED));
}

TEST_F(Acquisition, GoesOnWithoutResendWhereTheCameraHasNone)
{
    Announce();
    ASSERT_EQ(0, Set(kResendEnable, INFO_DATATYPE_BOOL8, true));
    EXPECT_CALL(*hal, GetCameraPacketResendSupport).WillOnce(Return(GC_ERR_TIMEOUT));
    EXPECT_EQ(0, stream.StartAcquisition(0, 1));
    EXPECT_FALSE(InfoOf<bool>(stream, kResendEnable));
}

TEST_F(Acquisition, IsStoppedWhateverFails)
{
    Announce();
    EXPECT_CALL(*hal, ConfigureExtendedId).WillOnce(Return(GC_ERR_IO)).WillRepeatedly(Return(0));
    EXPECT_CALL(*hal, Start).WillOnce(Return(GC_ERR_TIMEOUT)).WillRepeatedly(Return(0));
    for (const int code : {GC_ERR_IO, GC_ERR_TIMEOUT}) {
        EXPECT_EQ(code, stream.StartAcquisition(0, 1));
        EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, stream.StopAcquisition(0)) << "it stayed stopped";
    }
    // No thread could run, and the camera can't be told.
    EXPECT_CALL(*hal, GetDriverType).WillRepeatedly(Return(kDriverTcp));
    EXPECT_CALL(*hal, Stop).WillOnce(Return(GC_ERR_ACCESS_DENIED));
    EXPECT_CALL(*hal, SetDriverType(kDriverUdpSocket));
    EXPECT_EQ(GC_ERR_IO, stream.StartAcquisition(0, 1));
    EXPECT_TRUE(InfoOf<bool>(stream, STREAM_INFO_IS_GRABBING));
    EXPECT_EQ(GC_ERR_ACCESS_DENIED, stream.StopAcquisition(0));
    EXPECT_FALSE(InfoOf<bool>(stream, STREAM_INFO_IS_GRABBING));
}

TEST_F(Acquisition, EndsWithItsStream)
{
    DataStreamGev own(&control, &g_token, &control, 1, 4);
    void* hBuffer = nullptr;
    ASSERT_EQ(0, own.Open(new NiceMock<MockGvsp>));
    ASSERT_EQ(0, own.AllocAndAnnounceBuffer(8, nullptr, &hBuffer));
    ASSERT_EQ(0, own.StartAcquisition(0, 1));
    EXPECT_EQ(0, own.RevokeBuffer(hBuffer, nullptr, nullptr));
}

TEST_F(Acquisition, LeavesDriverBuffersToTheDriver)
{
    EXPECT_CALL(*hal, GetDriverType).WillRepeatedly(Return(kDriverLwf));
    EXPECT_CALL(*hal, QueueImageBufferInLwfDriver).WillOnce(Return(0));
    Announce();
    EXPECT_EQ(IN_DRIVER, CastHandleToBufferPtr(buffers[0])->m_state);
    EXPECT_EQ(0U, InfoOf(stream, STREAM_INFO_NUM_QUEUED));
}

TEST_F(Acquisition, ReleasesWhoWaitsForALeader)
{
    EXPECT_EQ(GC_ERR_TIMEOUT, stream.WaitForNextLeader(0));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, stream.WaitForNextLeader(1UL << 32));
    Announce();
    ASSERT_EQ(0, stream.StartAcquisition(0, 1));
    int result = -1;
    std::thread waiter([&] { result = stream.WaitForNextLeader(GENTL_INFINITE); });
    EXPECT_EQ(0, stream.StopAcquisition(0));
    waiter.join();
    EXPECT_EQ(0, result);
    EXPECT_EQ(GC_ERR_TIMEOUT, stream.WaitForNextLeader(1)) << "one stop releases one wait";

    waiter = std::thread([&] { result = stream.WaitForNextLeader(GENTL_INFINITE); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(0, stream.Close());
    waiter.join();
    EXPECT_EQ(GC_ERR_ABORT, result);
    EXPECT_EQ(0, stream.Open(new NiceMock<MockGvsp>));
    EXPECT_EQ(GC_ERR_TIMEOUT, stream.WaitForNextLeader(1));
}

TEST_F(Acquisition, SettingsAreTakenInTheirTypeAndSize)
{
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, Set(kHandlingMode, INFO_DATATYPE_INT32, std::int64_t{1}));
    EXPECT_EQ(GC_ERR_INVALID_BUFFER, Set(kHandlingMode, INFO_DATATYPE_INT64, std::int32_t{1}));
    EXPECT_EQ(GC_ERR_INVALID_INDEX, Set(kHandlingMode, INFO_DATATYPE_INT64, std::int64_t{3}));
    EXPECT_EQ(GC_ERR_INVALID_BUFFER, stream.SetInfo(kMulticastEnable, INFO_DATATYPE_BOOL8, nullptr, 1));
    EXPECT_EQ(0, InfoOf<std::int64_t>(stream, kHandlingMode));
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, Set(1002, INFO_DATATYPE_UINT64, std::uint64_t{1}));
}

TEST(ClosedStreams, RefuseAllButTheSettingsOverUdp)
{
    HALGev control;
    DataStreamGev udp(&control, &g_token, &control, 7, 3);
    DataStreamGevTCP tcp(&control, &g_token, &control, 8, 3);
    void* handle = nullptr;
    int type = 0;
    std::int64_t value = 0;
    std::size_t size = sizeof value;
    for (IDataStream* stream : {static_cast<IDataStream*>(&udp), static_cast<IDataStream*>(&tcp)}) {
        const int codes[] = {
            stream->AnnounceBuffer(&size, 8, nullptr, &handle),
            stream->AllocAndAnnounceBuffer(8, nullptr, &handle),
            stream->QueueBuffer(nullptr),
            stream->RevokeBuffer(nullptr, nullptr, nullptr),
            stream->FlushQueue(9),
            stream->GetInfo(STREAM_INFO_ID, &type, nullptr, &size),
            stream->SetInfo(STREAM_INFO_ID, 0, nullptr, 0),
            stream->GetBufferInfo(nullptr, 0, &type, nullptr, &size),
            stream->StartAcquisition(0, 0),
            stream->StopAcquisition(0),
            stream->GetParentDev(&handle),
            stream->GetPortInfo(PORT_INFO_ID, &type, nullptr, &size),
            stream->RegisterEvent(EVENT_NEW_BUFFER, &handle),
            stream->WaitForNextLeader(0),
            stream->ResetWaitForNextLeader(),
        };
        EXPECT_THAT(codes, testing::Each(GC_ERR_INVALID_HANDLE));
        EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, stream->Close());
        EXPECT_EQ(0, stream->Open(nullptr));
        EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, stream->Open(nullptr));
        EXPECT_EQ(0, stream->GetParentDev(&handle));
        EXPECT_EQ(&control, handle);
        EXPECT_EQ(0, stream->Close());
    }
    EXPECT_EQ(0, udp.GetInfo(kHandlingMode, &type, &value, &size));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, tcp.GetInfo(kHandlingMode, &type, &value, &size));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, tcp.SetInfo(kHandlingMode, INFO_DATATYPE_INT64, &value, size));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, udp.QueueBuffer(nullptr));
    EXPECT_THAT(LastMessage(), EndsWith("DataStream is not open"));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, udp.FlushQueue(0));
    EXPECT_THAT(LastMessage(), EndsWith("the data stream is not open"));
}

// ---- The camera's stream channel

constexpr unsigned kVersion = 0x0000;
constexpr unsigned kGvspCaps = 0x092C;
constexpr unsigned kGvcpCaps = 0x0934;
constexpr unsigned kFrequencyHigh = 0x093C;
constexpr unsigned kFrequencyLow = 0x0940;
constexpr unsigned kGvspConfig = 0x0960;
constexpr unsigned kScp = 0x0D00;
constexpr unsigned kScps = 0x0D04;
constexpr unsigned kScpd = 0x0D08;
constexpr unsigned kScda = 0x0D18;
constexpr unsigned kScsp = 0x0D1C;

using Write = std::pair<unsigned, unsigned>;

/// The registers of a camera. A test packet is sent over the loopback, unless it is longer than the path
/// admits.
class CameraRegisters : public RegisterHal
{
public:
    CameraRegisters()
    {
        EXPECT_EQ(0, m_socket.OpenAndBindSocket(Loopback()));
        registers[kScsp] = PortOf(m_socket);
    }

    int WriteReg(void*, unsigned address, unsigned value) override
    {
        if (failing.count(address) != 0) {
            return failing[address];
        }
        writes.emplace_back(address, value);
        registers[address] = value;
        const unsigned size = value & 0xFFFF;
        if (address == kScps && (value & 0x80000000) != 0 && size <= mtu) {
            const std::vector<char> packet(std::max(size, 28U) - 28);
            const auto port = static_cast<std::uint16_t>(registers[kScp]);
            m_socket.Send(packet.data(), static_cast<int>(packet.size()), Loopback(port));
        }
        return GC_ERR_SUCCESS;
    }
    /// Bytes of the datagram that opens the firewall; -1 when none came.
    int FirewallDatagram()
    {
        char bytes[16];
        int length = -1;
        m_socket.GetNextResult(bytes, sizeof bytes, length, 1);
        return length;
    }
    std::vector<unsigned> WrittenTo(unsigned address) const
    {
        std::vector<unsigned> values;
        for (const Write& write : writes) {
            if (write.first == address) {
                values.push_back(write.second);
            }
        }
        return values;
    }

    std::vector<Write> writes;
    unsigned mtu = 65535;

private:
    OverlappedSocket m_socket;
};

class Channel : public testing::Test
{
protected:
    Channel()
    {
        ErrorCache::ReleaseErrorCache();
        device.m_pSocket = std::make_unique<CommSocket>();
        EXPECT_EQ(0, device.m_pSocket->OpenAndBindSocket(Loopback(), "127.0.0.1", 3956, false, 100));
        camera.registers[kScps] = 1500;
        params.m_accessMode = 3;
    }
    ~Channel() override { device.m_pSocket->Close(); }

    int Start() { return hal.Start(&camera, ToHandle(&device), params); }
    int Stop() { return hal.Stop(&camera, ToHandle(&device), params.m_packetSize, params.m_accessMode); }
    /// True while the socket is open.
    bool Receives()
    {
        char packet[64];
        int length = 0;
        const int code = hal.GetNextPacket(packet, sizeof packet, length, 1);
        return code == GC_ERR_SUCCESS || code == GC_ERR_TIMEOUT;
    }

    CameraRegisters camera;
    DeviceHandle device;
    HALGvsp hal;
    StreamStartParams params;
};

struct SizeCase
{
    const char* name;
    bool automatic, extended;
    unsigned scps, mtu;
    int code;
    unsigned found;
    const char* text;
    std::vector<unsigned> scpsWrites;
};

// clang-format off
const SizeCase kSizeCases[] = {
    {"found on a wide path",         true,  false, 1500, 9000, 0, 9000, "", {0xC0002328, 0x40002328}},
    {"none fits",                    true,  false, 1500, 500,  GC_ERR_ERROR, 0,
     "failed to find a working packet size",
     {0xC0002328, 0xC0001D4C, 0xC0001770, 0xC0001194, 0xC0000BB8, 0xC00005DC, 0xC0000240}},
    {"given and fits",               false, false, 0x40002328, 9000, 0, 9000, "", {0xC0002328}},
    {"least of the standard form",   false, false, 37,   1500, 0, 37, "", {0xC0000025}},
    {"below the standard form",      false, false, 36,   1500, GC_ERR_INVALID_VALUE, 0, "packet size 36", {0xC0000024}},
    {"below the extended form",      false, true,  48,   1500, GC_ERR_INVALID_VALUE, 0, "packet size 48", {0xC0000030}},
};
// clang-format on

TEST_F(Channel, TriesThePacketSizeOnTheWire)
{
    for (const SizeCase& c : kSizeCases) {
        SCOPED_TRACE(c.name);
        camera.registers[kScps] = c.scps;
        camera.registers[kScp] = 0;
        camera.mtu = c.mtu;
        camera.writes.clear();
        params.m_autoPacketSize = c.automatic;
        params.m_extendedId = c.extended;
        EXPECT_EQ(c.code, Start());
        EXPECT_THAT(TakeMessages(), HasSubstr(c.text));
        EXPECT_EQ(c.scpsWrites, camera.WrittenTo(kScps));
        const bool isOpen = c.code == GC_ERR_SUCCESS;
        EXPECT_EQ(isOpen, Receives());
        EXPECT_EQ(isOpen, camera.registers[kScp] != 0) << "a failed start closes the channel";
        if (isOpen) {
            EXPECT_EQ(c.found, params.m_packetSize);
            EXPECT_EQ(0, Stop());
        }
    }
}

TEST_F(Channel, TellsTheCameraWhereToSend)
{
    camera.registers[kGvspCaps] = 0x80000000;
    ASSERT_EQ(0, Start());
    ASSERT_EQ(3U, camera.writes.size());
    EXPECT_EQ(Write(kScda, INADDR_LOOPBACK), camera.writes[0]);
    EXPECT_EQ(kScp, camera.writes[1].first);
    EXPECT_GE(camera.writes[1].second, 49152U);
    EXPECT_EQ(4, camera.FirewallDatagram());
    EXPECT_EQ(0, Stop());
    EXPECT_EQ(Write(kScp, 0), camera.writes.back());

    camera.registers[kGvspCaps] = 0;
    EXPECT_EQ(0, Start()) << "the source port isn't readable: no firewall datagram";
    EXPECT_EQ(-1, camera.FirewallDatagram());
}

TEST_F(Channel, FailsWithTheRegisterThatFails)
{
    for (const unsigned address : {kGvspCaps, kScps, kScda, kScp}) {
        camera.failing.clear();
        camera.failing[address] = GC_ERR_ACCESS_DENIED;
        EXPECT_EQ(GC_ERR_ACCESS_DENIED, Start()) << address;
        EXPECT_FALSE(Receives()) << address;
    }
    camera.failing.clear();
    camera.writes.clear();
    params.m_accessMode = 2;
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, Start());
    EXPECT_THAT(camera.writes, IsEmpty());
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, hal.Start(nullptr, &device, params));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, hal.Stop(nullptr, &device, 0, 3));
}

TEST_F(Channel, IsStoppedWithoutACamera)
{
    ASSERT_EQ(0, Start());
    camera.failing[kScp] = GC_ERR_ACCESS_DENIED;
    EXPECT_EQ(GC_ERR_ACCESS_DENIED, Stop());
    EXPECT_TRUE(Receives());
    camera.failing[kScp] = GC_ERR_TIMEOUT;
    EXPECT_EQ(0, Stop());
    EXPECT_FALSE(Receives());
}

TEST_F(Channel, MulticastListenerWritesNothing)
{
    OverlappedSocket probe;
    if (probe.OpenAndBindSocketForMulticast(Loopback(), static_cast<int>(inet_addr("239.10.10.10"))) != 0) {
        GTEST_SKIP() << "no route for multicast here";
    }
    params.m_multicastEnable = true;
    params.m_accessMode = 2;
    camera.registers[kGvspCaps] = 0x80000000;
    camera.registers[kScp] = 50123;
    ASSERT_EQ(0, Start()) << TakeMessages();
    EXPECT_EQ(1500U, params.m_packetSize);
    EXPECT_EQ(4, camera.FirewallDatagram());
    HALGvsp second;
    StreamStartParams same = params;
    EXPECT_EQ(0, second.Start(&camera, ToHandle(&device), same)) << "listeners share the port";
    EXPECT_EQ(0, second.Stop(&camera, ToHandle(&device), 0, 2));
    EXPECT_EQ(0, Stop());
    EXPECT_THAT(camera.writes, IsEmpty());

    params.m_accessMode = 4;
    ASSERT_EQ(0, Start()) << TakeMessages();
    EXPECT_THAT(camera.WrittenTo(kScda), ElementsAre(INADDR_LOOPBACK, 0xEF0A0A0A));
    EXPECT_EQ(2U, camera.WrittenTo(kScp).size());
    EXPECT_EQ(0, Stop());
}

TEST_F(Channel, ComputesTimeLimits)
{
    constexpr std::uint32_t kMax = std::numeric_limits<std::uint32_t>::max();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const struct
    {
        const char* name;
        unsigned high, low, delay;
        std::uint64_t retries;
        double rate;
        std::uint32_t interPacket, buffer, resends;
    } cases[] = {
        {"no frequency",     0, 0,       99999, 0, 0.0,  40,   80,   2        },
        {"short delay",      0, 1000000, 13000, 0, 0.0,  40,   80,   2        },
        {"long delay",       0, 1000000, 50500, 0, 0.0,  150,  300,  2        },
        {"64-bit frequency", 1, 0,       kMax,  0, 0.0,  2997, 5994, 2        },
        {"frame rate",       0, 0,       0,     0, 20.0, 40,   100,  2        },
        {"retries",          0, 0,       0,     5, 20.0, 40,   250,  6        },
        {"retries, no rate", 0, 0,       0,     5, 0.0,  40,   kMax, kMax / 40},
        {"no rate at all",   0, 0,       0,     0, nan,  40,   0,    1        },
    };
    for (const auto& c : cases) {
        camera.registers[kFrequencyHigh] = c.high;
        camera.registers[kFrequencyLow] = c.low;
        camera.registers[kScpd] = c.delay;
        camera.registers[kScps] = 1500;
        params.m_retryParam = c.retries;
        params.m_frameRate = c.rate;
        ASSERT_EQ(0, Start()) << c.name;
        EXPECT_EQ(c.interPacket, params.m_interPacketExpiry) << c.name;
        EXPECT_EQ(c.buffer, params.m_bufferExpiry) << c.name;
        EXPECT_EQ(c.resends, params.m_resendRetries) << c.name;
        EXPECT_EQ(0, Stop());
    }
    camera.failing[kScpd] = GC_ERR_IO;
    EXPECT_EQ(0, Start()) << "unreadable registers leave the least expiry";
    EXPECT_EQ(40U, params.m_interPacketExpiry);
}

TEST_F(Channel, FollowsTheCamerasHeaderForm)
{
    constexpr unsigned kBit30 = 0x40000000;
    const struct
    {
        unsigned version, caps, config;
        bool legacy, extended;
    } cases[] = {
        {0x00010002, 0,      0,      false, false},
        {0x00020000, 0,      0,      false, true },
        {0x00020000, 0,      0,      true,  true }, // it can't do otherwise
        {0x00020000, kBit30, kBit30, true,  true }, // asked for, but the camera decides
        {0x00020000, kBit30, 0,      false, false},
        {0x00010002, kBit30, kBit30, false, true },
    };
    for (const auto& c : cases) {
        HALGvsp fresh;
        camera.registers[kVersion] = c.version;
        camera.registers[kGvspCaps] = c.caps;
        camera.registers[kGvspConfig] = c.config;
        bool extended = !c.extended;
        EXPECT_EQ(0, fresh.ConfigureExtendedId(&camera, &device, c.legacy, extended));
        EXPECT_EQ(c.extended, extended) << std::hex << c.version << " " << c.caps << " " << c.config;
    }
    camera.registers[kGvspCaps] = kBit30;
    bool extended = false;
    for (const unsigned address : {kVersion, kGvspCaps, kGvspConfig}) {
        camera.failing.clear();
        camera.failing[address] = GC_ERR_IO;
        EXPECT_EQ(GC_ERR_IO, HALGvsp().ConfigureExtendedId(&camera, &device, false, extended)) << address;
    }
    EXPECT_THAT(camera.writes, IsEmpty());
}

TEST_F(Channel, AsksWhetherTheCameraResends)
{
    bool enable = true;
    camera.registers[kGvcpCaps] = 4;
    EXPECT_EQ(0, hal.GetCameraPacketResendSupport(&camera, &device, enable));
    EXPECT_TRUE(enable);
    camera.registers[kGvcpCaps] = ~4U;
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, hal.GetCameraPacketResendSupport(&camera, &device, enable));
    EXPECT_FALSE(enable);
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, hal.SetDriverType(static_cast<DriverType>(kDriverTcp + 1)));
}

// ---- The socket

// The start of the search moves by one with each socket, wherever the search ended.
TEST(StreamSocket, SearchMovesOnOverABusyPort)
{
    OverlappedSocket probe;
    ASSERT_EQ(0, probe.OpenAndBindSocket(Loopback()));
    const unsigned next = PortOf(probe) + 1;
    const int blocker = socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in busy = Loopback(static_cast<std::uint16_t>(next));
    const bool isBlocked = bind(blocker, reinterpret_cast<const sockaddr*>(&busy), sizeof busy) == 0;
    OverlappedSocket over;
    OverlappedSocket after;
    ASSERT_EQ(0, over.OpenAndBindSocket(Loopback()));
    EXPECT_LT(next, PortOf(over) + (isBlocked ? 0 : 1));
    close(blocker);
    const unsigned found = PortOf(over);
    over.Close();
    ASSERT_EQ(0, after.OpenAndBindSocket(Loopback()));
    EXPECT_LE(PortOf(after), found) << "the search began behind the port found, not behind its own start";
}

TEST(StreamSocket, ReadsWholeAndScattered)
{
    OverlappedSocket receiver;
    OverlappedSocket sender;
    ASSERT_EQ(0, receiver.OpenAndBindSocket(Loopback()));
    ASSERT_EQ(0, sender.OpenAndBindSocket(Loopback()));
    const auto send = [&](const std::string& text) {
        EXPECT_EQ(0, sender.Send(text.data(), static_cast<int>(text.size()), receiver.Address()));
    };
    char whole[8];
    int length = 0;
    send("0123456789abcdef");
    EXPECT_EQ(0, receiver.GetNextResult(whole, sizeof whole, length, 200));
    EXPECT_EQ("01234567", std::string(whole, static_cast<std::size_t>(length))) << "the rest is lost";

    char header[4];
    char data[8];
    int headerLength = 0;
    send("0123456789abcdef");
    EXPECT_EQ(0, receiver.GetNextResultNoCopy(header, 4, headerLength, data, 8, length, 50));
    EXPECT_EQ(4, headerLength);
    EXPECT_EQ(12, length) << "the header counts";
    EXPECT_EQ("0123456789ab", std::string(header, 4) + std::string(data, 8));
    send("xy");
    EXPECT_EQ(0, receiver.GetNextResultNoCopy(header, 4, headerLength, data, 8, length, 50));
    EXPECT_EQ(2, headerLength);
    EXPECT_EQ(2, length);

    const auto begin = Clock::now();
    EXPECT_EQ(GC_ERR_TIMEOUT, receiver.GetNextResult(whole, sizeof whole, length, 250));
    EXPECT_THAT(LastMessage(), EndsWith("GenTL::OverlappedSocket::Receive recvfrom Failed: TIMEOUT"));
    EXPECT_EQ(GC_ERR_TIMEOUT, receiver.GetNextResultNoCopy(header, 4, headerLength, data, 8, length, 300));
    EXPECT_LE(std::chrono::milliseconds(540), Clock::now() - begin) << "each waits its own time";
    EXPECT_EQ(GC_ERR_ABORT, receiver.GetNextResult(whole, sizeof whole, length, -1));
    EXPECT_EQ(GC_ERR_IO, sender.Send("xy", 2, Loopback(0)));
}

TEST(StreamSocket, ClosesItsDescriptorOnce)
{
    char byte = 0;
    int length = 0;
    auto socket = std::make_unique<OverlappedSocket>();
    ASSERT_EQ(0, socket->OpenAndBindSocket(Loopback()));
    EXPECT_EQ(0, socket->Close());
    EXPECT_EQ(GC_ERR_IO, socket->GetNextResult(&byte, 1, length, 200));
    int pipes[2];
    ASSERT_EQ(0, pipe(pipes));  // takes the number of the closed one
    EXPECT_EQ(0, socket->Close());
    socket.reset();
    EXPECT_EQ(0, close(pipes[0]));
    EXPECT_EQ(0, close(pipes[1]));
}

}  // namespace
