/// Packet resend against a camera that loses packets by plan, and nothing else.
#include "Bench.h"
#include "Consumer.h"

#include <gtest/gtest.h>

#include <malloc.h>

#include <chrono>
#include <limits>
#include <tuple>

using namespace GenTL;

namespace {

constexpr int kIncompleteImages = 1005;
constexpr std::ptrdiff_t kSmallestBlock = 32;  // that a leak of each cycle would leave

/// Images of 45 payload packets in the standard form.
class LossyBench : public Bench
{
public:
    LossyBench()
    {
        config.geometry.width = 256;
        config.geometry.height = 256;
        config.storedBlocks = 64;
    }
    std::size_t ImageBytes() const { return config.geometry.ImageBytes(); }

    /// Opens a stream that asks as often as it takes, and gives an image up after expiryMs.
    void Open(Consumer& consumer, int buffers, unsigned long expiryMs)
    {
        OpenUpToStream(consumer, *this, buffers, ImageBytes());
        Consumer::WriteMap(consumer.Stream(), 0x1900, 1);
        Consumer::WriteMap(consumer.Stream(), 0x2300, 1000);
        ExpireAfter(consumer, expiryMs);
    }
};

class Loss : public testing::TestWithParam<std::tuple<double, unsigned, bool>>
{
};

TEST_P(Loss, IsMadeGood)
{
    constexpr std::uint64_t kImages = 500;
    constexpr unsigned kBuffers = 32;
    LossyBench bench;
    sim::StreamFaults faults;
    std::tie(faults.lose, faults.burst, bench.config.extendedId) = GetParam();
    sim::Camera& camera = bench.StartCamera();
    camera.SetStreamFaults(faults);
    Consumer consumer;
    bench.Open(consumer, kBuffers, 5000);
    consumer.Start();
    StartTriggered(consumer, camera, kBuffers / 2);
    for (std::uint64_t block = 1; block <= kImages; ++block) {
        void* hBuffer = NextWholeImage(consumer, camera, block);
        ASSERT_FALSE(HasFailure());
        consumer.Queue(hBuffer);
        camera.Trigger();
    }
    EXPECT_EQ(0U, consumer.StreamInfo<std::uint64_t>(kMissedImages));
    EXPECT_EQ(0U, consumer.StreamInfo<std::uint64_t>(kMissedPackets));
    EXPECT_EQ(0U, consumer.StreamInfo<std::uint64_t>(kIncompleteImages));
    StopCameraAcquisition(consumer);
    consumer.Stop();

    EXPECT_LT(0U, camera.Seen().packetsLost);
    EXPECT_EQ(0U, camera.Seen().watchTimeouts);
    const std::size_t perPacket = bench.config.packetSize - (bench.config.extendedId ? 48 : 36);
    const std::size_t trailer = bench.ImageBytes() / perPacket + 2;
    for (const sim::ResendRequest& request : camera.Resends()) {
        EXPECT_EQ(bench.config.extendedId, request.extended);
        const bool isBySilence = request.lastPacket > trailer;
        for (std::uint32_t id = request.firstPacket; !isBySilence && id <= request.lastPacket; ++id) {
            EXPECT_EQ(sim::PacketFault::Lose, faults.Decide(request.blockId, id)) << "no other is asked for";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(OfPackets,
                         Loss,
                         testing::Combine(testing::Values(0.001, 0.01, 0.05),
                                          testing::Values(1U, 4U),
                                          testing::Bool()),
                         [](const auto& row) {
                             return std::to_string(static_cast<int>(std::get<0>(row.param) * 1000)) +
                                    "PerMille" + (std::get<1>(row.param) > 1 ? "InBursts" : "Single") +
                                    (std::get<2>(row.param) ? "Extended" : "Standard");
                         });

// A camera that is deaf to the command.
TEST(LossyStream, TellsOfEachImageWhatIsLostForGood)
{
    constexpr unsigned kImages = 10;
    LossyBench bench;
    bench.config.frameRate = 20;
    sim::Camera& camera = bench.StartCamera();
    sim::StreamFaults faults;
    sim::PacketRule rule;
    rule.firstPacket = 7;
    rule.lastPacket = 8;
    faults.rules.push_back(rule);
    camera.SetStreamFaults(faults);
    sim::ControlFault deaf;
    deaf.fault = sim::AnswerFault::Ignore;
    deaf.command = 0x0040;
    deaf.times = std::numeric_limits<std::uint32_t>::max();
    camera.AddControlFault(deaf);
    Consumer consumer;
    bench.Open(consumer, 16, 300);
    consumer.Start();
    const auto begin = std::chrono::steady_clock::now();
    StartCameraAcquisition(consumer);
    for (std::uint64_t block = 1; block <= kImages; ++block) {
        void* hBuffer = consumer.NextImage(10000);
        ASSERT_NE(nullptr, hBuffer);
        EXPECT_EQ(block, consumer.BufferInfo<std::uint64_t>(hBuffer, BUFFER_INFO_FRAMEID));
        EXPECT_TRUE(consumer.BufferInfo<bool>(hBuffer, BUFFER_INFO_IS_INCOMPLETE));
        EXPECT_EQ(bench.ImageBytes() - 2 * (bench.config.packetSize - 36),
                  consumer.BufferInfo<std::uint64_t>(hBuffer, BUFFER_INFO_SIZE_FILLED));
        EXPECT_EQ(2 * block, consumer.StreamInfo<std::uint64_t>(kMissedPackets));
        EXPECT_EQ(block, consumer.StreamInfo<std::uint64_t>(kIncompleteImages));
        EXPECT_LE(std::chrono::milliseconds(300), std::chrono::steady_clock::now() - begin);
        consumer.Queue(hBuffer);
    }
    EXPECT_EQ(0U, consumer.StreamInfo<std::uint64_t>(kMissedImages));
    StopCameraAcquisition(consumer);
    consumer.Stop();
}

/// Bytes in use but for the camera's notes.
std::ptrdiff_t BytesInUse(const sim::Camera& camera)
{
    return static_cast<std::ptrdiff_t>(mallinfo2().uordblks) -
           static_cast<std::ptrdiff_t>(camera.Resends().size() * sizeof(sim::ResendRequest));
}

// The memory is that of the whole process: the first cycles warm it up, and the camera notes each request.
TEST(LossyStream, StartsAndStopsWithoutAnythingLeftBehind)
{
    LossyBench bench;
    bench.config.storedBlocks = 8;
    sim::Camera& camera = bench.StartCamera();
    sim::StreamFaults faults;
    faults.lose = 0.02;
    camera.SetStreamFaults(faults);
    Consumer consumer;
    bench.Open(consumer, 8, 50);
    StartCameraAcquisition(consumer);
    std::size_t threads = 0;
    std::size_t descriptors = 0;
    std::ptrdiff_t bytes = 0;
    for (int cycle = 0; cycle < 500; ++cycle) {
        if (cycle == 50) {
            threads = Entries("/proc/self/task");
            descriptors = Entries("/proc/self/fd");
            bytes = BytesInUse(camera);
        }
        consumer.Start();
        ASSERT_NE(nullptr, consumer.NextImage(10000)) << "cycle " << cycle;
        consumer.Stop();
        Consumer::Check(DSFlushQueue(consumer.Stream(), ACQ_QUEUE_ALL_TO_INPUT), "DSFlushQueue");
    }
    EXPECT_EQ(threads, Entries("/proc/self/task"));
    EXPECT_EQ(descriptors, Entries("/proc/self/fd"));
    EXPECT_GT(450 * kSmallestBlock, BytesInUse(camera) - bytes);
}

}  // namespace
