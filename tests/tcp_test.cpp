/// The stream over TCP: its buffers and its grab thread on scripted frames, the socket on the loopback, and
/// both against a camera on a cable.
#include "Bench.h"
#include "Consumer.h"
#include "StreamTest.h"
#include "buffers/Buffer.h"
#include "frame/GenTLHandle.h"
#include "stream/DataStreamGevTCP.h"
#include "stream/HALGvspTCP.h"
#include "stream/StreamStartParams.h"
#include "stream/TCPSocket.h"

#include <boost/chrono/duration.hpp>
#include <boost/thread/thread.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <malloc.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <deque>
#include <functional>
#include <limits>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
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

/// Seconds of processor time that the process has used.
double ProcessorTime()
{
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

// ---- Scripted frames

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
        isStarting = true;
        while (!mayStart) {
            std::this_thread::yield();
        }
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
    std::atomic<bool> isStarting{false};
    std::atomic<bool> mayStart{true};
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
        camera.registers = {
            {0x10400000, 20        },
            {0x10400014, 20        },
            {0x10400028, 3         },
            {0x1040003C, 4         },
            {0x10400060, 0x01080001},
        };
        EXPECT_EQ(GC_ERR_SUCCESS, stream.Open(hal));
    }
    ~TcpStream() override { End(stream, buffers); }

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
    void* Next()
    {
        void* hBuffer = nullptr;
        EXPECT_EQ(GC_ERR_SUCCESS, stream.WaitOnNewBuffer(&hBuffer, 20000));
        return hBuffer;
    }

    std::string ImageOf(void* hBuffer) const
    {
        return {InfoOf<char*>(stream, hBuffer, BUFFER_INFO_BASE), InfoOf(stream, hBuffer, BUFFER_INFO_SIZE)};
    }

    RegisterHal camera;
    ScriptedTcp* hal = new ScriptedTcp;  // the stream's
    DataStreamGevTCP stream{&camera, this, this, 1, 3};
    std::vector<void*> buffers;
};

TEST_F(TcpStream, TellsTheSizeOfTheImageAndGivesItsMemoryBack)
{
    void* hBuffer = Announce(1000);
    EXPECT_EQ(1000U, InfoOf(stream, hBuffer, BUFFER_INFO_SIZE));
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
    camera.failing[0x10400060] = GC_ERR_INVALID_ADDRESS;
    EXPECT_EQ(GC_ERR_INVALID_ADDRESS, stream.AllocAndAnnounceBuffer(100, nullptr, &hNone));
    EXPECT_EQ(nullptr, hNone);
    EXPECT_EQ(1U, InfoOf(stream, STREAM_INFO_NUM_ANNOUNCED));
}

TEST_F(TcpStream, PaintsTheBandInsideTheImage)
{
    const struct
    {
        unsigned width, height;
        std::size_t size, begin, end;
    } cases[] = {
        {20,         20,         400,  100, 300 },
        {20,         9,          180,  0,   180 }, // begins above the first row
        {20,         0,          100,  0,   100 },
        {20,         20,         250,  100, 250 }, // the buffer is too small for the image
        {20,         20,         90,   90,  90  },
        {20,         20,         0,    0,   0   },
        {0xFFFFFFFF, 0xFFFFFFFF, 1000, 0,   0   },
        {0xFFFFFFFF, 0,          1000, 0,   1000},
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
    const std::pair<int, std::uint64_t> numbers[] = {
        {BUFFER_INFO_FRAMEID,               7            },
        {BUFFER_INFO_PAYLOADTYPE,           0x4001       },
        {BUFFER_INFO_TIMESTAMP,             1234567890123},
        {BUFFER_INFO_SIZE_FILLED,           kImage       },
        {BUFFER_INFO_DATA_SIZE,             kImage       },
        {BUFFER_INFO_DELIVERED_IMAGEHEIGHT, 20           },
        {BUFFER_INFO_XPADDING,              11           },
        {BUFFER_INFO_YPADDING,              12           },
    };
    for (const auto& [command, number] : numbers) {
        EXPECT_EQ(number, InfoOf(stream, hBuffer, command)) << command;
    }
    EXPECT_TRUE(InfoOf<bool>(stream, hBuffer, BUFFER_INFO_NEW_DATA));
    EXPECT_FALSE(InfoOf<bool>(stream, hBuffer, BUFFER_INFO_IS_QUEUED));
    EXPECT_FALSE(InfoOf<bool>(stream, hBuffer, BUFFER_INFO_IS_ACQUIRING));
    EXPECT_FALSE(InfoOf<bool>(stream, hBuffer, BUFFER_INFO_IS_INCOMPLETE));
    EXPECT_EQ(0U, InfoOf(stream, kIncompleteImages));
}

// The geometry is that at the announcement. A frame of another one is of no known size.
TEST_F(TcpStream, MarksFramesThatAreNotAsAnnounced)
{
    const struct
    {
        std::function<void(Frame&)> change;
        std::uint64_t type, size;
    } cases[] = {
        {[](Frame& f) { f.width = 21; },          1,      kImage + kHead},
        {[](Frame& f) { f.height = 21; },         1,      kImage + kHead},
        {[](Frame& f) { f.x = 4; },               1,      kImage + kHead},
        {[](Frame& f) { f.y = 3; },               1,      kImage + kHead},
        {[](Frame& f) { f.format = 0x01080009; }, 1,      kImage + kHead},
        {[](Frame& f) { f.payload = 300; },       0x4001, 300           },
    };
    Announce();
    QueueAndStart();
    std::uint64_t incomplete = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(incomplete);
        Frame frame;
        c.change(frame);
        Feed(frame);
        void* hBuffer = Next();
        EXPECT_EQ(c.type, InfoOf(stream, hBuffer, BUFFER_INFO_PAYLOADTYPE));
        EXPECT_EQ(c.size, InfoOf(stream, hBuffer, BUFFER_INFO_DATA_SIZE));
        EXPECT_EQ(20U, InfoOf(stream, hBuffer, BUFFER_INFO_WIDTH));
        EXPECT_TRUE(InfoOf<bool>(stream, hBuffer, BUFFER_INFO_IS_INCOMPLETE));
        EXPECT_EQ(++incomplete, InfoOf(stream, kIncompleteImages));
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
        EXPECT_EQ(size < kHead ? 0 : size - kHead, InfoOf(stream, hBuffer, BUFFER_INFO_SIZE));
        QueueAndStart();
        Feed({});
        ASSERT_EQ(hBuffer, Next());
        EXPECT_EQ(size != 0, InfoOf<bool>(stream, hBuffer, BUFFER_INFO_IS_INCOMPLETE));
        EXPECT_EQ(size < kHead ? 0 : size - kHead, InfoOf(stream, hBuffer, BUFFER_INFO_SIZE_FILLED));
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
    EXPECT_EQ(GC_ERR_INVALID_BUFFER, stream.StartAcquisition(5, 0));
    Announce();
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, stream.StartAcquisition(5, 0));
    EXPECT_EQ(GC_ERR_INVALID_INDEX, stream.StartAcquisition(5, 1));
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, stream.StopAcquisition(2)) << "not running";

    // A start that failed on the camera must be stopped.
    hal->configureCode = GC_ERR_TIMEOUT;
    EXPECT_EQ(GC_ERR_TIMEOUT, stream.StartAcquisition(0, 1));
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, stream.StartAcquisition(5, 0));
    EXPECT_EQ(GC_ERR_SUCCESS, stream.StopAcquisition(0));
    hal->configureCode = GC_ERR_SUCCESS;

    QueueAndStart();
    EXPECT_EQ(1U, InfoOf(stream, STREAM_INFO_NUM_STARTED));
    EXPECT_EQ(GC_ERR_INVALID_INDEX, stream.StopAcquisition(2));
    // The camera couldn't be told: the stream is stopped all the same.
    hal->stopCode = GC_ERR_ACCESS_DENIED;
    EXPECT_EQ(GC_ERR_ACCESS_DENIED, stream.StopAcquisition(0));
    EXPECT_FALSE(InfoOf<bool>(stream, STREAM_INFO_IS_GRABBING));
    EXPECT_EQ(0U, InfoOf(stream, STREAM_INFO_NUM_STARTED));
}

// As while it connects: a stop in between would find no thread to join, and leave one on a freed HAL.
TEST_F(TcpStream, StopsAfterAStartThatIsUnderWay)
{
    Announce();
    hal->mayStart = false;
    std::thread starter([this] { EXPECT_EQ(GC_ERR_SUCCESS, stream.StartAcquisition(0, 1)); });
    while (!hal->isStarting) {
        std::this_thread::yield();
    }
    std::thread stopper([this] { EXPECT_EQ(GC_ERR_SUCCESS, stream.StopAcquisition(0)); });
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_TRUE(InfoOf<bool>(stream, STREAM_INFO_IS_GRABBING));
    hal->mayStart = true;
    starter.join();
    stopper.join();
    EXPECT_FALSE(InfoOf<bool>(stream, STREAM_INFO_IS_GRABBING));
}

TEST_F(TcpStream, SendsAwayWhoWaitsForALeaderWhenItCloses)
{
    std::thread waiter([this] { EXPECT_EQ(GC_ERR_ABORT, stream.WaitForNextLeader(GENTL_INFINITE)); });
    std::this_thread::sleep_for(milliseconds(100));
    EXPECT_EQ(GC_ERR_SUCCESS, stream.Close());
    waiter.join();
    hal = new ScriptedTcp;
    EXPECT_EQ(GC_ERR_SUCCESS, stream.Open(hal));
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
        EXPECT_EQ(0U, InfoOf(stream, STREAM_INFO_NUM_ANNOUNCED));
        EXPECT_EQ(GC_ERR_SUCCESS, stream.StopAcquisition(0));
    }
}

TEST_F(TcpStream, EndsWhileItRuns)
{
    const std::size_t threads = Entries("/proc/self/task");
    {
        DataStreamGevTCP own(&camera, this, this, 2, 3);
        void* hBuffer = nullptr;
        EXPECT_EQ(GC_ERR_SUCCESS, own.Open(new ScriptedTcp));
        EXPECT_EQ(GC_ERR_SUCCESS, own.AllocAndAnnounceBuffer(10, nullptr, &hBuffer));
        EXPECT_EQ(GC_ERR_SUCCESS, own.StartAcquisition(0, 1));
        EXPECT_EQ(GC_ERR_SUCCESS, own.RevokeBuffer(hBuffer, nullptr, nullptr));
    }
    const auto limit = Clock::now() + milliseconds(2000);
    while (Entries("/proc/self/task") > threads && Clock::now() < limit) {
        std::this_thread::yield();  // a joined thread may stand there a moment longer
    }
    EXPECT_GE(threads, Entries("/proc/self/task"));
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
    EXPECT_EQ(12U, InfoOf(stream, STREAM_INFO_NUM_QUEUED)) << "the next one is in hand";
    EXPECT_FALSE(InfoOf<bool>(stream, buffers[3], BUFFER_INFO_IS_ACQUIRING));
    stream.FlushQueue(ACQ_QUEUE_UNQUEUED_TO_INPUT);
    EXPECT_TRUE(InfoOf<bool>(stream, buffers[3], BUFFER_INFO_IS_QUEUED));
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
    EXPECT_EQ(0U, InfoOf(stream, STREAM_INFO_NUM_QUEUED));
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
            EXPECT_EQ(10U, InfoOf(stream, Next(), BUFFER_INFO_FRAMEID));
        } else {
            std::this_thread::sleep_for(milliseconds(60));
            for (const std::uint64_t id : {1, 2, 3}) {
                EXPECT_EQ(id, InfoOf(stream, Next(), BUFFER_INFO_FRAMEID)) << "the camera is made to wait";
            }
        }
        EXPECT_EQ(0U, InfoOf(stream, STREAM_INFO_NUM_AWAIT_DELIVERY));
        EXPECT_EQ(GC_ERR_SUCCESS, stream.StopAcquisition(0));
        stream.FlushQueue(ACQ_QUEUE_ALL_DISCARD);
    }
}

// ---- The HAL and its socket

TEST(TcpHal, RefusesWhatIsNotForTcp)
{
    HALGvspTCP hal;
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, hal.QueuePacketBufferLwfRingBuffer());
    EXPECT_THAT(LastMessage(), EndsWith(": GenTL::HALGvspTCP::QueuePacketBufferLwfRingBuffer Failed : "
                                        "Function not implemented for TCP"));
    EXPECT_EQ(GC_ERR_SUCCESS, hal.SetDriverType(kDriverTcp));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, hal.SetDriverType(kDriverUdpSocket));
    EXPECT_THAT(LastMessage(),
                EndsWith("GenTL::HALGvspTCP::SetDriverType Failed : Cannot set drivertype other than TCP"));

    StreamStartParams params;
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, hal.Start(nullptr, &hal, params));
    RegisterHal camera;
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, hal.Start(&camera, &hal, params)) << "without control of the camera";
}

TEST(TcpHal, LetsAConsumerWaitForALeader)
{
    HALGvspTCP hal;
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, hal.WaitForNextLeader(0x100000000));
    hal._signalNextLeader();
    EXPECT_EQ(GC_ERR_SUCCESS, hal.WaitForNextLeader(0));
    EXPECT_EQ(GC_ERR_TIMEOUT, hal.WaitForNextLeader(1)) << "one signal serves once";
    hal._signalNextLeader();
    EXPECT_EQ(GC_ERR_SUCCESS, hal.ResetWaitForNextLeader());
    EXPECT_EQ(GC_ERR_TIMEOUT, hal.WaitForNextLeader(0));
    std::thread waiter([&] { EXPECT_EQ(GC_ERR_SUCCESS, hal.WaitForNextLeader(GENTL_INFINITE)); });
    RegisterHal camera;
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

TEST_F(TcpPair, InterruptionEndsTheReadFromAPeerThatClosed)
{
    Send("01234");
    shutdown(peer, SHUT_WR);
    boost::thread reader([this] { Read(10); });
    std::this_thread::sleep_for(milliseconds(50));
    reader.interrupt();
    EXPECT_TRUE(reader.try_join_for(boost::chrono::seconds(5)));
    socket.Close();
    reader.join();
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

class TcpStreaming : public testing::Test
{
protected:
    /// With a camera as the configuration and the faults say.
    void Open(int buffers = 4)
    {
        camera = &bench.StartCamera();
        camera->SetTcpFaults(faults);
        OpenUpToStream(consumer, bench, buffers, camera->CurrentPicture()->PayloadBytes(), "1");
    }
    void Start()
    {
        consumer.Start();
        StartCameraAcquisition(consumer);
    }
    void* NextWhole(std::uint64_t frame) { return NextWholeImage(consumer, *camera, frame); }

    Bench bench;
    Consumer consumer;
    sim::Camera* camera = nullptr;
    sim::TcpFaults faults;
};

// In the consumer's pauses the camera could send hundreds of frames: it is made to wait.
TEST_F(TcpStreaming, DeliversEveryByteOfTwoHundredImages)
{
    bench.config.geometry.width = 2048;
    bench.config.geometry.height = 1024;
    bench.config.chunkMode = sim::ChunkMode::ImageAndChunks;
    Open();
    Start();
    EXPECT_EQ(GC_ERR_SUCCESS, DSWaitForNextLeader(consumer.Stream(), 5000));
    for (std::uint64_t i = 1; i <= 200; ++i) {
        void* hBuffer = NextWhole(i);
        ASSERT_FALSE(HasFailure());
        EXPECT_EQ(0x4001U, consumer.BufferInfo<std::uint64_t>(hBuffer, BUFFER_INFO_PAYLOADTYPE));
        std::this_thread::sleep_for(milliseconds(i % 50 == 0 ? 300 : 0));
        consumer.Queue(hBuffer);
    }
    EXPECT_EQ(200U, consumer.StreamInfo<std::uint64_t>(STREAM_INFO_NUM_DELIVERED));
    EXPECT_EQ(0U, consumer.StreamInfo<std::uint64_t>(kIncompleteImages));
    StopCameraAcquisition(consumer);
    EXPECT_EQ(0xC0A84D01, camera->Register(0x0D18)) << "the host's address";
    EXPECT_EQ(58243U, camera->Register(0x0D00));
    consumer.Stop();
    EXPECT_EQ(0U, camera->Register(0x0D00));
}

// The stream goes on waiting, cheaply, and a stop and a start make it whole again.
TEST_F(TcpStreaming, BadConnectionsAreEndedByAStop)
{
    Open();
    sim::TcpFaults closed;
    closed.closeFrame = 3;
    sim::TcpFaults stalled;
    stalled.stallFrame = 3;
    stalled.stallMs = 60000;
    std::uint64_t connections = 0;
    for (const sim::TcpFaults& fault : {closed, stalled, sim::TcpFaults{}}) {
        SCOPED_TRACE(connections);
        camera->SetTcpFaults(fault);
        Start();
        NextWhole(1);
        NextWhole(2);
        EXPECT_EQ(++connections, camera->Seen().connections);
        if (fault.closeFrame != 0 || fault.stallFrame != 0) {
            const double before = ProcessorTime();
            EXPECT_EQ(nullptr, consumer.NextImage(700));
            EXPECT_LT(ProcessorTime() - before, 0.2);
        }
        const auto begin = Clock::now();
        consumer.Stop();
        EXPECT_LT(Clock::now() - begin, milliseconds(2000));
        Consumer::Check(DSFlushQueue(consumer.Stream(), ACQ_QUEUE_ALL_TO_INPUT), "DSFlushQueue");
    }
}

TEST_F(TcpStreaming, FailsToStartOnACameraThatRefuses)
{
    faults.refuse = true;
    Open();
    const std::size_t threads = Entries("/proc/self/task");
    EXPECT_EQ(GC_ERR_IO, DSStartAcquisition(consumer.Stream(), ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE));
    EXPECT_THAT(Consumer::TakeError(), HasSubstr("GenTL::TCPSocket::OpenAndConnectSocket Failed"));
    EXPECT_EQ(threads, Entries("/proc/self/task"));
    EXPECT_TRUE(consumer.StreamInfo<bool>(STREAM_INFO_IS_GRABBING));
    consumer.Stop();
    EXPECT_EQ(0U, camera->Register(0x0D00));

    camera->SetTcpFaults({});
    Start();
    NextWhole(1);
    consumer.Stop();
}

// The memory is that of the whole process: the first cycles warm it up.
TEST_F(TcpStreaming, StartsAndStopsWithoutAnythingLeftBehind)
{
    constexpr std::ptrdiff_t kSmallestBlock = 32;  // that a leak of each cycle would leave
    Open();
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
        NextWhole(1);
        ASSERT_FALSE(HasFailure()) << "cycle " << cycle;
        consumer.Stop();
        Consumer::Check(DSFlushQueue(consumer.Stream(), ACQ_QUEUE_ALL_TO_INPUT), "DSFlushQueue");
    }
    EXPECT_EQ(threads, Entries("/proc/self/task"));
    EXPECT_GE(descriptors + 2, Entries("/proc/self/fd")) << "the camera's end may live a moment longer";
    EXPECT_GT(200 * kSmallestBlock, static_cast<std::ptrdiff_t>(mallinfo2().uordblks - bytes));
}

}  // namespace
