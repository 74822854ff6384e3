/// The stream over TCP: its buffers and its grab thread on scripted frames, the socket on the loopback, and
/// both against a camera on a cable.
#include "Bench.h"
#include "Consumer.h"
#include "buffers/Buffer.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"
#include "gev/HALGev.h"
#include "sim/Picture.h"
#include "stream/DataStreamGevTCP.h"
#include "stream/HALGvspTCP.h"
#include "stream/StreamStartParams.h"
#include "stream/TCPSocket.h"

#include <boost/thread/thread.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <malloc.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using namespace GenTL;
using testing::EndsWith;
using testing::HasSubstr;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

namespace {

constexpr int kHandlingMode = 1001;
constexpr int kIncompleteImages = 1005;
constexpr std::size_t kHead = 60;
constexpr std::size_t kImage = 400;  // 20 x 20
constexpr char kGuard = '\x5A';

std::string LastMessage()
{
    Error e;
    ErrorCache::GetErrorCache()->Peak(e);
    return e.Message();
}

/// Seconds of processor time that the process has used.
double ProcessorTime()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// ---- Scripted frames

/// The geometry registers of a camera.
class GeometryRegisters : public HALGev
{
public:
    int ReadReg(void*, unsigned address, unsigned& value) override
    {
        if (address == failing) {
            return Raise(GC_ERR_INVALID_ADDRESS, "no such register");
        }
        value = registers[address];
        return GC_ERR_SUCCESS;
    }

    std::map<unsigned, unsigned> registers{
        {0x10400000, 20        },
        {0x10400014, 20        },
        {0x10400028, 3         },
        {0x1040003C, 4         },
        {0x10400060, 0x01080001},
    };
    unsigned failing = 1;
};

/// Says what each read comes to.
class ScriptedTcp : public HALGvspTCP
{
public:
    struct Read
    {
        int code;
        std::string bytes;  // at the start of the frame; the rest of it is as the buffer was
    };

    void Feed(const Read& read)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_reads.push_back(read);
        m_changed.notify_all();
    }
    /// Returns when all that was fed is worked on and the next read waits.
    void AwaitDrained()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        EXPECT_TRUE(m_changed.wait_for(lock, std::chrono::seconds(20),
                                       [this] { return m_reads.empty() && m_isWaiting; }));
    }

    int ConfigureExtendedId(IHALGev*, void*, bool, bool&) override { return configureCode; }
    int Start(IHALGev*, void*, StreamStartParams&) override
    {
        m_isStopped = false;
        m_reads.clear();
        return GC_ERR_SUCCESS;
    }
    int Stop(IHALGev*, void*, unsigned, int) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isStopped = true;
        m_changed.notify_all();
        return stopCode;
    }
    int GetNextPacket(char* header,
                      int headerSize,
                      int& headerLength,
                      char* data,
                      int dataSize,
                      int& dataLength,
                      unsigned long timeout) override
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_isWaiting = true;
        m_changed.notify_all();
        m_changed.wait_for(lock, milliseconds(timeout),
                           [this] { return m_isStopped || isEndless || !m_reads.empty(); });
        m_isWaiting = false;
        if (m_isStopped) {
            return GC_ERR_IO;
        }
        Read read{isEndless ? GC_ERR_SUCCESS : GC_ERR_TIMEOUT, ""};
        if (!m_reads.empty()) {
            read = m_reads.front();
            m_reads.pop_front();
        }
        const std::size_t size = static_cast<std::size_t>(dataSize);
        std::copy_n(read.bytes.begin(), std::min(read.bytes.size(), size), data);
        if (read.code == GC_ERR_SUCCESS) {
            headerLength = headerSize;
            dataLength = dataSize;
            std::copy_n(data, std::min<std::size_t>(size, kHead), header);
        }
        return read.code;
    }

    std::atomic<bool> isEndless{false};  // each read brings a frame
    int configureCode = GC_ERR_SUCCESS;
    int stopCode = GC_ERR_SUCCESS;

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Read> m_reads;
    bool m_isWaiting = false;
    bool m_isStopped = false;
};

std::string BigEndian(std::uint64_t value, int size)
{
    std::string bytes;
    for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) {
        bytes += static_cast<char>(value >> shift);
    }
    return bytes;
}

/// A frame as the cameras of these tests send it; all bytes of its image are those of its id.
struct Frame
{
    std::uint64_t id = 7;
    std::uint32_t payload = kImage;
    std::uint32_t type = 0x4001;
    std::uint32_t format = 0x01080001;
    std::uint32_t width = 20, height = 20, x = 3, y = 4;

    std::string Bytes() const
    {
        return BigEndian(payload, 4) + BigEndian(0xFFFFFFFFFFFFFFFF, 8) + BigEndian(id, 8) +
               BigEndian(0xFFFFFFFFFFFF, 6) + BigEndian(type, 2) + BigEndian(1234567890123, 8) +
               BigEndian(format, 4) + BigEndian(width, 4) + BigEndian(height, 4) + BigEndian(x, 4) +
               BigEndian(y, 4) + BigEndian(11, 2) + BigEndian(12, 2) +
               std::string(kImage, static_cast<char>(id));
    }
};

class TcpStream : public testing::Test
{
protected:
    TcpStream()
    {
        ErrorCache::ReleaseErrorCache();
        EXPECT_EQ(GC_ERR_SUCCESS, stream.Open(hal));
    }
    ~TcpStream() override
    {
        if (Info<bool>(STREAM_INFO_IS_GRABBING)) {
            EXPECT_EQ(GC_ERR_SUCCESS, stream.StopAcquisition(0)) << LastMessage();
        }
        stream.FlushQueue(ACQ_QUEUE_ALL_DISCARD);
        for (void* hBuffer : buffers) {
            EXPECT_EQ(GC_ERR_SUCCESS, stream.RevokeBuffer(hBuffer, nullptr, nullptr)) << LastMessage();
        }
        EXPECT_EQ(GC_ERR_SUCCESS, stream.Close());
    }

    void* Announce(std::size_t size = kImage)
    {
        void* hBuffer = nullptr;
        EXPECT_EQ(GC_ERR_SUCCESS, stream.AllocAndAnnounceBuffer(size, nullptr, &hBuffer)) << LastMessage();
        buffers.push_back(hBuffer);
        return hBuffer;
    }
    void QueueAndStart()
    {
        for (void* hBuffer : buffers) {
            EXPECT_EQ(GC_ERR_SUCCESS, stream.QueueBuffer(hBuffer));
        }
        ASSERT_EQ(GC_ERR_SUCCESS, stream.StartAcquisition(0, 1)) << LastMessage();
    }
    void Feed(const Frame& frame) { hal->Feed({GC_ERR_SUCCESS, frame.Bytes()}); }
    void* Next(unsigned long timeoutMs = 20000)
    {
        void* hBuffer = nullptr;
        EXPECT_EQ(GC_ERR_SUCCESS, stream.WaitOnNewBuffer(&hBuffer, timeoutMs));
        return hBuffer;
    }

    template <typename T = std::uint64_t>
    T Info(int command) const
    {
        T value{};
        std::size_t size = sizeof value;
        int type = 0;
        EXPECT_EQ(GC_ERR_SUCCESS, stream.GetInfo(command, &type, &value, &size)) << command;
        return value;
    }
    template <typename T = std::uint64_t>
    T Of(void* hBuffer, int command) const
    {
        T value{};
        std::size_t size = sizeof value;
        int type = 0;
        EXPECT_EQ(GC_ERR_SUCCESS, stream.GetBufferInfo(hBuffer, command, &type, &value, &size)) << command;
        return value;
    }
    std::string ImageOf(void* hBuffer) const
    {
        return {Of<char*>(hBuffer, BUFFER_INFO_BASE), Of(hBuffer, BUFFER_INFO_SIZE)};
    }

    GeometryRegisters camera;
    ScriptedTcp* hal = new ScriptedTcp;  // the stream's
    DataStreamGevTCP stream{&camera, this, this, 1, 3};
    std::vector<void*> buffers;
};

TEST_F(TcpStream, TellsTheSizeOfTheImageAndGivesItsMemoryBack)
{
    void* hBuffer = Announce(1000);
    EXPECT_EQ(1000U, Of(hBuffer, BUFFER_INFO_SIZE));
    const Buffer& buffer = *CastHandleToBufferPtr(hBuffer);
    Buffer copy;
    copy = buffer;  // takes all of the size from where the image begins
    delete[] static_cast<char*>(copy.m_pData);

    void* pMemory = nullptr;
    EXPECT_EQ(GC_ERR_SUCCESS, stream.QueueBuffer(hBuffer));
    EXPECT_EQ(GC_ERR_BUSY, stream.RevokeBuffer(hBuffer, nullptr, nullptr)) << "and leaves the memory alone";
    stream.FlushQueue(ACQ_QUEUE_ALL_DISCARD);
    EXPECT_EQ(GC_ERR_INVALID_BUFFER, stream.RevokeBuffer(hBuffer, &pMemory, nullptr));

    void* hNone = this;
    EXPECT_THROW(stream.AllocAndAnnounceBuffer(std::numeric_limits<std::size_t>::max() - 70, nullptr, &hNone),
                 std::bad_alloc);
    for (const auto& geometry : camera.registers) {
        hNone = this;
        camera.failing = geometry.first;
        EXPECT_EQ(GC_ERR_INVALID_ADDRESS, stream.AllocAndAnnounceBuffer(100, nullptr, &hNone));
        EXPECT_EQ(nullptr, hNone);
    }
    EXPECT_EQ(1U, Info(STREAM_INFO_NUM_ANNOUNCED));
}

TEST_F(TcpStream, PaintsTheBandInsideTheImage)
{
    const struct
    {
        unsigned width, height;
        std::size_t size, begin, end;
    } cases[] = {
        {20,         20,         400,  100, 300 },
        {20,         21,         420,  100, 300 },
        {20,         10,         200,  0,   200 }, // all of it
        {20,         9,          180,  0,   180 }, // begins above the first row
        {20,         0,          100,  0,   100 },
        {0,          20,         400,  0,   0   },
        {20,         20,         250,  100, 250 }, // the buffer is too small for the image
        {20,         20,         90,   90,  90  },
        {20,         20,         0,    0,   0   },
        {40,         20,         800,  200, 600 }, // a row is a byte per pixel, whatever the format
        {0xFFFFFFFF, 0xFFFFFFFF, 1000, 0,   0   },
        {0xFFFFFFFF, 0,          1000, 0,   1000},
        {0x80000000, 0xFFFFFFFE, 1000, 0,   0   },
    };
    for (const auto& c : cases) {
        camera.registers[0x10400000] = c.width;
        camera.registers[0x10400014] = c.height;
        void* hBuffer = Announce(c.size);
        EXPECT_EQ(GC_ERR_SUCCESS, stream.QueueBuffer(hBuffer));
        std::string expected(c.size, '\0');
        std::fill(expected.begin() + static_cast<std::ptrdiff_t>(c.begin),
                  expected.begin() + static_cast<std::ptrdiff_t>(c.end), '\xFF');
        EXPECT_EQ(expected, ImageOf(hBuffer)) << c.width << " x " << c.height << ", " << c.size << " bytes";
    }
    EXPECT_EQ(GC_ERR_ERROR, stream.QueueBuffer(nullptr));
    void* hNoBuffer = nullptr;
    EXPECT_EQ(GC_ERR_SUCCESS, stream.RegisterEvent(EVENT_NEW_BUFFER, &hNoBuffer));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, stream.QueueBuffer(hNoBuffer));
}

TEST_F(TcpStream, DeliversAFrame)
{
    void* hBuffer = Announce();
    QueueAndStart();
    Feed({});
    ASSERT_EQ(hBuffer, Next());
    EXPECT_EQ(std::string(kImage, 7), ImageOf(hBuffer)) << "nothing is left of the band";
    EXPECT_EQ(7U, Of(hBuffer, BUFFER_INFO_FRAMEID));
    EXPECT_EQ(1234567890123U, Of(hBuffer, BUFFER_INFO_TIMESTAMP));
    EXPECT_EQ(kImage, Of(hBuffer, BUFFER_INFO_SIZE_FILLED));
    EXPECT_EQ(20U, Of(hBuffer, BUFFER_INFO_DELIVERED_IMAGEHEIGHT));
    EXPECT_EQ(11U, Of(hBuffer, BUFFER_INFO_XPADDING));
    EXPECT_EQ(12U, Of(hBuffer, BUFFER_INFO_YPADDING));
    EXPECT_TRUE(Of<bool>(hBuffer, BUFFER_INFO_NEW_DATA));
    EXPECT_FALSE(Of<bool>(hBuffer, BUFFER_INFO_IS_QUEUED));
    EXPECT_FALSE(Of<bool>(hBuffer, BUFFER_INFO_IS_ACQUIRING));
}

TEST_F(TcpStream, ComparesEachHeadWithTheGeometryAtAnnouncement)
{
    const struct
    {
        const char* name;
        std::function<void(Frame&)> change;
        bool isSame, isIncomplete;
    } cases[] = {
        {"same",            [](Frame&) {},                           true,  false},
        {"wider",           [](Frame& f) { f.width = 21; },          false, true },
        {"higher",          [](Frame& f) { f.height = 21; },         false, true },
        {"moved",           [](Frame& f) { f.x = 4; },               false, true },
        {"moved down",      [](Frame& f) { f.y = 3; },               false, true },
        {"another format",  [](Frame& f) { f.format = 0x01080009; }, false, true },
        {"promises more",   [](Frame& f) { f.payload = 500; },       true,  true },
        {"promises less",   [](Frame& f) { f.payload = 300; },       true,  true },
        {"counts its head", [](Frame& f) { f.payload = 460; },       true,  true },
    };
    Announce();
    QueueAndStart();
    std::uint64_t incomplete = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Frame frame;
        c.change(frame);
        Feed(frame);
        void* hBuffer = Next();
        EXPECT_EQ(c.isSame ? 0x4001U : 1U, Of(hBuffer, BUFFER_INFO_PAYLOADTYPE));
        EXPECT_EQ(c.isIncomplete, Of<bool>(hBuffer, BUFFER_INFO_IS_INCOMPLETE));
        EXPECT_EQ(c.isSame ? frame.payload : kImage + kHead, Of(hBuffer, BUFFER_INFO_DATA_SIZE));
        EXPECT_EQ(20U, Of(hBuffer, BUFFER_INFO_WIDTH)) << "stays that of the announcement";
        incomplete += c.isIncomplete;
        EXPECT_EQ(incomplete, Info(kIncompleteImages));
        EXPECT_EQ(GC_ERR_SUCCESS, stream.QueueBuffer(hBuffer));
    }
}

// Memory of the consumer's has the head's room ahead of it, and what it gives as size counts that.
TEST_F(TcpStream, StaysInsideMemoryOfTheConsumers)
{
    const std::string frame = Frame().Bytes();
    for (const std::size_t size : {0UL, 1UL, 59UL, 60UL, 61UL, 460UL}) {
        SCOPED_TRACE(size);
        std::string memory(1000, kGuard);
        void* hBuffer = nullptr;
        EXPECT_EQ(GC_ERR_SUCCESS, stream.AnnounceBuffer(&memory[200 + kHead], size, nullptr, &hBuffer));
        buffers = {hBuffer};
        EXPECT_EQ(size < kHead ? 0 : size - kHead, Of(hBuffer, BUFFER_INFO_SIZE));
        QueueAndStart();
        Feed({});
        ASSERT_EQ(hBuffer, Next());
        EXPECT_EQ(size != 0, Of<bool>(hBuffer, BUFFER_INFO_IS_INCOMPLETE));
        EXPECT_EQ(size < kHead ? 0 : size - kHead, Of(hBuffer, BUFFER_INFO_SIZE_FILLED));
        EXPECT_EQ(std::string(200, kGuard) + frame.substr(0, size) + std::string(800 - size, kGuard), memory);
        EXPECT_EQ(GC_ERR_SUCCESS, stream.StopAcquisition(0));
        void* pMemory = nullptr;
        EXPECT_EQ(GC_ERR_SUCCESS, stream.RevokeBuffer(hBuffer, &pMemory, nullptr));
        EXPECT_EQ(&memory[200 + kHead], pMemory);
        buffers.clear();
    }
}

TEST_F(TcpStream, StartsAndStopsByTheRules)
{
    const auto starts = [&](int flags, unsigned long count = 1) {
        return stream.StartAcquisition(flags, count);
    };
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, stream.Open(nullptr));
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, stream.StopAcquisition(0));
    EXPECT_EQ(GC_ERR_INVALID_BUFFER, starts(5, 0));
    Announce();
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, starts(5, 0));
    EXPECT_EQ(GC_ERR_INVALID_INDEX, starts(5, 1));
    EXPECT_FALSE(Info<bool>(STREAM_INFO_IS_GRABBING));

    // A start that failed on the camera must be stopped.
    hal->configureCode = GC_ERR_TIMEOUT;
    EXPECT_EQ(GC_ERR_TIMEOUT, starts(ACQ_START_FLAGS_DEFAULT));
    EXPECT_TRUE(Info<bool>(STREAM_INFO_IS_GRABBING));
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, starts(ACQ_START_FLAGS_DEFAULT));
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, stream.Close());
    EXPECT_EQ(GC_ERR_SUCCESS, stream.StopAcquisition(0));
    hal->configureCode = GC_ERR_SUCCESS;

    EXPECT_EQ(GC_ERR_SUCCESS, stream.QueueBuffer(buffers[0]));
    EXPECT_EQ(GC_ERR_SUCCESS, starts(ACQ_START_FLAGS_GVSP_LEGACY_ID));
    EXPECT_EQ(1U, Info(STREAM_INFO_NUM_STARTED));
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, stream.StopAcquisition(ACQ_STOP_FLAGS_KILL));
    EXPECT_EQ(GC_ERR_INVALID_INDEX, stream.StopAcquisition(2));
    // The camera couldn't be told: the stream is stopped all the same.
    hal->stopCode = GC_ERR_ACCESS_DENIED;
    EXPECT_EQ(GC_ERR_ACCESS_DENIED, stream.StopAcquisition(0));
    EXPECT_FALSE(Info<bool>(STREAM_INFO_IS_GRABBING));
    EXPECT_EQ(0U, Info(STREAM_INFO_NUM_STARTED));
}

// Buffers on their way between two places, or in hand, must not be freed under the grab thread.
TEST_F(TcpStream, SurvivesFlushAndRevocationWhileItRuns)
{
    hal->isEndless = true;
    for (const std::int64_t mode : {1, 2}) {
        EXPECT_EQ(GC_ERR_SUCCESS, stream.SetInfo(kHandlingMode, INFO_DATATYPE_INT64, &mode, sizeof mode));
        for (int i = 0; i < 200; ++i) {
            Announce();
        }
        QueueAndStart();
        std::atomic<bool> isDone{false};
        std::thread flusher([&] {
            while (!isDone) {
                stream.FlushQueue(ACQ_QUEUE_ALL_TO_INPUT);
                stream.FlushQueue(ACQ_QUEUE_INPUT_TO_OUTPUT);
                stream.FlushQueue(ACQ_QUEUE_UNQUEUED_TO_INPUT);
                stream.FlushQueue(ACQ_QUEUE_ALL_DISCARD);
            }
        });
        for (void* hBuffer : buffers) {
            while (stream.RevokeBuffer(hBuffer, nullptr, nullptr) != GC_ERR_SUCCESS) {
                std::this_thread::yield();
            }
        }
        buffers.clear();
        isDone = true;
        flusher.join();
        EXPECT_EQ(0U, Info(STREAM_INFO_NUM_ANNOUNCED));
        EXPECT_EQ(GC_ERR_SUCCESS, stream.StopAcquisition(0));
    }
}

TEST(TcpStreamLife, EndsWhileItRuns)
{
    GeometryRegisters camera;
    const auto stream = std::make_unique<DataStreamGevTCP>(&camera, &camera, &camera, 1, 3);
    EXPECT_EQ(GC_ERR_SUCCESS, stream->Open(new ScriptedTcp));
    void* hBuffer = nullptr;
    EXPECT_EQ(GC_ERR_SUCCESS, stream->AllocAndAnnounceBuffer(10, nullptr, &hBuffer));
    EXPECT_EQ(GC_ERR_SUCCESS, stream->StartAcquisition(0, 1));
    EXPECT_EQ(GC_ERR_SUCCESS, stream->RevokeBuffer(hBuffer, nullptr, nullptr));
}

TEST_F(TcpStream, AnswersNothingWhileClosed)
{
    DataStreamGevTCP closed(&camera, this, this, 1, 3);
    int type = 0;
    std::int64_t value = 0;
    std::size_t size = sizeof value;
    void* handle = nullptr;
    const int codes[] = {
        closed.AllocAndAnnounceBuffer(10, nullptr, &handle),
        closed.QueueBuffer(nullptr),
        closed.RevokeBuffer(nullptr, nullptr, nullptr),
        closed.FlushQueue(9),
        closed.GetInfo(kHandlingMode, &type, &value, &size),
        closed.SetInfo(kHandlingMode, INFO_DATATYPE_INT64, &value, size),
        closed.GetBufferID(0, &handle),
        closed.StartAcquisition(0, 0),
        closed.StopAcquisition(0),
        closed.WaitForNextLeader(0),
        closed.RegisterEvent(EVENT_NEW_BUFFER, &handle),
    };
    EXPECT_THAT(codes, testing::Each(GC_ERR_INVALID_HANDLE));
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, closed.Close());
}

TEST_F(TcpStream, LosesOneBufferPerFailedReadAndNoneByWaiting)
{
    for (int i = 0; i < 20; ++i) {
        Announce();
    }
    QueueAndStart();
    hal->Feed({GC_ERR_TIMEOUT, "torn"});
    Feed({});
    EXPECT_EQ(buffers[0], Next()) << "the same buffer is tried again";
    const auto begin = Clock::now();
    for (int i = 0; i < 5; ++i) {
        hal->Feed({GC_ERR_IO, ""});
    }
    Feed({});
    EXPECT_EQ(buffers[6], Next());
    EXPECT_LE(milliseconds(50), Clock::now() - begin) << "a broken connection doesn't make it spin";
    hal->AwaitDrained();
    EXPECT_EQ(12U, Info(STREAM_INFO_NUM_QUEUED)) << "the next one is in hand";
    EXPECT_FALSE(Of<bool>(buffers[3], BUFFER_INFO_IS_ACQUIRING));
    stream.FlushQueue(ACQ_QUEUE_UNQUEUED_TO_INPUT);
    EXPECT_TRUE(Of<bool>(buffers[3], BUFFER_INFO_IS_QUEUED));
}

TEST_F(TcpStream, KeepsTheBufferInHandFromRevocation)
{
    void* hBuffer = Announce();
    QueueAndStart();
    hal->AwaitDrained();
    EXPECT_EQ(GC_ERR_BUSY, stream.RevokeBuffer(hBuffer, nullptr, nullptr));
    EXPECT_THAT(LastMessage(), EndsWith("Buffer is being filled"));

    // Flushed back to the input queue meanwhile: its frame is delivered all the same.
    EXPECT_EQ(GC_ERR_SUCCESS, stream.FlushQueue(ACQ_QUEUE_ALL_TO_INPUT));
    Feed({});
    EXPECT_EQ(hBuffer, Next());
    EXPECT_EQ(7U, Of(hBuffer, BUFFER_INFO_FRAMEID));
    EXPECT_EQ(0U, Info(STREAM_INFO_NUM_QUEUED));
}

TEST_F(TcpStream, GivesUnfetchedImagesUpOnlyForTheNewest)
{
    for (int i = 0; i < 3; ++i) {
        Announce();
    }
    for (const std::int64_t mode : {0, 1, 2}) {
        SCOPED_TRACE(mode);
        EXPECT_EQ(GC_ERR_SUCCESS, stream.SetInfo(kHandlingMode, INFO_DATATYPE_INT64, &mode, sizeof mode));
        QueueAndStart();
        for (std::uint64_t id = 1; id <= 10; ++id) {
            Frame frame;
            frame.id = id;
            Feed(frame);
        }
        if (mode == 2) {
            hal->AwaitDrained();
            EXPECT_EQ(10U, Of(Next(), BUFFER_INFO_FRAMEID));
        } else {
            std::this_thread::sleep_for(milliseconds(60));
            for (const std::uint64_t id : {1, 2, 3}) {
                EXPECT_EQ(id, Of(Next(), BUFFER_INFO_FRAMEID)) << "the camera is made to wait";
            }
        }
        EXPECT_EQ(0U, Info(STREAM_INFO_NUM_AWAIT_DELIVERY));
        EXPECT_EQ(GC_ERR_SUCCESS, stream.StopAcquisition(0));
        stream.FlushQueue(ACQ_QUEUE_ALL_DISCARD);
    }
}

// ---- The HAL and its socket

TEST(TcpHal, RefusesWhatIsNotForTcp)
{
    HALGvspTCP hal;
    bool enable = true;
    int number = 0;
    const std::map<std::string, std::function<int()>> refusals{
        {"SetupLwfDriverBuffers",          [&] { return hal.SetupLwfDriverBuffers(1); }                      },
        {"QueueImageBufferInLwfDriver",    [&] { return hal.QueueImageBufferInLwfDriver(nullptr); }          },
        {"GetCameraPacketResendSupport",
         [&] { return hal.GetCameraPacketResendSupport(nullptr, &hal, enable); }                             },
        {"GetNextPacket",                  [&] { return hal.GetNextPacket(nullptr, 0, number, 0); }          },
        {"GetNextPacketLwfRingBuffer",     [&] { return hal.GetNextPacketLwfRingBuffer(nullptr, number, 0); }},
        {"GetNextPacketLwf",               [&] { return hal.GetNextPacketLwf(nullptr, number, 0); }          },
        {"QueuePacketBufferLwfRingBuffer", [&] { return hal.QueuePacketBufferLwfRingBuffer(); }              },
        {"QueuePacketBufferLwf",           [&] { return hal.QueuePacketBufferLwf(nullptr); }                 },
    };
    for (const auto& [operation, call] : refusals) {
        EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, call()) << operation;
        EXPECT_THAT(LastMessage(), EndsWith(": GenTL::HALGvspTCP::" + operation +
                                            " Failed : Function not implemented for TCP"));
    }

    EXPECT_EQ(kDriverTcp, hal.GetDriverType());
    EXPECT_EQ(GC_ERR_SUCCESS, hal.SetDriverType(kDriverTcp));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, hal.SetDriverType(kDriverUdpSocket));
    EXPECT_THAT(LastMessage(),
                EndsWith("GenTL::HALGvspTCP::SetDriverType Failed : Cannot set drivertype other than TCP"));

    sockaddr_in address{};
    StreamStartParams params;
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, hal.Start(nullptr, &hal, params));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, hal.Stop(nullptr, &hal, 0, 3));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, hal.GetHostAddrTCP(nullptr, address));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, hal.GetServerAddrTCP(nullptr, address));
    GeometryRegisters camera;
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, hal.Start(&camera, &hal, params)) << "without control of the camera";
}

TEST(TcpHal, LetsAConsumerWaitForALeader)
{
    HALGvspTCP hal;
    EXPECT_EQ(GC_ERR_TIMEOUT, hal.WaitForNextLeader(1));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, hal.WaitForNextLeader(0x100000000));
    hal._signalNextLeader();
    EXPECT_EQ(GC_ERR_SUCCESS, hal.WaitForNextLeader(0));
    EXPECT_EQ(GC_ERR_TIMEOUT, hal.WaitForNextLeader(0)) << "one signal serves once";
    hal._signalNextLeader();
    EXPECT_EQ(GC_ERR_SUCCESS, hal.ResetWaitForNextLeader());
    EXPECT_EQ(GC_ERR_TIMEOUT, hal.WaitForNextLeader(0));
    std::thread waiter([&] { EXPECT_EQ(GC_ERR_SUCCESS, hal.WaitForNextLeader(GENTL_INFINITE)); });
    GeometryRegisters camera;
    EXPECT_EQ(GC_ERR_SUCCESS, hal.Stop(&camera, &hal, 0, 0));
    waiter.join();
}

/// A connected socket and its peer.
class TcpPair : public testing::Test
{
protected:
    TcpPair()
    {
        const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        EXPECT_EQ(0, bind(listener, reinterpret_cast<sockaddr*>(&address), length));
        EXPECT_EQ(0, getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length));
        EXPECT_EQ(0, listen(listener, 1));
        socket.m_onFirstBytes = [this] { ++leaders; };
        EXPECT_EQ(GC_ERR_SUCCESS, socket.OpenAndConnectSocket(address));
        peer = accept(listener, nullptr, nullptr);
        close(listener);
    }
    ~TcpPair() override { close(peer); }

    void Send(const std::string& bytes) const
    {
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()), send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL));
    }
    int Read(int size, int timeoutMs = 200)
    {
        header.assign(4, kGuard);
        data.assign(100, kGuard);
        received = -1;
        return socket.GetNextResult(data.data(), size, received, header.data(), header.size(), timeoutMs);
    }

    sockaddr_in address{};
    TCPSocket socket;
    int peer = -1;
    int leaders = 0;
    int received = 0;
    std::string header;
    std::string data;
};

TEST_F(TcpPair, ReadsExactlyWhatAFrameTakes)
{
    Send("0123456789abcdefghij");
    EXPECT_EQ(GC_ERR_SUCCESS, Read(10));
    EXPECT_EQ(10, received);
    EXPECT_EQ("0123", header);
    EXPECT_EQ("0123456789" + std::string(90, kGuard), data);
    EXPECT_EQ(GC_ERR_SUCCESS, Read(2));
    EXPECT_EQ(std::string("ab\0\0", 4), header);
    EXPECT_EQ(GC_ERR_SUCCESS, Read(8));
    EXPECT_EQ("cdef", header);
    EXPECT_EQ(3, leaders);
    EXPECT_EQ(GC_ERR_SUCCESS, Read(0));
    EXPECT_EQ(0, received);
}

TEST_F(TcpPair, ForgetsAFrameThatStalls)
{
    EXPECT_EQ(GC_ERR_TIMEOUT, Read(10, 20));
    EXPECT_EQ(0, leaders);
    Send("01234");
    EXPECT_EQ(GC_ERR_TIMEOUT, Read(10, 20));
    EXPECT_THAT(LastMessage(), EndsWith("GenTL::TCPSocket::GetNextResult recv Failed: TIMEOUT"));
    EXPECT_EQ(1, leaders) << "on the first bytes, not at the end";
    Send("abcdefghij");
    EXPECT_EQ(GC_ERR_SUCCESS, Read(10, 20));
    EXPECT_EQ("abcd", header);
}

// A peer that closed is no end of the stream, but neither may the wait for it burn a processor or outlive a
// stop.
TEST_F(TcpPair, WaitsForAPeerThatClosedWithoutSpinning)
{
    const std::function<void(boost::thread&)> endings[] = {
        [](boost::thread& reader) { reader.interrupt(); },
        [this](boost::thread&) { socket.Close(); },
    };
    Send("01234");
    shutdown(peer, SHUT_WR);
    for (const auto& end : endings) {
        boost::thread reader([this] {
            Read(10);
            EXPECT_THAT(LastMessage(), HasSubstr("GenTL::TCPSocket::GetNextResult recv Failed: "));
        });
        const double before = ProcessorTime();
        std::this_thread::sleep_for(milliseconds(500));
        EXPECT_LT(ProcessorTime() - before, 0.1);
        const auto begin = Clock::now();
        end(reader);
        reader.join();
        EXPECT_LT(Clock::now() - begin, milliseconds(2000));
    }
}

TEST_F(TcpPair, CloseEndsABlockedRead)
{
    boost::thread reader([this] { EXPECT_EQ(GC_ERR_IO, Read(10, 20000)); });
    std::this_thread::sleep_for(milliseconds(50));
    const auto begin = Clock::now();
    socket.Close();
    reader.join();
    EXPECT_LT(Clock::now() - begin, milliseconds(10000));
    EXPECT_EQ(GC_ERR_SUCCESS, socket.Close());
    EXPECT_EQ(GC_ERR_IO, Read(10, 20000)) << "closed";
    EXPECT_EQ(GC_ERR_IO, socket.OpenAndConnectSocket(address)) << "nobody listens any more";
    EXPECT_THAT(LastMessage(), EndsWith("GenTL::TCPSocket::OpenAndConnectSocket Failed"));
}

// ---- On a cable

void Open(Consumer& consumer, const Bench& bench, int buffers)
{
    OpenUpToStream(consumer, bench, buffers, bench.config.geometry.ImageBytes(), "1");
}

void* NextWhole(Consumer& consumer, const sim::Camera& camera, std::uint64_t frame)
{
    void* hBuffer = consumer.NextImage(10000);
    EXPECT_NE(nullptr, hBuffer) << "frame " << frame;
    if (hBuffer != nullptr) {
        EXPECT_EQ(frame, consumer.BufferInfo<std::uint64_t>(hBuffer, BUFFER_INFO_FRAMEID));
        EXPECT_FALSE(consumer.BufferInfo<bool>(hBuffer, BUFFER_INFO_IS_INCOMPLETE));
        const auto picture = camera.CurrentPicture();
        const auto filled = consumer.BufferInfo<std::uint64_t>(hBuffer, BUFFER_INFO_SIZE_FILLED);
        EXPECT_EQ(picture->PayloadBytes(), filled);
        const void* data = consumer.BufferInfo<void*>(hBuffer, BUFFER_INFO_BASE);
        EXPECT_EQ(sim::Picture::kNoMismatch, picture->FindMismatch(frame, data, filled)) << "frame " << frame;
    }
    return hBuffer;
}

TEST(TcpStreaming, DeliversEveryByteOfTwoHundredImages)
{
    Bench bench;
    bench.config.geometry.width = 2048;
    bench.config.geometry.height = 1024;
    sim::Camera& camera = bench.StartCamera();
    Consumer consumer;
    Open(consumer, bench, 8);
    consumer.Start();
    StartCameraAcquisition(consumer);
    for (std::uint64_t i = 1; i <= 200; ++i) {
        void* hBuffer = NextWhole(consumer, camera, i);
        ASSERT_FALSE(HasFailure());
        consumer.Queue(hBuffer);
    }
    EXPECT_EQ(200U, consumer.StreamInfo<std::uint64_t>(STREAM_INFO_NUM_DELIVERED));
    EXPECT_EQ(0U, consumer.StreamInfo<std::uint64_t>(kIncompleteImages));
    StopCameraAcquisition(consumer);
    EXPECT_EQ(0xC0A84D01, camera.Register(0x0D18)) << "the host's address";
    EXPECT_EQ(58243U, camera.Register(0x0D00));
    consumer.Stop();
    EXPECT_EQ(0U, camera.Register(0x0D00));
}

// The camera could send hundreds of frames in the consumer's pauses: it is made to wait.
TEST(TcpStreaming, LosesNothingWithASlowConsumer)
{
    Bench bench;
    bench.config.geometry.width = 1024;
    bench.config.geometry.height = 1024;
    sim::Camera& camera = bench.StartCamera();
    Consumer consumer;
    Open(consumer, bench, 2);
    consumer.Start();
    StartCameraAcquisition(consumer);
    for (std::uint64_t i = 1; i <= 20; ++i) {
        void* hBuffer = NextWhole(consumer, camera, i);
        ASSERT_FALSE(HasFailure());
        std::this_thread::sleep_for(milliseconds(i % 5 == 0 ? 300 : 20));
        EXPECT_GE(i + 100, camera.Seen().blocks) << "what the buffers and the sockets hold";
        consumer.Queue(hBuffer);
    }
    consumer.Stop();
}

TEST(TcpStreaming, TakesFramesInSmallPieces)
{
    Bench bench;
    bench.config.geometry.width = 64;
    bench.config.geometry.height = 64;
    bench.config.chunkMode = sim::ChunkMode::ImageAndChunks;
    sim::Camera& camera = bench.StartCamera();
    sim::TcpFaults faults;
    faults.pieceBytes = 37;
    faults.pieceGapUs = 100;
    camera.SetTcpFaults(faults);
    Consumer consumer;
    OpenUpToStream(consumer, bench, 4, camera.CurrentPicture()->PayloadBytes(), "1");
    consumer.Start();
    StartCameraAcquisition(consumer);
    for (std::uint64_t i = 1; i <= 5; ++i) {
        EXPECT_EQ(GC_ERR_SUCCESS, DSWaitForNextLeader(consumer.Stream(), 5000));
        void* hBuffer = NextWhole(consumer, camera, i);
        ASSERT_FALSE(HasFailure());
        EXPECT_EQ(0x4001U, consumer.BufferInfo<std::uint64_t>(hBuffer, BUFFER_INFO_PAYLOADTYPE));
        consumer.Queue(hBuffer);
    }
    consumer.Stop();
}

TEST(TcpStreaming, MarksFramesOfAnotherGeometry)
{
    Bench bench;
    sim::Camera& camera = bench.StartCamera();
    Consumer consumer;
    Open(consumer, bench, 4);
    sim::TcpFaults faults;
    faults.width = bench.config.geometry.width / 2;
    faults.height = bench.config.geometry.height * 2;
    camera.SetTcpFaults(faults);
    consumer.Start();
    StartCameraAcquisition(consumer);
    for (std::uint64_t i = 1; i <= 10; ++i) {
        void* hBuffer = consumer.NextImage(5000);
        ASSERT_NE(nullptr, hBuffer);
        EXPECT_EQ(i, consumer.BufferInfo<std::uint64_t>(hBuffer, BUFFER_INFO_FRAMEID));
        EXPECT_EQ(1U, consumer.BufferInfo<std::uint64_t>(hBuffer, BUFFER_INFO_PAYLOADTYPE));
        EXPECT_TRUE(consumer.BufferInfo<bool>(hBuffer, BUFFER_INFO_IS_INCOMPLETE));
        EXPECT_LE(i, consumer.StreamInfo<std::uint64_t>(kIncompleteImages));
        consumer.Queue(hBuffer);
    }
    consumer.Stop();
}

/// Ways in which a connection goes bad, after two whole frames of it.
struct BadConnection
{
    const char* name;
    std::function<void(sim::TcpFaults&)> fault;
};

class BadConnections : public testing::TestWithParam<BadConnection>
{
};

// The stream goes on waiting, cheaply, and a stop and a start make it whole again.
TEST_P(BadConnections, AreEndedByAStop)
{
    Bench bench;
    sim::Camera& camera = bench.StartCamera();
    sim::TcpFaults faults;
    GetParam().fault(faults);
    camera.SetTcpFaults(faults);
    Consumer consumer;
    Open(consumer, bench, 4);
    consumer.Start();
    StartCameraAcquisition(consumer);
    NextWhole(consumer, camera, 1);
    NextWhole(consumer, camera, 2);
    const double before = ProcessorTime();
    EXPECT_EQ(nullptr, consumer.NextImage(700));
    EXPECT_LT(ProcessorTime() - before, 0.2);
    const auto begin = Clock::now();
    consumer.Stop();
    EXPECT_LT(Clock::now() - begin, milliseconds(2000));

    camera.SetTcpFaults({});
    Consumer::Check(DSFlushQueue(consumer.Stream(), ACQ_QUEUE_ALL_TO_INPUT), "DSFlushQueue");
    consumer.Start();
    NextWhole(consumer, camera, 1);
    EXPECT_EQ(2U, camera.Seen().connections);
    consumer.Stop();
}

INSTANTIATE_TEST_SUITE_P(ThatGoBad,
                         BadConnections,
                         testing::Values(BadConnection{"Closed",
                                                       [](sim::TcpFaults& faults) { faults.closeFrame = 3; }},
                                         BadConnection{"Stalled",
                                                       [](sim::TcpFaults& faults) {
                                                           faults.stallFrame = 3;
                                                           faults.stallMs = 60000;
                                                       }}),
                         [](const auto& row) { return row.param.name; });

// Nothing tells where a frame begins: after a stall in one all that follow are out of step, and are marked.
TEST(TcpStreaming, MarksWhatComesAfterAStall)
{
    Bench bench;
    bench.config.frameRate = 50;
    sim::Camera& camera = bench.StartCamera();
    sim::TcpFaults faults;
    faults.stallFrame = 2;
    faults.stallMs = 500;
    camera.SetTcpFaults(faults);
    Consumer consumer;
    Open(consumer, bench, 4);
    consumer.Start();
    StartCameraAcquisition(consumer);
    consumer.Queue(NextWhole(consumer, camera, 1));
    for (int i = 0; i < 3; ++i) {
        void* hBuffer = consumer.NextImage(5000);
        ASSERT_NE(nullptr, hBuffer);
        EXPECT_TRUE(consumer.BufferInfo<bool>(hBuffer, BUFFER_INFO_IS_INCOMPLETE));
        consumer.Queue(hBuffer);
    }
    consumer.Stop();
}

TEST(TcpStreaming, FailsToStartOnACameraThatRefuses)
{
    Bench bench;
    sim::Camera& camera = bench.StartCamera();
    sim::TcpFaults faults;
    faults.refuse = true;
    camera.SetTcpFaults(faults);
    Consumer consumer;
    Open(consumer, bench, 4);
    const std::size_t threads = Entries("/proc/self/task");
    EXPECT_EQ(GC_ERR_IO, DSStartAcquisition(consumer.Stream(), ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE));
    EXPECT_THAT(Consumer::TakeError(), HasSubstr("GenTL::TCPSocket::OpenAndConnectSocket Failed"));
    EXPECT_EQ(threads, Entries("/proc/self/task"));
    EXPECT_TRUE(consumer.StreamInfo<bool>(STREAM_INFO_IS_GRABBING));
    consumer.Stop();
    EXPECT_EQ(0U, camera.Register(0x0D00));

    camera.SetTcpFaults({});
    consumer.Start();
    StartCameraAcquisition(consumer);
    NextWhole(consumer, camera, 1);
    consumer.Stop();
}

// The memory is that of the whole process: the first cycles warm it up.
TEST(TcpStreaming, StartsAndStopsWithoutAnythingLeftBehind)
{
    constexpr std::ptrdiff_t kSmallestBlock = 32;  // that a leak of each cycle would leave
    Bench bench;
    sim::Camera& camera = bench.StartCamera();
    Consumer consumer;
    Open(consumer, bench, 4);
    StartCameraAcquisition(consumer);
    std::size_t threads = 0;
    std::size_t descriptors = 0;
    std::size_t bytes = 0;
    for (int cycle = 0; cycle < 220; ++cycle) {
        if (cycle == 20) {
            threads = Entries("/proc/self/task");
            descriptors = Entries("/proc/self/fd");
            bytes = mallinfo2().uordblks;
        }
        consumer.Start();
        NextWhole(consumer, camera, 1);
        ASSERT_FALSE(HasFailure()) << "cycle " << cycle;
        consumer.Stop();
        Consumer::Check(DSFlushQueue(consumer.Stream(), ACQ_QUEUE_ALL_TO_INPUT), "DSFlushQueue");
    }
    EXPECT_EQ(threads, Entries("/proc/self/task"));
    EXPECT_GE(descriptors + 2, Entries("/proc/self/fd")) << "the camera's end may live a moment longer";
    EXPECT_GT(200 * kSmallestBlock, static_cast<std::ptrdiff_t>(mallinfo2().uordblks - bytes));
}

}  // namespace
