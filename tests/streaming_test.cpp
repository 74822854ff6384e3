/// A consumer and a simulated camera in two network namespaces: discovery, control, images, and a lost
/// camera.
#include "Bench.h"
#include "Consumer.h"
#include "sim/Camera.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <sched.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <tuple>
#include <vector>

using namespace GenTL;
using testing::HasSubstr;

/// A device that fails to close, as that of a silent camera, stays allocated: nobody could say whether it is
/// in use.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:InterfaceGev::OpenOnHandle\n";
}

namespace {

// ---- Images

class EveryByte : public testing::TestWithParam<std::tuple<unsigned, bool>>
{
};

TEST_P(EveryByte, OfTwoHundredImages)
{
    const auto [packetSize, extended] = GetParam();
    Bench bench(packetSize);
    bench.config.packetSize = packetSize;
    bench.config.extendedId = extended;
    bench.config.geometry.width = 2048;
    bench.config.geometry.height = 1024;
    sim::Camera& camera = bench.StartCamera();
    Consumer consumer;
    OpenUpToStream(consumer, bench, 8, bench.config.geometry.ImageBytes());
    ExpireAfter(consumer, 5000);
    consumer.Start();
    EXPECT_EQ(0x40000000U | packetSize, camera.Register(0x0D04)) << "the test packet is not sent again";
    StartTriggered(consumer, camera, 4);
    for (std::uint64_t i = 1; i <= 200; ++i) {
        void* hBuffer = NextWholeImage(consumer, camera, i);
        ASSERT_FALSE(HasFailure());
        consumer.Queue(hBuffer);
        camera.Trigger();
    }
    EXPECT_EQ(0U, consumer.StreamInfo<std::uint64_t>(kMissedImages));
    EXPECT_EQ(0U, consumer.StreamInfo<std::uint64_t>(kMissedPackets));
    EXPECT_EQ(0U, consumer.StreamInfo<std::uint64_t>(STREAM_INFO_NUM_UNDERRUN));
    EXPECT_EQ(200U, consumer.StreamInfo<std::uint64_t>(STREAM_INFO_NUM_DELIVERED));
    StopCameraAcquisition(consumer);
    consumer.Stop();
}

INSTANTIATE_TEST_SUITE_P(BothHeaders,
                         EveryByte,
                         testing::Combine(testing::Values(1500U, 9000U), testing::Bool()),
                         [](const auto& parameter) {
                             return std::to_string(std::get<0>(parameter.param)) +
                                    (std::get<1>(parameter.param) ? "Extended" : "Standard");
                         });

TEST(Streaming, FindsThePacketSizeOfThePath)
{
    Bench bench(1500);
    bench.config.packetSize = 9000;
    sim::Camera& camera = bench.StartCamera();
    Consumer consumer;
    OpenUpToStream(consumer, bench, 4, bench.config.geometry.ImageBytes());

    EXPECT_NE(0, DSStartAcquisition(consumer.Stream(), ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE));
    EXPECT_THAT(Consumer::TakeError(),
                HasSubstr("test packet failed. Could be because mtu is < than that of the device"));
    EXPECT_FALSE(consumer.StreamInfo<bool>(STREAM_INFO_IS_GRABBING));
    EXPECT_EQ(0U, camera.Register(0x0D00));

    EnableAutoPacketSize(consumer);
    consumer.Start();
    EXPECT_EQ(1500U, camera.Register(0x0D04) & 0xFFFF);
    StartCameraAcquisition(consumer);
    EXPECT_NE(nullptr, consumer.NextImage(2000));
    consumer.Stop();
    EXPECT_EQ(0U, camera.Register(0x0D00));
}

// ---- Discovery and control

TEST(Control, FindsTellsAndMovesACamera)
{
    for (const auto answer : {sim::AnswerByBroadcast::Never, sim::AnswerByBroadcast::WhenAllowed}) {
        Bench bench;
        bench.config.answerByBroadcast = answer;
        bench.config.model = "Bench model";
        bench.config.userName = "left arm";
        bench.StartCamera();
        Consumer consumer;
        consumer.OpenInterface(bench.Net().HostAddress());
        const auto read = [&consumer](int command, void* to, std::size_t size) {
            int type = 0;
            Consumer::Check(IFGetDeviceInfo(consumer.Interface(), kSerial, command, &type, to, &size),
                            "info");
        };
        const std::pair<int, const char*> texts[] = {
            {DEVICE_INFO_VENDOR,            "Norvo Imaging Inc"},
            {DEVICE_INFO_MODEL,             "Bench model"      },
            {DEVICE_INFO_USER_DEFINED_NAME, "left arm"         },
            {DEVICE_INFO_VERSION,           "1.0.0"            },
        };
        for (const auto& [command, expected] : texts) {
            char text[64] = {};
            read(command, text, sizeof text);
            EXPECT_STREQ(expected, text);
        }
        std::uint64_t mac = 0;
        read(DEVICE_INFO_GEV_MAC_ADDRESS, &mac, sizeof mac);
        constexpr unsigned kNewAddress = 0xC0A84D63;  // 192.168.77.99
        // The answer to FORCEIP is awaited on the adapter's own socket, which hears no broadcast.
        const int expected = answer == sim::AnswerByBroadcast::Never ? GC_ERR_SUCCESS : GC_ERR_TIMEOUT;
        EXPECT_EQ(expected, IFForceIp(consumer.Interface(), mac, kNewAddress, 0xFFFFFF00, 0))
            << Consumer::TakeError();
        ASSERT_EQ(0, IFUpdateDeviceList(consumer.Interface(), nullptr, 300));
        std::uint32_t address = 0;
        read(DEVICE_INFO_GEV_IP_ADDRESS, &address, sizeof address);
        EXPECT_EQ(kNewAddress, address);
        consumer.OpenCamera(kSerial);
        EXPECT_EQ(bench.config.geometry.width, consumer.ReadRegister(sim::Feature::kWidth));
    }
}

// ---- What the modules' register maps decide

int ThreadsWithPolicy(int policy)
{
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        count += sched_getscheduler(std::stoi(entry.path().filename())) == policy;
    }
    return count;
}

TEST(RegisterMaps, DiscoverAndCommandTheCamera)
{
    Bench bench;
    bench.config.actionDeviceKey = 0x81020304;
    bench.config.actionGroupKey = 7;
    bench.config.actionGroupMask = 0x80000000;
    Consumer consumer;
    consumer.OpenInterface(bench.Net().HostAddress(), 1);
    sim::Camera& camera = bench.StartCamera();
    char id[512] = {};
    std::size_t size = sizeof id;
    EXPECT_EQ(GC_ERR_INVALID_INDEX, GCReadPort(consumer.Interface(), 0x1200, id, &size));
    EXPECT_EQ(0U, Consumer::ReadMap(consumer.Interface(), 0x1201));
    Consumer::WriteMap(consumer.Interface(), 0x1000, 0);
    EXPECT_EQ(1U, Consumer::ReadMap(consumer.Interface(), 0x1201));
    size = sizeof id;
    ASSERT_EQ(0, GCReadPort(consumer.Interface(), 0x1200, id, &size)) << Consumer::TakeError();
    EXPECT_STREQ(kSerial, id);

    // Only of a camera that says that it is little-endian the legacy mechanism turns words round.
    camera.SetRegister(0x0004, camera.Register(0x0004) & 0x7FFFFFFF);
    consumer.OpenCamera(kSerial);
    Consumer::WriteMap(consumer.Device(), 0x1200, 0);
    const std::uint32_t legacy = consumer.ReadRegister(sim::Feature::kWidth);
    Consumer::WriteMap(consumer.Device(), 0x1200, 1);
    EXPECT_EQ(htonl(legacy), consumer.ReadRegister(sim::Feature::kWidth));

    Consumer::WriteMap(consumer.Device(), 0x4200, 0x81020304);
    Consumer::WriteMap(consumer.Device(), 0x4300, 7);
    Consumer::WriteMap(consumer.Device(), 0x4400, 0x80000001);
    // The heartbeat may take the acknowledge for its own, so only the camera knows for sure.
    std::uint64_t any = 0;
    size = sizeof any;
    GCWritePort(consumer.Device(), 0x4000, &any, &size);
    EXPECT_EQ(1U, camera.Seen().actions);
}

TEST(RegisterMaps, DecideHowTheStreamStarts)
{
    Bench bench;
    sim::Camera& camera = bench.StartCamera();
    Consumer consumer;
    OpenUpToStream(consumer, bench, 4, bench.config.geometry.ImageBytes());
    Consumer::WriteMap(consumer.System(), 0x6000, 0);  // grab threads are to be SCHED_BATCH
    Consumer::WriteMap(consumer.System(), 0x6100, 2);
    Consumer::WriteMap(consumer.Stream(), 0x1900, 1);
    Consumer::WriteMap(consumer.Stream(), 0x2400, 1);
    bench.Net().RunOnHost(std::string("ip route add 224.0.0.0/4 dev ") + sim::TestNet::kHostInterface);
    EXPECT_EQ(0, ThreadsWithPolicy(SCHED_BATCH));
    consumer.Start();
    EXPECT_EQ(0xEF0A0A0AU, camera.Register(0x0D18)) << "the multicast group";
    EXPECT_EQ(1U, Consumer::ReadMap(consumer.Stream(), 0x1900));
    StartCameraAcquisition(consumer);
    EXPECT_NE(nullptr, consumer.NextImage(2000));
    EXPECT_LT(0, ThreadsWithPolicy(SCHED_BATCH));
    consumer.Stop();
    Consumer::WriteMap(consumer.System(), 0x6100, 1);
}

TEST(Control, HeartbeatKeepsItThreadsShareItAndCloseGivesItUp)
{
    Bench bench;
    bench.config.heartbeatTimeout = 500;
    sim::Camera& camera = bench.StartCamera();
    Consumer consumer;
    consumer.OpenInterface(bench.Net().HostAddress());
    consumer.OpenCamera(kSerial);
    usleep(1200000);
    EXPECT_TRUE(camera.IsControlled());
    EXPECT_EQ(0U, camera.Seen().heartbeatsLost);

    // Each thread must get the answer to its own command.
    std::vector<std::thread> threads;
    for (const auto address : {sim::Feature::kWidth, sim::Feature::kHeight, sim::Feature::kPixelFormat}) {
        threads.emplace_back([&consumer, address, expected = consumer.ReadRegister(address)] {
            for (int i = 0; i < 200; ++i) {
                std::uint32_t value = 0;
                std::size_t size = sizeof value;
                EXPECT_EQ(0, GCReadPort(consumer.Port(), address, &value, &size));
                EXPECT_EQ(expected, ntohl(value));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(consumer.DeviceInfo<bool>(DEVICE_INFO_IS_CONNECTED));
    consumer.CloseCamera();
    EXPECT_FALSE(camera.IsControlled());
}

TEST(Control, SilentCameraFailsCallsAndLeavesNothingBehind)
{
    Bench bench;
    bench.config.frameRate = 50;
    sim::Camera& camera = bench.StartCamera();
    Consumer consumer;
    consumer.OpenInterface(bench.Net().HostAddress());
    const std::size_t threads = Entries("/proc/self/task");
    const std::size_t descriptors = Entries("/proc/self/fd");

    consumer.OpenCamera(kSerial);
    consumer.OpenStream();
    consumer.Announce(4, bench.config.geometry.ImageBytes());
    consumer.QueueAll();
    consumer.Start();
    StartCameraAcquisition(consumer);
    ASSERT_NE(nullptr, consumer.NextImage(2000));
    camera.GoSilent(true);

    const auto start = std::chrono::steady_clock::now();
    std::uint32_t value = 0;
    std::size_t size = sizeof value;
    EXPECT_EQ(GC_ERR_TIMEOUT, GCReadPort(consumer.Port(), sim::Feature::kWidth, &value, &size));
    EXPECT_THAT(Consumer::TakeError(), HasSubstr("GenTL::HALGev::ReadReg Ack is invalid: -1019 : "));
    EXPECT_FALSE(consumer.DeviceInfo<bool>(DEVICE_INFO_IS_CONNECTED));
    while (consumer.NextImage(300) != nullptr) {
    }
    consumer.Stop();
    consumer.CloseStream();
    consumer.CloseCamera();
    // Four tries of 200 ms for each of the accesses above, and those of a heartbeat in between.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(threads, Entries("/proc/self/task"));
    EXPECT_EQ(descriptors, Entries("/proc/self/fd"));
}

}  // namespace
