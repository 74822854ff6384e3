/// Packet resend against a camera that loses packets by plan, and nothing else.
#include "Bench.h"
#include "Consumer.h"

#include <gtest/gtest.h>

#include <malloc.h>

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
        Consumer::Check(DSSetupResendRetryParams(consumer.Stream(), expiryMs, 1000, "", ""), "retries");
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
    // So many at once that there is always a free buffer: an image goes out for each that was fetched.
    consumer.WriteRegister(sim::Feature::kTriggerMode, 1);
    StartCameraAcquisition(consumer);
    camera.Trigger(kBuffers / 2);
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
