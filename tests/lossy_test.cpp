/// Packet resend against a camera that loses packets by plan, and nothing else.
#include "Bench.h"
#include "Consumer.h"
#include "sim/Picture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <malloc.h>

#include <chrono>
#include <limits>
#include <set>
#include <tuple>
#include <utility>

using namespace GenTL;

namespace {

constexpr int kIncompleteImages = 1005;
constexpr std::ptrdiff_t kSmallestBlock = 32;  // that a leak of each cycle would leave
constexpr std::uint16_t kResendCommand = 0x0040;

/// Images of 45 payload packets, behind which a leader and a trailer make 47.
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
    std::size_t BytesPerPacket() const { return config.packetSize - (config.extendedId ? 48 : 36); }
    std::uint32_t PayloadPackets() const
    {
        return static_cast<std::uint32_t>((ImageBytes() + BytesPerPacket() - 1) / BytesPerPacket());
    }

    /// Opens a stream that asks as often as it takes, and gives an image up after expiryMs.
    void Open(Consumer& consumer, int buffers, unsigned long expiryMs)
    {
        OpenUpToStream(consumer, *this, buffers, ImageBytes());
        Consumer::WriteMap(consumer.Stream(), 0x1900, 1);
        Consumer::WriteMap(consumer.Stream(), 0x2300, 1000);
        Consumer::Check(DSSetupResendRetryParams(consumer.Stream(), expiryMs, 1000, "", ""), "retries");
    }
};

using Packet = std::pair<std::uint64_t, std::uint32_t>;  // block and id

std::set<Packet> LostPackets(const LossyBench& bench, const sim::StreamFaults& faults, std::uint64_t blocks)
{
    std::set<Packet> lost;
    for (std::uint64_t block = 1; block <= blocks; ++block) {
        for (std::uint32_t id = 0; id <= bench.PayloadPackets() + 1; ++id) {
            if (faults.Decide(block, id) == sim::PacketFault::Lose) {
                lost.emplace(block, id);
            }
        }
    }
    return lost;
}

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
        void* hBuffer = consumer.NextImage(10000);
        ASSERT_NE(nullptr, hBuffer) << "image " << block;
        ASSERT_EQ(block, consumer.BufferInfo<std::uint64_t>(hBuffer, BUFFER_INFO_FRAMEID));
        EXPECT_FALSE(consumer.BufferInfo<bool>(hBuffer, BUFFER_INFO_IS_INCOMPLETE)) << "image " << block;
        const void* data = consumer.BufferInfo<void*>(hBuffer, BUFFER_INFO_BASE);
        ASSERT_EQ(sim::Picture::kNoMismatch,
                  camera.CurrentPicture()->FindMismatch(block, data, bench.ImageBytes()))
            << "image " << block;
        consumer.Queue(hBuffer);
        camera.Trigger();
    }
    EXPECT_EQ(0U, consumer.StreamInfo<std::uint64_t>(kMissedImages));
    EXPECT_EQ(0U, consumer.StreamInfo<std::uint64_t>(kMissedPackets));
    EXPECT_EQ(0U, consumer.StreamInfo<std::uint64_t>(kIncompleteImages));
    StopCameraAcquisition(consumer);
    consumer.Stop();

    std::set<Packet> asked;
    std::uint64_t askedInAll = 0;
    for (const sim::ResendRequest& request : camera.Resends()) {
        EXPECT_EQ(bench.config.extendedId, request.extended);
        askedInAll += request.lastPacket - request.firstPacket + 1;
        const bool isBySilence = request.lastPacket > bench.PayloadPackets() + 1;
        for (std::uint32_t id = request.firstPacket; !isBySilence && id <= request.lastPacket; ++id) {
            if (request.blockId <= kImages) {
                asked.emplace(request.blockId, id);
            }
        }
    }
    const std::set<Packet> lost = LostPackets(bench, faults, kImages);
    EXPECT_EQ(lost, asked) << "exactly what is lost is asked for";
    const sim::Counters seen = camera.Seen();
    EXPECT_LE(lost.size(), seen.packetsLost) << "the camera was further ahead";
    EXPECT_LE(lost.size(), seen.resendPackets);
    EXPECT_GE(askedInAll, seen.resendPackets + seen.resendUnavailable) << "what waits at the stop is dropped";
    EXPECT_EQ(0U, seen.watchTimeouts);
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

TEST(LossForGood, IsToldOfEachImage)
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
    deaf.command = kResendCommand;
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
        EXPECT_EQ(bench.ImageBytes() - 2 * bench.BytesPerPacket(),
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
